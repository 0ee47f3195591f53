#include "morvane/engine/presentation/background_color.hpp"

#include <fmt/core.h>

#include <nlohmann/json.hpp>

namespace morvane::engine {

std::string BackgroundColor::previewFingerprint() const {
    // fmt never consults the C locale, so a German desktop still writes "0.500", not "0,500".
    return fmt::format("{:.3f},{:.3f},{:.3f},{:.3f}", red, green, blue, alpha);
}

void to_json(Json& json, const BackgroundColor& color) {
    json = Json::object();
    json["red"] = color.red;
    json["green"] = color.green;
    json["blue"] = color.blue;
    json["alpha"] = color.alpha;
}

void fromJson(const JsonReader& reader, BackgroundColor& color) {
    color.red = reader["red"].get<double>();
    color.green = reader["green"].get<double>();
    color.blue = reader["blue"].get<double>();
    color.alpha = reader["alpha"].get<double>();
}

void to_json(Json& json, const SolidFill& fill) {
    json = Json::object();
    json["_0"] = fill.color;
}

void fromJson(const JsonReader& reader, SolidFill& fill) {
    fill.color = reader["_0"].get<BackgroundColor>();
}

void to_json(Json& json, const GradientFill& fill) {
    json = Json::object();
    json["top"] = fill.top;
    json["bottom"] = fill.bottom;
}

void fromJson(const JsonReader& reader, GradientFill& fill) {
    fill.top = reader["top"].get<BackgroundColor>();
    fill.bottom = reader["bottom"].get<BackgroundColor>();
}

void to_json(Json& json, const ImageFill& fill) {
    json = Json::object();
    json["sourceID"] = fill.sourceID;
}

void fromJson(const JsonReader& reader, ImageFill& fill) {
    fill.sourceID = reader["sourceID"].get<std::string>();
}

}  // namespace morvane::engine
