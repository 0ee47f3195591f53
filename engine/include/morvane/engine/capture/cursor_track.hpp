#pragma once

/// The pointer track recorded beside a screen recording: where the cursor was, and which buttons were held.
/// A plan's source may carry one; drawing it is the renderer's job. These are the stored records only.

#include <cstdint>
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
