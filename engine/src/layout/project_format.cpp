#include "morvane/engine/layout/project_format.hpp"

#include <fmt/core.h>

#include <array>
#include <charconv>
#include <limits>
#include <nlohmann/json.hpp>

#include "support/json_coding.hpp"

namespace morvane::engine {
namespace {

// In the order of the enumeration.
constexpr std::array<ProjectFormatPresetInfo, 9> kPresetInfo{{
    {"YouTube 1080p", 1920, 1080},
    {"YouTube 720p", 1280, 720},
    {"YouTube 480p", 854, 480},
    {"YouTube 2K", 2560, 1440},
    {"YouTube 4K", 3840, 2160},
    {"Shorts / Reels / TikTok", 1080, 1920},
    {"Square 1:1", 1080, 1080},
    {"Portrait 4:5", 1080, 1350},
    {"Custom", 1920, 1080},
}};

// A decimal integer with an optional leading sign and nothing else, within the range of int.
std::optional<int> parseDimension(std::string_view text) {
    if (text.starts_with('+')) {
        text.remove_prefix(1);
        if (text.empty() || text.front() < '0' || text.front() > '9') return std::nullopt;
    }
    int value = 0;
    const auto* end = text.data() + text.size();
    const auto [ptr, ec] = std::from_chars(text.data(), end, value);
    if (ec != std::errc{} || ptr != end) return std::nullopt;
    return value;
}

}  // namespace

const ProjectFormatPresetInfo& presetInfo(ProjectFormatPreset preset) noexcept {
    return kPresetInfo[static_cast<std::size_t>(preset)];
}

ProjectFormat ProjectFormat::fromPreset(ProjectFormatPreset preset, std::string frameDuration) {
    const auto& info = presetInfo(preset);
    return {preset, info.width, info.height, std::move(frameDuration), ProjectColorSpace::rec709};
}

ProjectFormat ProjectFormat::fromTimelineFrameDuration(std::string timelineFrameDuration) {
    return fromPreset(ProjectFormatPreset::youtube1080, std::move(timelineFrameDuration));
}

ProjectFormat ProjectFormat::defaultYouTube1080() {
    return fromPreset(ProjectFormatPreset::youtube1080, "1001/30000");
}

std::string ProjectFormat::renderSizeToken() const {
    return fmt::format("{}x{}", width, height);
}

std::optional<PixelSize> ProjectFormatParser::parseRenderSize(std::string_view text) {
    // Lower-casing matters only for the separator: any other letter fails the integer parse anyway.
    const auto separator = text.find_first_of("xX");
    if (separator == std::string_view::npos) return std::nullopt;
    const std::string_view widthText = text.substr(0, separator);
    const std::string_view heightText = text.substr(separator + 1);
    if (widthText.empty() || heightText.empty() || heightText.find_first_of("xX") != std::string_view::npos)
        return std::nullopt;
    const auto width = parseDimension(widthText);
    const auto height = parseDimension(heightText);
    if (!width || !height || *width < 1 || *height < 1) return std::nullopt;
    return PixelSize{*width, *height};
}

void to_json(Json& json, const ProjectFormat& format) {
    json = Json::object();
    json["preset"] = kProjectFormatPresetNames.text(format.preset);
    json["width"] = format.width;
    json["height"] = format.height;
    json["frameDuration"] = format.frameDuration;
    json["colorSpace"] = kProjectColorSpaceNames.text(format.colorSpace);
}

void fromJson(const JsonReader& reader, ProjectFormat& format) {
    format.preset = detail::readEnum(reader["preset"], kProjectFormatPresetNames);
    format.width = reader["width"].get<int>();
    format.height = reader["height"].get<int>();
    format.frameDuration = reader["frameDuration"].get<std::string>();
    format.colorSpace = detail::readEnum(reader["colorSpace"], kProjectColorSpaceNames);
}

}  // namespace morvane::engine
