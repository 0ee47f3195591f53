#pragma once

// The compositor's pixel loops, on 8-bit premultiplied RGBA (working space: morvane_video_compositor.hpp).
//
// Placing a picture: every canvas pixel centre p inside the placed picture's box is carried back through
// the inverse transform to the source, q = T⁻¹(p) − (½, ½), and the source is read there bilinearly:
//
//     c = (1−fu)(1−fv)·s[i,j] + fu(1−fv)·s[i+1,j] + (1−fu)fv·s[i,j+1] + fu·fv·s[i+1,j+1],   i = ⌊qx⌋, fu = qx
//     − i
//
// with transparent texels outside the source, so its edges come out antialiased. Weights are 8-bit fixed
// point and coordinates 16.16 fixed point, stepped along each row. The colour is then scaled by the
// opacity and the clip's coverage (1 inside a rounded rectangle, 0 outside, linear over the pixel that its
// edge crosses) and laid over the canvas: out = c + dst·(255 − αc)/255.
//
// Blurs are Gaussian, approximated by three box passes each way (the boxes' widths chosen so that their
// variances add up to σ²). No loop allocates once its buffers exist.

#include <cstdint>
#include <optional>
#include <vector>

#include "morvane/engine/render/affine_transform.hpp"
#include "morvane/engine/render/rgba_image.hpp"

namespace morvane::engine::pixels {

/// A rectangle with rounded corners in canvas pixels; a radius of 0 is a plain rectangle with soft
/// (fractional) edges.
struct RoundedRect {
    RectD rect;
    double radius = 0.0;
};

/// How much of the pixel whose centre is (`x`, `y`) lies inside `shape`, 0–256.
[[nodiscard]] int coverage(const RoundedRect& shape, double x, double y) noexcept;

/// Lays `source`, placed by `transform` (source pixels to canvas pixels), over `canvas` at `opacity`
/// (0–1), held to `clip` when given.
void draw(RGBAImage& canvas, const RGBAImage& source, const AffineTransform& transform, float opacity,
          const std::optional<RoundedRect>& clip) noexcept;

/// Lays `layer` (the canvas's size) over `canvas`; copies it when every one of its pixels is opaque.
void over(RGBAImage& canvas, const RGBAImage& layer, bool layerIsOpaque) noexcept;

/// Fills `canvas` with a vertical gradient from `top` to `bottom` (premultiplied colours).
void fillVerticalGradient(RGBAImage& canvas, RGBA8 top, RGBA8 bottom) noexcept;

/// Blurs one channel of `values` (width × height, row after row) in place with a Gaussian of `sigma`
/// pixels; edges are clamped (the border pixel repeats). `scratch` is resized as needed.
void gaussianBlur(std::vector<float>& values, int width, int height, double sigma,
                  std::vector<float>& scratch);

/// Blurs every channel of `image` in place, edges clamped.
void gaussianBlur(RGBAImage& image, double sigma);

}  // namespace morvane::engine::pixels
