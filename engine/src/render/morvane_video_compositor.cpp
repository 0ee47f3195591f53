#include "morvane/engine/render/morvane_video_compositor.hpp"

#include <cmath>

#include "ffmpeg/decoded_picture.hpp"
#include "ffmpeg/picture_converter.hpp"
#include "morvane/engine/engine_error.hpp"
#include "render/pixel_ops.hpp"

namespace morvane::engine {

namespace {

// A picture a quarter of the canvas wide is plenty for a background blurred by tens of pixels.
constexpr int kBlurSourceDivisor = 4;

}  // namespace

struct MorvaneVideoCompositor::Impl {
    ffmpeg::PictureConverter converter;
    ffmpeg::PictureConverter
        scaler;  // a second context, so full-size and scaled conversions don't evict each other
    FrameStyleRenderer frames;
    CursorLayerRenderer cursors;
    // Canvases handed out in frames come back to the pool once no frame holds them.
    std::vector<std::shared_ptr<RGBAImage>> canvases;
    // Source pictures converted for this frame, by picture, so a picture used twice converts once.
    struct Conversion {
        const void* picture;
        PixelSize size;
        std::shared_ptr<RGBAImage> image;
    };
    std::vector<Conversion> converted;
    std::vector<std::shared_ptr<RGBAImage>> spareConversions;
    std::map<std::string, std::shared_ptr<const RGBAImage>> images;  // picture files by path

    std::shared_ptr<RGBAImage> canvas(PixelSize size) {
        for (auto& c : canvases) {
            if (c.use_count() == 1) {
                c->reset(size);
                return c;
            }
        }
        canvases.push_back(std::make_shared<RGBAImage>(RGBAImage::filled(size)));
        return canvases.back();
    }

    // The picture of `frame` as RGBA at `size` (its own size when absent), converted once per frame.
    const RGBAImage* rgba(const VideoFrame& frame, std::optional<PixelSize> size = std::nullopt) {
        if (frame.image() != nullptr && !size) return frame.image();
        if (!frame.picture()) return nullptr;
        const AVFrame& decoded = *frame.picture()->frame;
        const PixelSize target = size.value_or(PixelSize{decoded.width, decoded.height});
        const void* key = frame.picture().get();
        for (const auto& c : converted)
            if (c.picture == key && c.size == target) return c.image.get();
        std::shared_ptr<RGBAImage> image;
        if (!spareConversions.empty()) {
            image = std::move(spareConversions.back());
            spareConversions.pop_back();
        } else {
            image = std::make_shared<RGBAImage>();
        }
        (size ? scaler : converter).toRGBA(decoded, target, *image);
        converted.push_back({key, target, image});
        return converted.back().image.get();
    }

    const RGBAImage* imageFile(const std::optional<std::string>& path) {
        if (!path) return nullptr;
        auto it = images.find(*path);
        if (it == images.end())
            it = images.emplace(*path, std::make_shared<const RGBAImage>(readImage(*path))).first;
        return it->second.get();
    }

