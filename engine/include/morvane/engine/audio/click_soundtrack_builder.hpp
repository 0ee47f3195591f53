#pragma once

/// The clicks of a screen recording as a sound: a short decaying 1180 Hz blip at each click, written as a
/// 16-bit mono WAV at 44100 Hz, with silence elsewhere.
///
///     ClickSoundtrackBuilder::writeWAV({1.2, 4.75}, 6.0, "/tmp/morvane-clicks.wav");
///
/// Each blip is s[i] = (1 − i/529) · sin(2π · 1180 · i / 44100) · 0.55 for i in 0…528, clamped to −1…1 and
/// scaled by 32767, replacing the samples where it falls.

#include <filesystem>
#include <span>

namespace morvane::engine::ClickSoundtrackBuilder {

inline constexpr int sampleRate = 44100;
/// The length of one blip, in samples.
inline constexpr int clickSamples = 529;

/// Writes the soundtrack of `clicks` (seconds) to `to`: max(trunc(duration × 44100), 11025) samples, a
/// blip from round(time × 44100) for each click, cut at the end of the buffer (a click past the end adds
/// nothing). Throws `EngineError::exportFailed` with "Could not write processed audio." when the file
/// can't be written.
void writeWAV(std::span<const double> clicks, double durationSeconds, const std::filesystem::path& to);

}  // namespace morvane::engine::ClickSoundtrackBuilder
