#pragma once

#include "morvane/engine/layout/reframe_keyframe.hpp"
#include "morvane/engine/plan/edit_plan_rect.hpp"
#include "morvane/engine/support/json.hpp"
#include "morvane/engine/time/rational_time.hpp"

namespace morvane::engine {

/// A zoom the user set on a clip: over program time `timelineStart` to `timelineEnd`, show `sourceRect`
/// (normalised to the source frame). A clip's zoom regions replace its automatic reframe keyframes.
struct ClipZoomRegion {
    RationalTime timelineStart;
    RationalTime timelineEnd;
    EditPlanRect sourceRect;

    /// The equal keyframe, field by field.
    [[nodiscard]] ReframeKeyframe asKeyframe() const noexcept {
        return {timelineStart, timelineEnd, sourceRect};
    }
    /// The region that holds `keyframe`'s crop over its span.
    [[nodiscard]] static ClipZoomRegion fromKeyframe(const ReframeKeyframe& keyframe) noexcept {
        return {keyframe.programStart, keyframe.programEnd, keyframe.sourceRect};
    }

    friend bool operator==(const ClipZoomRegion&, const ClipZoomRegion&) = default;
};

/// {"timeline_start", "timeline_end"} as time records ({"value","timescale"}) and "source_rect"; all
/// required.
void to_json(Json& json, const ClipZoomRegion& region);
void fromJson(const JsonReader& reader, ClipZoomRegion& region);

}  // namespace morvane::engine