    void endFrame() {
        for (auto& c : converted)
            spareConversions.push_back(std::move(c.image));
        converted.clear();
    }
};

MorvaneVideoCompositor::MorvaneVideoCompositor(PixelSize renderSize)
    : renderSize_(renderSize), impl_(std::make_unique<Impl>()) {}

MorvaneVideoCompositor::~MorvaneVideoCompositor() = default;

VideoFrame MorvaneVideoCompositor::backgroundFrame() {
    return VideoFrame(std::shared_ptr<const RGBAImage>(impl_->canvas(renderSize_)));
}

VideoFrame MorvaneVideoCompositor::startRequest(const VideoCompositionRequest& request) {
    if (request.instruction == nullptr || renderSize_.width <= 0 || renderSize_.height <= 0)
        throw EngineError::decodeFailed(missingInstructionText);
    const MorvaneCompositionInstruction& instruction = *request.instruction;
    Impl& s = *impl_;
    const std::shared_ptr<RGBAImage> canvas = s.canvas(renderSize_);
    struct EndFrame {
        Impl& impl;
        ~EndFrame() { impl.endFrame(); }
    } endFrame{s};

    const auto drawLayer = [&](const MorvaneCompositorLayer& layer) {
        const float opacity = layer.opacityAt(request.compositionTime, instruction.timeRange);
        if (!(opacity > 0.0f)) return;
        const auto frame = request.sourceFrames.find(layer.trackID);
        if (frame == request.sourceFrames.end() || frame->second.empty()) return;
        const VideoFrame& picture = frame->second;
        const PixelSize size = picture.size();
        if (size.width <= 0 || size.height <= 0) return;
        // The placement maps the picture as decoded; a plate or picture given at another size is scaled.
        AffineTransform transform = layer.transform(request.compositionTime, instruction.timeRange);
        if (layer.sourceSize.width > 0.0 && layer.sourceSize.height > 0.0 &&
            (size.width != static_cast<int>(layer.sourceSize.width) ||
             size.height != static_cast<int>(layer.sourceSize.height))) {
            transform = AffineTransform::scale(layer.sourceSize.width / size.width,
                                               layer.sourceSize.height / size.height)
                            .concatenating(transform);
        }
        const FramePlan plan = FrameStyleRenderer::plan(
            size, transform, layer.clipRect, layer.presentationStyle, layer.slotCornerRadius, renderSize_);
        if (plan.framed) {
            const bool blurred =
                layer.presentationStyle->background.kind() == ClipBackgroundFill::Case::blurSource;
            const RGBAImage* small =
                blurred ? s.rgba(picture, PixelSize{std::max(size.width / kBlurSourceDivisor, 1),
                                                    std::max(size.height / kBlurSourceDivisor, 1)})
                        : nullptr;
            if (blurred && small == nullptr) small = picture.image();
            s.frames.drawBackdrop(*canvas, plan, *layer.presentationStyle, opacity, small,
                                  s.imageFile(layer.backgroundURL));
        }
        // A decoded picture that only scales and moves is scaled while it is converted, in one pass, and
        // laid down on whole pixels; anything that turns, or moves within the range, is resampled.
        const AffineTransform& t = plan.transform;
        if (picture.isPassthrough() && t.isAxisAligned() && !layer.needsTweening()) {
            const double x0 = std::round(t.tx);
            const double y0 = std::round(t.ty);
            const int w = static_cast<int>(std::round(t.tx + size.width * t.a) - x0);
            const int h = static_cast<int>(std::round(t.ty + size.height * t.d) - y0);
            if (w <= 0 || h <= 0) return;
            const RGBAImage* scaled = s.rgba(picture, PixelSize{w, h});
            FrameStyleRenderer::drawPicture(*canvas, *scaled, AffineTransform::translation(x0, y0), opacity,
                                            plan);
        } else {
            const RGBAImage* whole = s.rgba(picture);
            if (whole == nullptr || whole->empty()) return;
            FrameStyleRenderer::drawPicture(*canvas, *whole, t, opacity, plan);
        }
        if (layer.cursorTrack && layer.cursorStyle) {
            s.cursors.overlay(
                *canvas, layer.cursorTrack, *layer.cursorStyle,
                {.compositionTime = request.compositionTime,
                 .clipTimelineStart = layer.clipTimelineStart,
                 .clipSourceStart = layer.clipSourceStart,
                 .playbackRate = layer.playbackRate,
                 .plateTransform = t,
                 .sourceSize = {static_cast<double>(size.width), static_cast<double>(size.height)},
                 .opacity = opacity});
        }
    };

    for (const auto& layer : instruction.layers)
        if (layer.kind == MorvaneCompositorLayer::Kind::video && !layer.isOverlay) drawLayer(layer);
    for (const auto& layer : instruction.layers)
        if (layer.kind == MorvaneCompositorLayer::Kind::titles) drawLayer(layer);
    for (const auto& layer : instruction.layers)
        if (layer.kind == MorvaneCompositorLayer::Kind::video && layer.isOverlay) drawLayer(layer);
    return VideoFrame(std::shared_ptr<const RGBAImage>(canvas));
}

}  // namespace morvane::engine
