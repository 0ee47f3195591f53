#include "morvane/engine/plan/edit_plan_rect.hpp"

#include <nlohmann/json.hpp>

namespace morvane::engine {

void to_json(Json& json, const EditPlanRect& rect) {
    json = Json::object();
    json["x"] = rect.x;
    json["y"] = rect.y;
    json["width"] = rect.width;
    json["height"] = rect.height;
}

void fromJson(const JsonReader& reader, EditPlanRect& rect) {
    rect.x = reader["x"].get<double>();
    rect.y = reader["y"].get<double>();
    rect.width = reader["width"].get<double>();
    rect.height = reader["height"].get<double>();
}

}  // namespace morvane::engine
