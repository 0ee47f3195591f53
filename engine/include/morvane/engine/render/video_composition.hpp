#pragma once

/// Per-frame instructions for a composition's picture: the program cut into ranges in which nothing
/// changes, each listing the layers to draw, bottom to top.
///
///     const auto* instruction = videoComposition.instruction(t);   // null where only the background shows
///     for (const auto& layer : instruction->layers)
///         layer.transform(t, instruction->timeRange);              // eased from start to end of the range
///
/// Transforms take a source picture, in its own pixels as decoded, to the canvas in pixels (origin top
/// left, y down); the source's own turn is part of them.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "morvane/engine/capture/cursor_track.hpp"
#include "morvane/engine/layout/project_format.hpp"
#include "morvane/engine/presentation/clip_matte.hpp"
#include "morvane/engine/presentation/clip_presentation_style.hpp"
#include "morvane/engine/presentation/cursor_style.hpp"
#include "morvane/engine/render/affine_transform.hpp"
#include "morvane/engine/time/rational_time.hpp"

namespace morvane::engine {

/// One picture in one instruction.
struct MorvaneCompositorLayer {
    /// A source picture, or titles drawn on the picture.
    enum class Kind { video, titles };

    /// Transform components closer than this count as equal.
    static constexpr double tweenTolerance = 1e-6;

    std::int32_t trackID = 0;        ///< the composition track that supplies the picture
    AffineTransform transformStart;  ///< placement at the start of the instruction's range
    AffineTransform transformEnd;    ///< placement at its end
    float opacity = 1.0f;            ///< 0.0–1.0, at the start of the range
    float opacityEnd = 1.0f;         ///< at its end: a transition ramps linearly between the two
    std::optional<ClipMatte> matte;
    std::optional<std::string> fillURL;  ///< image file of a matte's image fill
    Kind kind = Kind::video;
    bool isOverlay = false;  ///< drawn above the main picture and titles
    std::optional<ClipPresentationStyle> presentationStyle;
    std::optional<std::string> backgroundURL;  ///< image file of the style's image background
    double slotCornerRadius = 0.0;             ///< the slot's corner, fraction of the output's shorter side
    std::shared_ptr<const CursorTrack>
        cursorTrack;  ///< pointer path to draw (shared, never copied per range)
    std::optional<CursorStyle> cursorStyle;
    RenderSize sourceSize;           ///< size of the source picture as decoded
    std::optional<RectD> clipRect;   ///< canvas pixels the picture is held to (its slot)
    RationalTime clipTimelineStart;  ///< the clip's program start
    double clipSourceStart = 0.0;    ///< the clip's source start, seconds
    double playbackRate = 1.0;

    /// Whether the placement moves across the range.
    [[nodiscard]] bool needsTweening() const noexcept;
    /// The placement at `time` in `range`: each component eased from start to end by the smoothstep
    /// u²(3 − 2u) of the share u of the range passed (0 for a range with no length).
    [[nodiscard]] AffineTransform transform(RationalTime time, const TimeSpan& range) const noexcept;
    /// The opacity at `time`, linear across the range.
    [[nodiscard]] float opacityAt(RationalTime time, const TimeSpan& range) const noexcept;

    friend bool operator==(const MorvaneCompositorLayer&, const MorvaneCompositorLayer&) = default;
};

/// What to draw over one range of program time.
struct MorvaneCompositionInstruction {
    /// No track: `passthroughTrackID` when the compositor is needed.
    static constexpr std::int32_t invalidTrackID = 0;

    TimeSpan timeRange;
    bool enablePostProcessing = false;
    bool containsTweening = false;
    std::optional<std::vector<std::int32_t>> requiredSourceTrackIDs;
    /// A track whose picture is the frame as it stands (one full-frame layer at the output size with
    /// nothing to do): the renderer hands the decoded picture on without converting it.
    std::int32_t passthroughTrackID = invalidTrackID;
    std::vector<MorvaneCompositorLayer> layers;  ///< bottom to top

    friend bool operator==(const MorvaneCompositionInstruction&,
                           const MorvaneCompositionInstruction&) = default;
};

/// The instructions of a whole composition, and the canvas they draw on.
struct VideoComposition {
    RationalTime frameDuration{1001, 30000};
    PixelSize renderSize{1920, 1080};
    ProjectColorSpace colorSpace = ProjectColorSpace::rec709;
    std::vector<MorvaneCompositionInstruction> instructions;  ///< in time order, not overlapping

    /// The instruction whose range holds `time`, or null.
    [[nodiscard]] const MorvaneCompositionInstruction* instruction(RationalTime time) const noexcept;

    friend bool operator==(const VideoComposition&, const VideoComposition&) = default;
};

}  // namespace morvane::engine
