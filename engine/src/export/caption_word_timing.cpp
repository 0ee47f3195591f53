#include "morvane/engine/export/caption_word_timing.hpp"

#include <nlohmann/json.hpp>

namespace morvane::engine {

void to_json(Json& json, const CaptionWordTiming& word) {
    json = Json::object();
    json["text"] = word.text;
    json["start"] = word.start;
    json["end"] = word.end;
}

void fromJson(const JsonReader& reader, CaptionWordTiming& word) {
    word.text = reader["text"].get<std::string>();
    word.start = reader["start"].get<RationalTime>();
    word.end = reader["end"].get<RationalTime>();
}

}  // namespace morvane::engine
