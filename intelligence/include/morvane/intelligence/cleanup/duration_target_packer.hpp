#pragma once

/// A version of a requested length, such as a 60-second short, without a model: the target is read from
/// the instruction's spoken length, then the best window of segments is packed under a hard limit.
///
///     DurationTargetPacker::targetSeconds("make a 90s teaser");    // 90
///     DurationTargetPacker::targetSeconds("a two minute version"); // 120
///     DurationTargetPacker::instruction(45);                       // "Build a 45-second version with a
///     strong hook."

#include <array>
#include <optional>
#include <string>
#include <string_view>

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

/// A closed range of seconds.
struct SecondsRange {
    double lower = 0.0;
    double upper = 0.0;
    friend bool operator==(const SecondsRange&, const SecondsRange&) = default;
};

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

}  // namespace morvane::intelligence::DurationTargetPacker
