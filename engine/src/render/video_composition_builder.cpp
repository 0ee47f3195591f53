#include "morvane/engine/render/video_composition_builder.hpp"

#include <algorithm>
#include <cmath>

#include "morvane/engine/composition/composition_builder.hpp"

namespace morvane::engine::VideoCompositionBuilder {
namespace {

constexpr double kSameTime =
    0.001;  // seconds: a clip edge this close to a transition is that transition's cut

RationalTime fromSeconds(double seconds) {
    return RationalTime::fromSeconds(seconds, RationalTime::workingTimescale);
}

// The right-hand limit of a range: a boundary itself belongs to the next range.
RationalTime justBefore(RationalTime end) {
    return end.subtracting(RationalTime{1, RationalTime::workingTimescale});
}

double clipEndSeconds(const ProgramClip& clip) {
    return clip.timelineStart.seconds() + clip.duration().seconds();
}

// The clip of `context` playing over the middle of `range`.
const ProgramClip* activeClip(const TrackContext& context, const TimeSpan& range) {
    const double middle = (range.start.seconds() + range.end.seconds()) / 2.0;
    for (const auto& clip : context.clips) {
        if (clip.timelineStart.seconds() <= middle && middle < clipEndSeconds(clip)) return &clip;
    }
    return nullptr;
}

bool coversCanvas(const EditPlanRect& r) {
    return r.x <= 1e-6 && r.y <= 1e-6 && r.x + r.width >= 1.0 - 1e-6 && r.y + r.height >= 1.0 - 1e-6;
}

const LayoutSlotDefinition* slotFor(const ProgramClip& clip, const LayoutDefinition& layout) {
    const std::string id = clip.slotID.value_or(std::string(LayoutPresets::defaultSlotID));
    if (const auto* slot = layout.slot(id)) return slot;
    if (id == LayoutPresets::defaultSlotID) return layout.slots.empty() ? nullptr : &layout.slots.front();
    if (const auto* pip = LayoutPresets::definition(LayoutPresets::pipID); pip != nullptr && pip->slot(id))
        return pip->slot(id);
    return LayoutPresets::canonicalSlot(id);
}

// A transition dips the primary picture: out over the half-duration before its time when the clip ends
// there, in over the half after when it starts there, and through both when it plays across it.
float transitionOpacity(const ProgramClip& clip, RationalTime time,
                        const EditPlanTransitionTable& transitions) {
    double opacity = 1.0;
    const double t = time.seconds();
    for (const auto& [at, transition] : transitions) {
        const auto length = RationalTime::tryParse(transition.duration);
        if (!length || !(length->seconds() > 0.0)) continue;
        const double cut = at.seconds();
        const double half = length->seconds() / 2.0;
        if (std::abs(t - cut) >= half) continue;
        const bool endsThere = std::abs(clipEndSeconds(clip) - cut) < kSameTime;
        const bool startsThere = std::abs(clip.timelineStart.seconds() - cut) < kSameTime;
        double factor = std::abs(t - cut) / half;
        if (endsThere && t >= cut) factor = 0.0;
        if (startsThere && t < cut) factor = 0.0;
        opacity = std::min(opacity, factor);
    }
    return static_cast<float>(std::clamp(opacity, 0.0, 1.0));
}

struct Placement {
    AffineTransform transform;
    RectD slot;  // canvas pixels
};

std::optional<Placement> placement(const ProgramClip& clip, RationalTime time, const LayoutDefinition& layout,
                                   RenderSize natural, const AffineTransform& turn, PixelSize canvas) {
    const auto destination = LayoutResolver::destinationRect(clip, layout);
    if (!destination || natural.width <= 0.0 || natural.height <= 0.0) return std::nullopt;
    const double W = canvas.width;
    const double H = canvas.height;
    const RectD slot{destination->x * W, destination->y * H, destination->width * W, destination->height * H};
    if (slot.width <= 0.0 || slot.height <= 0.0) return std::nullopt;
    const RectD upright = turn.boundingBox({0, 0, natural.width, natural.height});
    const double renderAspect = (slot.width / slot.height) / (upright.width / upright.height);

    std::optional<EditPlanRect> crop = clip.transform ? clip.transform->sourceRect : std::nullopt;
    if (!crop) crop = LayoutResolver::interpolatedSourceRect(clip, time, renderAspect);
    AffineTransform place;
    if (!crop && coversCanvas(*destination)) {
        const double s = std::min(slot.width / upright.width, slot.height / upright.height);
        place = AffineTransform::scale(s, s).concatenating(
            AffineTransform::translation(slot.x + (slot.width - upright.width * s) / 2.0,
                                         slot.y + (slot.height - upright.height * s) / 2.0));
    } else {
        const EditPlanRect c = crop ? *crop : LayoutResolver::withAspect({0.0, 0.0, 1.0, 1.0}, renderAspect);
        if (!(c.width > 0.0) || !(c.height > 0.0)) return std::nullopt;
        place = AffineTransform::translation(-c.x * upright.width, -c.y * upright.height)
                    .concatenating(AffineTransform::scale(slot.width / (c.width * upright.width),
                                                          slot.height / (c.height * upright.height)))
                    .concatenating(AffineTransform::translation(slot.x, slot.y));
    }
    return Placement{turn.concatenating(place), slot};
}

bool isPassthrough(const MorvaneCompositionInstruction& instruction, PixelSize canvas) {
    if (instruction.layers.size() != 1) return false;
    const auto& layer = instruction.layers.front();
    const bool plainStyle = !layer.presentationStyle || layer.presentationStyle->isIdentity();
    const bool roundedSlot = layer.slotCornerRadius * std::min(canvas.width, canvas.height) > 0.01;
    const bool drawsCursor = layer.cursorTrack && layer.cursorStyle && layer.cursorStyle->isVisible;
    return layer.kind == MorvaneCompositorLayer::Kind::video && layer.opacity >= 1.0f &&
           layer.opacityEnd >= 1.0f && !layer.matte && plainStyle && !roundedSlot && !drawsCursor &&
           !layer.needsTweening() && layer.transformStart.isClose(AffineTransform::identity()) &&
           layer.sourceSize ==
               RenderSize{static_cast<double>(canvas.width), static_cast<double>(canvas.height)};
}

}  // namespace

std::optional<MorvaneCompositorLayer> compositorLayer(const ProgramClip& clip, TrackRole role,
                                                      const TrackContext& context, const TimeSpan& range,
                                                      const InstructionInputs& inputs) {
    const auto natural = context.naturalSizes.find(clip.sourceID);
    if (natural == context.naturalSizes.end()) return std::nullopt;
    const auto turnIt = context.preferredTransforms.find(clip.sourceID);
    const AffineTransform turn =
        turnIt != context.preferredTransforms.end() ? turnIt->second : AffineTransform{};
    const auto& layout =
        LayoutResolver::activeLayout(range.start, {inputs.layoutRegions.begin(), inputs.layoutRegions.end()});

    const auto start = placement(clip, range.start, layout, natural->second, turn, inputs.renderSize);
    const auto end = placement(clip, justBefore(range.end), layout, natural->second, turn, inputs.renderSize);
    if (!start || !end) return std::nullopt;

    MorvaneCompositorLayer layer;
    layer.trackID = context.track;
    layer.transformStart = start->transform;
    layer.transformEnd = end->transform;
    layer.clipRect = start->slot;
    if (role == TrackRole::primary && inputs.transitions != nullptr) {
        layer.opacity = transitionOpacity(clip, range.start, *inputs.transitions);
        layer.opacityEnd = transitionOpacity(clip, range.end, *inputs.transitions);
    }
    layer.isOverlay = role == TrackRole::overlay;
    layer.matte = clip.matte;
    layer.presentationStyle = clip.presentationStyle;
    layer.cursorStyle = clip.cursorStyle;
    if (clip.cursorStyle && inputs.cursorTracks != nullptr) {
        const auto track = inputs.cursorTracks->find(clip.cursorTrackID.value_or(clip.sourceID));
        if (track != inputs.cursorTracks->end()) layer.cursorTrack = track->second;
    }
    if (const auto* slot = slotFor(clip, layout)) layer.slotCornerRadius = slot->cornerRadius;
    layer.sourceSize = natural->second;
    layer.clipTimelineStart = clip.timelineStart;
    layer.clipSourceStart = clip.start.seconds();
    layer.playbackRate = clip.playbackRate;
    if (inputs.sourcesByID != nullptr) {
        const auto urlOf = [&](const std::string& id) -> std::optional<std::string> {
            const auto it = inputs.sourcesByID->find(id);
            if (it == inputs.sourcesByID->end()) return std::nullopt;
            return CompositionBuilder::resolvedURL(*it->second, {});
        };
        if (clip.matte && clip.matte->fill.kind() == ClipMatteFill::Case::image)
            layer.fillURL = urlOf(std::get<ImageFill>(clip.matte->fill.value).sourceID);
        if (clip.presentationStyle &&
            clip.presentationStyle->background.kind() == ClipBackgroundFill::Case::image)
            layer.backgroundURL =
                urlOf(std::get<ImageFill>(clip.presentationStyle->background.value).sourceID);
    }
    return layer;
}

std::vector<MorvaneCompositionInstruction> makeInstructions(const InstructionInputs& inputs) {
    std::vector<RationalTime> boundaries{RationalTime::zero, inputs.duration};
    const auto addClipBoundaries = [&](const TrackContext& context) {
        for (const auto& clip : context.clips) {
            const RationalTime end = clip.timelineStart.adding(clip.duration());
            boundaries.push_back(clip.timelineStart);
            boundaries.push_back(end);
            for (const auto& keyframe :
                 clip.resolvedReframeKeyframes().value_or(std::vector<ReframeKeyframe>{})) {
                for (const auto t : {keyframe.programStart, keyframe.programEnd})
                    if (clip.timelineStart < t && t < end) boundaries.push_back(t);
            }
        }
    };
    if (inputs.primary != nullptr) addClipBoundaries(*inputs.primary);
    for (const auto& overlay : inputs.overlays)
        addClipBoundaries(overlay);
    for (const auto& region : inputs.layoutRegions) {
        boundaries.push_back(region.timelineStart);
        boundaries.push_back(region.timelineEnd);
    }
    if (inputs.transitions != nullptr) {
        for (const auto& [at, transition] : *inputs.transitions) {
            const auto length = RationalTime::tryParse(transition.duration);
            if (!length || !(length->seconds() > 0.0)) continue;
            const double half = length->seconds() / 2.0;
            boundaries.push_back(at);
            boundaries.push_back(fromSeconds(at.seconds() - half));
            boundaries.push_back(fromSeconds(at.seconds() + half));
        }
    }
    std::erase_if(boundaries, [&](RationalTime t) { return t < RationalTime::zero || t > inputs.duration; });
    std::sort(boundaries.begin(), boundaries.end());
    boundaries.erase(std::unique(boundaries.begin(), boundaries.end(),
                                 [](RationalTime a, RationalTime b) { return a.compare(b) == 0; }),
                     boundaries.end());

    std::vector<MorvaneCompositionInstruction> out;
    for (std::size_t i = 0; i + 1 < boundaries.size(); ++i) {
        const TimeSpan range{boundaries[i], boundaries[i + 1]};
        MorvaneCompositionInstruction instruction{.timeRange = range};
        if (inputs.primary != nullptr) {
            if (const auto* clip = activeClip(*inputs.primary, range)) {
                if (auto layer = compositorLayer(*clip, TrackRole::primary, *inputs.primary, range, inputs))
                    instruction.layers.push_back(std::move(*layer));
            }
        }
        std::vector<std::pair<int, MorvaneCompositorLayer>> overlays;  // by slot z-index, then lane
        for (const auto& context : inputs.overlays) {
            const auto* clip = activeClip(context, range);
            if (clip == nullptr) continue;
            auto layer = compositorLayer(*clip, TrackRole::overlay, context, range, inputs);
            if (!layer) continue;
            const auto& layout = LayoutResolver::activeLayout(
                range.start, {inputs.layoutRegions.begin(), inputs.layoutRegions.end()});
            const auto* slot = slotFor(*clip, layout);
            overlays.emplace_back(slot != nullptr ? slot->zIndex : 0, std::move(*layer));
        }
        std::stable_sort(overlays.begin(), overlays.end(),
                         [](const auto& a, const auto& b) { return a.first < b.first; });
        for (auto& [z, layer] : overlays)
            instruction.layers.push_back(std::move(layer));
        if (instruction.layers.empty()) continue;

        std::vector<std::int32_t> required;
        for (const auto& layer : instruction.layers) {
            instruction.containsTweening = instruction.containsTweening || layer.needsTweening();
            if (std::find(required.begin(), required.end(), layer.trackID) == required.end())
                required.push_back(layer.trackID);
        }
        instruction.requiredSourceTrackIDs = std::move(required);
        if (isPassthrough(instruction, inputs.renderSize))
            instruction.passthroughTrackID = instruction.layers.front().trackID;
        out.push_back(std::move(instruction));
    }
    return out;
}

bool sourcesNeedScaling(const TrackContext& primary, std::span<const TrackContext> overlays,
                        PixelSize renderSize) {
    const auto differs = [&](const TrackContext& context) {
        for (const auto& [id, size] : context.naturalSizes) {
            const auto turn = context.preferredTransforms.find(id);
            const RectD upright =
                (turn != context.preferredTransforms.end() ? turn->second : AffineTransform{})
                    .boundingBox({0, 0, size.width, size.height});
            if (std::abs(upright.width - renderSize.width) > 0.5 ||
                std::abs(upright.height - renderSize.height) > 0.5)
                return true;
        }
        return false;
    };
    return differs(primary) || std::any_of(overlays.begin(), overlays.end(), differs);
}

std::optional<VideoComposition> build(const EditPlan& plan, const Composition& composition,
                                      const TrackContext& primary, const std::vector<TrackContext>& overlays,
                                      std::span<const ProgramClip> /*textClips*/,
                                      bool /*includeTextAnimation*/) {
    const ProjectFormat format = plan.timeline.resolvedFormat();
    const auto transitions = EditPlanResolver::transitions(plan);
    const auto regions = LayoutResolver::regions(plan);
    std::map<std::string, const EditPlanSource*> sourcesByID;
    std::map<std::string, std::shared_ptr<const CursorTrack>> cursorTracks;
    for (const auto& source : plan.sources) {
        sourcesByID.emplace(source.id, &source);
        if (source.cursorTrack)
            cursorTracks.emplace(source.id, std::make_shared<const CursorTrack>(*source.cursorTrack));
    }

    VideoComposition video;
    video.frameDuration = EditPlanResolver::parseTime(format.frameDuration);
    video.renderSize = {format.width, format.height};
    video.colorSpace = format.colorSpace;
    const InstructionInputs inputs{.duration = composition.duration(),
                                   .renderSize = video.renderSize,
                                   .primary = &primary,
                                   .overlays = overlays,
                                   .transitions = &transitions,
                                   .layoutRegions = regions,
                                   .sourcesByID = &sourcesByID,
                                   .cursorTracks = &cursorTracks};
    video.instructions = makeInstructions(inputs);
    const bool allPassthrough = std::all_of(
        video.instructions.begin(), video.instructions.end(),
        [](const auto& i) { return i.passthroughTrackID != MorvaneCompositionInstruction::invalidTrackID; });
    if (allPassthrough && !sourcesNeedScaling(primary, overlays, video.renderSize)) return std::nullopt;
    return video;
}

}  // namespace morvane::engine::VideoCompositionBuilder
