#pragma once

/// A version of a requested length, such as a 60-second short, without a model: the target is read from
/// the instruction's spoken length, the best passage of about that length is asked of the shorts scorer,
/// a greedy packing of segments stands in when there is none, and the result is cut off at a hard limit.
///
///     DurationTargetPacker::targetSeconds("make a 90s teaser");    // 90
///     DurationTargetPacker::targetSeconds("a two minute version"); // 120
///     DurationTargetPacker::instruction(45);  // "Build a 45-second version with a strong hook."
///     auto run = DurationTargetPacker::classify(segments, &transcript, "pack to 2 minutes");
///     run.results.front().modelNotes;          // "duration_pack:shorts_window;score=0.71;target=120s"

#include <array>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "morvane/intelligence/models/classification.hpp"
#include "morvane/intelligence/models/transcript.hpp"
#include "morvane/intelligence/publish/shorts_candidate_scorer.hpp"

namespace morvane::intelligence::DurationTargetPacker {

struct DurationPreset {
    double seconds = 0.0;
    std::string_view label;
};

/// The duration picker's choices, in order.
inline constexpr std::array<DurationPreset, 6> presets{{
    {15, "15s"},
    {30, "30s"},
    {45, "45s"},
    {60, "1 min"},
    {90, "90s"},
    {120, "2 min"},
}};

inline constexpr double defaultTargetSeconds = 60.0;
inline constexpr double minimumTargetSeconds = 8.0;
inline constexpr double maximumTargetSeconds = 600.0;
inline constexpr double hardMaxSeconds = 75.0;

using SecondsRange = intelligence::SecondsRange;

/// The length that typed text asks for, in seconds: "three minute", "2-minute" and "one minute" word
/// forms as written, otherwise "<n> seconds", "<n>s", "<n> min(utes)" or "build a <n>", clamped to
/// 8...600. Nothing when the text names no length.
[[nodiscard]] std::optional<double> targetSeconds(std::string_view instruction);

/// Whether typed text asks for a version of some length.
[[nodiscard]] bool matches(std::string_view instruction);

/// The acceptable lengths for a target: up to the clamped target, from 5 s or three quarters of it.
[[nodiscard]] SecondsRange range(double targetSeconds);

/// The length a packed cut never exceeds: 1.25 times the target, within 10...750 s.
[[nodiscard]] double hardMax(double targetSeconds);

/// "1 min", "2 min", "90s": the label of a length on the duration picker.
[[nodiscard]] std::string displayLabel(double seconds);

/// "Build a 60-second version with a strong hook." for a target length.
[[nodiscard]] std::string instruction(double targetSeconds);

/// Keeps the segments of a version of the length `instruction` asks for (60 s when it names none), or of
/// `targetRange` when given: the best passage the shorts scorer finds within the range, else the best
/// greedy packing, never longer in summed segment lengths than `hardMax` of the range's upper end (the
/// first segment always stays). Only `candidateKeepIDs` take part when given. Never fails; an empty
/// document gives an empty run.
[[nodiscard]] ClassificationRun classify(const SegmentDocument& segments,
                                         const TranscriptDocument* transcript, std::string_view instruction,
                                         const std::optional<std::set<int>>& candidateKeepIDs = std::nullopt,
                                         std::optional<SecondsRange> targetRange = std::nullopt);

/// The summed lengths (each at least 0) of the segments whose ids are kept, in seconds.
[[nodiscard]] double outputDurationSeconds(std::span<const int> keepIDs, const SegmentDocument& segments);

/// How well consecutive segments lasting `durationSeconds` serve as a version of `targetSeconds`: a
/// question or a hook word in the first line and a length near the target raise it; the transcript's
/// fillers inside the window lower it. `window` is not empty.
[[nodiscard]] double windowScore(std::span<const TranscriptSegment> window,
                                 const TranscriptDocument* transcript, double durationSeconds,
                                 double targetSeconds);

/// The ids, in time order, of the best-scoring run of consecutive pool segments (by start time) whose
/// summed lengths reach half of `maxSeconds` without passing it; a run whose first segment alone passes it
/// still counts. When no run reaches half, the segments from the first while they fit (the first always).
[[nodiscard]] std::vector<int> greedyPack(const SegmentDocument& segments, const std::set<int>& poolIDs,
                                          const TranscriptDocument* transcript, double maxSeconds);

/// `keepIDs` in order up to the first that would take their summed lengths above `hardMaxSeconds`; the
/// first known id stays whatever its length. Ids without a segment are passed over.
[[nodiscard]] std::vector<int> clampToHardMax(std::span<const int> keepIDs, const SegmentDocument& segments,
                                              double hardMaxSeconds);

}  // namespace morvane::intelligence::DurationTargetPacker
