#pragma once

/// The per-frame renderer of a video composition: it places each layer of an instruction, frames it,
/// draws its pointer, and hands back one frame.
///
///     MorvaneVideoCompositor compositor({1920, 1080});
///     VideoFrame frame = compositor.startRequest({.instruction = instruction, .compositionTime = t,
///                                                 .sourceFrames = {{1, talk}, {3, webcam}}});
///
/// Three passes over the layers, bottom to top: the main pictures, then titles, then the overlays. Each
/// video layer is placed by its transform, framed (`FrameStyleRenderer`) and given its pointer
/// (`CursorLayerRenderer`), in that order, then laid over what is there at its opacity. Layers with no
/// opacity and layers with no source frame are skipped. Mattes are carried but not yet applied: the
/// picture shows whole.
///
/// Working space, the one choice for every picture the engine composites: 8-bit RGBA, premultiplied by
/// alpha, holding the encoded (non-linear) values of the project's colour space. Sources are converted into
/// it once, at the decoder's edge, with their own YUV matrix and range (untagged video is read as BT.709
/// from 720 lines up, BT.601 below); every blend, scale and blur then works on those values without
/// linearising, as an editor's preview does. Sources recorded in another colour space than the project's
/// are not gamut-converted.
///
/// One compositor serves one thread; a renderer that draws frames in parallel keeps one each.

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "morvane/engine/render/cursor_layer_renderer.hpp"
#include "morvane/engine/render/frame_style_renderer.hpp"
#include "morvane/engine/render/video_composition.hpp"
#include "morvane/engine/render/video_frame.hpp"

namespace morvane::engine {

/// One frame to draw.
struct VideoCompositionRequest {
    const MorvaneCompositionInstruction* instruction = nullptr;
    RationalTime compositionTime;
    std::map<std::int32_t, VideoFrame> sourceFrames;  ///< by track id, each fetched once
};

/// Draws the frames of one video composition.
class MorvaneVideoCompositor {
  public:
    /// The text of a frame that cannot be drawn.
    static constexpr const char* missingInstructionText = "Missing composition instruction or pixel buffer";

    /// A compositor that draws on a canvas of `renderSize`.
    explicit MorvaneVideoCompositor(PixelSize renderSize);
    ~MorvaneVideoCompositor();
    MorvaneVideoCompositor(const MorvaneVideoCompositor&) = delete;
    MorvaneVideoCompositor& operator=(const MorvaneVideoCompositor&) = delete;

    /// Draws `request`. Throws `EngineError::decodeFailed` with "Missing composition instruction or pixel
    /// buffer" when it has no instruction or the render size is empty; a failure to read a picture file
    /// passes on as it stands. Only this frame fails.
    [[nodiscard]] VideoFrame startRequest(const VideoCompositionRequest& request);

    /// A frame of the background alone (transparent black, shown black).
    [[nodiscard]] VideoFrame backgroundFrame();

    /// The canvas size.
    [[nodiscard]] PixelSize renderSize() const noexcept { return renderSize_; }

  private:
    struct Impl;
    PixelSize renderSize_;
    std::unique_ptr<Impl> impl_;
};

}  // namespace morvane::engine
