#pragma once

/// Gathers what is known about a recording before the assistant cuts it into one `MediaEvidenceDocument`:
/// its pauses, the doubtful and filler words, phrases, sentences and topics, and frames worth a look.
///
///     MediaEvidenceDocument evidence = MediaEvidenceBuilder::build("talk.mp4", transcript, segments);
///     for (const auto& note : evidence.notes) warn(note);   // "3 low-confidence words — review ..."
///
/// Building never fails: a recording whose silences can't be detected gives no silences (and no note
/// about them).

#include <filesystem>
#include <span>
#include <stop_token>
#include <vector>

#include "morvane/engine/silence/silence_detector.hpp"
#include "morvane/engine/support/cancellation.hpp"
#include "morvane/intelligence/evidence/media_evidence_document.hpp"
#include "morvane/intelligence/models/transcript.hpp"

namespace morvane::intelligence::MediaEvidenceBuilder {

/// The frames a session asks for.
inline constexpr int defaultMaxFrames = 12;
/// Words recognised with less confidence than this are doubtful.
inline constexpr double lowConfidence = 0.55;
/// Pauses at least this long (seconds) are worth a note.
inline constexpr double longSilenceSeconds = 1.5;

/// The evidence of `mediaURL`, whose silences are detected at -40 dB (0.02 s windows, 0.15 s minimum,
/// 0.05 s padding), with `transcript` and its `segments`. Throws only `OperationCancelled`.
[[nodiscard]] MediaEvidenceDocument build(const std::filesystem::path& mediaURL,
                                          const TranscriptDocument& transcript,
                                          const SegmentDocument& segments, int maxFrames = defaultMaxFrames,
                                          const ProgressCallback& progress = {}, std::stop_token stop = {});

/// The same with the silences already detected.
[[nodiscard]] MediaEvidenceDocument build(std::span<const engine::SilenceSpan> silences,
                                          const TranscriptDocument& transcript,
                                          const SegmentDocument& segments, int maxFrames = defaultMaxFrames);

/// Up to `maxFrames` frames: an opener (at 2 % of the duration, at most 1 s), the midpoint, a closer (1 s
/// before the end), then the start of each topic up to the limit, noted with the topic's first 80
/// characters. None for a duration not above 0 or fewer than one frame.
[[nodiscard]] std::vector<EvidenceFrameSample> sampleFrames(double durationSeconds,
                                                            std::span<const EvidenceSpan> topicSpans,
                                                            int maxFrames);

}  // namespace morvane::intelligence::MediaEvidenceBuilder
