#include "morvane/intelligence/publish/publish_chapter_marker.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

namespace morvane::intelligence {

std::string PublishChapterMarker::youtubeTimestamp() const {
    const double rounded = std::isfinite(startSeconds) ? std::round(startSeconds) : 0.0;
    const auto total = static_cast<long long>(std::clamp(rounded, 0.0, 1e12));
    if (total < 3600) return fmt::format("{}:{:02}", total / 60, total % 60);
    return fmt::format("{}:{:02}:{:02}", total / 3600, (total / 60) % 60, total % 60);
}

void to_json(Json& json, const PublishChapterMarker& marker) {
    json = Json::object();
    json["title"] = marker.title;
    json["startSeconds"] = marker.startSeconds;
}

void fromJson(const JsonReader& reader, PublishChapterMarker& marker) {
    marker.title = reader["title"].get<std::string>();
    marker.startSeconds = reader["startSeconds"].get<double>();
}

}  // namespace morvane::intelligence
