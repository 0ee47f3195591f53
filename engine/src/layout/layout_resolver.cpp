#include "morvane/engine/layout/layout_resolver.hpp"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

namespace morvane::engine {
namespace {

constexpr double kMinimumSide = 0.002;   // narrower or shorter destinations are slivers
constexpr double kEdgeAllowance = 0.01;  // how far a destination may overhang the canvas
constexpr double kOnCanvasShare = 0.85;  // of its area that must lie on the canvas

double overlapLength(double start, double length) {
    return std::max(0.0, std::min(start + length, 1.0) - std::max(start, 0.0));
}

EditPlanRect interpolated(const EditPlanRect& a, const EditPlanRect& b, double factor) {
    const auto mix = [factor](double from, double to) { return from + (to - from) * factor; };
    return {mix(a.x, b.x), mix(a.y, b.y), mix(a.width, b.width), mix(a.height, b.height)};
}

const EditPlanRect* slotRect(const LayoutDefinition* layout, std::string_view slotID) {
    if (layout == nullptr) return nullptr;
    const auto* slot = layout->slot(slotID);
    return slot != nullptr ? &slot->rect : nullptr;
}

}  // namespace

void to_json(Json& json, const LayoutRegion& region) {
    json = Json::object();
    json["layoutID"] = region.layoutID;
    json["timelineStart"] = region.timelineStart;
    json["timelineEnd"] = region.timelineEnd;
}

void fromJson(const JsonReader& reader, LayoutRegion& region) {
    region.layoutID = reader["layoutID"].get<std::string>();
    region.timelineStart = reader["timelineStart"].get<RationalTime>();
    region.timelineEnd = reader["timelineEnd"].get<RationalTime>();
}

std::vector<LayoutRegion> LayoutResolver::regions(const EditPlan& plan) {
    std::vector<LayoutRegion> out;
    for (const auto& op : plan.operations) {
        if (op.knownType() != EditPlanOperationType::layout) continue;
        const auto start = EditPlanResolver::parseTime(op.timelineStart.value_or(op.start));
        const auto end = EditPlanResolver::parseTime(op.end);
        if (!(start < end)) continue;
        out.push_back({op.label.value_or(std::string()), start, end});
    }
    return out;
}

const LayoutDefinition& LayoutResolver::activeLayout(RationalTime time,
                                                     const std::vector<LayoutRegion>& regions) {
    for (const auto& region : regions) {
        if (region.timelineStart <= time && time < region.timelineEnd) {
            if (const auto* layout = LayoutPresets::definition(region.layoutID)) return *layout;
            break;
        }
    }
    return *LayoutPresets::definition(LayoutPresets::fullFrameID);
}

EditPlanRect LayoutResolver::withAspect(EditPlanRect rect, double aspect) noexcept {
    if (!(aspect > 0.0) || !std::isfinite(aspect) || !(rect.width > 0.0) || !(rect.height > 0.0)) return rect;
    const double shape = rect.width / rect.height;
    if (shape > aspect) {
        const double width = rect.height * aspect;
        rect.x += (rect.width - width) * 0.5;
        rect.width = width;
    } else if (shape < aspect) {
        const double height = rect.width / aspect;
        rect.y += (rect.height - height) * 0.5;
        rect.height = height;
    }
    return rect;
}

bool LayoutResolver::isUsableDestination(const EditPlanRect& rect) noexcept {
    if (!(rect.width > kMinimumSide && rect.height > kMinimumSide)) return false;
    if (!(rect.x >= -kEdgeAllowance && rect.y >= -kEdgeAllowance)) return false;
    if (!(rect.x + rect.width <= 1.0 + kEdgeAllowance && rect.y + rect.height <= 1.0 + kEdgeAllowance))
        return false;
    const double onCanvas = overlapLength(rect.x, rect.width) * overlapLength(rect.y, rect.height);
    return onCanvas >= kOnCanvasShare * rect.width * rect.height;
}

EditPlanRect LayoutResolver::clamped(const EditPlanRect& rect) noexcept {
    EditPlanRect out = rect;
    if (out.x < 0.0) {
        out.width += out.x;
        out.x = 0.0;
    }
    if (out.y < 0.0) {
        out.height += out.y;
        out.y = 0.0;
    }
    if (out.x + out.width > 1.0) out.width = 1.0 - out.x;
    if (out.y + out.height > 1.0) out.height = 1.0 - out.y;
    return out;
}

std::optional<EditPlanRect> LayoutResolver::effectiveDestinationRect(
    const std::optional<EditPlanRect>& explicitRect, const std::optional<std::string>& slotID,
    const LayoutDefinition& layout) {
    if (explicitRect && isUsableDestination(*explicitRect)) return clamped(*explicitRect);
    if (slotID && *slotID != LayoutPresets::defaultSlotID) {
        if (const auto* rect = slotRect(&layout, *slotID)) return *rect;
        if (const auto* rect = slotRect(LayoutPresets::definition(LayoutPresets::pipID), *slotID))
            return *rect;
        if (const auto* slot = LayoutPresets::canonicalSlot(*slotID)) return slot->rect;
        return std::nullopt;
    }
    if (const auto* rect = slotRect(&layout, LayoutPresets::defaultSlotID)) return *rect;
    if (!layout.slots.empty()) return layout.slots.front().rect;
    return std::nullopt;
}

std::optional<EditPlanRect> LayoutResolver::destinationRect(const ProgramClip& clip,
                                                            const LayoutDefinition& layout) {
    return effectiveDestinationRect(clip.transform ? clip.transform->destinationRect : std::nullopt,
                                    clip.slotID, layout);
}

std::optional<EditPlanRect> LayoutResolver::interpolatedSourceRect(const ProgramClip& clip, RationalTime time,
                                                                   double renderAspect) {
    auto keyframes = clip.resolvedReframeKeyframes();
    if (!keyframes || keyframes->empty()) return std::nullopt;
    std::stable_sort(keyframes->begin(), keyframes->end(),
                     [](const auto& a, const auto& b) { return a.programStart < b.programStart; });

    const ReframeKeyframe* previous = nullptr;  // the keyframe that ended last, at or before `time`
    for (const auto& keyframe : *keyframes) {
        if (time < keyframe.programStart) {
            // `time` lies before this keyframe: in the gap after `previous`, or before the first keyframe.
            if (previous == nullptr) return std::nullopt;
            const double gap = keyframe.programStart.seconds() - previous->programEnd.seconds();
            const double u =
                gap > 0.0 ? std::clamp((time.seconds() - previous->programEnd.seconds()) / gap, 0.0, 1.0)
                          : 1.0;
            const double eased = u * u * (3.0 - 2.0 * u);
            return withAspect(interpolated(previous->sourceRect, keyframe.sourceRect, eased), renderAspect);
        }
        if (time < keyframe.programEnd) return withAspect(keyframe.sourceRect, renderAspect);
        if (previous == nullptr || previous->programEnd <= keyframe.programEnd) previous = &keyframe;
    }
    return std::nullopt;  // after the last keyframe
}

EditPlanTransform LayoutResolver::resolvedTransform(const ProgramClip& clip, RationalTime time,
                                                    const std::vector<LayoutRegion>& regions,
                                                    double renderAspect) {
    const auto& layout = activeLayout(time, regions);
    std::optional<EditPlanRect> source = clip.transform ? clip.transform->sourceRect : std::nullopt;
    if (!source) source = interpolatedSourceRect(clip, time, renderAspect);
    return {source, destinationRect(clip, layout)};
}

}  // namespace morvane::engine
