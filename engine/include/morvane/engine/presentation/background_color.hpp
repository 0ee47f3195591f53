#pragma once

/// Colours, and the fill payloads that clip backgrounds and mattes share.
///
///     BackgroundColor plate{0.1, 0.12, 0.18, 1.0};
///     plate.previewFingerprint();                      // "0.100,0.120,0.180,1.000", the same in every
///     locale

#include <string>

#include "morvane/engine/support/json.hpp"

namespace morvane::engine {

/// A straight (not premultiplied) RGBA colour, each channel 0.0–1.0.
struct BackgroundColor {
    double red = 0.0;
    double green = 0.0;
    double blue = 0.0;
    double alpha = 1.0;

    /// "red,green,blue,alpha" with three decimals each, locale-free: a cache key for rendered previews.
    [[nodiscard]] std::string previewFingerprint() const;

    friend bool operator==(const BackgroundColor&, const BackgroundColor&) = default;
};

/// A plate of one colour.
struct SolidFill {
    BackgroundColor color;
    friend bool operator==(const SolidFill&, const SolidFill&) = default;
};

/// A vertical two-colour gradient.
struct GradientFill {
    BackgroundColor top;
    BackgroundColor bottom;
    friend bool operator==(const GradientFill&, const GradientFill&) = default;
};

/// A still picture from the media bin, named by its source id.
struct ImageFill {
    std::string sourceID;
    friend bool operator==(const ImageFill&, const ImageFill&) = default;
};

/// {"red", "green", "blue", "alpha"}, all required numbers.
void to_json(Json& json, const BackgroundColor& color);
void fromJson(const JsonReader& reader, BackgroundColor& color);
/// {"_0": colour}: the payload has no label.
void to_json(Json& json, const SolidFill& fill);
void fromJson(const JsonReader& reader, SolidFill& fill);
/// {"top": colour, "bottom": colour}.
void to_json(Json& json, const GradientFill& fill);
void fromJson(const JsonReader& reader, GradientFill& fill);
/// {"sourceID": id}: camel case, as the case's label is written.
void to_json(Json& json, const ImageFill& fill);
void fromJson(const JsonReader& reader, ImageFill& fill);

}  // namespace morvane::engine
