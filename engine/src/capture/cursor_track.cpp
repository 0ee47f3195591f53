#include "morvane/engine/capture/cursor_track.hpp"

#include <nlohmann/json.hpp>

namespace morvane::engine {

void to_json(Json& json, const CursorButtons& buttons) {
    json = buttons.rawValue;
}

void fromJson(const JsonReader& reader, CursorButtons& buttons) {
    const int raw = reader.get<int>();
    if (raw < 0 || raw > 255) reader.fail("expected button bits from 0 to 255");
    buttons.rawValue = static_cast<std::uint8_t>(raw);
}

void to_json(Json& json, const CursorSample& sample) {
    json = Json::object();
    json["seconds"] = sample.seconds;
    json["x"] = sample.x;
    json["y"] = sample.y;
    json["buttons"] = sample.buttons;
}

void fromJson(const JsonReader& reader, CursorSample& sample) {
    sample.seconds = reader["seconds"].get<double>();
    sample.x = reader["x"].get<double>();
    sample.y = reader["y"].get<double>();
    sample.buttons = reader["buttons"].get<CursorButtons>();
}

void to_json(Json& json, const CursorTrack& track) {
    json = Json::object();
    json["samples"] = track.samples;
    json["captureWidth"] = track.captureWidth;
    json["captureHeight"] = track.captureHeight;
}

void fromJson(const JsonReader& reader, CursorTrack& track) {
    track.samples = reader["samples"].get<std::vector<CursorSample>>();
    track.captureWidth = reader["captureWidth"].get<double>();
    track.captureHeight = reader["captureHeight"].get<double>();
}

}  // namespace morvane::engine
