#pragma once

/// The settings that decide how a programme's tracks sound together at output.
///
///     auto options = AudioFinishingOptions::preview();
///     options.speechSpans = {{s(2), s(9)}};    // music ducks to a quarter here

#include <vector>

#include "morvane/engine/export/loudness_target.hpp"
#include "morvane/engine/time/rational_time.hpp"

namespace morvane::engine {

/// How the primary speech, cuts and music are finished.
struct AudioFinishingOptions {
    std::vector<TimeSpan> speechSpans;                     ///< program ranges in which someone speaks
    LoudnessTarget loudnessTarget = LoudnessTarget::none;  ///< of the programme
    float primaryLoudnessGain = 1.0f;                      ///< linear gain on the primary clips
    int crossfadeFrames = 3;                               ///< length of the ramps at cuts, in frames
    float musicDuckLevel = 0.25f;                          ///< linear level of music under speech
    double duckRampSeconds = 0.2;                          ///< length of the ducking ramps

    /// For playback in the editor: no loudness target.
    [[nodiscard]] static AudioFinishingOptions preview() { return {}; }
    /// For files written out: aimed at YouTube's loudness.
    [[nodiscard]] static AudioFinishingOptions forExport() {
        AudioFinishingOptions options;
        options.loudnessTarget = LoudnessTarget::youtube;
        return options;
    }

    friend bool operator==(const AudioFinishingOptions&, const AudioFinishingOptions&) = default;
};

}  // namespace morvane::engine
