#pragma once

/// The "framed" look of a screen recording: the picture inset on a backdrop, with rounded corners and a
/// soft shadow.
///
///     FrameStyleRenderer frames;
///     auto placed = frames.apply(canvas, picture, placement, slot, ClipPresentationStyle::demoDefault(),
///     0.0,
///                                1.0f, nullptr);
///     //  canvas: gradient backdrop, shadow 22 px below, the picture fitted into the padded rectangle
///
/// The stack, bottom to top: background, shadow, picture. The padded rectangle is the canvas inset by
/// `padding` × its shorter side (reduced to the style's aspect when it forces one); the picture is scaled
/// uniformly to fit it and centred. Corners are `cornerRadius` × the padded rectangle's shorter side. The
/// shadow is the rounded rectangle in black at `shadowOpacity`, blurred with a Gaussian of standard
/// deviation `shadowRadius` / 2 and moved by the offsets (positive y is down). Backgrounds: a colour, a
/// vertical gradient, a picture scaled to fill, or the clip's own frame scaled to fill and blurred (σ 18,
/// edges clamped so no border shows). Everything that does not change from frame to frame (backdrop and
/// shadow) is drawn once and kept.

#include <optional>
#include <vector>

#include "morvane/engine/presentation/clip_presentation_style.hpp"
#include "morvane/engine/render/affine_transform.hpp"
#include "morvane/engine/render/rgba_image.hpp"

namespace morvane::engine {

/// Where the framed look puts a picture.
struct FrameGeometry {
    RectD inner;                ///< the padded rectangle
    RectD plate;                ///< the picture fitted into it
    AffineTransform fit;        ///< moves the placed picture's box onto `plate`
    double cornerRadius = 0.0;  ///< pixels

    friend bool operator==(const FrameGeometry&, const FrameGeometry&) = default;
};

/// Where a picture goes once framed, and the shape that holds it.
struct FramePlan {
    AffineTransform transform;  ///< the picture's pixels to the canvas
    std::optional<RectD> clip;  ///< the picture is kept inside this rectangle...
    double clipRadius = 0.0;    ///< ...with corners of this radius (pixels)
    bool framed = false;        ///< a backdrop is drawn under it
    FrameGeometry geometry;     ///< when framed

    friend bool operator==(const FramePlan&, const FramePlan&) = default;
};

/// Draws the framed look, keeping what does not change between frames.
class FrameStyleRenderer {
  public:
    /// The colour a blurred-source background falls back to with no frame to blur.
    static constexpr BackgroundColor blurFallback{0.08, 0.09, 0.12, 1.0};
    /// The blur of a blurred-source background.
    static constexpr double backgroundBlurRadius = 36.0;

    /// Where `style` puts a picture whose placed box is `plateBox`, on a canvas of `extent`.
    [[nodiscard]] static FrameGeometry geometry(const ClipPresentationStyle& style, const RectD& plateBox,
                                                PixelSize extent);

    /// Draws `source`, placed on the canvas by `placement` (and held to `clipRect`), framed by `style`, at
    /// `opacity`, and returns where the picture finally landed (source pixels to canvas). With no style or
    /// an identity one the picture is drawn where it was placed, its corners rounded by the slot's
    /// `slotCornerRadius` (a fraction of the canvas's shorter side) when that is above 0.01 px.
    /// `backgroundImage` is the style's picture background, when it has one.
    AffineTransform apply(RGBAImage& canvas, const RGBAImage& source, const AffineTransform& placement,
                          const std::optional<RectD>& clipRect,
                          const std::optional<ClipPresentationStyle>& style, double slotCornerRadius,
                          float opacity, const RGBAImage* backgroundImage);

    /// Where a picture of `sourceSize`, placed by `placement` and held to `clipRect`, lands under `style`
    /// on a canvas of `canvas`, as `apply` draws it.
    [[nodiscard]] static FramePlan plan(PixelSize sourceSize, const AffineTransform& placement,
                                        const std::optional<RectD>& clipRect,
                                        const std::optional<ClipPresentationStyle>& style,
                                        double slotCornerRadius, PixelSize canvas);

    /// The backdrop of a framed `plan` (background and shadow) over `canvas` at `opacity`. `source` is the
    /// clip's frame at any size (for a blurred-source background), `image` the style's picture.
    void drawBackdrop(RGBAImage& canvas, const FramePlan& plan, const ClipPresentationStyle& style,
                      float opacity, const RGBAImage* source, const RGBAImage* image);

    /// `picture` laid over `canvas` by `transform`, held to the plan's shape.
    static void drawPicture(RGBAImage& canvas, const RGBAImage& picture, const AffineTransform& transform,
                            float opacity, const FramePlan& plan);

    /// The background of `style` over `out` (sized to `extent`): transparent, a colour, a gradient,
    /// `image` scaled to fill, or `source` blurred (the fallback colour without one).
    static void backgroundImage(RGBAImage& out, const ClipPresentationStyle& style, PixelSize extent,
                                const RGBAImage* source, const RGBAImage* image);

    /// White inside a rounded rectangle on transparency, antialiased, on a canvas of `size`.
    [[nodiscard]] static RGBAImage roundedRectMask(PixelSize size, const RectD& rect, double cornerRadius);

    /// `image` kept only inside the rounded rectangle (transparent outside).
    [[nodiscard]] static RGBAImage round(const RGBAImage& image, const RectD& rect, double cornerRadius);

  private:
    struct Backdrop {
        ClipPresentationStyle style;
        PixelSize extent;
        FrameGeometry geometry;
        RGBAImage background;  // empty for a blurred-source background, which changes every frame
        RGBAImage shadow;      // empty without a shadow
        bool opaque = false;   // the background covers every pixel
    };
    const Backdrop& backdrop(const ClipPresentationStyle& style, PixelSize extent,
                             const FrameGeometry& geometry, const RGBAImage* image);

    std::vector<Backdrop> backdrops_;  // the last few, newest last
    RGBAImage frameBackground_;
    RGBAImage stack_;
};

}  // namespace morvane::engine
