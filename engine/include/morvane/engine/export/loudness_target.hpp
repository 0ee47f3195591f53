#pragma once

/// The programme loudness an export aims at.
///
///     kLoudnessTargetNames.parse("podcast");              // LoudnessTarget::podcast
///     integratedLUFS(LoudnessTarget::youtube);            // -14.0
///     label(LoudnessTarget::none);                        // "Off"

#include <optional>
#include <string_view>

#include "morvane/engine/support/enum_table.hpp"

namespace morvane::engine {

/// A platform's loudness norm, or none (no correction).
enum class LoudnessTarget { youtube, podcast, none };

/// The persisted text of each target.
inline constexpr auto kLoudnessTargetNames = makeEnumTable<LoudnessTarget>({
    {LoudnessTarget::youtube, "youtube"},
    {LoudnessTarget::podcast, "podcast"},
    {LoudnessTarget::none, "none"},
});

/// What the export panel shows: "YouTube (-14 LUFS)", "Podcast (-16 LUFS)", "Off".
[[nodiscard]] constexpr std::string_view label(LoudnessTarget target) noexcept {
    switch (target) {
        case LoudnessTarget::youtube:
            return "YouTube (-14 LUFS)";
        case LoudnessTarget::podcast:
            return "Podcast (-16 LUFS)";
        case LoudnessTarget::none:
            return "Off";
    }
    return "Off";
}

/// The integrated loudness aimed at, in LUFS; nothing for `none`.
[[nodiscard]] constexpr std::optional<double> integratedLUFS(LoudnessTarget target) noexcept {
    switch (target) {
        case LoudnessTarget::youtube:
            return -14.0;
        case LoudnessTarget::podcast:
            return -16.0;
        case LoudnessTarget::none:
            return std::nullopt;
    }
    return std::nullopt;
}

}  // namespace morvane::engine
