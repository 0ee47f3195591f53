#include "morvane/engine/render/morvane_video_compositor.hpp"

#include "ffmpeg/decoded_picture.hpp"
#include "ffmpeg/picture_converter.hpp"
#include "morvane/engine/engine_error.hpp"
#include "render/pixel_ops.hpp"

namespace morvane::engine {

struct MorvaneVideoCompositor::Impl {
    ffmpeg::PictureConverter converter;
    FrameStyleRenderer frames;
    CursorLayerRenderer cursors;
    // Canvases handed out in frames come back to the pool once no frame holds them.
    std::vector<std::shared_ptr<RGBAImage>> canvases;
    // Source pictures converted for this frame, by picture, so a picture used twice converts once.
    std::vector<std::pair<const void*, std::shared_ptr<RGBAImage>>> converted;
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

    const RGBAImage* rgba(const VideoFrame& frame) {
        if (frame.image() != nullptr) return frame.image();
        if (!frame.picture()) return nullptr;
        const void* key = frame.picture().get();
        for (const auto& [k, image] : converted)
            if (k == key) return image.get();
        std::shared_ptr<RGBAImage> image;
        if (!spareConversions.empty()) {
            image = std::move(spareConversions.back());
            spareConversions.pop_back();
        } else {
            image = std::make_shared<RGBAImage>();
        }
        const AVFrame& decoded = *frame.picture()->frame;
        converter.toRGBA(decoded, {decoded.width, decoded.height}, *image);
        converted.emplace_back(key, image);
        return converted.back().second.get();
    }

    const RGBAImage* imageFile(const std::optional<std::string>& path) {
        if (!path) return nullptr;
        auto it = images.find(*path);
        if (it == images.end()) it = images.emplace(*path, std::make_shared<const RGBAImage>(readImage(*path))).first;
        return it->second.get();
    }

    void endFrame() {
        for (auto& [key, image] : converted)
            spareConversions.push_back(std::move(image));
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
        const RGBAImage* source = s.rgba(frame->second);
        if (source == nullptr || source->empty()) return;
        // The placement maps the picture as decoded; a plate or picture given at another size is scaled.
        AffineTransform transform = layer.transform(request.compositionTime, instruction.timeRange);
        if (layer.sourceSize.width > 0.0 && layer.sourceSize.height > 0.0 &&
            (source->width != static_cast<int>(layer.sourceSize.width) ||
             source->height != static_cast<int>(layer.sourceSize.height))) {
            transform = AffineTransform::scale(layer.sourceSize.width / source->width, layer.sourceSize.height / source->height)
                            .concatenating(transform);
        }
        const RGBAImage* background = s.imageFile(layer.backgroundURL);
        const AffineTransform placed = s.frames.apply(*canvas, *source, transform, layer.clipRect, layer.presentationStyle,
                                                      layer.slotCornerRadius, opacity, background);
        if (layer.cursorTrack && layer.cursorStyle) {
            s.cursors.overlay(*canvas, layer.cursorTrack, *layer.cursorStyle,
                              {.compositionTime = request.compositionTime,
                               .clipTimelineStart = layer.clipTimelineStart,
                               .clipSourceStart = layer.clipSourceStart,
                               .playbackRate = layer.playbackRate,
                               .plateTransform = placed,
                               .sourceSize = {static_cast<double>(source->width), static_cast<double>(source->height)},
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
