#pragma once

/// The recorded pointer redrawn over a screen recording: large, smoothed, dipping on a click, swaying a
/// little, with a ghost behind it when it moves fast.
///
///     CursorLayerRenderer cursors;
///     cursors.overlay(canvas, track, CursorStyle{}, {.compositionTime = t, .clipTimelineStart = clipStart,
///                     .clipSourceStart = 3.0, .playbackRate = 1.0, .plateTransform = placed,
///                     .sourceSize = {1920, 1080}});
///
/// The pointer's time in the recording is s = clipSourceStart + (t − clipTimelineStart) × max(rate, 0.01),
/// taken modulo the track's length in loop mode. Its path is the track smoothed over round(smoothing × 12)
/// samples (at least 3). Its height is max(size, 0.4) × 28 px, times 1 − clickBounce × 0.28 × k, where the
/// press k rises from 0 to 1 over the 0.12 s after the button goes down and falls back over the 0.12 s after
/// it comes up. It turns by sin(9 s) × sway × 0.18 radians about its tip. The recorded point (0–1 across
/// the capture) is carried through the picture's own placement, so the pointer follows zooms and frames.
/// With motion blur above 0.05, a ghost at alpha motionBlur × 0.45 marks where it was 0.05 s before, when
/// that lies more than 8 px away.

#include <map>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "morvane/engine/capture/cursor_track.hpp"
#include "morvane/engine/presentation/cursor_style.hpp"
#include "morvane/engine/render/affine_transform.hpp"
#include "morvane/engine/render/rgba_image.hpp"
#include "morvane/engine/time/rational_time.hpp"

namespace morvane::engine {

/// Where and when a pointer is drawn.
struct CursorPlacement {
    RationalTime compositionTime;
    RationalTime clipTimelineStart;
    double clipSourceStart = 0.0;  ///< seconds
    double playbackRate = 1.0;
    AffineTransform plateTransform;  ///< the recording's pixels to the canvas
    RenderSize sourceSize;           ///< the recording's size in pixels
    float opacity = 1.0f;
};

/// Draws pointers, keeping smoothed tracks and the arrow between frames.
class CursorLayerRenderer {
  public:
    /// The pointer's height at size 1.0, in canvas pixels.
    static constexpr double basePointerSize = 28.0;

    /// Draws the pointer of `track` at `placement` over `canvas`; nothing when the style hides it or the
    /// track has no sample. `track` is kept by address in a cache: it must not change while shared.
    void overlay(RGBAImage& canvas, const std::shared_ptr<const CursorTrack>& track, const CursorStyle& style,
                 const CursorPlacement& placement);

    /// The pointer's time in its recording at `placement`.
    [[nodiscard]] static double pointerSeconds(const CursorTrack& track, const CursorStyle& style,
                                               const CursorPlacement& placement) noexcept;

    /// How far a press has gone at `seconds`, 0.0–1.0.
    [[nodiscard]] static double clickProgress(const CursorTrack& track, double seconds) noexcept;

    /// A vector arrow `size` px tall with a fill, an outline and a soft shadow; lighter when `pressed`. Its
    /// tip is at `arrowTip` × size from the top-left corner.
    [[nodiscard]] static RGBAImage arrowImage(int size, bool pressed);
    /// The tip of `arrowImage`, as a share of its size.
    static constexpr PointD arrowTip{0.2, 0.12};

  private:
    const CursorTrack& smoothedTrack(const std::shared_ptr<const CursorTrack>& track, int window);
    const RGBAImage& arrow(bool pressed);

    std::vector<std::pair<std::pair<std::shared_ptr<const CursorTrack>, int>, CursorTrack>> smoothed_;
    std::optional<RGBAImage> arrows_[2];
};

}  // namespace morvane::engine
