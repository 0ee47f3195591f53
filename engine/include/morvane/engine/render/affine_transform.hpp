#pragma once

/// A 2-D affine transform in pixels, origin top left, y down:
///
///     x' = a·x + c·y + tx
///     y' = b·x + d·y + ty
///
///     auto t = AffineTransform::scale(0.5, 0.5).concatenating(AffineTransform::translation(100, 40));
///     t.apply({10, 10});   // {105, 45}: scaled first, then moved

#include <optional>

namespace morvane::engine {

/// A point in pixels.
struct PointD {
    double x = 0.0;
    double y = 0.0;
    friend bool operator==(const PointD&, const PointD&) = default;
};

/// A rectangle in pixels.
struct RectD {
    double x = 0.0;
    double y = 0.0;
    double width = 0.0;
    double height = 0.0;

    /// The right edge.
    [[nodiscard]] double maxX() const noexcept { return x + width; }
    /// The bottom edge.
    [[nodiscard]] double maxY() const noexcept { return y + height; }
    friend bool operator==(const RectD&, const RectD&) = default;
};

/// A placement of one picture on another: a linear map followed by a move.
struct AffineTransform {
    double a = 1.0;
    double b = 0.0;
    double c = 0.0;
    double d = 1.0;
    double tx = 0.0;
    double ty = 0.0;

    /// Leaves every point where it is.
    [[nodiscard]] static AffineTransform identity() noexcept { return {}; }
    /// Moves by (`x`, `y`).
    [[nodiscard]] static AffineTransform translation(double x, double y) noexcept {
        return {1, 0, 0, 1, x, y};
    }
    /// Scales about the origin.
    [[nodiscard]] static AffineTransform scale(double x, double y) noexcept { return {x, 0, 0, y, 0, 0}; }
    /// A turn by `radians`, clockwise on screen (y points down).
    [[nodiscard]] static AffineTransform rotation(double radians) noexcept;

    /// This transform followed by `then`.
    [[nodiscard]] AffineTransform concatenating(const AffineTransform& then) const noexcept;
    /// The transform that undoes this one; nothing when it collapses the plane.
    [[nodiscard]] std::optional<AffineTransform> inverted() const noexcept;
    /// Where `p` lands.
    [[nodiscard]] PointD apply(PointD p) const noexcept {
        return {a * p.x + c * p.y + tx, b * p.x + d * p.y + ty};
    }
    /// The smallest upright rectangle holding `rect` transformed.
    [[nodiscard]] RectD boundingBox(const RectD& rect) const noexcept;
    /// Whether every component is within `tolerance` of `other`'s.
    [[nodiscard]] bool isClose(const AffineTransform& other, double tolerance = 1e-6) const noexcept;
    /// Whether this only scales by positive factors and moves (no turn, shear or mirror).
    [[nodiscard]] bool isAxisAligned(double tolerance = 1e-9) const noexcept;

    friend bool operator==(const AffineTransform&, const AffineTransform&) = default;
};

}  // namespace morvane::engine
