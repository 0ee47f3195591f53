#include "morvane/engine/render/rgba_image.hpp"

#include <algorithm>
#include <cmath>

namespace morvane::engine {
namespace {

std::uint8_t channel(double value) noexcept {
    return static_cast<std::uint8_t>(std::lround(std::clamp(value, 0.0, 1.0) * 255.0));
}

}  // namespace

RGBA8 RGBA8::fromStraight(double red, double green, double blue, double alpha) noexcept {
    const double a = std::clamp(alpha, 0.0, 1.0);
    return {channel(red * a), channel(green * a), channel(blue * a), channel(a)};
}

RGBAImage RGBAImage::filled(PixelSize size, RGBA8 color) {
    RGBAImage image;
    image.reset(size, color);
    return image;
}

void RGBAImage::reset(PixelSize size, RGBA8 color) {
    width = std::max(size.width, 0);
    height = std::max(size.height, 0);
    const std::size_t count = static_cast<std::size_t>(width) * height;
    pixels.resize(count * 4);
    if (color == RGBA8{}) {
        std::fill(pixels.begin(), pixels.end(), std::uint8_t{0});
        return;
    }
    for (std::size_t i = 0; i < count; ++i) {
        pixels[4 * i] = color.r;
        pixels[4 * i + 1] = color.g;
        pixels[4 * i + 2] = color.b;
        pixels[4 * i + 3] = color.a;
    }
}

}  // namespace morvane::engine
