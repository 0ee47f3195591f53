#pragma once

// Decoded pictures to premultiplied RGBA (and back to the formats that encoders take), through swscale.
// The YUV matrix and range come from the picture itself; an untagged picture is read as BT.709 from 720
// lines up and BT.601 below, as players do.

#include "ffmpeg/ffmpeg_ptr.hpp"
#include "morvane/engine/render/rgba_image.hpp"

namespace morvane::engine::ffmpeg {

class PictureConverter {
  public:
    /// `frame` converted (and scaled, when `size` differs from its own) into `out`, premultiplied.
    /// Throws `EngineError::decodeFailed` when swscale refuses the format.
    void toRGBA(const AVFrame& frame, PixelSize size, RGBAImage& out);

  private:
    ScalerPtr scaler_;
};

}  // namespace morvane::engine::ffmpeg
