#include "morvane/engine/presentation/clip_zoom_region.hpp"

#include <nlohmann/json.hpp>

namespace morvane::engine {

void to_json(Json& json, const ClipZoomRegion& region) {
    json = Json::object();
    json["timeline_start"] = region.timelineStart;
    json["timeline_end"] = region.timelineEnd;
    json["source_rect"] = region.sourceRect;
}

void fromJson(const JsonReader& reader, ClipZoomRegion& region) {
    region.timelineStart = reader["timeline_start"].get<RationalTime>();
    region.timelineEnd = reader["timeline_end"].get<RationalTime>();
    region.sourceRect = reader["source_rect"].get<EditPlanRect>();
}

}  // namespace morvane::engine
