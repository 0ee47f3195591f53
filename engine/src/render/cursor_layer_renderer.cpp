#include "morvane/engine/render/cursor_layer_renderer.hpp"

#include <cairo.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "render/pixel_ops.hpp"

namespace morvane::engine {
namespace {

constexpr double kMinimumRate = 0.01;
constexpr double kShortestLoop = 0.05;
constexpr double kPressSeconds = 0.12;
constexpr double kBounceDepth = 0.28;
constexpr double kSwayFrequency = 9.0;
constexpr double kSwayDepth = 0.18;
constexpr double kGhostLag = 0.05;
constexpr double kGhostDistanceSquared = 8.0 * 8.0;
constexpr double kGhostAlpha = 0.45;
constexpr int kArrowPixels = 96;  // drawn once this tall, then scaled to the style's size
constexpr std::size_t kKeptTracks = 4;

// The pointer's outline in shares of its height, from the tip clockwise.
constexpr PointD kOutline[] = {{0.0, 0.0},   {0.0, 0.78},  {0.19, 0.61}, {0.32, 0.9},
                               {0.44, 0.85}, {0.31, 0.57}, {0.55, 0.57}};

void tracePointer(cairo_t* cr, double size, double dx, double dy) {
    const double ox = CursorLayerRenderer::arrowTip.x * size + dx;
    const double oy = CursorLayerRenderer::arrowTip.y * size + dy;
    cairo_new_path(cr);
    for (const auto& p : kOutline)
        cairo_line_to(cr, ox + p.x * size * 0.8, oy + p.y * size * 0.8);
    cairo_close_path(cr);
}

RGBAImage fromSurface(cairo_surface_t* surface) {
    cairo_surface_flush(surface);
    const int w = cairo_image_surface_get_width(surface);
    const int h = cairo_image_surface_get_height(surface);
    const int stride = cairo_image_surface_get_stride(surface);
    const unsigned char* data = cairo_image_surface_get_data(surface);
    RGBAImage out = RGBAImage::filled({w, h});
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            std::uint32_t argb = 0;
            std::memcpy(&argb, data + static_cast<std::ptrdiff_t>(y) * stride + 4 * x, 4);
            std::uint8_t* p = out.pixel(x, y);
            p[0] = static_cast<std::uint8_t>(argb >> 16);
            p[1] = static_cast<std::uint8_t>(argb >> 8);
            p[2] = static_cast<std::uint8_t>(argb);
            p[3] = static_cast<std::uint8_t>(argb >> 24);
        }
    }
    return out;
}

}  // namespace

double CursorLayerRenderer::pointerSeconds(const CursorTrack& track, const CursorStyle& style,
                                           const CursorPlacement& placement) noexcept {
    const double rate = std::max(placement.playbackRate, kMinimumRate);
    double s = placement.clipSourceStart +
               (placement.compositionTime.seconds() - placement.clipTimelineStart.seconds()) * rate;
    if (style.loopMode && !track.samples.empty()) {
        const double length = track.samples.back().seconds;
        if (length > kShortestLoop) {
            s = std::fmod(s, length);
            if (s < 0.0) s += length;
        }
    }
    return s;
}

double CursorLayerRenderer::clickProgress(const CursorTrack& track, double seconds) noexcept {
    const auto& samples = track.samples;
    const auto after = std::upper_bound(samples.begin(), samples.end(), seconds,
                                        [](double t, const CursorSample& s) { return t < s.seconds; });
    if (after == samples.begin()) return 0.0;
    const bool pressed = (after - 1)->buttons.contains(CursorButtons::primary);
    // Back to the sample where the button last changed.
    auto change = after - 1;
    while (change != samples.begin() && (change - 1)->buttons.contains(CursorButtons::primary) == pressed &&
           seconds - change->seconds < kPressSeconds)
        --change;
    const double since = seconds - change->seconds;
    if (change == samples.begin() && !pressed) return 0.0;
    const double u = std::clamp(since / kPressSeconds, 0.0, 1.0);
    return pressed ? u : 1.0 - u;
}

