#include "transcript/transcript_layout.hpp"

#include <algorithm>

namespace morvane::studio {

TranscriptLayout TranscriptLayout::build(const std::vector<TranscriptViewWord>& words,
                                         const std::set<std::size_t>& paragraphStarts, int width,
                                         const std::function<int(const std::string&)>& measure,
                                         TranscriptLayoutMetrics metrics) {
    TranscriptLayout layout;
    layout.words_.reserve(words.size());
    const int left = metrics.leftMargin;
    const int right = std::max(width - metrics.rightMargin, left + 1);
    int x = left;
    int y = metrics.topMargin;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const int w = std::max(measure(words[i].text), 1);
        if (i > 0 && paragraphStarts.contains(i)) {
            layout.paragraphs_.back().bottom = y + metrics.lineHeight;
            x = left;
            y += metrics.lineHeight + metrics.paragraphSpacing;
        } else if (x > left && x + w > right) {
            // A word wider than the whole line keeps a line of its own rather than wrapping forever.
            x = left;
            y += metrics.lineHeight;
        }
        if (i == 0 || paragraphStarts.contains(i))
            layout.paragraphs_.push_back({i, y, y + metrics.lineHeight});
        layout.words_.push_back({i, QRect(x, y, w, metrics.lineHeight)});
        x += w + metrics.wordSpacing;
    }
    if (!layout.paragraphs_.empty()) layout.paragraphs_.back().bottom = y + metrics.lineHeight;
    layout.height_ = words.empty() ? 0 : y + metrics.lineHeight + metrics.topMargin;
    return layout;
}

std::optional<std::size_t> TranscriptLayout::wordAt(QPoint point) const {
    // Words are in reading order: find the first whose row reaches the point, then walk that row.
    auto it = std::lower_bound(words_.begin(), words_.end(), point.y(),
                               [](const PlacedWord& w, int y) { return w.box.bottom() < y; });
    for (; it != words_.end() && it->box.top() <= point.y(); ++it) {
        // The gap after a word belongs to it, so a click between words still lands.
        if (point.x() >= it->box.left() && point.x() < it->box.right() + 6) return it->index;
    }
    return std::nullopt;
}

std::optional<std::size_t> TranscriptLayout::nearestWord(QPoint point) const {
    if (words_.empty()) return std::nullopt;
    std::optional<std::size_t> best = words_.front().index;
    for (const auto& w : words_) {
        if (w.box.top() > point.y()) break;
        const bool onRow = w.box.bottom() >= point.y();
        // Rows above count whole; on the pointer's row, the words up to the pointer (or its first word).
        if (!onRow || w.box.left() <= point.x() || words_[*best].box.bottom() < point.y()) best = w.index;
    }
    return best;
}

std::optional<std::size_t> wordPlayingAt(const std::vector<TranscriptViewWord>& words, double seconds,
                                         double holdSeconds) {
    const auto after =
        std::upper_bound(words.begin(), words.end(), seconds,
                         [](double t, const TranscriptViewWord& w) { return t < w.startSeconds; });
    if (after == words.begin()) return std::nullopt;
    const auto index = static_cast<std::size_t>(after - words.begin()) - 1;
    if (seconds < words[index].endSeconds + holdSeconds) return index;
    return std::nullopt;
}

}  // namespace morvane::studio
