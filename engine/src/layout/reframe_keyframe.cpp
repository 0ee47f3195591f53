#include "morvane/engine/layout/reframe_keyframe.hpp"

#include <nlohmann/json.hpp>

namespace morvane::engine {

void to_json(Json& json, const ReframeKeyframe& keyframe) {
    json = Json::object();
    json["programStart"] = keyframe.programStart;
    json["programEnd"] = keyframe.programEnd;
    json["sourceRect"] = keyframe.sourceRect;
}

void fromJson(const JsonReader& reader, ReframeKeyframe& keyframe) {
    keyframe.programStart = reader["programStart"].get<RationalTime>();
    keyframe.programEnd = reader["programEnd"].get<RationalTime>();
    keyframe.sourceRect = reader["sourceRect"].get<EditPlanRect>();
}

}  // namespace morvane::engine
