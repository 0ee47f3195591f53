#pragma once

/// The arithmetic of the preview's playback, apart from its threads: where a running clock stands, which
/// decoded frame to show at that moment (and how many to drop), and the program's sound in the output
/// device's sample format.

#include <QAudioFormat>
#include <QByteArray>
#include <cstddef>
#include <optional>
#include <span>

namespace morvane::studio::PreviewTiming {

/// Program seconds of a clock started at `anchorSeconds`, running at `rate` (negative: backwards) for
/// `elapsedSeconds`, kept within 0 and `durationSeconds`.
[[nodiscard]] double clockPosition(double anchorSeconds, double rate, double elapsedSeconds,
                                   double durationSeconds) noexcept;

/// The frame to show among decoded frames queued in play order (their program times in `queued`): the last
/// one that is due at `clock`, a frame being due half a frame early. Earlier ones are dropped.
struct FramePick {
    std::optional<std::size_t> show;  ///< index into the queue; none when nothing is due yet
    std::size_t dropped = 0;          ///< frames before it that were never shown
};
[[nodiscard]] FramePick pickFrame(std::span<const double> queued, double clock, double frameSeconds,
                                  bool backwards) noexcept;

/// The index of the frame shown at `seconds` for frames of `frameSeconds` (the one that starts at or
/// before it), never below 0.
[[nodiscard]] long long frameIndex(double seconds, double frameSeconds) noexcept;

/// Mono samples (−1..1) as `format` wants them: every channel the same, clipped, in its sample type.
/// An unknown sample type gives nothing.
[[nodiscard]] QByteArray encodeSamples(std::span<const float> mono, const QAudioFormat& format);

}  // namespace morvane::studio::PreviewTiming
