#include "morvane/engine/render/frame_sampler.hpp"

#include <algorithm>
#include <cmath>

#include "ffmpeg/decoded_picture.hpp"
#include "ffmpeg/picture_converter.hpp"
#include "ffmpeg/video_decoder.hpp"

namespace morvane::engine {
namespace {

// Quarter turns clockwise, from a display rotation in degrees.
int quarterTurns(double degrees) {
    const int turns = static_cast<int>(std::lround(degrees / 90.0)) % 4;
    return turns < 0 ? turns + 4 : turns;
}

PixelSize turned(PixelSize size, int turns) {
    return turns % 2 == 0 ? size : PixelSize{size.height, size.width};
}

// The size that fits `maxDimension` on its longer side, never larger than `size`.
PixelSize fitted(PixelSize size, int maxDimension) {
    const int longer = std::max(size.width, size.height);
    if (longer <= maxDimension || longer <= 0) return size;
    const double scale = static_cast<double>(maxDimension) / longer;
    return {std::max(1, static_cast<int>(std::lround(size.width * scale))),
            std::max(1, static_cast<int>(std::lround(size.height * scale)))};
}

// `image` turned clockwise by `turns` quarter turns.
RGBAImage rotated(const RGBAImage& image, int turns) {
    if (turns == 0) return image;
    RGBAImage out;
    const PixelSize size = turned(image.size(), turns);
    out.width = size.width;
    out.height = size.height;
    out.pixels.resize(image.pixels.size());
    const int w = image.width;
    const int h = image.height;
    for (int y = 0; y < out.height; ++y) {
        for (int x = 0; x < out.width; ++x) {
            const std::uint8_t* from = turns == 1   ? image.pixel(y, h - 1 - x)
                                       : turns == 2 ? image.pixel(w - 1 - x, h - 1 - y)
                                                    : image.pixel(w - 1 - y, x);
            std::copy_n(from, 4, out.pixel(x, y));
        }
    }
    return out;
}

}  // namespace

struct FrameSampler::Decoding {
    ffmpeg::VideoDecoder decoder;
    ffmpeg::PictureConverter converter;
    FrameSamplerOptions options;
    int turns = 0;
};

FrameSampler::FrameSampler(const std::filesystem::path& path, std::stop_token stop,
                           FrameSamplerOptions options)
    // The decoder can't move: the aggregate is built in place.
    : decoding_(new Decoding{.decoder = {path, std::move(stop)}, .converter = {}, .options = options}) {
    decoding_->turns = quarterTurns(decoding_->decoder.rotationDegrees());
}

FrameSampler::~FrameSampler() = default;

bool FrameSampler::isStill() const noexcept {
    return decoding_->decoder.isStill();
}

PixelSize FrameSampler::sampleSize() const noexcept {
    const auto& d = *decoding_;
    return fitted(turned({d.decoder.width(), d.decoder.height()}, d.turns), d.options.maxDimension);
}

std::optional<SampledFrame> FrameSampler::frameNear(double seconds) {
    auto& d = *decoding_;
    const auto picture = d.decoder.pictureAt(seconds);
    if (!d.decoder.isStill() && std::abs(picture->seconds - seconds) > d.options.toleranceSeconds)
        return std::nullopt;
    const AVFrame& frame = *picture->frame;
    // Scaled before it is turned: the turn then moves the fewest pixels.
    const PixelSize upright = fitted(turned({frame.width, frame.height}, d.turns), d.options.maxDimension);
    RGBAImage image;
    d.converter.toRGBA(frame, turned(upright, d.turns), image);
    return SampledFrame{rotated(image, d.turns), picture->seconds};
}

}  // namespace morvane::engine
