#pragma once

/// The speech of a transcript at three levels, for the media evidence record: phrases (runs of words
/// between short pauses), sentences (one per segment) and topics (runs of segments between long pauses
/// or spoken cues such as "moving on").
///
///     auto hierarchy = HierarchicalSegmenter::build(transcript, segments.segments);
///     for (const EvidenceSpan& topic : hierarchy.topicSpans) fmt::print("{}\n", topic.text);

#include <span>
#include <string_view>
#include <vector>

#include "morvane/intelligence/evidence/media_evidence_document.hpp"
#include "morvane/intelligence/models/transcript.hpp"

namespace morvane::intelligence::HierarchicalSegmenter {

/// The three levels, each numbered from 0 in time order.
struct Hierarchy {
    std::vector<EvidenceSpan> phraseSpans;
    std::vector<EvidenceSpan> sentenceSpans;
    std::vector<EvidenceSpan> topicSpans;

    friend bool operator==(const Hierarchy&, const Hierarchy&) = default;
};

/// Phrases of the transcript's words, and sentences and topics of `leafSegments`.
[[nodiscard]] Hierarchy build(const TranscriptDocument& transcript,
                              std::span<const TranscriptSegment> leafSegments);

/// Runs of words closed before a word that follows a pause of at least 0.35 s, or once the run is 8 s long.
[[nodiscard]] std::vector<EvidenceSpan> phraseSpans(std::span<const TranscriptWord> words);

/// One span per segment, naming that segment.
[[nodiscard]] std::vector<EvidenceSpan> sentenceSpans(std::span<const TranscriptSegment> segments);

/// Runs of segments closed before a segment that would make the run 45 s long, follows a pause of at least
/// 2 s, or opens with a topic cue.
[[nodiscard]] std::vector<EvidenceSpan> topicSpans(std::span<const TranscriptSegment> segments);

/// Whether `text` announces a new topic: it begins with a cue ("next", "moving on", "let's talk about",
/// ...), ignoring case, or holds one between blanks.
[[nodiscard]] bool topicShiftCue(std::string_view text);

}  // namespace morvane::intelligence::HierarchicalSegmenter
