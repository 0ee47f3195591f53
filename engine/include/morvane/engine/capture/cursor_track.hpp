#pragma once

/// The pointer track recorded beside a screen recording: where the cursor was, and which buttons were held.
/// A plan's source may carry one; the renderer draws it.
///
///     auto smooth = track.smoothed(5);          // each position the mean of 5 neighbours
///     auto at = smooth.sample(12.4);            // interpolated between the samples around 12.4 s

#include <cstdint>
#include <optional>
#include <vector>

#include "morvane/engine/support/json.hpp"

namespace morvane::engine {

/// The mouse buttons held at a sample, as a bit set; bit 0 is the primary button.
struct CursorButtons {
    static constexpr std::uint8_t primary = 1;

    std::uint8_t rawValue = 0;

    [[nodiscard]] bool contains(std::uint8_t button) const noexcept { return (rawValue & button) == button; }

    friend bool operator==(const CursorButtons&, const CursorButtons&) = default;
};

/// One position of the pointer.
struct CursorSample {
    double seconds = 0.0;  ///< since the recording's start, pauses left out
    double x = 0.0;        ///< 0.0–1.0 across the captured area
    double y = 0.0;        ///< 0.0–1.0 down the captured area
    CursorButtons buttons;

    friend bool operator==(const CursorSample&, const CursorSample&) = default;
};

/// A whole recorded pointer track.
struct CursorTrack {
    std::vector<CursorSample> samples;  ///< sorted by `seconds`
    double captureWidth = 0.0;          ///< captured area, in points
    double captureHeight = 0.0;

    /// The position at `seconds`: nothing for an empty track; the first sample at or before its time, the
    /// last at or after its time; otherwise `x` and `y` interpolated linearly between the samples around
    /// it, with the buttons of the later one.
    [[nodiscard]] std::optional<CursorSample> sample(double seconds) const noexcept;

    /// The track with each position the mean over the samples within `window / 2` on either side (fewer at
    /// the ends); times and buttons unchanged. With fewer than 3 samples or a window below 2, the track as
    /// it is.
    [[nodiscard]] CursorTrack smoothed(int window) const;

    friend bool operator==(const CursorTrack&, const CursorTrack&) = default;
};

/// The bit set's raw value, an integer 0–255.
void to_json(Json& json, const CursorButtons& buttons);
void fromJson(const JsonReader& reader, CursorButtons& buttons);
/// Keys "seconds", "x", "y", "buttons", all required.
void to_json(Json& json, const CursorSample& sample);
void fromJson(const JsonReader& reader, CursorSample& sample);
/// Keys "samples", "captureWidth", "captureHeight", all required.
void to_json(Json& json, const CursorTrack& track);
void fromJson(const JsonReader& reader, CursorTrack& track);

}  // namespace morvane::engine
