#include "morvane/engine/audio/audio_mix.hpp"

#include <algorithm>

namespace morvane::engine {

void AudioMixInputParameters::setVolume(float volume, RationalTime time) {
    setVolumeRamp(volume, volume, {time, time});
}

void AudioMixInputParameters::setVolumeRamp(float startVolume, float endVolume, TimeSpan timeRange) {
    // After every change that starts no later, so that of two at one time the later one wins.
    const auto at =
        std::upper_bound(volumeRamps.begin(), volumeRamps.end(), timeRange.start,
                         [](RationalTime t, const AudioVolumeRamp& r) { return t < r.timeRange.start; });
    volumeRamps.insert(at, {startVolume, endVolume, timeRange});
}

float AudioMixInputParameters::volume(double seconds) const noexcept {
    const auto after =
        std::upper_bound(volumeRamps.begin(), volumeRamps.end(), seconds,
                         [](double t, const AudioVolumeRamp& r) { return t < r.timeRange.start.seconds(); });
    if (after == volumeRamps.begin()) return 1.0f;
    const AudioVolumeRamp& ramp = *(after - 1);
    const double start = ramp.timeRange.start.seconds();
    const double end = ramp.timeRange.end.seconds();
    if (seconds >= end || end <= start) return ramp.endVolume;
    const double u = (seconds - start) / (end - start);
    return static_cast<float>(ramp.startVolume + (ramp.endVolume - ramp.startVolume) * u);
}

const AudioMixInputParameters* AudioMix::parameters(std::int32_t trackID) const noexcept {
    for (const auto& p : inputParameters)
        if (p.trackID == trackID) return &p;
    return nullptr;
}

}  // namespace morvane::engine
