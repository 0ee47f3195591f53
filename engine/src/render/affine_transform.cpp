#include "morvane/engine/render/affine_transform.hpp"

#include <algorithm>
#include <cmath>

namespace morvane::engine {

AffineTransform AffineTransform::rotation(double radians) noexcept {
    const double cosine = std::cos(radians);
    const double sine = std::sin(radians);
    return {cosine, sine, -sine, cosine, 0.0, 0.0};
}

AffineTransform AffineTransform::concatenating(const AffineTransform& t) const noexcept {
    return {a * t.a + b * t.c, a * t.b + b * t.d,          c * t.a + d * t.c,
            c * t.b + d * t.d, tx * t.a + ty * t.c + t.tx, tx * t.b + ty * t.d + t.ty};
}

std::optional<AffineTransform> AffineTransform::inverted() const noexcept {
    const double determinant = a * d - b * c;
    if (!std::isfinite(determinant) || std::abs(determinant) < 1e-12) return std::nullopt;
    const double ia = d / determinant;
    const double ib = -b / determinant;
    const double ic = -c / determinant;
    const double id = a / determinant;
    return AffineTransform{ia, ib, ic, id, -(tx * ia + ty * ic), -(tx * ib + ty * id)};
}

RectD AffineTransform::boundingBox(const RectD& rect) const noexcept {
    const PointD corners[4] = {apply({rect.x, rect.y}), apply({rect.maxX(), rect.y}),
                               apply({rect.x, rect.maxY()}), apply({rect.maxX(), rect.maxY()})};
    double minX = corners[0].x, maxX = corners[0].x, minY = corners[0].y, maxY = corners[0].y;
    for (const auto& p : corners) {
        minX = std::min(minX, p.x);
        maxX = std::max(maxX, p.x);
        minY = std::min(minY, p.y);
        maxY = std::max(maxY, p.y);
    }
    return {minX, minY, maxX - minX, maxY - minY};
}

bool AffineTransform::isClose(const AffineTransform& o, double tolerance) const noexcept {
    return std::abs(a - o.a) < tolerance && std::abs(b - o.b) < tolerance && std::abs(c - o.c) < tolerance &&
           std::abs(d - o.d) < tolerance && std::abs(tx - o.tx) < tolerance &&
           std::abs(ty - o.ty) < tolerance;
}

bool AffineTransform::isAxisAligned(double tolerance) const noexcept {
    return std::abs(b) <= tolerance && std::abs(c) <= tolerance && a > 0.0 && d > 0.0;
}

}  // namespace morvane::engine
