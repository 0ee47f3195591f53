#pragma once

#include "morvane/engine/plan/edit_plan_rect.hpp"
#include "morvane/engine/support/json.hpp"
#include "morvane/engine/time/rational_time.hpp"

namespace morvane::engine {

/// A crop held over a stretch of program time: from `programStart` to `programEnd` the clip shows only
/// `sourceRect` of its frame (normalised to the source).
struct ReframeKeyframe {
    RationalTime programStart;
    RationalTime programEnd;
    EditPlanRect sourceRect;

    friend bool operator==(const ReframeKeyframe&, const ReframeKeyframe&) = default;
};

/// {"programStart", "programEnd"} as time records ({"value","timescale"}) and "sourceRect"; all required.
void to_json(Json& json, const ReframeKeyframe& keyframe);
void fromJson(const JsonReader& reader, ReframeKeyframe& keyframe);

}  // namespace morvane::engine
