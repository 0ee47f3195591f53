#include "morvane/engine/presentation/cursor_style.hpp"

#include <nlohmann/json.hpp>

namespace morvane::engine {

void to_json(Json& json, const CursorStyle& style) {
    json = Json::object();
    json["visible"] = style.isVisible;
    json["size"] = style.size;
    json["smoothing"] = style.smoothing;
    json["motion_blur"] = style.motionBlur;
    json["click_bounce"] = style.clickBounce;
    json["sway"] = style.sway;
    json["loop_mode"] = style.loopMode;
}

void fromJson(const JsonReader& reader, CursorStyle& style) {
    style.isVisible = reader["visible"].get<bool>();
    style.size = reader["size"].get<double>();
    style.smoothing = reader["smoothing"].get<double>();
    style.motionBlur = reader["motion_blur"].get<double>();
    style.clickBounce = reader["click_bounce"].get<double>();
    style.sway = reader["sway"].get<double>();
    style.loopMode = reader["loop_mode"].get<bool>();
}

}  // namespace morvane::engine
