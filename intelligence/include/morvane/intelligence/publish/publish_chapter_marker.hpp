#pragma once

/// A chapter of the published video: its title and where it starts.

#include <string>

#include "morvane/engine/support/json.hpp"

namespace morvane::intelligence {

struct PublishChapterMarker {
    std::string title;
    double startSeconds = 0.0;

    /// "M:SS" below an hour, "H:MM:SS" from an hour, of the start rounded to whole seconds (at least 0).
    [[nodiscard]] std::string youtubeTimestamp() const;

    friend bool operator==(const PublishChapterMarker&, const PublishChapterMarker&) = default;
};

void to_json(Json& json, const PublishChapterMarker& marker);
void fromJson(const JsonReader& reader, PublishChapterMarker& marker);

}  // namespace morvane::intelligence
