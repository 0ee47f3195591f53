#include "morvane/engine/render/frame_style_renderer.hpp"

#include <algorithm>
#include <cmath>

#include "render/pixel_ops.hpp"

namespace morvane::engine {
namespace {

constexpr double kNoPadding = 0.0001;
constexpr double kSmallestCorner = 0.01;  // pixels
constexpr std::size_t kKeptBackdrops = 3;
constexpr int kBlurDownscale = 4;  // a wide blur loses nothing when computed on a quarter-size picture

RGBA8 premultiplied(const BackgroundColor& c) {
    return RGBA8::fromStraight(c.red, c.green, c.blue, c.alpha);
}

RectD intersection(const RectD& a, const RectD& b) {
    const double x = std::max(a.x, b.x);
    const double y = std::max(a.y, b.y);
    return {x, y, std::max(0.0, std::min(a.maxX(), b.maxX()) - x),
            std::max(0.0, std::min(a.maxY(), b.maxY()) - y)};
}

// `image` scaled uniformly to cover `extent`, centred.
AffineTransform fillTransform(PixelSize image, double width, double height, double originX = 0.0,
                              double originY = 0.0) {
    const double s = std::max(width / image.width, height / image.height);
    return AffineTransform::scale(s, s).concatenating(AffineTransform::translation(
        originX + (width - image.width * s) / 2.0, originY + (height - image.height * s) / 2.0));
}

void drawBlurredSource(RGBAImage& out, const RGBAImage& source) {
    // A margin of one pixel around the small picture holds its clamped edge, so that scaling it back up
    // shows no darkened border.
    const int w = (out.width + kBlurDownscale - 1) / kBlurDownscale + 2;
    const int h = (out.height + kBlurDownscale - 1) / kBlurDownscale + 2;
    RGBAImage small = RGBAImage::filled({w, h});
    pixels::draw(small, source,
                 fillTransform(source.size(), static_cast<double>(out.width) / kBlurDownscale,
                               static_cast<double>(out.height) / kBlurDownscale, 1.0, 1.0),
                 1.0f, std::nullopt);
    for (int y = 0; y < h; ++y) {
        const int sy = std::clamp(y, 1, h - 2);
        for (int x = 0; x < w; ++x) {
            const int sx = std::clamp(x, 1, w - 2);
            if (sx != x || sy != y) std::copy_n(small.pixel(sx, sy), 4, small.pixel(x, y));
        }
    }
    pixels::gaussianBlur(small, FrameStyleRenderer::backgroundBlurRadius / 2.0 / kBlurDownscale);
    const double s = kBlurDownscale;
    pixels::draw(out, small, AffineTransform::scale(s, s).concatenating(AffineTransform::translation(-s, -s)),
                 1.0f, std::nullopt);
}

}  // namespace

FrameGeometry FrameStyleRenderer::geometry(const ClipPresentationStyle& style, const RectD& plateBox,
                                           PixelSize extent) {
    const double W = extent.width;
    const double H = extent.height;
    RectD inner{0.0, 0.0, W, H};
    if (style.padding > kNoPadding) {
        const double inset = style.padding * std::min(W, H);
        inner = {inset, inset, std::max(W - 2 * inset, 1.0), std::max(H - 2 * inset, 1.0)};
    }
    if (style.outputAspectWidth && style.outputAspectHeight && *style.outputAspectWidth > kNoPadding &&
        *style.outputAspectHeight > kNoPadding) {
        const double aspect = *style.outputAspectWidth / *style.outputAspectHeight;
        if (inner.width / inner.height > aspect) {
            const double width = inner.height * aspect;
            inner.x += (inner.width - width) / 2.0;
            inner.width = width;
        } else {
            const double height = inner.width / aspect;
            inner.y += (inner.height - height) / 2.0;
            inner.height = height;
        }
    }
    FrameGeometry g{.inner = inner};
    if (!(plateBox.width > 0.0) || !(plateBox.height > 0.0)) return g;
    const double s = std::min(inner.width / plateBox.width, inner.height / plateBox.height);
    g.plate = {inner.x + (inner.width - plateBox.width * s) / 2.0,
               inner.y + (inner.height - plateBox.height * s) / 2.0, plateBox.width * s, plateBox.height * s};
    g.fit = AffineTransform::translation(-plateBox.x, -plateBox.y)
                .concatenating(AffineTransform::scale(s, s))
                .concatenating(AffineTransform::translation(g.plate.x, g.plate.y));
    g.cornerRadius = std::min(std::max(style.cornerRadius, 0.0) * std::min(inner.width, inner.height),
                              std::min(g.plate.width, g.plate.height) / 2.0);
    return g;
}

void FrameStyleRenderer::backgroundImage(RGBAImage& out, const ClipPresentationStyle& style, PixelSize extent,
                                         const RGBAImage* source, const RGBAImage* image) {
    out.reset(extent);
    switch (style.background.kind()) {
        case ClipBackgroundFill::Case::none:
            return;
        case ClipBackgroundFill::Case::solid:
            out.reset(extent, premultiplied(std::get<SolidFill>(style.background.value).color));
            return;
        case ClipBackgroundFill::Case::gradient: {
            const auto& g = std::get<GradientFill>(style.background.value);
            pixels::fillVerticalGradient(out, premultiplied(g.top), premultiplied(g.bottom));
            return;
        }
        case ClipBackgroundFill::Case::image:
            if (image != nullptr && !image->empty())
                pixels::draw(out, *image, fillTransform(image->size(), extent.width, extent.height), 1.0f,
                             pixels::RoundedRect{{0.0, 0.0, static_cast<double>(extent.width),
                                                  static_cast<double>(extent.height)},
                                                 0.0});
            return;
        case ClipBackgroundFill::Case::blurSource:
            if (source == nullptr || source->empty()) {
                out.reset(extent, premultiplied(blurFallback));
                return;
            }
            drawBlurredSource(out, *source);
            return;
    }
}

const FrameStyleRenderer::Backdrop& FrameStyleRenderer::backdrop(const ClipPresentationStyle& style,
                                                                 PixelSize extent,
                                                                 const FrameGeometry& geometry,
                                                                 const RGBAImage* image) {
    for (const auto& b : backdrops_) {
        if (b.style == style && b.extent == extent && b.geometry == geometry) return b;
    }
    Backdrop b{.style = style, .extent = extent, .geometry = geometry};
    const auto kind = style.background.kind();
    if (kind != ClipBackgroundFill::Case::blurSource) {
        backgroundImage(b.background, style, extent, nullptr, image);
        b.opaque = true;
        for (std::size_t i = 3; i < b.background.pixels.size(); i += 4) {
            if (b.background.pixels[i] != 255) {
                b.opaque = false;
                break;
            }
        }
    }
    if (style.shadowRadius > 0.0 && style.shadowOpacity > 0.0 && geometry.plate.width > 0.0) {
        const std::size_t count = static_cast<std::size_t>(extent.width) * extent.height;
        std::vector<float> alpha(count, 0.0f);
        std::vector<float> scratch;
        const pixels::RoundedRect shape{
            {geometry.plate.x + style.shadowOffsetX, geometry.plate.y + style.shadowOffsetY,
             geometry.plate.width, geometry.plate.height},
            geometry.cornerRadius};
        const float opacity = static_cast<float>(std::min(style.shadowOpacity, 1.0) * 255.0 / 256.0);
        for (int y = 0; y < extent.height; ++y)
            for (int x = 0; x < extent.width; ++x)
                alpha[static_cast<std::size_t>(y) * extent.width + x] =
                    static_cast<float>(pixels::coverage(shape, x + 0.5, y + 0.5)) * opacity;
        pixels::gaussianBlur(alpha, extent.width, extent.height, style.shadowRadius / 2.0, scratch);
        b.shadow = RGBAImage::filled(extent);
        for (std::size_t i = 0; i < count; ++i)
            b.shadow.pixels[4 * i + 3] =
                static_cast<std::uint8_t>(std::clamp(std::lround(alpha[i]), 0L, 255L));
    }
    // A backdrop that does not change from frame to frame is kept with its shadow already laid on it, so
    // that a frame starts with one copy.
    if (kind != ClipBackgroundFill::Case::blurSource && kind != ClipBackgroundFill::Case::none &&
        !b.shadow.empty()) {
        pixels::over(b.background, b.shadow, false);
        b.shadow = RGBAImage{};
    }
    if (backdrops_.size() >= kKeptBackdrops) backdrops_.erase(backdrops_.begin());
    backdrops_.push_back(std::move(b));
    return backdrops_.back();
}

FramePlan FrameStyleRenderer::plan(PixelSize sourceSize, const AffineTransform& placement,
                                   const std::optional<RectD>& clipRect,
                                   const std::optional<ClipPresentationStyle>& style, double slotCornerRadius,
                                   PixelSize canvas) {
    RectD plateBox = placement.boundingBox(
        {0.0, 0.0, static_cast<double>(sourceSize.width), static_cast<double>(sourceSize.height)});
    if (clipRect) plateBox = intersection(plateBox, *clipRect);
    FramePlan out{.transform = placement};
    if (!style || style->isIdentity()) {
        const double radius = slotCornerRadius * std::min(canvas.width, canvas.height);
        if (radius > kSmallestCorner) {
            out.clip = plateBox;
            out.clipRadius = std::min(radius, std::min(plateBox.width, plateBox.height) / 2.0);
        } else {
            out.clip = clipRect;
        }
        return out;
    }
    out.framed = true;
    out.geometry = geometry(*style, plateBox, canvas);
    out.transform = placement.concatenating(out.geometry.fit);
    out.clip = out.geometry.plate;
    out.clipRadius = out.geometry.cornerRadius > kSmallestCorner ? out.geometry.cornerRadius : 0.0;
    return out;
}

void FrameStyleRenderer::drawBackdrop(RGBAImage& canvas, const FramePlan& plan,
                                      const ClipPresentationStyle& style, float opacity,
                                      const RGBAImage* source, const RGBAImage* image) {
    const Backdrop& b = backdrop(style, canvas.size(), plan.geometry, image);
    const bool blurred = style.background.kind() == ClipBackgroundFill::Case::blurSource;
    if (opacity >= 1.0f) {
        if (blurred) {
            backgroundImage(frameBackground_, style, canvas.size(), source, nullptr);
            pixels::over(canvas, frameBackground_, true);
        } else if (style.background.kind() != ClipBackgroundFill::Case::none) {
            pixels::over(canvas, b.background, b.opaque);
        }
        if (!b.shadow.empty()) pixels::over(canvas, b.shadow, false);
        return;
    }
    // A fading frame fades as one picture: the stack is made apart, then laid over at the opacity.
    if (blurred) {
        backgroundImage(stack_, style, canvas.size(), source, nullptr);
    } else {
        stack_ = b.background.empty() ? RGBAImage::filled(canvas.size()) : b.background;
    }
    if (!b.shadow.empty()) pixels::over(stack_, b.shadow, false);
    pixels::draw(canvas, stack_, AffineTransform::identity(), opacity, std::nullopt);
}

void FrameStyleRenderer::drawPicture(RGBAImage& canvas, const RGBAImage& picture,
                                     const AffineTransform& transform, float opacity, const FramePlan& plan) {
    std::optional<pixels::RoundedRect> clip;
    if (plan.clip) clip = pixels::RoundedRect{*plan.clip, plan.clipRadius};
    pixels::draw(canvas, picture, transform, opacity, clip);
}

AffineTransform FrameStyleRenderer::apply(RGBAImage& canvas, const RGBAImage& source,
                                          const AffineTransform& placement,
                                          const std::optional<RectD>& clipRect,
                                          const std::optional<ClipPresentationStyle>& style,
                                          double slotCornerRadius, float opacity, const RGBAImage* image) {
    const FramePlan p = plan(source.size(), placement, clipRect, style, slotCornerRadius, canvas.size());
    if (p.framed) drawBackdrop(canvas, p, *style, opacity, &source, image);
    drawPicture(canvas, source, p.transform, opacity, p);
    return p.transform;
}

RGBAImage FrameStyleRenderer::roundedRectMask(PixelSize size, const RectD& rect, double cornerRadius) {
    RGBAImage mask = RGBAImage::filled(size);
    const pixels::RoundedRect shape{rect, cornerRadius};
    for (int y = 0; y < size.height; ++y) {
        for (int x = 0; x < size.width; ++x) {
            const int cover = pixels::coverage(shape, x + 0.5, y + 0.5);
            const auto value = static_cast<std::uint8_t>(std::min(cover, 255));
            std::uint8_t* p = mask.pixel(x, y);
            p[0] = p[1] = p[2] = p[3] = value;
        }
    }
    return mask;
}

RGBAImage FrameStyleRenderer::round(const RGBAImage& image, const RectD& rect, double cornerRadius) {
    RGBAImage out = RGBAImage::filled(image.size());
    pixels::draw(out, image, AffineTransform::identity(), 1.0f, pixels::RoundedRect{rect, cornerRadius});
    return out;
}

}  // namespace morvane::engine
