#pragma once

/// The transcript as text: the word playing now highlighted, a click seeks to a word, a drag (or
/// Shift-click) selects words, Delete strikes them out of the cut (and restores them when all were struck).
/// Struck words show struck through; after an assistant run each segment's paragraph carries its keep
/// (green), drop (red) or look-at-this (amber) mark, the reason in its tooltip.

#include <QAbstractScrollArea>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "transcript/transcript_layout.hpp"

namespace morvane::app {
class ProjectSession;
}

namespace morvane::studio {

/// How a segment came out of the last assistant run.
enum class SegmentMark { none, keep, drop, review };

class TranscriptView final : public QAbstractScrollArea {
  public:
    explicit TranscriptView(QWidget* parent);

    /// Asked to play from a word (source seconds).
    std::function<void(double)> onSeek;
    /// Asked to strike (`true`) or restore words.
    std::function<void(const std::set<int>&, bool)> onStrike;

    /// Takes what the session shows now; relays out only when the words or segments changed.
    void sync(const app::ProjectSession& session);

    [[nodiscard]] std::set<int> selectedWordIDs() const;
    /// Selects the words from `firstID` to `lastID` in reading order.
    void selectWords(int firstID, int lastID);
    /// Strikes the selection (or restores it when every selected word is struck already).
    void strikeSelection();
    /// The box of a word in viewport coordinates (scrolled into view first), or an empty box.
    [[nodiscard]] QRect wordBox(int wordID);
    [[nodiscard]] std::optional<int> playingWordID() const;
    [[nodiscard]] bool isStruck(int wordID) const { return struck_.contains(wordID); }
    [[nodiscard]] SegmentMark markOfParagraph(std::size_t paragraph) const;
    [[nodiscard]] std::size_t wordCount() const noexcept { return words_.size(); }

  protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    bool viewportEvent(QEvent* event) override;

  private:
    struct Paragraph {
        std::size_t firstWord = 0;
        SegmentMark mark = SegmentMark::none;
        std::string reason;
    };

    void relayout();
    void updateScrollBar();
    void ensureVisible(std::size_t index);
    [[nodiscard]] std::optional<std::size_t> indexAt(QPoint viewportPoint, bool nearest) const;
    [[nodiscard]] std::optional<std::size_t> indexOf(int wordID) const;

    std::vector<TranscriptViewWord> words_;
    std::vector<Paragraph> paragraphs_;
    std::set<int> struck_;
    std::optional<std::size_t> playing_;
    std::optional<std::size_t> anchor_;
    std::optional<std::size_t> selectionFirst_;
    std::optional<std::size_t> selectionLast_;
    bool dragged_ = false;
    TranscriptLayout layout_;
    int laidOutWidth_ = -1;
    std::string emptyText_;
};

}  // namespace morvane::studio
