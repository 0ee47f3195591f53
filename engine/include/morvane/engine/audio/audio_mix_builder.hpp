#pragma once

/// Volume envelopes from plan clips: the primary speech with ramps at every cut, overlays at their level,
/// and music that ducks under speech.
///
///     AudioMixInputParameters primary{.trackID = 2};
///     AudioMixBuilder::applyPrimaryEnvelope(primary, clips, frameDuration,
///     AudioFinishingOptions::preview());
///     //  clip A ends at 10 s, clip B (another source moment) starts there, 30 fps, 3 frames:
///     //      level ──────╲            ╱──────
///     //                   ╲__________╱           ramps of 0.1 s that meet at 0 at the cut
///     //                 9.9   10.0   10.1
///
/// A clip's level is its `audioGain` floored at 0, or 1.0 without one. Differences of level or time below
/// 0.0001 count as none. Where one clip continues the source exactly where the previous one stopped, at
/// the same speed, nothing is cut and no ramp is written.

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "morvane/engine/audio/audio_finishing_options.hpp"
#include "morvane/engine/audio/audio_mix.hpp"
#include "morvane/engine/plan/edit_plan_resolver.hpp"

namespace morvane::engine::AudioMixBuilder {

/// Clips that start or stop sound abruptly (an overlay, a music clip) ramp over this, so that no edge
/// clicks.
inline constexpr double edgeRampSeconds = 0.01;

/// The mix of the three kinds of track; nothing when no track is given clips. `musicClips[i]` plays on
/// `musicTracks[i]`.
[[nodiscard]] std::optional<AudioMix> build(std::span<const ProgramClip> primaryClips,
                                            std::optional<std::int32_t> primaryTrack,
                                            std::span<const ProgramClip> overlayClips,
                                            std::optional<std::int32_t> overlayTrack,
                                            std::span<const ProgramClip> musicClips,
                                            std::span<const std::int32_t> musicTracks,
                                            RationalTime frameDuration, const AudioFinishingOptions& options);

/// The primary speech: each clip at its level times `primaryLoudnessGain`, ramping from and to silence
/// over `crossfadeFrames` frame durations at each cut (held to half the clip).
void applyPrimaryEnvelope(AudioMixInputParameters& parameters, std::span<const ProgramClip> clips,
                          RationalTime frameDuration, const AudioFinishingOptions& options);

/// Overlays: each clip at its level, with short ramps at its edges.
void applyOverlayEnvelope(AudioMixInputParameters& parameters, std::span<const ProgramClip> clips);

/// One music clip: at its level, falling to `level × musicDuckLevel` over `duckRampSeconds` before each
/// speech span so that it is down while speech runs, and rising over as long after it.
void applyMusicEnvelope(AudioMixInputParameters& parameters, const ProgramClip& clip,
                        const AudioFinishingOptions& options);

/// `spans` sorted by start, with overlapping or touching spans merged; reversed and empty spans dropped.
[[nodiscard]] std::vector<TimeSpan> mergedSpeechSpans(std::vector<TimeSpan> spans);

/// A clip's level: its gain floored at 0, or 1.0.
[[nodiscard]] float clipLevel(const ProgramClip& clip) noexcept;

}  // namespace morvane::engine::AudioMixBuilder
