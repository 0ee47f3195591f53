#include "morvane/engine/capture/cursor_track.hpp"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace morvane::engine {

std::optional<CursorSample> CursorTrack::sample(double seconds) const noexcept {
    if (samples.empty()) return std::nullopt;
    if (seconds <= samples.front().seconds) return samples.front();
    if (seconds >= samples.back().seconds) return samples.back();
    const auto after = std::lower_bound(samples.begin(), samples.end(), seconds,
                                        [](const CursorSample& s, double t) { return s.seconds < t; });
    const CursorSample& b = *after;
    const CursorSample& a = *(after - 1);
    const double span = b.seconds - a.seconds;
    const double u = span > 0.0 ? (seconds - a.seconds) / span : 1.0;
    return CursorSample{seconds, a.x + (b.x - a.x) * u, a.y + (b.y - a.y) * u, b.buttons};
}

CursorTrack CursorTrack::smoothed(int window) const {
    if (samples.size() < 3 || window < 2) return *this;
    CursorTrack out = *this;
    const auto n = static_cast<std::ptrdiff_t>(samples.size());
    const std::ptrdiff_t half = window / 2;
    // Running sums over the window as it slides.
    double sumX = 0.0;
    double sumY = 0.0;
    std::ptrdiff_t lo = 0;
    std::ptrdiff_t hi = -1;
    for (std::ptrdiff_t i = 0; i < n; ++i) {
        const std::ptrdiff_t from = std::max<std::ptrdiff_t>(0, i - half);
        const std::ptrdiff_t to = std::min(n - 1, i + half);
        while (hi < to) {
            ++hi;
            sumX += samples[static_cast<std::size_t>(hi)].x;
            sumY += samples[static_cast<std::size_t>(hi)].y;
        }
        while (lo < from) {
            sumX -= samples[static_cast<std::size_t>(lo)].x;
            sumY -= samples[static_cast<std::size_t>(lo)].y;
            ++lo;
        }
        const auto count = static_cast<double>(hi - lo + 1);
        out.samples[static_cast<std::size_t>(i)].x = sumX / count;
        out.samples[static_cast<std::size_t>(i)].y = sumY / count;
    }
    return out;
}

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
