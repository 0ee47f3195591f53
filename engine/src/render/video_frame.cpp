#include "morvane/engine/render/video_frame.hpp"

#include <fmt/core.h>

#include "ffmpeg/decoded_picture.hpp"
#include "ffmpeg/ffmpeg_error.hpp"
#include "ffmpeg/picture_converter.hpp"
#include "ffmpeg/video_decoder.hpp"
#include "morvane/engine/support/files.hpp"

namespace morvane::engine {

VideoFrame::VideoFrame(std::shared_ptr<const RGBAImage> image) noexcept : image_(std::move(image)) {}

VideoFrame::VideoFrame(std::shared_ptr<const DecodedPicture> picture) noexcept
    : picture_(std::move(picture)) {}

PixelSize VideoFrame::size() const noexcept {
    if (image_) return image_->size();
    if (picture_) return {picture_->frame->width, picture_->frame->height};
    return {};
}

RGBAImage VideoFrame::toRGBA() const {
    if (image_) return *image_;
    RGBAImage out;
    if (picture_) {
        ffmpeg::PictureConverter converter;
        converter.toRGBA(*picture_->frame, size(), out);
    }
    return out;
}

void writePNG(const RGBAImage& image, const std::filesystem::path& to) {
    using namespace ffmpeg;
    const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_PNG);
    if (codec == nullptr) throw EngineError::exportFailed("No PNG encoder");
    CodecContextPtr context(avcodec_alloc_context3(codec));
    if (!context) throw std::bad_alloc();
    context->width = image.width;
    context->height = image.height;
    context->pix_fmt = AV_PIX_FMT_RGB24;
    context->time_base = {1, 1};
    if (const int rc = avcodec_open2(context.get(), codec, nullptr); rc < 0)
        throw exportError("Could not start the PNG encoder", rc);

    FramePtr frame = makeFrame();
    frame->width = image.width;
    frame->height = image.height;
    frame->format = AV_PIX_FMT_RGB24;
    if (const int rc = av_frame_get_buffer(frame.get(), 0); rc < 0)
        throw exportError("Could not make a PNG picture", rc);
    // Premultiplied colour over black is the colour channels as they stand.
    for (int y = 0; y < image.height; ++y) {
        const std::uint8_t* in = image.pixel(0, y);
        std::uint8_t* row = frame->data[0] + static_cast<std::ptrdiff_t>(y) * frame->linesize[0];
        for (int x = 0; x < image.width; ++x) {
            row[3 * x] = in[4 * x];
            row[3 * x + 1] = in[4 * x + 1];
            row[3 * x + 2] = in[4 * x + 2];
        }
    }
    if (const int rc = avcodec_send_frame(context.get(), frame.get()); rc < 0)
        throw exportError("Could not encode the PNG", rc);
    avcodec_send_frame(context.get(), nullptr);
    PacketPtr packet = makePacket();
    std::string bytes;
    while (avcodec_receive_packet(context.get(), packet.get()) == 0) {
        bytes.append(reinterpret_cast<const char*>(packet->data), static_cast<std::size_t>(packet->size));
        av_packet_unref(packet.get());
    }
    if (bytes.empty()) throw EngineError::exportFailed(fmt::format("Could not write {}", to.string()));
    try {
        writeFileAtomically(to, bytes);
    } catch (const std::filesystem::filesystem_error& e) {
        throw EngineError::exportFailed(
            fmt::format("Could not write {}: {}", to.string(), e.code().message()));
    }
}

RGBAImage readImage(const std::filesystem::path& from) {
    ffmpeg::VideoDecoder decoder(from, {});
    const auto picture = decoder.pictureAt(0.0);
    RGBAImage out;
    ffmpeg::PictureConverter converter;
    converter.toRGBA(*picture->frame, {picture->frame->width, picture->frame->height}, out);
    return out;
}

}  // namespace morvane::engine
