#pragma once

/// The picture every compositing step works on.
///
///     RGBAImage canvas = RGBAImage::filled({1280, 720}, {0, 0, 0, 255});
///     std::uint8_t* p = canvas.pixel(10, 20);   // R, G, B, A of column 10, row 20
///
/// Pixels are 8-bit RGBA, premultiplied by alpha, in the compositor's working space (see
/// morvane_video_compositor.hpp). Rows are packed (4 bytes a pixel, no padding).

#include <cstdint>
#include <vector>

#include "morvane/engine/layout/project_format.hpp"

namespace morvane::engine {

/// A premultiplied 8-bit colour.
struct RGBA8 {
    std::uint8_t r = 0;
    std::uint8_t g = 0;
    std::uint8_t b = 0;
    std::uint8_t a = 0;

    /// The premultiplied form of a straight colour with 0.0–1.0 channels, rounded.
    [[nodiscard]] static RGBA8 fromStraight(double red, double green, double blue, double alpha) noexcept;

    friend bool operator==(const RGBA8&, const RGBA8&) = default;
};

/// An 8-bit premultiplied RGBA picture.
struct RGBAImage {
    int width = 0;
    int height = 0;
    std::vector<std::uint8_t> pixels;  ///< width × height × 4 bytes, row after row

    /// A picture of `size` where every pixel is `color` (transparent black by default).
    [[nodiscard]] static RGBAImage filled(PixelSize size, RGBA8 color = {});

    /// Width and height.
    [[nodiscard]] PixelSize size() const noexcept { return {width, height}; }
    /// Whether there is no pixel at all.
    [[nodiscard]] bool empty() const noexcept { return width <= 0 || height <= 0; }
    /// The four bytes of column `x`, row `y` (unchecked).
    [[nodiscard]] std::uint8_t* pixel(int x, int y) noexcept {
        return pixels.data() + (static_cast<std::size_t>(y) * width + x) * 4;
    }
    [[nodiscard]] const std::uint8_t* pixel(int x, int y) const noexcept {
        return pixels.data() + (static_cast<std::size_t>(y) * width + x) * 4;
    }
    /// Resizes to `size` (keeping the storage when it is large enough) and fills with `color`.
    void reset(PixelSize size, RGBA8 color = {});

    friend bool operator==(const RGBAImage&, const RGBAImage&) = default;
};

}  // namespace morvane::engine
