#include "morvane/engine/layout/project_format.hpp"

#include <gtest/gtest.h>

#include "morvane/engine/plan/edit_plan.hpp"
#include "record_json.hpp"

namespace morvane::engine {
namespace {

using testing::compactJson;
using testing::decodeFailure;
using testing::expectRoundTrip;

TEST(ProjectFormat, presetsCarryTheirTextLabelAndCanvas) {
    struct Case {
        ProjectFormatPreset preset;
        const char* raw;
        const char* label;
        int width;
        int height;
    } cases[] = {
        {ProjectFormatPreset::youtube1080, "youtube_1080", "YouTube 1080p", 1920, 1080},
        {ProjectFormatPreset::youtube720, "youtube_720", "YouTube 720p", 1280, 720},
        {ProjectFormatPreset::youtube480, "youtube_480", "YouTube 480p", 854, 480},
        {ProjectFormatPreset::youtube2K, "youtube_2k", "YouTube 2K", 2560, 1440},
        {ProjectFormatPreset::youtube4K, "youtube_4k", "YouTube 4K", 3840, 2160},
        {ProjectFormatPreset::shorts, "shorts", "Shorts / Reels / TikTok", 1080, 1920},
        {ProjectFormatPreset::square, "square", "Square 1:1", 1080, 1080},
        {ProjectFormatPreset::portrait45, "portrait_4_5", "Portrait 4:5", 1080, 1350},
        {ProjectFormatPreset::custom, "custom", "Custom", 1920, 1080},
    };
    ASSERT_EQ(std::size(cases), kProjectFormatPresetNames.size());
    for (const auto& c : cases) {
        EXPECT_EQ(kProjectFormatPresetNames.text(c.preset), c.raw);
        EXPECT_EQ(presetInfo(c.preset).label, c.label);
        const auto format = ProjectFormat::fromPreset(c.preset, "1/25");
        EXPECT_EQ(format, (ProjectFormat{c.preset, c.width, c.height, "1/25", ProjectColorSpace::rec709}))
            << c.raw;
        expectRoundTrip(format);
    }
}

TEST(ProjectFormat, defaultsTokensAndCustomSizes) {
    const auto standard = ProjectFormat::defaultYouTube1080();
    EXPECT_EQ(standard, (ProjectFormat{ProjectFormatPreset::youtube1080, 1920, 1080, "1001/30000",
                                       ProjectColorSpace::rec709}));
    EXPECT_EQ(standard.renderSizeToken(), "1920x1080");
    EXPECT_EQ(
        ProjectFormat::fromTimelineFrameDuration("1/60"),
        (ProjectFormat{ProjectFormatPreset::youtube1080, 1920, 1080, "1/60", ProjectColorSpace::rec709}));

    // The custom preset's table size is only a starting point: a format keeps the size it holds.
    const ProjectFormat custom{ProjectFormatPreset::custom, 1234, 567, "1/30", ProjectColorSpace::displayP3};
    EXPECT_EQ(custom.renderSize(), (RenderSize{1234.0, 567.0}));
    EXPECT_EQ(custom.renderSizeToken(), "1234x567");
    EXPECT_EQ(
        compactJson(custom),
        R"({"preset":"custom","width":1234,"height":567,"frameDuration":"1/30","colorSpace":"display_p3"})");
    expectRoundTrip(custom);
    EXPECT_EQ(decodeFailure<ProjectFormat>(
                  R"({"preset":"imax","width":1,"height":1,"frameDuration":"1/30","colorSpace":"srgb"})"),
              R"(/preset: expected one of "youtube_1080", "youtube_720", "youtube_480", "youtube_2k", )"
              R"("youtube_4k", "shorts", "square", "portrait_4_5", "custom", found "imax")");
}

TEST(ProjectFormatParser, parsesWidthByHeight) {
    struct Case {
        const char* text;
        std::optional<PixelSize> size;
    } cases[] = {
        {"1920x1080", PixelSize{1920, 1080}},
        {"1920X1080", PixelSize{1920, 1080}},
        {"+5x10", PixelSize{5, 10}},
        {"2147483647x1", PixelSize{2147483647, 1}},
        {"1920", std::nullopt},
        {"x1080", std::nullopt},
        {"1920x", std::nullopt},
        {"1920x1080x2", std::nullopt},
        {"1920xX1080", std::nullopt},
        {"0x1080", std::nullopt},
        {"-5x10", std::nullopt},
        {" 1920x1080", std::nullopt},
        {"1920 x1080", std::nullopt},
        {"1e3x10", std::nullopt},
        {"19.5x10", std::nullopt},
        {"2147483648x1", std::nullopt},
        {"", std::nullopt},
    };
    for (const auto& c : cases)
        EXPECT_EQ(ProjectFormatParser::parseRenderSize(c.text), c.size) << '"' << c.text << '"';
}

TEST(EditPlanTimeline, resolvedFormatReadsRenderSizeAndColourSpace) {
    using Space = ProjectColorSpace;
    struct Case {
        EditPlanTimeline timeline;
        std::optional<std::string> fallback;
        ProjectFormat format;
    } cases[] = {
        {{"1/25"}, std::nullopt, {ProjectFormatPreset::youtube1080, 1920, 1080, "1/25", Space::rec709}},
        {{""}, "1/24", {ProjectFormatPreset::youtube1080, 1920, 1080, "1/24", Space::rec709}},
        {{""}, std::nullopt, {ProjectFormatPreset::youtube1080, 1920, 1080, "1001/30000", Space::rec709}},
        {{"1/25", "1280x720"}, "1/24", {ProjectFormatPreset::custom, 1280, 720, "1/25", Space::rec709}},
        {{"1/25", "1080X1920", "srgb"},
         std::nullopt,
         {ProjectFormatPreset::custom, 1080, 1920, "1/25", Space::sRGB}},
        {{"1/25", "640x480", "display_p3"},
         std::nullopt,
         {ProjectFormatPreset::custom, 640, 480, "1/25", Space::displayP3}},
        {{"1/25", "640x480", "adobe_rgb"},
         std::nullopt,
         {ProjectFormatPreset::custom, 640, 480, "1/25", Space::rec709}},
        // Without a render size that parses, the colour space is not read at all.
        {{"1/25", "wide", "srgb"},
         std::nullopt,
         {ProjectFormatPreset::youtube1080, 1920, 1080, "1/25", Space::rec709}},
        {{"1/25", std::nullopt, "display_p3"},
         std::nullopt,
         {ProjectFormatPreset::youtube1080, 1920, 1080, "1/25", Space::rec709}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.timeline.resolvedFormat(c.fallback), c.format)
            << c.timeline.renderSize.value_or("(none)");
}

}  // namespace
}  // namespace morvane::engine
