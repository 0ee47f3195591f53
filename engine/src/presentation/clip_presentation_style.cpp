#include "morvane/engine/presentation/clip_presentation_style.hpp"

#include <nlohmann/json.hpp>

#include "support/json_coding.hpp"

namespace morvane::engine {

ClipPresentationStyle ClipPresentationStyle::demoDefault() {
    return {
        .padding = 0.08,
        .cornerRadius = 0.04,
        .shadowRadius = 28.0,
        .shadowOpacity = 0.42,
        .shadowOffsetX = 0.0,
        .shadowOffsetY = 22.0,
        .background = ClipBackgroundFill::gradient({0.1, 0.12, 0.18, 1.0}, {0.04, 0.05, 0.08, 1.0}),
    };
}

bool ClipPresentationStyle::isIdentity() const noexcept {
    constexpr double kEpsilon = 0.0001;
    return padding <= kEpsilon && cornerRadius <= kEpsilon && shadowRadius <= kEpsilon &&
           background.kind() == ClipBackgroundFill::Case::none;
}

void to_json(Json& json, const ClipBackgroundFill& fill) {
    json = detail::writeVariantCase(fill.value, kClipBackgroundFillCaseNames);
}

void fromJson(const JsonReader& reader, ClipBackgroundFill& fill) {
    fill.value = detail::readVariantCase<decltype(fill.value)>(reader, kClipBackgroundFillCaseNames);
}

void to_json(Json& json, const ClipPresentationStyle& style) {
    json = Json::object();
    json["padding"] = style.padding;
    json["corner_radius"] = style.cornerRadius;
    json["shadow_radius"] = style.shadowRadius;
    json["shadow_opacity"] = style.shadowOpacity;
    json["shadow_offset_x"] = style.shadowOffsetX;
    json["shadow_offset_y"] = style.shadowOffsetY;
    json["background"] = style.background;
    detail::putIfPresent(json, "output_aspect_width", style.outputAspectWidth);
    detail::putIfPresent(json, "output_aspect_height", style.outputAspectHeight);
}

void fromJson(const JsonReader& reader, ClipPresentationStyle& style) {
    style.padding = reader["padding"].get<double>();
    style.cornerRadius = reader["corner_radius"].get<double>();
    style.shadowRadius = reader["shadow_radius"].get<double>();
    style.shadowOpacity = reader["shadow_opacity"].get<double>();
    style.shadowOffsetX = reader["shadow_offset_x"].get<double>();
    style.shadowOffsetY = reader["shadow_offset_y"].get<double>();
    style.background = reader["background"].get<ClipBackgroundFill>();
    style.outputAspectWidth = reader.optional<double>("output_aspect_width");
    style.outputAspectHeight = reader.optional<double>("output_aspect_height");
}

}  // namespace morvane::engine
