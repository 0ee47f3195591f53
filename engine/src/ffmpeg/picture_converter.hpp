#pragma once

// Decoded pictures to premultiplied RGBA, and any picture to the formats that encoders take, through swscale.
// The YUV matrix and range come from the picture itself; an untagged picture is read as BT.709 from 720
// lines up and BT.601 below, as players do.

#include <cstdint>
#include <vector>

#include "ffmpeg/ffmpeg_ptr.hpp"
#include "morvane/engine/render/rgba_image.hpp"

namespace morvane::engine::ffmpeg {

class PictureConverter {
  public:
    /// `frame` converted (and scaled, when `size` differs from its own) into `out`, premultiplied.
    /// Throws `EngineError::decodeFailed` when swscale refuses the format.
    void toRGBA(const AVFrame& frame, PixelSize size, RGBAImage& out);

    /// `frame` (any picture, or `image` below) converted and scaled into `out`, whose format, size and
    /// buffers are already set, as BT.709 limited range: what the export encoders take.
    /// Throws `EngineError::exportFailed` when swscale refuses the formats.
    void toVideo(const AVFrame& frame, AVFrame& out);
    void toVideo(const RGBAImage& image, AVFrame& out);

    /// Whether `frame` already is `format` at `size` in BT.709 limited range, so it can be encoded as it is.
    [[nodiscard]] static bool isEncodable(const AVFrame& frame, AVPixelFormat format,
                                          PixelSize size) noexcept;

  private:
    ScalerPtr scaler_;
    ScalerPtr videoScaler_;
    std::vector<std::uint8_t> padded_;  // rows of whole write blocks, for widths that aren't
};

}  // namespace morvane::engine::ffmpeg
