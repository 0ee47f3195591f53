#pragma once

/// The assistant: the primary commands as buttons (title and subtitle), the sheet of every command, a box
/// for a typed instruction, the chat log with its checkpoint lines (each with Restore), and the proposal bar
/// with Accept and Reject while a rough cut is under review (Accept and Reset for a cut made by striking
/// words). The panel only shows and asks; what the buttons do is the window's.

#include <QWidget>
#include <functional>
#include <string>
#include <vector>

#include "morvane/app/session/session_records.hpp"
#include "morvane/intelligence/instruction/assistant_command.hpp"

class QLabel;
class QLineEdit;
class QPushButton;
class QScrollArea;
class QVBoxLayout;
class QFrame;

namespace morvane::app {
class ProjectSession;
}

namespace morvane::studio {

class AssistantPanel final : public QWidget {
  public:
    struct Actions {
        std::function<void(intelligence::AssistantCommandID)> runCommand;
        std::function<void(const std::string&)> runInstruction;
        std::function<void(const std::string&)> restoreCheckpoint;  ///< a chat line's id
        std::function<void()> accept;
        std::function<void()> reject;
        std::function<void()> saveCheckpoint;
    };

    AssistantPanel(Actions actions, QWidget* parent);

    /// Shows what the session holds now; the chat is rebuilt only when its lines changed.
    void sync(const app::ProjectSession& session);

    /// The button of a primary command, for tests and shortcuts.
    [[nodiscard]] QPushButton* commandButton(intelligence::AssistantCommandID id) const;
    [[nodiscard]] QLineEdit* instructionBox() const noexcept { return instruction_; }
    [[nodiscard]] QPushButton* acceptButton() const noexcept { return accept_; }
    [[nodiscard]] QPushButton* rejectButton() const noexcept { return reject_; }
    [[nodiscard]] QFrame* proposalBar() const noexcept { return proposalBar_; }
    /// The Restore buttons of the chat's checkpoint lines, in chat order.
    [[nodiscard]] std::vector<QPushButton*> restoreButtons() const;
    /// Opens the sheet of every command.
    void showMoreCommands();

  private:
    void rebuildChat(const std::vector<app::ChatMessage>& messages);
    void submitInstruction();

    Actions actions_;
    std::vector<std::pair<intelligence::AssistantCommandID, QPushButton*>> commandButtons_;
    QPushButton* more_;
    QLineEdit* instruction_;
    QPushButton* send_;
    QScrollArea* chatScroll_;
    QWidget* chatContent_;
    QVBoxLayout* chatLayout_;
    QFrame* proposalBar_;
    QLabel* proposalText_;
    QPushButton* accept_;
    QPushButton* reject_;
    QPushButton* checkpoint_;
    std::vector<app::ChatMessage> shownMessages_;
    std::vector<QPushButton*> restoreButtons_;
    bool reviewing_ = false;
    bool busy_ = false;
};

}  // namespace morvane::studio
