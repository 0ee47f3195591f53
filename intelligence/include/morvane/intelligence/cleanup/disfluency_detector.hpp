#pragma once

/// Scores each segment for filler words and false starts, and keeps or drops it by that score.
///
///     auto run = DisfluencyDetector::classify(segments, transcript, "Remove filler words.", "talk.mp4");
///     double score = DisfluencyDetector::disfluencyScore(segment, transcript);   // 0 clean ... 1 all filler
///
/// The score is the share of filler words among a segment's words (those whose ids lie between its first
/// and last word ids), raised to 0.55 for a segment under 1.2 s with any filler, to 0.95 for fewer than
/// four words that are all filler, and to 0.7 for a quiet segment (RMS under 0.015) with any filler. A
/// segment without words scores 1. A score of 0.45 or more is disfluent: `removeFiller` drops it
/// ("disfluency_score=0.55"), `identifyFiller` keeps only such segments.

#include <array>
#include <filesystem>
#include <optional>
#include <stop_token>
#include <string_view>

#include "morvane/engine/audio/pcm_sample_reader.hpp"
#include "morvane/engine/support/cancellation.hpp"
#include "morvane/intelligence/models/classification.hpp"
#include "morvane/intelligence/models/transcript.hpp"

namespace morvane::intelligence {

struct CleanupEvidence;

namespace DisfluencyDetector {

/// identifyFiller: the disfluent segments are the ones kept ("select segments that are mostly filler");
/// removeFiller: the filler is taken out.
enum class Mode { identifyFiller, removeFiller };

/// The words that count as filler once lowercased and trimmed of punctuation.
inline constexpr std::array<std::string_view, 10> fillerTokens{"um", "uh",   "uhh", "umm", "er",
                                                               "ah", "like", "hmm", "hm",  "mm"};

/// A score at least this high marks a segment disfluent.
inline constexpr double disfluentScore = 0.45;

/// The mode that typed text asks for, ignoring case, or none when it isn't about filler.
[[nodiscard]] std::optional<Mode> mode(std::string_view instruction);

/// Whether a word's text, trimmed of blanks, lowercased and trimmed of punctuation, is a filler token.
[[nodiscard]] bool isFiller(std::string_view wordText);

/// The filler words of `segment`.
[[nodiscard]] int disfluencyCount(const TranscriptSegment& segment, const TranscriptDocument& transcript);

/// How disfluent `segment` is, 0 to 1, with its level measured in `pcm` (48 kHz mono) when given.
[[nodiscard]] double disfluencyScore(const TranscriptSegment& segment, const TranscriptDocument& transcript,
                                     const engine::PCMBuffer* pcm = nullptr);

/// Decides every segment by its score, in the mode `instruction` asks for (`removeFiller` when it names
/// none), measuring levels in `mediaURL` at 48 kHz when given. A recording that can't be read is passed
/// over. Throws only `OperationCancelled`.
[[nodiscard]] ClassificationRun classify(const SegmentDocument& segments,
                                         const TranscriptDocument& transcript, std::string_view instruction,
                                         const std::optional<std::filesystem::path>& mediaURL,
                                         const ProgressCallback& progress = {}, std::stop_token stop = {});

/// The same decision with the levels of `evidence` (read for `segments`).
[[nodiscard]] ClassificationRun classify(const SegmentDocument& segments,
                                         const TranscriptDocument& transcript, std::string_view instruction,
                                         const CleanupEvidence& evidence);

}  // namespace DisfluencyDetector

}  // namespace morvane::intelligence
