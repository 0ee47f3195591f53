#pragma once

#include "morvane/engine/support/json.hpp"

namespace morvane::engine {

/// How the recorded pointer is drawn over a screen recording. `CursorStyle{}` is the default style.
struct CursorStyle {
    bool isVisible = true;
    double size = 1.0;          ///< scale of the drawn pointer
    double smoothing = 0.35;    ///< 0 follows every jitter, 1 glides
    double motionBlur = 0.25;   ///< blur along the motion
    double clickBounce = 0.18;  ///< how far the pointer shrinks on a click
    double sway = 0.08;         ///< tilt with horizontal motion
    bool loopMode = false;      ///< play the track again when the clip outlasts it

    friend bool operator==(const CursorStyle&, const CursorStyle&) = default;
};

/// Keys "visible", "size", "smoothing", "motion_blur", "click_bounce", "sway", "loop_mode", all required.
void to_json(Json& json, const CursorStyle& style);
void fromJson(const JsonReader& reader, CursorStyle& style);

}  // namespace morvane::engine
