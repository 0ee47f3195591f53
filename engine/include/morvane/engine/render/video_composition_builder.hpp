#pragma once

/// From a plan's clips on the composition's tracks to per-frame instructions.
///
///     auto video = VideoCompositionBuilder::build(plan, composition, primary, overlays, textClips, false);
///     //  boundaries at 0, 4 and 9 s (a webcam overlay from 4 to 9 s):
///     //  [0, 4)  primary                 -> passthrough when the recording is at the output size
///     //  [4, 9)  primary, webcam (pip)   -> composited
///
/// A picture that covers the whole canvas is fitted into it, so that nothing of a recording is lost; a
/// picture in a smaller slot fills its slot, centre-cropped. A crop (the clip's own, its zoom regions or
/// reframe keyframes) replaces either. A transition of any kind dips the primary picture through the
/// background: it fades out over the half of its duration before its time and in over the half after.

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "morvane/engine/composition/composition.hpp"
#include "morvane/engine/layout/layout_resolver.hpp"
#include "morvane/engine/plan/edit_plan_resolver.hpp"
#include "morvane/engine/render/video_composition.hpp"

namespace morvane::engine::VideoCompositionBuilder {

/// A composition track and the clips placed on it.
struct TrackContext {
    std::int32_t track = 0;
    std::vector<ProgramClip> clips;
    std::map<std::string, AffineTransform> preferredTransforms;  ///< by source id: how to turn it upright
    std::map<std::string, RenderSize> naturalSizes;              ///< by source id, as decoded; none for audio
};

/// How a clip's track takes part in the picture.
enum class TrackRole { primary, overlay };

/// The instructions for `composition`, or nothing when no range needs compositing and every source
/// already has the output size. Throws `EngineError::invalidRationalTime` on a plan time that does not
/// parse.
[[nodiscard]] std::optional<VideoComposition> build(const EditPlan& plan, const Composition& composition,
                                                    const TrackContext& primary,
                                                    const std::vector<TrackContext>& overlays,
                                                    std::span<const ProgramClip> textClips,
                                                    bool includeTextAnimation);

/// Everything `makeInstructions` reads.
struct InstructionInputs {
    RationalTime duration;
    PixelSize renderSize;
    const TrackContext* primary = nullptr;
    std::span<const TrackContext> overlays;
    const EditPlanTransitionTable* transitions = nullptr;
    std::span<const LayoutRegion> layoutRegions;
    const std::map<std::string, const EditPlanSource*>* sourcesByID = nullptr;
    /// Pointer tracks by source id, shared by every layer that draws one.
    const std::map<std::string, std::shared_ptr<const CursorTrack>>* cursorTracks = nullptr;
};

/// One instruction per range between neighbouring boundaries (0, the end, every clip's ends, every crop
/// keyframe's ends, every layout region's ends, each transition's time and the ends of its span) that has
/// at least one layer.
[[nodiscard]] std::vector<MorvaneCompositionInstruction> makeInstructions(const InstructionInputs& inputs);

/// The layer of `clip` over `range`, or nothing when its source has no picture or no slot takes it.
[[nodiscard]] std::optional<MorvaneCompositorLayer> compositorLayer(const ProgramClip& clip, TrackRole role,
                                                                    const TrackContext& context,
                                                                    const TimeSpan& range,
                                                                    const InstructionInputs& inputs);

/// Whether any source's picture, turned upright, differs in size from `renderSize`.
[[nodiscard]] bool sourcesNeedScaling(const TrackContext& primary, std::span<const TrackContext> overlays,
                                      PixelSize renderSize);

}  // namespace morvane::engine::VideoCompositionBuilder
