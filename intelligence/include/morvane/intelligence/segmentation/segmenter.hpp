#pragma once

/// Cuts a transcript's words into segments, the unit of every edit decision, and moves their edges into
/// the nearest detected silence so that cuts fall where nobody speaks.
///
///     auto spans = SilenceDetector::detect("talk.mp4");
///     SegmentDocument segments = Segmenter::segment(transcript, spans);          // snapped to the spans
///     SegmentDocument plain = Segmenter::segment(transcript, {}, {.snapToSilence = false});
///     SegmentDocument fromFile = Segmenter::segment(transcript, "talk.mp4");     // detects, then snaps
///
/// A segment closes before a word that follows a pause of at least `pauseGapSeconds`, a bucket already
/// `maxSegmentDuration` long, or a word ending in ".", "!" or "?". Word times keep their timescale; once
/// any silence is known every edge is requantised to 1/600 s, snapped or not.

#include <filesystem>
#include <span>
#include <stop_token>
#include <vector>

#include "morvane/engine/silence/silence_detector.hpp"
#include "morvane/engine/support/cancellation.hpp"
#include "morvane/intelligence/models/transcript.hpp"

namespace morvane::intelligence {

/// How words are grouped into segments. `SegmentationOptions{}` holds the defaults.
struct SegmentationOptions {
    double maxSegmentDuration = 18.0;      ///< seconds; a bucket this long is closed before the next word
    double pauseGapSeconds = 0.55;         ///< a gap between words at least this long closes the bucket
    bool snapToSilence = true;             ///< move edges to detected silence
    double snapToleranceSeconds = 0.25;    ///< how far an edge may move
    bool preferSentenceBoundaries = true;  ///< a word ending in ".", "!" or "?" closes the bucket

    friend bool operator==(const SegmentationOptions&, const SegmentationOptions&) = default;
};

namespace Segmenter {

/// The segments of `transcript`, snapped to `silences` when `options.snapToSilence` is on and any are
/// given. Throws `IntelligenceError::emptyTranscript` when there are no words, and
/// `IntelligenceError::emptySegments` when no segment results.
[[nodiscard]] SegmentDocument segment(const TranscriptDocument& transcript,
                                      std::span<const engine::SilenceSpan> silences,
                                      const SegmentationOptions& options = {});

/// The segments of `transcript`, snapped to the silences detected in `mediaURL` with `silenceOptions`; with
/// `snapToSilence` off the media is not read. Throws as the call above, and passes the silence
/// detector's errors (`EngineError`, `OperationCancelled`) out unchanged.
[[nodiscard]] SegmentDocument segment(const TranscriptDocument& transcript,
                                      const std::filesystem::path& mediaURL,
                                      const SegmentationOptions& options = {},
                                      const engine::SilenceDetectionOptions& silenceOptions = {},
                                      const ProgressCallback& progress = {}, std::stop_token stop = {});

/// Each segment's start moved to the latest silence edge within `tolerance` seconds of it and its end to
/// the earliest such edge, kept at least 0.01 s long, then requantised to 1/600 s. Segments are moved
/// independently: neighbours may meet at one edge or overlap by up to the tolerance. Without silences
/// the segments come back as they are.
[[nodiscard]] std::vector<TranscriptSegment> snapBoundaries(std::vector<TranscriptSegment> segments,
                                                            std::span<const engine::SilenceSpan> silences,
                                                            double tolerance);

}  // namespace Segmenter

}  // namespace morvane::intelligence
