#pragma once

/// How a clip is framed on its canvas: inset on a backdrop, with rounded corners and a shadow.
///
///     auto style = ClipPresentationStyle::demoDefault();     // what a new screen recording gets
///     style.isIdentity();                                    // false: it pads, rounds and shadows
///     style.background = ClipBackgroundFill::solid({1, 1, 1, 1});
///     Json json = style;                                     // snake-case keys, the fill as
///     {"solid":{"_0":...}}

#include <optional>
#include <string>
#include <variant>

#include "morvane/engine/presentation/background_color.hpp"
#include "morvane/engine/support/enum_table.hpp"
#include "morvane/engine/support/json.hpp"

namespace morvane::engine {

/// What shows around a framed picture. Stored as a single-key object naming the case: {"none":{}},
/// {"solid":{"_0":colour}}, {"gradient":{"top":colour,"bottom":colour}}, {"image":{"sourceID":id}},
/// {"blurSource":{}}.
struct ClipBackgroundFill {
    enum class Case { none, solid, gradient, image, blurSource };
    struct None {
        friend bool operator==(const None&, const None&) = default;
    };
    /// The clip's own picture, blurred, behind itself.
    struct BlurSource {
        friend bool operator==(const BlurSource&, const BlurSource&) = default;
    };

    /// The alternatives follow the order of `Case`.
    std::variant<None, SolidFill, GradientFill, ImageFill, BlurSource> value;

    [[nodiscard]] static ClipBackgroundFill none() { return {None{}}; }
    [[nodiscard]] static ClipBackgroundFill solid(BackgroundColor color) { return {SolidFill{color}}; }
    [[nodiscard]] static ClipBackgroundFill gradient(BackgroundColor top, BackgroundColor bottom) {
        return {GradientFill{top, bottom}};
    }
    [[nodiscard]] static ClipBackgroundFill image(std::string sourceID) {
        return {ImageFill{std::move(sourceID)}};
    }
    [[nodiscard]] static ClipBackgroundFill blurSource() { return {BlurSource{}}; }

    [[nodiscard]] Case kind() const noexcept { return static_cast<Case>(value.index()); }

    friend bool operator==(const ClipBackgroundFill&, const ClipBackgroundFill&) = default;
};

/// The case names, which are also the JSON keys.
inline constexpr auto kClipBackgroundFillCaseNames = makeEnumTable<ClipBackgroundFill::Case>({
    {ClipBackgroundFill::Case::none, "none"},
    {ClipBackgroundFill::Case::solid, "solid"},
    {ClipBackgroundFill::Case::gradient, "gradient"},
    {ClipBackgroundFill::Case::image, "image"},
    {ClipBackgroundFill::Case::blurSource, "blurSource"},
});

/// The frame around a clip. Lengths that scale with the picture are fractions of the output's shorter side;
/// shadow lengths are output pixels.
struct ClipPresentationStyle {
    double padding = 0.0;        ///< inset of the picture, fraction of the shorter side
    double cornerRadius = 0.0;   ///< fraction of the shorter side
    double shadowRadius = 0.0;   ///< blur radius, output pixels
    double shadowOpacity = 0.0;  ///< 0.0–1.0
    double shadowOffsetX = 0.0;  ///< output pixels
    double shadowOffsetY = 0.0;  ///< output pixels
    ClipBackgroundFill background = ClipBackgroundFill::none();
    /// With `outputAspectHeight`, forces an aspect ratio on the framed picture; one without the other
    /// is kept but has no effect.
    std::optional<double> outputAspectWidth;
    std::optional<double> outputAspectHeight;

    /// The style given to a new screen recording: padded on a dark blue-grey gradient with a soft shadow.
    [[nodiscard]] static ClipPresentationStyle demoDefault();

    /// True when the style changes nothing, so rendering can skip it: padding, corner radius and shadow
    /// radius each at most 0.0001, and no background. Any solid background breaks identity.
    [[nodiscard]] bool isIdentity() const noexcept;

    friend bool operator==(const ClipPresentationStyle&, const ClipPresentationStyle&) = default;
};

void to_json(Json& json, const ClipBackgroundFill& fill);
/// Throws `JsonDecodeError` "Invalid number of keys found, expected one." unless exactly one case key is set.
void fromJson(const JsonReader& reader, ClipBackgroundFill& fill);
/// Snake-case keys; every key is required except "output_aspect_width" and "output_aspect_height", which
/// are written only when set.
void to_json(Json& json, const ClipPresentationStyle& style);
void fromJson(const JsonReader& reader, ClipPresentationStyle& style);

}  // namespace morvane::engine
