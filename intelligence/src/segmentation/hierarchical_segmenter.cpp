#include "morvane/intelligence/segmentation/hierarchical_segmenter.hpp"

#include <array>

#include "morvane/intelligence/support/text.hpp"

namespace morvane::intelligence::HierarchicalSegmenter {
namespace {

constexpr double kPhrasePauseSeconds = 0.35;
constexpr double kPhraseMaxSeconds = 8.0;
constexpr double kTopicMaxSeconds = 45.0;
constexpr double kTopicPauseSeconds = 2.0;

constexpr std::array<std::string_view, 10> kTopicCues{"next",      "another story",   "second",  "third",
                                                      "meanwhile", "so here's",       "chapter", "part two",
                                                      "moving on", "let's talk about"};

// Groups `items` into runs: a run closes before an item for which `closes(first, last, item)` holds.
template <class Item, class Closes, class Emit>
void runs(std::span<const Item> items, Closes closes, Emit emit) {
    std::size_t first = 0;
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (i > first && closes(items[first], items[i - 1], items[i])) {
            emit(items.subspan(first, i - first));
            first = i;
        }
    }
    if (first < items.size()) emit(items.subspan(first));
}

}  // namespace

Hierarchy build(const TranscriptDocument& transcript, std::span<const TranscriptSegment> leafSegments) {
    return {.phraseSpans = phraseSpans(transcript.words),
            .sentenceSpans = sentenceSpans(leafSegments),
            .topicSpans = topicSpans(leafSegments)};
}

std::vector<EvidenceSpan> phraseSpans(std::span<const TranscriptWord> words) {
    std::vector<EvidenceSpan> spans;
    const auto closes = [](const TranscriptWord& first, const TranscriptWord& last,
                           const TranscriptWord& word) {
        const double gap = word.start.seconds() - last.end.seconds();
        const double length = last.end.seconds() - first.start.seconds();
        return gap >= kPhrasePauseSeconds || length >= kPhraseMaxSeconds;
    };
    runs(words, closes, [&](std::span<const TranscriptWord> run) {
        EvidenceSpan span{.id = static_cast<int>(spans.size()),
                          .level = EvidenceSpanLevel::phrase,
                          .startSeconds = run.front().start.seconds(),
                          .endSeconds = run.back().end.seconds(),
                          .wordStartID = run.front().id,
                          .wordEndID = run.back().id};
        for (const auto& word : run) {
            if (&word != &run.front()) span.text += ' ';
            span.text += word.text;
        }
        spans.push_back(std::move(span));
    });
    return spans;
}

std::vector<EvidenceSpan> sentenceSpans(std::span<const TranscriptSegment> segments) {
    std::vector<EvidenceSpan> spans;
    spans.reserve(segments.size());
    for (const auto& segment : segments) {
        spans.push_back({.id = static_cast<int>(spans.size()),
                         .level = EvidenceSpanLevel::sentence,
                         .text = segment.text,
                         .startSeconds = segment.start.seconds(),
                         .endSeconds = segment.end.seconds(),
                         .wordStartID = segment.wordStartID,
                         .wordEndID = segment.wordEndID,
                         .segmentIDs = {segment.id}});
    }
    return spans;
}

std::vector<EvidenceSpan> topicSpans(std::span<const TranscriptSegment> segments) {
    std::vector<EvidenceSpan> spans;
    const auto closes = [](const TranscriptSegment& first, const TranscriptSegment& last,
                           const TranscriptSegment& segment) {
        const double length = segment.end.seconds() - first.start.seconds();
        const double gap = segment.start.seconds() - last.end.seconds();
        return length >= kTopicMaxSeconds || gap >= kTopicPauseSeconds || topicShiftCue(segment.text);
    };
    runs(segments, closes, [&](std::span<const TranscriptSegment> run) {
        EvidenceSpan span{.id = static_cast<int>(spans.size()),
                          .level = EvidenceSpanLevel::topic,
                          .startSeconds = run.front().start.seconds(),
                          .endSeconds = run.back().end.seconds(),
                          .wordStartID = run.front().wordStartID,
                          .wordEndID = run.back().wordEndID};
        for (const auto& segment : run) {
            if (&segment != &run.front()) span.text += ' ';
            span.text += segment.text;
            span.segmentIDs.push_back(segment.id);
        }
        spans.push_back(std::move(span));
    });
    return spans;
}

bool topicShiftCue(std::string_view text) {
    const std::string lowered = lowercased(text);
    const std::string_view t = lowered;
    for (std::string_view cue : kTopicCues) {
        if (t.starts_with(cue)) return true;
        const std::string between = std::string(" ") + std::string(cue) + " ";
        if (t.find(between) != std::string_view::npos) return true;
    }
    return false;
}

}  // namespace morvane::intelligence::HierarchicalSegmenter
