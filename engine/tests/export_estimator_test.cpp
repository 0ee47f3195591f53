// Export settings and the estimate the export panel shows before anything is rendered.

#include "morvane/engine/export/export_estimator.hpp"

#include <gtest/gtest.h>

#include <cmath>

#include "record_json.hpp"

namespace morvane::engine {
namespace {

TEST(ExportTimeRange, isValidOnlyWhenLongerThanFiveHundredthsOfASecond) {
    const struct {
        double start, end, duration;
        bool valid;
    } cases[] = {
        {0.0, 0.05, 0.05, false},
        {0.0, 0.0500001, 0.0500001, true},
        {3.0, 1.0, 0.0, false},
        {0.0, 90.0, 90.0, true},
    };
    for (const auto& c : cases) {
        const ExportTimeRange range{c.start, c.end};
        EXPECT_NEAR(range.durationSeconds(), c.duration, 1e-9) << c.start << "–" << c.end;
        EXPECT_EQ(range.isValid(), c.valid) << c.start << "–" << c.end;
    }
}

TEST(ExportPreset, theTableLooksUpByExactIdAndGivesItsCanvas) {
    std::vector<std::string> ids;
    for (const auto& preset : ExportPreset::all())
        ids.push_back(preset.id);
    EXPECT_EQ(ids, (std::vector<std::string>{"youtube_1080", "youtube_720", "youtube_480", "youtube_2k",
                                             "youtube_4k", "shorts", "square", "podcast"}));

    const ExportPreset* shorts = ExportPreset::preset("shorts");
    ASSERT_NE(shorts, nullptr);
    const ProjectFormat format = shorts->projectFormat("1/30");
    EXPECT_EQ(std::pair(format.width, format.height), std::pair(1080, 1920));
    EXPECT_EQ(format.frameDuration, "1/30");
    EXPECT_EQ(format.colorSpace, ProjectColorSpace::rec709);

    const ExportPreset* podcast = ExportPreset::preset("podcast");
    ASSERT_NE(podcast, nullptr);
    EXPECT_EQ(podcast->projectFormat("1001/30000").width, 1920);
    EXPECT_EQ(podcast->loudnessTarget, LoudnessTarget::podcast);
    EXPECT_EQ(ExportPreset::preset("YouTube_720"), nullptr);
    EXPECT_EQ(ExportPreset::preset(""), nullptr);
}

TEST(ExportPreset, settingsRoundTripThroughJsonAndRefuseUnknownTexts) {
    const ExportPreset preset = ExportPreset::youtube480;
    const Json json = preset;
    EXPECT_EQ(
        json.dump(),
        R"({"id":"youtube_480","label":"YouTube 480p","formatPreset":"youtube_480","loudnessTarget":"youtube"})");
    EXPECT_EQ(JsonReader(json).get<ExportPreset>(), preset);

    const ExportVideoSettings settings{.codec = ExportVideoCodec::proRes422,
                                       .bitrate = ExportVideoBitrate::max,
                                       .gifFramesPerSecond = 20,
                                       .gifLoop = false,
                                       .gifMaxDimension = 640};
    const Json settingsJson = settings;
    EXPECT_EQ(JsonReader(settingsJson).get<ExportVideoSettings>(), settings);

    Json bad = settingsJson;
    bad["codec"] = "vp9";
    try {
        (void)JsonReader(bad, "export.json").get<ExportVideoSettings>();
        FAIL() << "an unknown codec was read";
    } catch (const JsonDecodeError& e) {
        EXPECT_EQ(e.path(), "/codec");
    }
    Json missing = settingsJson;
    missing.erase("gifLoop");
    EXPECT_THROW((void)JsonReader(missing).get<ExportVideoSettings>(), JsonDecodeError);
}

TEST(ExportVideoSettings, gifOptionsAreClampedToWhatAnAnimatedImageCanTake) {
    const struct {
        int fps, size, wantFps, wantSize;
    } cases[] = {{1, 50, 4, 120}, {12, 480, 12, 480}, {60, 4000, 30, 1920}, {30, 1920, 30, 1920}};
    for (const auto& c : cases) {
        const auto options =
            ExportVideoSettings{.gifFramesPerSecond = c.fps, .gifLoop = false, .gifMaxDimension = c.size}
                .gifOptions();
        EXPECT_EQ(options, (GIFExportOptions{c.wantFps, false, c.wantSize})) << c.fps << " " << c.size;
    }
}

TEST(ExportEstimator, aSourceWithinTwoPixelsOfTheOutputIsLikelyCopied) {
    const struct {
        std::optional<int> sourceWidth;
        ExportVideoSettings video;
        int burnIn;
        bool reencode;
    } cases[] = {
        {1920, {}, 0, false},
        {1922, {}, 0, false},
        {1923, {}, 0, true},  // three pixels already scale
        {std::nullopt, {}, 0, true},
        {1920, {.bitrate = ExportVideoBitrate::medium}, 0, true},
        {1920, {.codec = ExportVideoCodec::hevc}, 0, true},
        {1920, {}, 1, true},
    };
    for (const auto& c : cases) {
        const auto estimate =
            ExportEstimator::estimate({.durationSeconds = 60,
                                       .videoSettings = c.video,
                                       .sourceWidth = c.sourceWidth,
                                       .sourceHeight = c.sourceWidth ? std::optional(1080) : std::nullopt,
                                       .captionBurnInJobs = c.burnIn});
        EXPECT_EQ(estimate.needsReencode, c.reencode) << c.sourceWidth.value_or(0) << " burn-in " << c.burnIn;
    }
}

TEST(ExportEstimator, encodeSecondsFollowTheCodecsSpeedAndTheExtraWork) {
    const auto seconds = [](ExportEstimateInput input) {
        return ExportEstimator::estimate(input).estimatedEncodeSeconds;
    };
    // A copy: 2% of the length, 2 s and a hundredth a clip, at most 12 s.
    EXPECT_NEAR(seconds({.durationSeconds = 100, .sourceWidth = 1920, .sourceHeight = 1080, .clipCount = 10}),
                4.1, 1e-9);
    EXPECT_NEAR(seconds({.durationSeconds = 3600, .sourceWidth = 1920, .sourceHeight = 1080}), 12.0, 1e-9);
    // No known source: an encode at the scaling speed (8x for H.264).
    EXPECT_NEAR(seconds({.durationSeconds = 80}), 3.0 + 10.0, 1e-9);
    // One burn-in job: the encode at full speed (12x), plus 2.06 s.
    EXPECT_NEAR(
        seconds({.durationSeconds = 120, .sourceWidth = 1920, .sourceHeight = 1080, .captionBurnInJobs = 1}),
        3.0 + 10.0 + 2.06, 1e-9);
    // Small pictures go faster (x1.2); upscaling 4x or more goes slower (x0.65).
    EXPECT_NEAR(seconds({.durationSeconds = 96,
                         .outputWidth = 1280,
                         .outputHeight = 720,
                         .videoSettings = {.bitrate = ExportVideoBitrate::medium},
                         .sourceWidth = 1280,
                         .sourceHeight = 720}),
                3.0 + 96.0 / 14.4, 1e-9);
    EXPECT_NEAR(seconds({.durationSeconds = 52, .sourceWidth = 960, .sourceHeight = 540}),
                3.0 + 52.0 / (8.0 * 0.65), 1e-9);
    // Above 6 megapixels: x0.45; the speed never counts below 1.5.
    EXPECT_NEAR(seconds({.durationSeconds = 90,
                         .outputWidth = 3840,
                         .outputHeight = 2160,
                         .videoSettings = {.codec = ExportVideoCodec::gif}}),
                3.0 + 90.0 / 1.5, 1e-9);
}

TEST(ExportEstimator, bytesFollowTheRateModelPerCodec) {
    // 1080p is 1.0017 of the model's reference area; ProRes grows linearly with it, the others by ^0.75.
    const double scale = 1920.0 * 1080.0 / 1e6 / 2.07;
    const struct {
        ExportVideoSettings video;
        double videoMbps;
        double audioMbps;
    } cases[] = {
        {{}, 8.0 * std::pow(scale, 0.75), 0.192},
        {{.bitrate = ExportVideoBitrate::max}, 35.0 * std::pow(scale, 0.75), 0.192},
        {{.codec = ExportVideoCodec::hevc, .bitrate = ExportVideoBitrate::low},
         5.0 * 0.65 * std::pow(scale, 0.75),
         0.192},
        {{.codec = ExportVideoCodec::proRes422, .bitrate = ExportVideoBitrate::low}, 147.0 * scale, 1.5},
        {{.codec = ExportVideoCodec::gif, .bitrate = ExportVideoBitrate::max},
         1.2 * std::pow(scale, 0.75),
         0.192},
    };
    for (const auto& c : cases) {
        const auto estimate = ExportEstimator::estimate({.durationSeconds = 10, .videoSettings = c.video});
        EXPECT_NEAR(estimate.videoMegabitsPerSecond, c.videoMbps, 1e-9) << label(c.video.codec);
        EXPECT_NEAR(static_cast<double>(estimate.estimatedFileBytes),
                    10.0 * (c.videoMbps + c.audioMbps) * 125000.0, 1.0)
            << label(c.video.codec);
    }
    // Tiny pictures are priced as 0.3 megapixels; no length counts as 0.1 s.
    EXPECT_NEAR(
        ExportEstimator::videoBitrateMbps(ExportVideoCodec::h264, ExportVideoBitrate::automatic, 0.01),
        8.0 * std::pow(0.3 / 2.07, 0.75), 1e-12);
    EXPECT_DOUBLE_EQ(ExportEstimator::estimate({.durationSeconds = 0}).durationSeconds, 0.1);
}

TEST(ExportEstimate, labelsReadAsThePanelShowsThem) {
    const struct {
        double encodeSeconds;
        const char* text;
    } ranges[] = {
        {3.0, "Est. encode ~ 5–10 sec"},     {20.0, "Est. encode ~ 14–28 sec"},
        {50.0, "Est. encode ~ about 1 min"},  // 35–70 s: the high end above 59 s switches to minutes
        {200.0, "Est. encode ~ 2–5 min"},    {400.0, "Est. encode ~ 5–9 min"},
    };
    for (const auto& r : ranges) {
        const ExportEstimate estimate{.estimatedEncodeSeconds = r.encodeSeconds, .needsReencode = true};
        EXPECT_EQ(estimate.encodeTimeLabel(), r.text) << r.encodeSeconds;
    }
    EXPECT_EQ(ExportEstimator::encodeRangeText(150.0, 155.0), "about 3 min");
    EXPECT_EQ((ExportEstimate{.estimatedEncodeSeconds = 500, .needsReencode = false}).encodeTimeLabel(),
              "Est. encode ~ a few seconds (likely passthrough)");

    EXPECT_EQ((ExportEstimate{.durationSeconds = 65.4}).durationLabel(), "Export length 1:05");
    EXPECT_EQ((ExportEstimate{.durationSeconds = 3725.0}).durationLabel(), "Export length 1:02:05");
    EXPECT_EQ((ExportEstimate{.durationSeconds = -3.0}).durationLabel(), "Export length 0:00");

    EXPECT_EQ((ExportEstimate{.estimatedFileBytes = 123'456'789}).fileSizeLabel(),
              "Est. file size ~ 123.5 MB");
    EXPECT_EQ((ExportEstimate{.estimatedFileBytes = 1'500'000'000}).fileSizeLabel(),
              "Est. file size ~ 1.50 GB");
    EXPECT_EQ((ExportEstimate{.estimatedFileBytes = -5}).fileSizeLabel(), "Est. file size ~ 0.0 MB");
}

}  // namespace
}  // namespace morvane::engine
