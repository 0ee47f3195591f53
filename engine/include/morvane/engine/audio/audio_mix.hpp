#pragma once

/// How the audio tracks of a composition sound together: one volume envelope per track, of steps and
/// linear ramps in composition time, and the algorithm that changes a track's speed.
///
///     AudioMixInputParameters primary{.trackID = 2};
///     primary.setVolume(1.0f, s(0));
///     primary.setVolumeRamp(1.0f, 0.0f, {s(9.9), s(10)});   // out to silence at the cut at 10 s
///     primary.volume(s(9.95));                              // 0.5
///     AudioMix mix{.inputParameters = {primary}};

#include <cstdint>
#include <vector>

#include "morvane/engine/time/rational_time.hpp"

namespace morvane::engine {

/// How a track played at another speed is stretched.
enum class AudioTimePitchAlgorithm {
    spectral,   ///< the pitch is kept (a phase vocoder)
    varispeed,  ///< the pitch moves with the speed, as tape does
};

/// A level from `timeRange.start`: a ramp from `startVolume` to `endVolume` across the range, then
/// `endVolume` held until the next change. A step is a ramp of no length.
struct AudioVolumeRamp {
    float startVolume = 1.0f;
    float endVolume = 1.0f;
    TimeSpan timeRange;

    friend bool operator==(const AudioVolumeRamp&, const AudioVolumeRamp&) = default;
};

/// The envelope and stretching of one audio track.
struct AudioMixInputParameters {
    std::int32_t trackID = 0;
    AudioTimePitchAlgorithm audioTimePitchAlgorithm = AudioTimePitchAlgorithm::spectral;
    std::vector<AudioVolumeRamp> volumeRamps;  ///< in time order; of two at one time, the later wins

    /// The level `volume` from `time` on.
    void setVolume(float volume, RationalTime time);
    /// A linear ramp across `timeRange`, whose end level then holds.
    void setVolumeRamp(float startVolume, float endVolume, TimeSpan timeRange);
    /// The linear gain at `seconds` of composition time; 1.0 before the first change.
    [[nodiscard]] float volume(double seconds) const noexcept;

    friend bool operator==(const AudioMixInputParameters&, const AudioMixInputParameters&) = default;
};

/// The envelopes of a composition's audio tracks. A track without parameters plays at 1.0.
struct AudioMix {
    std::vector<AudioMixInputParameters> inputParameters;

    /// The parameters of `trackID`, or null.
    [[nodiscard]] const AudioMixInputParameters* parameters(std::int32_t trackID) const noexcept;

    friend bool operator==(const AudioMix&, const AudioMix&) = default;
};

}  // namespace morvane::engine
