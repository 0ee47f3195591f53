#pragma once

/// Finds repeated takes of a line among nearby segments and keeps the best one.
///
///     auto run = RetakeDetector::classify(segments, transcript, "Remove retakes.", "talk.mp4");
///     // the earlier take of "so the first thing you do" is dropped as "duplicate_retake"
///
/// Two segments are takes of one line when their normalized texts (lowercase, words of letters and
/// numbers joined by single blanks) are at least 78 % alike by edit distance. Each segment is compared
/// with the six that follow it; groups that share a segment are joined. In each group the take with the
/// best quality wins: 0.65 x (1 - its disfluency score) + 0.35 x its audio stability; on a tie the earlier
/// take stays.

#include <cstddef>
#include <filesystem>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "morvane/engine/audio/pcm_sample_reader.hpp"
#include "morvane/engine/support/cancellation.hpp"
#include "morvane/intelligence/models/classification.hpp"
#include "morvane/intelligence/models/transcript.hpp"

namespace morvane::intelligence {

struct CleanupEvidence;

namespace RetakeDetector {

/// How many following segments each segment is compared with.
inline constexpr int comparisonWindow = 6;
/// The least similarity (1 - edit distance / longer length) of two takes of one line.
inline constexpr double similarityThreshold = 0.78;

/// Whether typed text is about retakes ("retake", "start over", "best take", "dedupe", ...), ignoring case.
[[nodiscard]] bool matches(std::string_view instruction);

/// `text` lowercased, cut at every character that isn't a letter, mark or number, its pieces joined by
/// single blanks: "Um, so -- THE first" gives "um so the first".
[[nodiscard]] std::string normalize(std::string_view text);

/// The edit distance of two texts in characters (insertions, deletions, substitutions, each 1).
[[nodiscard]] std::size_t levenshtein(std::string_view a, std::string_view b);

/// Whether two segment texts are takes of one line: their normalized forms are equal (two empty ones
/// included), or both non-empty and at least 78 % alike.
[[nodiscard]] bool isSimilar(std::string_view a, std::string_view b);

/// The groups of takes of `segments`, each of at least two segments in ascending id order, no segment in
/// two groups, ordered by their first segment.
[[nodiscard]] std::vector<std::vector<TranscriptSegment>> retakeClusters(const SegmentDocument& segments);

/// How level the voice of `segment` is in `pcm` (48 kHz mono), 0 to 1; 0.5 without `pcm` or when the
/// segment is too short to tell.
[[nodiscard]] double audioStability(const TranscriptSegment& segment, const engine::PCMBuffer* pcm);

/// Keeps every segment but the lesser takes of each group, measuring `mediaURL` at 48 kHz when given. A
/// recording that can't be read is passed over. Throws only `OperationCancelled`.
[[nodiscard]] ClassificationRun classify(const SegmentDocument& segments,
                                         const TranscriptDocument& transcript, std::string_view instruction,
                                         const std::optional<std::filesystem::path>& mediaURL,
                                         const ProgressCallback& progress = {}, std::stop_token stop = {});

/// The same decision with the levels of `evidence` (read for `segments`).
[[nodiscard]] ClassificationRun classify(const SegmentDocument& segments,
                                         const TranscriptDocument& transcript, std::string_view instruction,
                                         const CleanupEvidence& evidence);

}  // namespace RetakeDetector

}  // namespace morvane::intelligence
