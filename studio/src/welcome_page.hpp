#pragma once

/// What the window shows before there is a project: the invitation to start, the buttons to do so and the
/// projects opened last. Files dropped anywhere on it are imported.

#include <QWidget>

#include <filesystem>
#include <functional>
#include <vector>
#include "file_drop.hpp"

class QLabel;
class QListWidget;
class QPushButton;

namespace morvane::studio {

class WelcomePage final : public QWidget {
  public:
    struct Actions {
        std::function<void()> newProject;
        std::function<void()> importMedia;
        FilesHandler dropFiles;
        std::function<void(const std::filesystem::path&)> openRecent;
    };

    WelcomePage(Actions actions, QWidget* parent);

    /// The line under the title: the session's status while nothing is open.
    void setMessage(const QString& text);
    /// The projects to offer, newest first; the list hides when there are none.
    void setRecentProjects(const std::vector<std::filesystem::path>& bundles);
    [[nodiscard]] QLabel* messageLabel() const noexcept { return message_; }
    [[nodiscard]] QListWidget* recentList() const noexcept { return recent_; }

  protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

  private:
    Actions actions_;
    QLabel* message_;
    QLabel* recentTitle_;
    QListWidget* recent_;
};

}  // namespace morvane::studio