const CursorTrack& CursorLayerRenderer::smoothedTrack(const std::shared_ptr<const CursorTrack>& track,
                                                      int window) {
    for (const auto& [key, smooth] : smoothed_) {
        if (key.first == track && key.second == window) return smooth;
    }
    if (smoothed_.size() >= kKeptTracks) smoothed_.erase(smoothed_.begin());
    smoothed_.push_back({{track, window}, track->smoothed(window)});
    return smoothed_.back().second;
}

const RGBAImage& CursorLayerRenderer::arrow(bool pressed) {
    auto& slot = arrows_[pressed ? 1 : 0];
    if (!slot) slot = arrowImage(kArrowPixels, pressed);
    return *slot;
}

RGBAImage CursorLayerRenderer::arrowImage(int size, bool pressed) {
    const int side = std::max(size, 4);
    const double s = side;
    cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, side, side);
    cairo_t* cr = cairo_create(surface);
    tracePointer(cr, s, 0.03 * s, 0.05 * s);
    cairo_set_source_rgba(cr, 0.0, 0.0, 0.0, 0.45);
    cairo_fill(cr);
    cairo_destroy(cr);
    RGBAImage image = fromSurface(surface);
    pixels::gaussianBlur(image, std::max(1.0, 0.025 * s));

    cairo_surface_t* body = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, side, side);
    cr = cairo_create(body);
    cairo_set_line_join(cr, CAIRO_LINE_JOIN_ROUND);
    tracePointer(cr, s, 0.0, 0.0);
    if (pressed) {
        cairo_set_source_rgb(cr, 0.86, 0.9, 1.0);
    } else {
        cairo_set_source_rgb(cr, 1.0, 1.0, 1.0);
    }
    cairo_fill_preserve(cr);
    cairo_set_source_rgb(cr, 0.05, 0.05, 0.07);
    cairo_set_line_width(cr, std::max(1.0, 0.045 * s));
    cairo_stroke(cr);
    cairo_destroy(cr);
    const RGBAImage drawn = fromSurface(body);
    cairo_surface_destroy(body);
    cairo_surface_destroy(surface);
    pixels::over(image, drawn, false);
    return image;
}

void CursorLayerRenderer::overlay(RGBAImage& canvas, const std::shared_ptr<const CursorTrack>& track,
                                  const CursorStyle& style, const CursorPlacement& placement) {
    if (!track || !style.isVisible || track->samples.empty()) return;
    const double s = pointerSeconds(*track, style, placement);
    const int window = std::max(static_cast<int>(std::lround(style.smoothing * 12.0)), 3);
    const CursorTrack& path = smoothedTrack(track, window);
    const auto now = path.sample(s);
    if (!now) return;

    const double press = clickProgress(*track, s);
    const double height =
        std::max(style.size, 0.4) * basePointerSize * (1.0 - style.clickBounce * kBounceDepth * press);
    const double turn = style.sway > 0.0 ? std::sin(s * kSwayFrequency) * style.sway * kSwayDepth : 0.0;
    const auto toCanvas = [&](const CursorSample& sample) {
        return placement.plateTransform.apply(
            {sample.x * placement.sourceSize.width, sample.y * placement.sourceSize.height});
    };
    const RGBAImage& image = arrow(press > 0.5);
    const double scale = height / kArrowPixels;
    const auto placed = [&](PointD at) {
        return AffineTransform::translation(-arrowTip.x * kArrowPixels, -arrowTip.y * kArrowPixels)
            .concatenating(AffineTransform::scale(scale, scale))
            .concatenating(AffineTransform::rotation(turn))
            .concatenating(AffineTransform::translation(at.x, at.y));
    };
    const PointD position = toCanvas(*now);
    if (style.motionBlur > 0.05) {
        if (const auto before = path.sample(s - kGhostLag)) {
            const PointD ghost = toCanvas(*before);
            const double dx = ghost.x - position.x;
            const double dy = ghost.y - position.y;
            if (dx * dx + dy * dy > kGhostDistanceSquared) {
                pixels::draw(canvas, image, placed(ghost),
                             static_cast<float>(style.motionBlur * kGhostAlpha) * placement.opacity,
                             std::nullopt);
            }
        }
    }
    pixels::draw(canvas, image, placed(position), placement.opacity, std::nullopt);
}

}  // namespace morvane::engine
