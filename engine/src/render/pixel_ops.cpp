#include "render/pixel_ops.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

namespace morvane::engine::pixels {
namespace {

inline std::uint32_t scale255(std::uint32_t value, std::uint32_t factor) noexcept {
    return (value * factor + 127) / 255;
}

// Scales `c` by `weight` (0–256) and lays it over `out`.
inline void layOver(std::uint8_t* out, std::uint32_t (&c)[4], int weight) noexcept {
    if (weight < 256) {
        for (auto& channel : c)
            channel = (channel * static_cast<std::uint32_t>(weight) + 128) >> 8;
    }
    if (c[3] == 0) return;
    if (c[3] >= 255) {
        out[0] = static_cast<std::uint8_t>(c[0]);
        out[1] = static_cast<std::uint8_t>(c[1]);
        out[2] = static_cast<std::uint8_t>(c[2]);
        out[3] = 255;
        return;
    }
    const std::uint32_t keep = 255 - c[3];
    for (int k = 0; k < 4; ++k)
        out[k] = static_cast<std::uint8_t>(std::min<std::uint32_t>(c[k] + scale255(out[k], keep), 255));
}

// The pixel-wide band over which an edge fades, as coverage from a signed distance (inside positive).
inline int coverageFromDistance(double inside) noexcept {
    return static_cast<int>(std::lround(std::clamp(inside + 0.5, 0.0, 1.0) * 256.0));
}

}  // namespace

int coverage(const RoundedRect& shape, double x, double y) noexcept {
    const RectD& r = shape.rect;
    const double radius = std::clamp(shape.radius, 0.0, std::min(r.width, r.height) / 2.0);
    const double dx = std::max({r.x + radius - x, 0.0, x - (r.maxX() - radius)});
    const double dy = std::max({r.y + radius - y, 0.0, y - (r.maxY() - radius)});
    if (radius > 0.0 && dx > 0.0 && dy > 0.0) return coverageFromDistance(radius - std::hypot(dx, dy));
    const double inside = std::min({x - r.x, r.maxX() - x, y - r.y, r.maxY() - y});
    return coverageFromDistance(inside);
}

void draw(RGBAImage& canvas, const RGBAImage& source, const AffineTransform& transform, float opacity,
          const std::optional<RoundedRect>& clip) noexcept {
    if (source.empty() || canvas.empty() || !(opacity > 0.0f)) return;
    const auto inverse = transform.inverted();
    if (!inverse) return;
    RectD box = transform.boundingBox({-1.0, -1.0, source.width + 2.0, source.height + 2.0});
    if (clip) {
        const double x0 = std::max(box.x, clip->rect.x - 1.0);
        const double y0 = std::max(box.y, clip->rect.y - 1.0);
        box = {x0, y0, std::min(box.maxX(), clip->rect.maxX() + 1.0) - x0,
               std::min(box.maxY(), clip->rect.maxY() + 1.0) - y0};
    }
    // Held to the canvas before becoming integers: a picture scaled far past it must not overflow them.
    const auto column = [&](double v) { return std::clamp(v, 0.0, static_cast<double>(canvas.width)); };
    const auto row = [&](double v) { return std::clamp(v, 0.0, static_cast<double>(canvas.height)); };
    const auto xBegin = static_cast<int>(std::floor(column(box.x)));
    const auto yBegin = static_cast<int>(std::floor(row(box.y)));
    const auto xEnd = static_cast<int>(std::ceil(column(box.maxX())));
    const auto yEnd = static_cast<int>(std::ceil(row(box.maxY())));
    if (xBegin >= xEnd || yBegin >= yEnd) return;

    const int alpha = static_cast<int>(std::lround(std::clamp(opacity, 0.0f, 1.0f) * 256.0f));
    // Inside this rectangle of pixel centres the clip covers everything; only a band along its edges needs
    // the coverage computed.
    RectD solid{-1e30, -1e30, 2e30, 2e30};
    if (clip) {
        const double inset = std::max(clip->radius, 0.0) + 1.0;
        solid = {clip->rect.x + inset, clip->rect.y + inset, clip->rect.width - 2 * inset,
                 clip->rect.height - 2 * inset};
    }
    // The opacity times the clip's coverage of the pixel in column `x` of a row centred at `cy`.
    const auto weightAt = [&](int x, bool rowSolid, double cy) {
        if (!clip) return alpha;
        const double cx = x + 0.5;
        if (rowSolid && cx > solid.x && cx < solid.maxX()) return alpha;
        return (alpha * coverage(*clip, cx, cy)) >> 8;
    };
    const bool wholePixelMove = transform.a == 1.0 && transform.d == 1.0 && transform.b == 0.0 &&
                                transform.c == 0.0 && transform.tx == std::round(transform.tx) &&
                                transform.ty == std::round(transform.ty);
    if (wholePixelMove) {
        // Every canvas pixel takes one source pixel as it is: copied where it is opaque and fully covered.
        const auto dx = static_cast<int>(transform.tx);
        const auto dy = static_cast<int>(transform.ty);
        for (int y = yBegin; y < yEnd; ++y) {
            const int j = y - dy;
            if (j < 0 || j >= source.height) continue;
            const double cy = y + 0.5;
            const bool rowSolid = cy > solid.y && cy < solid.maxY();
            const int from = std::max(xBegin, dx);
            const int to = std::min(xEnd, dx + source.width);
            const std::uint8_t* in = source.pixel(from - dx, j);
            std::uint8_t* out = canvas.pixel(from, y);
            for (int x = from; x < to; ++x, in += 4, out += 4) {
                const int weight = weightAt(x, rowSolid, cy);
                if (weight == 0) continue;
                if (weight >= 256 && in[3] == 255) {
                    std::memcpy(out, in, 4);
                    continue;
                }
                std::uint32_t c[4] = {in[0], in[1], in[2], in[3]};
                layOver(out, c, weight);
            }
        }
        return;
    }
    const AffineTransform& t = *inverse;
    const std::int64_t du = std::llround(t.a * 65536.0);
    const std::int64_t dv = std::llround(t.b * 65536.0);
    const int sw = source.width;
    const int sh = source.height;
    const std::uint8_t* texels = source.pixels.data();
    // Held to a shape, a picture reads its edge pixels again past its edge, and the shape alone cuts it
    // (so an edge on the canvas's border shows no fringe); free, it fades out over half a pixel.
    const bool clampEdges = clip.has_value();
    const std::int64_t uEnd = (static_cast<std::int64_t>(sw) << 16) - 32768;
    const std::int64_t vEnd = (static_cast<std::int64_t>(sh) << 16) - 32768;
    static constexpr std::uint8_t kClear[4] = {0, 0, 0, 0};
    const auto texel = [&](int i, int j) -> const std::uint8_t* {
        if (clampEdges) {
            i = std::clamp(i, 0, sw - 1);
            j = std::clamp(j, 0, sh - 1);
        } else if (i < 0 || j < 0 || i >= sw || j >= sh) {
            return kClear;
        }
        return texels + (static_cast<std::size_t>(j) * sw + i) * 4;
    };

    for (int y = yBegin; y < yEnd; ++y) {
        const double cy = y + 0.5;
        const double startX = xBegin + 0.5;
        std::int64_t u = std::llround((t.a * startX + t.c * cy + t.tx - 0.5) * 65536.0);
        std::int64_t v = std::llround((t.b * startX + t.d * cy + t.ty - 0.5) * 65536.0);
        const bool rowSolid = cy > solid.y && cy < solid.maxY();
        std::uint8_t* out = canvas.pixel(xBegin, y);
        for (int x = xBegin; x < xEnd; ++x, u += du, v += dv, out += 4) {
            const auto i = static_cast<int>(u >> 16);
            const auto j = static_cast<int>(v >> 16);
            if (i < -1 || j < -1 || i >= sw || j >= sh) continue;
            if (clampEdges && (u < -32768 || v < -32768 || u >= uEnd || v >= vEnd)) continue;
            const int weight = weightAt(x, rowSolid, cy);
            if (weight == 0) continue;
            const auto fu = static_cast<std::uint32_t>((u >> 8) & 0xFF);
            const auto fv = static_cast<std::uint32_t>((v >> 8) & 0xFF);
            const std::uint8_t* p00;
            const std::uint8_t* p10;
            const std::uint8_t* p01;
            const std::uint8_t* p11;
            if (i >= 0 && j >= 0 && i + 1 < sw && j + 1 < sh) {
                p00 = texels + (static_cast<std::size_t>(j) * sw + i) * 4;
                p10 = p00 + 4;
                p01 = p00 + static_cast<std::size_t>(sw) * 4;
                p11 = p01 + 4;
            } else {
                p00 = texel(i, j);
                p10 = texel(i + 1, j);
                p01 = texel(i, j + 1);
                p11 = texel(i + 1, j + 1);
            }
            const std::uint32_t w00 = (256 - fu) * (256 - fv);
            const std::uint32_t w10 = fu * (256 - fv);
            const std::uint32_t w01 = (256 - fu) * fv;
            const std::uint32_t w11 = fu * fv;
            std::uint32_t c[4];
            for (int k = 0; k < 4; ++k)
                c[k] = (p00[k] * w00 + p10[k] * w10 + p01[k] * w01 + p11[k] * w11 + 32768) >> 16;
            layOver(out, c, weight);
        }
    }
}

void over(RGBAImage& canvas, const RGBAImage& layer, bool layerIsOpaque) noexcept {
    if (layer.width != canvas.width || layer.height != canvas.height) return;
    if (layerIsOpaque) {
        std::memcpy(canvas.pixels.data(), layer.pixels.data(), layer.pixels.size());
        return;
    }
    const std::size_t n = layer.pixels.size();
    std::uint8_t* out = canvas.pixels.data();
    const std::uint8_t* in = layer.pixels.data();
    for (std::size_t i = 0; i < n; i += 4) {
        const std::uint32_t a = in[i + 3];
        if (a == 0) continue;
        const std::uint32_t keep = 255 - a;
        for (int k = 0; k < 4; ++k)
            out[i + k] = static_cast<std::uint8_t>(
                std::min<std::uint32_t>(in[i + k] + scale255(out[i + k], keep), 255));
    }
}

void fillVerticalGradient(RGBAImage& canvas, RGBA8 top, RGBA8 bottom) noexcept {
    const int h = canvas.height;
    for (int y = 0; y < h; ++y) {
        const double u = h > 1 ? static_cast<double>(y) / (h - 1) : 0.0;
        const auto mix = [u](std::uint8_t a, std::uint8_t b) {
            return static_cast<std::uint8_t>(std::lround(a + (b - a) * u));
        };
        const std::uint8_t row[4] = {mix(top.r, bottom.r), mix(top.g, bottom.g), mix(top.b, bottom.b),
                                     mix(top.a, bottom.a)};
        std::uint8_t* out = canvas.pixel(0, y);
        for (int x = 0; x < canvas.width; ++x)
            std::memcpy(out + 4 * x, row, 4);
    }
}

namespace {

// Box widths whose three passes add up to a Gaussian of `sigma` (odd widths, as equal as they can be).
std::array<int, 3> boxesForGauss(double sigma) {
    const double ideal = std::sqrt(12.0 * sigma * sigma / 3.0 + 1.0);
    int lower = static_cast<int>(std::floor(ideal));
    if (lower % 2 == 0) --lower;
    const int upper = lower + 2;
    const double m =
        std::round((12.0 * sigma * sigma - 3.0 * lower * lower - 12.0 * lower - 9.0) / (-4.0 * lower - 4.0));
    std::array<int, 3> sizes{};
    for (int i = 0; i < 3; ++i)
        sizes[static_cast<std::size_t>(i)] = i < m ? lower : upper;
    return sizes;
}

// One running-sum box pass along rows (`stride` 1) or columns, edges clamped.
void boxPass(const float* in, float* out, int length, int count, int step, int stride, int radius) {
    const float scale = 1.0f / static_cast<float>(2 * radius + 1);
    for (int line = 0; line < count; ++line) {
        const float* src = in + static_cast<std::ptrdiff_t>(line) * stride;
        float* dst = out + static_cast<std::ptrdiff_t>(line) * stride;
        const auto at = [&](int k) {
            return src[static_cast<std::ptrdiff_t>(std::clamp(k, 0, length - 1)) * step];
        };
        float sum = 0.0f;
        for (int k = -radius; k <= radius; ++k)
            sum += at(k);
        for (int k = 0; k < length; ++k) {
            dst[static_cast<std::ptrdiff_t>(k) * step] = sum * scale;
            sum += at(k + radius + 1) - at(k - radius);
        }
    }
}

}  // namespace

void gaussianBlur(std::vector<float>& values, int width, int height, double sigma,
                  std::vector<float>& scratch) {
    if (!(sigma > 0.2) || width <= 0 || height <= 0) return;
    scratch.resize(values.size());
    for (const int box : boxesForGauss(sigma)) {
        const int radius = (box - 1) / 2;
        if (radius <= 0) continue;
        boxPass(values.data(), scratch.data(), width, height, 1, width, radius);
        boxPass(scratch.data(), values.data(), height, width, width, 1, radius);
    }
}

void gaussianBlur(RGBAImage& image, double sigma) {
    const std::size_t count = static_cast<std::size_t>(image.width) * image.height;
    std::vector<float> channel(count);
    std::vector<float> scratch;
    for (int k = 0; k < 4; ++k) {
        for (std::size_t i = 0; i < count; ++i)
            channel[i] = image.pixels[4 * i + static_cast<std::size_t>(k)];
        gaussianBlur(channel, image.width, image.height, sigma, scratch);
        for (std::size_t i = 0; i < count; ++i)
            image.pixels[4 * i + static_cast<std::size_t>(k)] =
                static_cast<std::uint8_t>(std::clamp(std::lround(channel[i]), 0L, 255L));
    }
}

}  // namespace morvane::engine::pixels
