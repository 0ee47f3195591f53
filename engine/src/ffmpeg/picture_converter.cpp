#include "ffmpeg/picture_converter.hpp"

#include <fmt/core.h>

#include <algorithm>

extern "C" {
#include <libavutil/pixdesc.h>
}

#include "morvane/engine/engine_error.hpp"

namespace morvane::engine::ffmpeg {
namespace {

// Untagged video is BT.709 from HD up and BT.601 below, as players read it.
int matrixOf(const AVFrame& frame) {
    if (frame.colorspace != AVCOL_SPC_UNSPECIFIED && frame.colorspace != AVCOL_SPC_RGB &&
        frame.colorspace != AVCOL_SPC_RESERVED && frame.colorspace <= AVCOL_SPC_BT2020_CL)
        return frame.colorspace;
    return frame.height >= 720 ? SWS_CS_ITU709 : SWS_CS_ITU601;
}

bool isFullRange(const AVFrame& frame) {
    const auto format = static_cast<AVPixelFormat>(frame.format);
    return frame.color_range == AVCOL_RANGE_JPEG || format == AV_PIX_FMT_YUVJ420P ||
           format == AV_PIX_FMT_YUVJ422P || format == AV_PIX_FMT_YUVJ444P;
}

// The widest run of pixels swscale's vector code writes at once.
constexpr int kWriteBlockPixels = 32;

bool isRGB(AVPixelFormat format) {
    const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_get(format);
    return descriptor != nullptr && (descriptor->flags & AV_PIX_FMT_FLAG_RGB) != 0;
}

}  // namespace

void PictureConverter::toRGBA(const AVFrame& frame, PixelSize size, RGBAImage& out) {
    const auto format = static_cast<AVPixelFormat>(frame.format);
    scaler_.reset(sws_getCachedContext(scaler_.release(), frame.width, frame.height, format, size.width,
                                       size.height, AV_PIX_FMT_RGBA, SWS_BILINEAR, nullptr, nullptr,
                                       nullptr));
    if (!scaler_) {
        throw EngineError::decodeFailed(fmt::format("Cannot convert {} pictures of {}x{}",
                                                    av_get_pix_fmt_name(format), frame.width, frame.height));
    }
    const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_get(format);
    if (!isRGB(format)) {
        const int* coefficients = sws_getCoefficients(matrixOf(frame));
        sws_setColorspaceDetails(scaler_.get(), coefficients, isFullRange(frame) ? 1 : 0,
                                 sws_getCoefficients(SWS_CS_ITU709), 1, 0, 1 << 16, 1 << 16);
    }
    out.width = size.width;
    out.height = size.height;
    const std::size_t rowBytes = static_cast<std::size_t>(size.width) * 4;
    out.pixels.resize(rowBytes * size.height);
    // swscale's converters write whole blocks of pixels: a row that isn't a whole number of blocks long
    // goes through a padded buffer, or the last row would overrun the picture (1080 columns do).
    const int paddedWidth = (size.width + kWriteBlockPixels - 1) / kWriteBlockPixels * kWriteBlockPixels;
    const bool direct = paddedWidth == size.width;
    if (!direct) padded_.resize(static_cast<std::size_t>(paddedWidth) * 4 * (size.height + 1));
    std::uint8_t* planes[4] = {direct ? out.pixels.data() : padded_.data(), nullptr, nullptr, nullptr};
    int strides[4] = {paddedWidth * 4, 0, 0, 0};
    sws_scale(scaler_.get(), frame.data, frame.linesize, 0, frame.height, planes, strides);
    if (!direct) {
        for (int y = 0; y < size.height; ++y) {
            std::copy_n(padded_.data() + static_cast<std::size_t>(y) * paddedWidth * 4, rowBytes,
                        out.pixels.data() + static_cast<std::size_t>(y) * rowBytes);
        }
    }

    if (descriptor != nullptr && (descriptor->flags & AV_PIX_FMT_FLAG_ALPHA) != 0) {
        // swscale keeps alpha straight; the compositor blends premultiplied.
        for (std::size_t i = 0; i < out.pixels.size(); i += 4) {
            const unsigned alpha = out.pixels[i + 3];
            for (int k = 0; k < 3; ++k)
                out.pixels[i + k] = static_cast<std::uint8_t>((out.pixels[i + k] * alpha + 127) / 255);
        }
    }
}

bool PictureConverter::isEncodable(const AVFrame& frame, AVPixelFormat format, PixelSize size) noexcept {
    return frame.format == format && frame.width == size.width && frame.height == size.height &&
           matrixOf(frame) == SWS_CS_ITU709 && !isFullRange(frame);
}

void PictureConverter::toVideo(const AVFrame& frame, AVFrame& out) {
    const auto format = static_cast<AVPixelFormat>(frame.format);
    videoScaler_.reset(sws_getCachedContext(videoScaler_.release(), frame.width, frame.height, format,
                                            out.width, out.height, static_cast<AVPixelFormat>(out.format),
                                            SWS_BICUBIC, nullptr, nullptr, nullptr));
    if (!videoScaler_) {
        throw EngineError::exportFailed(fmt::format("Cannot convert {} pictures of {}x{} for the encoder",
                                                    av_get_pix_fmt_name(format), frame.width, frame.height));
    }
    // Composited pictures hold the project's (BT.709) values; sources say what they hold.
    const bool rgb = isRGB(format);
    sws_setColorspaceDetails(videoScaler_.get(), sws_getCoefficients(rgb ? SWS_CS_ITU709 : matrixOf(frame)),
                             rgb || isFullRange(frame) ? 1 : 0, sws_getCoefficients(SWS_CS_ITU709), 0, 0,
                             1 << 16, 1 << 16);
    sws_scale(videoScaler_.get(), frame.data, frame.linesize, 0, frame.height, out.data, out.linesize);
}

void PictureConverter::toVideo(const RGBAImage& image, AVFrame& out) {
    FramePtr view = makeFrame();
    // Premultiplied colour is the picture laid over black; the fourth byte is then only padding.
    view->format = AV_PIX_FMT_RGB0;
    view->width = image.width;
    view->height = image.height;
    view->data[0] = const_cast<std::uint8_t*>(image.pixels.data());
    view->linesize[0] = image.width * 4;
    toVideo(*view, out);
}

}  // namespace morvane::engine::ffmpeg
