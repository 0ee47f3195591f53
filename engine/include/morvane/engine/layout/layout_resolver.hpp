#pragma once

/// Which layout applies at a program time, which slot a clip takes in it, and which part of the source the
/// clip shows there.
///
///     auto regions = LayoutResolver::regions(plan);                 // from the plan's "layout" operations
///     const auto& layout = LayoutResolver::activeLayout(t, regions);  // "full_frame" where none applies
///     auto transform = LayoutResolver::resolvedTransform(clip, t, regions, 1.0);
///     //  transform.destinationRect: where on the canvas; transform.sourceRect: the crop, if any
///
/// Rectangles are normalised to the canvas (destinations) or to the source frame (crops), origin top left.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "morvane/engine/layout/layout_presets.hpp"
#include "morvane/engine/plan/edit_plan.hpp"
#include "morvane/engine/plan/edit_plan_resolver.hpp"
#include "morvane/engine/support/json.hpp"
#include "morvane/engine/time/rational_time.hpp"

namespace morvane::engine {

/// A stretch of program time under one layout.
struct LayoutRegion {
    std::string layoutID;
    RationalTime timelineStart;
    RationalTime timelineEnd;

    friend bool operator==(const LayoutRegion&, const LayoutRegion&) = default;
};

/// Keys "layoutID", "timelineStart", "timelineEnd" (time records), all required.
void to_json(Json& json, const LayoutRegion& region);
void fromJson(const JsonReader& reader, LayoutRegion& region);

/// Layout decisions for a clip at a time.
namespace LayoutResolver {

/// One region per "layout" operation, in document order: the layout id is the operation's `label` (empty
/// when absent), the start its `timeline_start` or else its `start`, the end its `end`. Regions that do not
/// start before they end are skipped. Throws `EngineError::invalidRationalTime` on a time that does not
/// parse.
[[nodiscard]] std::vector<LayoutRegion> regions(const EditPlan& plan);

/// The layout of the first region that holds `time` (start included, end excluded); "full_frame" when
/// none does or its id is not in the catalogue.
[[nodiscard]] const LayoutDefinition& activeLayout(RationalTime time,
                                                   const std::vector<LayoutRegion>& regions);

/// Whether a clip's own destination can be used: wider and taller than 0.002, within 0.01 of the canvas on
/// every side, and with at least 85% of its area on the canvas.
[[nodiscard]] bool isUsableDestination(const EditPlanRect& rect) noexcept;

/// `rect` cut to the canvas: an overhang on any side is taken off its width or height.
[[nodiscard]] EditPlanRect clamped(const EditPlanRect& rect) noexcept;

/// Where a clip's picture goes: its own destination, clamped, when usable; otherwise the slot `slotID` of
/// `layout`, or failing that of "pip", or failing that the first slot of that id in the catalogue (so a
/// webcam keeps its corner in any layout); with no slot or slot "main", the layout's "main" slot or else
/// its first. Nothing when no slot is found.
[[nodiscard]] std::optional<EditPlanRect> effectiveDestinationRect(
    const std::optional<EditPlanRect>& explicitRect, const std::optional<std::string>& slotID,
    const LayoutDefinition& layout);

/// `rect` narrowed (or shortened) about its centre to width / height == `aspect`; unchanged when `aspect` is
/// not a positive finite number or the rect has no area.
[[nodiscard]] EditPlanRect withAspect(EditPlanRect rect, double aspect) noexcept;

/// `effectiveDestinationRect` with the clip's own destination and slot.
[[nodiscard]] std::optional<EditPlanRect> destinationRect(const ProgramClip& clip,
                                                          const LayoutDefinition& layout);

/// The crop at program time `time` from the clip's keyframes (zoom regions first): none before the first
/// or after the last; a keyframe's own rect inside its span; between two keyframes, a move from one to
/// the next that eases in and out (smoothstep of the progress through the gap).
///
/// `renderAspect` is the shape a crop must have not to distort the picture, as width over height in the
/// source's normalised units: (destination width / height in pixels) ÷ (source width / height), 1.0 when
/// source and destination have the same shape. A rect of another shape is narrowed (or shortened) about
/// its centre until it has that shape. A `renderAspect` that is not a positive finite number leaves rects
/// as they are.
[[nodiscard]] std::optional<EditPlanRect> interpolatedSourceRect(const ProgramClip& clip, RationalTime time,
                                                                 double renderAspect);

/// The clip's crop (its transform's own, else `interpolatedSourceRect`) and its destination in the layout
/// active at `time`.
[[nodiscard]] EditPlanTransform resolvedTransform(const ProgramClip& clip, RationalTime time,
                                                  const std::vector<LayoutRegion>& regions,
                                                  double renderAspect);

}  // namespace LayoutResolver

}  // namespace morvane::engine
