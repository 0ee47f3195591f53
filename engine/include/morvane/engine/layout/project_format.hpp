#pragma once

/// What a project renders to: canvas size, frame duration and colour space.
///
///     auto format = ProjectFormat::fromPreset(ProjectFormatPreset::shorts, "1/30");   // 1080 x 1920, rec709
///     format.renderSizeToken();                                                        // "1080x1920"
///     ProjectFormatParser::parseRenderSize("1920X1080");                               // {1920, 1080}
///     presetInfo(ProjectFormatPreset::portrait45).label;                               // "Portrait 4:5"

#include <optional>
#include <string>
#include <string_view>

#include "morvane/engine/support/enum_table.hpp"
#include "morvane/engine/support/json.hpp"

namespace morvane::engine {

/// The canvas shapes a user picks from. `custom` keeps whatever size its format holds.
enum class ProjectFormatPreset {
    youtube1080,
    youtube720,
    youtube480,
    youtube2K,
    youtube4K,
    shorts,
    square,
    portrait45,
    custom,
};

/// The stored texts of `ProjectFormatPreset`.
inline constexpr auto kProjectFormatPresetNames = makeEnumTable<ProjectFormatPreset>({
    {ProjectFormatPreset::youtube1080, "youtube_1080"},
    {ProjectFormatPreset::youtube720, "youtube_720"},
    {ProjectFormatPreset::youtube480, "youtube_480"},
    {ProjectFormatPreset::youtube2K, "youtube_2k"},
    {ProjectFormatPreset::youtube4K, "youtube_4k"},
    {ProjectFormatPreset::shorts, "shorts"},
    {ProjectFormatPreset::square, "square"},
    {ProjectFormatPreset::portrait45, "portrait_4_5"},
    {ProjectFormatPreset::custom, "custom"},
});

/// A preset's display name and canvas in pixels; for `custom` the canvas is only a starting size.
struct ProjectFormatPresetInfo {
    std::string_view label;
    int width = 0;
    int height = 0;
};

/// The label and canvas of `preset`: "YouTube 1080p" 1920 x 1080, ..., "Custom" 1920 x 1080.
[[nodiscard]] const ProjectFormatPresetInfo& presetInfo(ProjectFormatPreset preset) noexcept;

/// The colour space a project renders in.
enum class ProjectColorSpace { sRGB, displayP3, rec709 };

/// The stored texts of `ProjectColorSpace`.
inline constexpr auto kProjectColorSpaceNames = makeEnumTable<ProjectColorSpace>({
    {ProjectColorSpace::sRGB, "srgb"},
    {ProjectColorSpace::displayP3, "display_p3"},
    {ProjectColorSpace::rec709, "rec709"},
});

/// A canvas size in pixels as a pair of reals, for geometry.
struct RenderSize {
    double width = 0.0;
    double height = 0.0;
    friend bool operator==(const RenderSize&, const RenderSize&) = default;
};

/// A canvas size in whole pixels.
struct PixelSize {
    int width = 0;
    int height = 0;
    friend bool operator==(const PixelSize&, const PixelSize&) = default;
};

/// What a project renders to.
struct ProjectFormat {
    ProjectFormatPreset preset = ProjectFormatPreset::youtube1080;
    int width = 1920;                          ///< canvas pixels
    int height = 1080;                         ///< canvas pixels
    std::string frameDuration = "1001/30000";  ///< rational time string of one frame
    ProjectColorSpace colorSpace = ProjectColorSpace::rec709;

    /// `preset`'s canvas, `frameDuration`, rec709.
    [[nodiscard]] static ProjectFormat fromPreset(ProjectFormatPreset preset, std::string frameDuration);
    /// The first preset (1920 x 1080, rec709) at the timeline's frame duration.
    [[nodiscard]] static ProjectFormat fromTimelineFrameDuration(std::string timelineFrameDuration);
    /// 1920 x 1080 at 29.97 fps ("1001/30000"), rec709.
    [[nodiscard]] static ProjectFormat defaultYouTube1080();

    [[nodiscard]] RenderSize renderSize() const noexcept {
        return {static_cast<double>(width), static_cast<double>(height)};
    }
    /// Width, "x", height: "1920x1080".
    [[nodiscard]] std::string renderSizeToken() const;

    friend bool operator==(const ProjectFormat&, const ProjectFormat&) = default;
};

/// Reading the render size that a plan's timeline header carries.
namespace ProjectFormatParser {

/// "WIDTHxHEIGHT", the "x" in either case: two decimal integers (an optional sign is accepted), each from 1
/// to 2147483647. Anything else ("1920", "x1080", "1920x1080x2", "0x1080", " 1920x1080") gives nothing.
[[nodiscard]] std::optional<PixelSize> parseRenderSize(std::string_view text);

}  // namespace ProjectFormatParser

/// Keys "preset", "width", "height", "frameDuration", "colorSpace", all required; the enumerations as their
/// stored texts.
void to_json(Json& json, const ProjectFormat& format);
void fromJson(const JsonReader& reader, ProjectFormat& format);

}  // namespace morvane::engine
