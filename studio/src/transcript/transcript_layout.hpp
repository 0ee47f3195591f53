#pragma once

/// Where each word of a transcript goes on screen: words flow left to right and wrap at the width, and each
/// segment starts a paragraph of its own (so its keep or drop mark sits beside it). Pure arithmetic over a
/// measuring function, so that it is tested without fonts.
///
///     auto layout = TranscriptLayout::build(words, paragraphStarts, 400, [&](auto& t) { return fm.width(t);
///     },
///                                           {.lineHeight = 22});
///     const auto* hit = layout.wordAt({120, 40});

#include <QPoint>
#include <QRect>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace morvane::studio {

/// A word as the transcript view shows it.
struct TranscriptViewWord {
    int id = 0;
    std::string text;
    double startSeconds = 0.0;
    double endSeconds = 0.0;
};

/// A placed word: its index in the word list and its box.
struct PlacedWord {
    std::size_t index = 0;
    QRect box;
};

/// A placed paragraph: the rows it covers, and the index of its first word.
struct PlacedParagraph {
    std::size_t firstWord = 0;
    int top = 0;
    int bottom = 0;
};

struct TranscriptLayoutMetrics {
    int lineHeight = 22;
    int wordSpacing = 6;
    int paragraphSpacing = 10;
    int leftMargin = 14;  ///< room for the paragraph's keep or drop mark
    int rightMargin = 8;
    int topMargin = 8;
};

class TranscriptLayout {
  public:
    /// Lays `words` out in `width` pixels; a new paragraph starts at each index in `paragraphStarts`.
    [[nodiscard]] static TranscriptLayout build(const std::vector<TranscriptViewWord>& words,
                                                const std::set<std::size_t>& paragraphStarts, int width,
                                                const std::function<int(const std::string&)>& measure,
                                                TranscriptLayoutMetrics metrics = {});

    [[nodiscard]] const std::vector<PlacedWord>& words() const noexcept { return words_; }
    [[nodiscard]] const std::vector<PlacedParagraph>& paragraphs() const noexcept { return paragraphs_; }
    /// The height of everything laid out, margins included.
    [[nodiscard]] int height() const noexcept { return height_; }
    /// The index of the word under `point`, or none between words and past the text.
    [[nodiscard]] std::optional<std::size_t> wordAt(QPoint point) const;
    /// The index of the word nearest to `point` in reading order: for drags that leave the words.
    [[nodiscard]] std::optional<std::size_t> nearestWord(QPoint point) const;

  private:
    std::vector<PlacedWord> words_;
    std::vector<PlacedParagraph> paragraphs_;
    int height_ = 0;
};

/// The index of the word playing at `seconds` (start ≤ seconds < end), or of the last word started before
/// it when that one ended less than `holdSeconds` ago, so the highlight doesn't flicker in short pauses.
/// Words in time order.
[[nodiscard]] std::optional<std::size_t> wordPlayingAt(const std::vector<TranscriptViewWord>& words,
                                                       double seconds, double holdSeconds = 0.25);

}  // namespace morvane::studio
