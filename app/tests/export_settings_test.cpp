// What the export panel works out from the session: the default request, the range, the file name, the
// typed timecodes, the summary, and the progress texts and status steps of a run.

#include "morvane/app/export/export_settings.hpp"

#include <gtest/gtest.h>

#include "morvane/app/export/export_runner.hpp"
#include "morvane/app/pipeline/export_pipeline.hpp"
#include "morvane/testing/temp_dir.hpp"
#include "session_fixture.hpp"

namespace morvane::app {
namespace {

using engine::ExportRangeMode;
using engine::ExportTimeRange;
using engine::ProjectFormat;
using engine::ProjectFormatPreset;

class ExportSettingsTest : public ::testing::Test {
  protected:
    void SetUp() override { testing::loadShortTalk(session_); }  // a 20 s storyline

    void setFormat(ProjectFormatPreset preset) {
        session_.timeline->projectFormat = ProjectFormat::fromPreset(preset, "1001/30000");
    }

    void addTextClip() {
        TimelineTrack text = *session_.timeline->track(TimelineTrackIDs::text);
        text.clips.push_back({.id = "t1",
                              .sourceID = "text",
                              .label = "Hello",
                              .sourceIn = testing::seconds(0),
                              .sourceOut = testing::seconds(2),
                              .timelineStart = testing::seconds(1),
                              .textContent = "Hello",
                              .kind = std::string(TimelineClipKinds::text)});
        session_.timeline->updateTrack(text);
    }

    ProjectSession session_;
};

TEST_F(ExportSettingsTest, theDefaultRequestFollowsTheProjectAndItsMarkers) {
    ExportRequest request = ExportRequest::defaultFor(session_);
    EXPECT_EQ(request.preset, engine::ExportPreset::youtube1080);
    EXPECT_EQ(request.rangeMode, ExportRangeMode::fullProgram);
    EXPECT_EQ(request.rangeStartSeconds, 0.0);
    EXPECT_EQ(request.rangeEndSeconds, 20.0);
    EXPECT_FALSE(request.burnInCaptions);
    EXPECT_EQ(request.videoSettings, engine::ExportVideoSettings{});

    setFormat(ProjectFormatPreset::shorts);
    addTextClip();
    session_.inPointSeconds = 4.0;
    session_.outPointSeconds = 9.5;
    request = ExportRequest::defaultFor(session_);
    EXPECT_EQ(request.preset.id, "shorts");
    EXPECT_EQ(request.rangeMode, ExportRangeMode::inOutMarkers);
    EXPECT_EQ(request.rangeStartSeconds, 4.0);
    EXPECT_EQ(request.rangeEndSeconds, 9.5);
    EXPECT_TRUE(request.burnInCaptions);

    // Markers out of order stay a whole-program export; an end too close to the start moves after it.
    setFormat(ProjectFormatPreset::portrait45);
    session_.inPointSeconds = 9.0;
    session_.outPointSeconds = 9.05;
    request = ExportRequest::defaultFor(session_);
    EXPECT_EQ(request.preset.id, "youtube_1080");
    EXPECT_EQ(request.rangeMode, ExportRangeMode::inOutMarkers);
    EXPECT_NEAR(*request.rangeEndSeconds, 9.1, 1e-9);
    session_.outPointSeconds = 3.0;
    EXPECT_EQ(ExportRequest::defaultFor(session_).rangeMode, ExportRangeMode::fullProgram);
}

TEST_F(ExportSettingsTest, aCustomRangeIsClampedToTheProgramOrRefused) {
    const struct {
        std::optional<double> start, end, in, out;
        std::optional<ExportTimeRange> range;
    } cases[] = {
        {2.0, 8.0, std::nullopt, std::nullopt, ExportTimeRange{2.0, 8.0}},
        {-3.0, 50.0, std::nullopt, std::nullopt, ExportTimeRange{0.0, 20.0}},
        {std::nullopt, std::nullopt, 5.0, 6.0, ExportTimeRange{5.0, 6.0}},
        {std::nullopt, std::nullopt, std::nullopt, std::nullopt, ExportTimeRange{0.0, 20.0}},
        {10.0, 10.04, std::nullopt, std::nullopt, std::nullopt},
        {30.0, 40.0, std::nullopt, std::nullopt, std::nullopt},
    };
    for (const auto& c : cases) {
        session_.inPointSeconds = c.in;
        session_.outPointSeconds = c.out;
        ExportRequest request{.rangeMode = ExportRangeMode::inOutMarkers,
                              .rangeStartSeconds = c.start,
                              .rangeEndSeconds = c.end};
        EXPECT_EQ(ExportSettings::exportTimeRange(session_, request), c.range) << c.start.value_or(-1);
        request.rangeMode = ExportRangeMode::fullProgram;
        EXPECT_EQ(ExportSettings::exportTimeRange(session_, request), std::nullopt);
    }
}

TEST_F(ExportSettingsTest, thePresetSetsTheCanvasOnlyWhenAskedTo) {
    session_.frameDuration = "1/25";
    ExportRequest request{.preset = engine::ExportPreset::youtube720};
    ProjectFormat format = ExportSettings::exportOutputFormat(session_, request);
    EXPECT_EQ(std::pair(format.width, format.height), std::pair(1920, 1080));
    EXPECT_EQ(format.frameDuration, "1/25");
    EXPECT_TRUE(ExportSettings::presetDiffersFromProject(session_, request));

    request.updateProjectFormat = true;
    format = ExportSettings::exportOutputFormat(session_, request);
    EXPECT_EQ(std::pair(format.width, format.height), std::pair(1280, 720));
    EXPECT_EQ(format.frameDuration, "1/25");
    EXPECT_FALSE(
        ExportSettings::presetDiffersFromProject(session_, {.preset = engine::ExportPreset::podcast}));
}

TEST_F(ExportSettingsTest, theSuggestedNameKeepsOnlyPlainCharacters) {
    const struct {
        std::optional<std::filesystem::path> bundle;
        const char* name;
        engine::ExportVideoCodec codec;
        const char* file;
    } cases[] = {
        {std::nullopt, "My Talk: take 2!", engine::ExportVideoCodec::h264, "My-Talk-take-2.mp4"},
        {std::nullopt, "  ★★★  ", engine::ExportVideoCodec::hevc, "morvane-export.mp4"},
        {std::filesystem::path("/home/me/Launch Day.morvane"), "ignored", engine::ExportVideoCodec::proRes422,
         "Launch-Day.mov"},
        {std::nullopt, "clip_01-final", engine::ExportVideoCodec::gif, "clip_01-final.gif"},
    };
    for (const auto& c : cases) {
        session_.projectURL = c.bundle;
        session_.projectName = c.name;
        EXPECT_EQ(ExportSettings::suggestedFilename(session_, {.codec = c.codec}), c.file) << c.name;
    }
}

TEST(ExportSettings, typedTimecodesReadAsSecondsMinutesOrHours) {
    const struct {
        const char* text;
        std::optional<double> seconds;
    } cases[] = {
        {"90", 90.0},          {" 12.5\n", 12.5},   {"-5", 0.0},           {"1:30", 90.0},
        {"1::30", 90.0},       {"1:02:03", 3723.0}, {"0:-90", 0.0},        {"1:2:3:4", std::nullopt},
        {"::", std::nullopt},  {"", std::nullopt},  {"abc", std::nullopt}, {"1: 30", std::nullopt},
        {"12s", std::nullopt},
    };
    for (const auto& c : cases)
        EXPECT_EQ(ExportSettings::parseTimecode(c.text), c.seconds) << "\"" << c.text << "\"";
}

TEST_F(ExportSettingsTest, thePanelSummarySaysWhatWillBeWritten) {
    session_.inPointSeconds = 2.0;
    session_.outPointSeconds = 12.0;
    ExportRequest request = ExportRequest::defaultFor(session_);
    request.preset = engine::ExportPreset::podcast;
    request.videoSettings.codec = engine::ExportVideoCodec::proRes422;
    auto summary = ExportSettings::panelSummary(session_, request, 1280, 720);
    ASSERT_GE(summary.rows.size(), 7u);
    EXPECT_EQ(summary.rows[0], (ExportSummaryRow{"Output", "1920×1080 · Podcast (-16 LUFS)"}));
    EXPECT_EQ(summary.rows[1], (ExportSummaryRow{"Codec", "ProRes 422 (MOV) · Automatic"}));
    EXPECT_EQ(summary.rows[2], (ExportSummaryRow{"Length", "0:10"}));
    EXPECT_EQ(summary.rows[5], (ExportSummaryRow{"Range", "0:02 – 0:12 (0:10)"}));
    EXPECT_EQ(summary.rows[6], (ExportSummaryRow{"Source", "1280×720 → scale/re-encode"}));
    EXPECT_EQ(summary.note, std::nullopt);
    EXPECT_EQ(summary.actionTitle, "Export MOV…");

    request.preset = engine::ExportPreset::square;
    summary = ExportSettings::panelSummary(session_, request, 1920, 1081);
    EXPECT_EQ(summary.rows.size(), 6u);  // a source within 2 pixels needs no row
    EXPECT_EQ(summary.note, "Keeping project format 1920×1080");
    request.updateProjectFormat = true;
    request.videoSettings.codec = engine::ExportVideoCodec::hevc;
    summary = ExportSettings::panelSummary(session_, request);
    EXPECT_EQ(summary.note, "Will resize project to 1080×1080");
    EXPECT_EQ(summary.rows[0].value, "1080×1080 · YouTube (-14 LUFS)");
    EXPECT_EQ(summary.actionTitle, "Export MP4…");
}

TEST_F(ExportSettingsTest, burnedInCaptionsAddTheirPicturesToTheEstimate) {
    ExportRequest request = ExportRequest::defaultFor(session_);
    const double plain = ExportSettings::estimate(session_, request, 1920, 1080).estimatedEncodeSeconds;
    addTextClip();
    request.burnInCaptions = true;
    const auto withCaption = ExportSettings::estimate(session_, request, 1920, 1080);
    EXPECT_TRUE(withCaption.needsReencode);
    EXPECT_GT(withCaption.estimatedEncodeSeconds, plain + 2.0);
}

TEST(ExportProgressHUD, textsMoveFromPreparingToCaptionsToEncoding) {
    const struct {
        double value;
        ExportProgressText text;
    } cases[] = {
        {-1.0, {0.0, 0, "Exporting…", "Preparing composition…"}},
        {0.02, {0.02, 2, "Exporting…", "Preparing composition…"}},
        {0.2, {0.2, 20, "Exporting… 20%", "Rendering captions… 20%"}},
        {0.334, {0.334, 33, "Exporting… 33%", "Rendering captions… 33%"}},
        {0.34, {0.34, 34, "Exporting… 34%", "Encoding… 34%"}},
        {7.0, {1.0, 100, "Exporting… 100%", "Encoding… 100%"}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(ExportProgressHUD::texts(c.value), c.text) << c.value;
}

TEST(ExportStatusThrottle, theStatusLineMovesInStepsOfFiveThenAtTheEnd) {
    ExportStatusThrottle throttle;
    std::vector<int> shown;
    for (int i = 0; i <= 1000; ++i) {
        const int percent = ExportProgressHUD::texts(i / 1000.0).percent;
        if (throttle.admit(percent)) shown.push_back(percent);
        if (i == 500 && throttle.admit(50)) shown.push_back(-1);  // a repeat never shows
    }
    std::vector<int> expected;
    for (int p = 0; p <= 95; p += 5)
        expected.push_back(p);
    expected.insert(expected.end(), {99, 100});
    EXPECT_EQ(shown, expected);
}

TEST(ExportPipeline, theSuccessMessageNamesTheSidecarWhenThereIsOne) {
    const morvane::testing::TempDir dir;
    const auto movie = dir.path() / "talk.mp4";
    const auto mov = dir.path() / "other.mov";
    EXPECT_EQ(ProjectPipeline::exportSuccessMessage(movie, false), "Exported MP4.");
    EXPECT_EQ(ProjectPipeline::exportSuccessMessage(movie, true), "Exported for YouTube upload.");
    EXPECT_EQ(ProjectPipeline::exportSuccessMessage(dir.path() / "a.GIF", false), "Exported GIF.");
    (void)dir.write("talk.srt", "1\n");
    (void)dir.write("other.srt", "1\n");
    (void)dir.write("a.srt", "1\n");
    EXPECT_EQ(ProjectPipeline::exportSuccessMessage(movie, false), "Exported MP4 + talk.srt.");
    EXPECT_EQ(ProjectPipeline::exportSuccessMessage(movie, true),
              "Exported for YouTube upload (captions: talk.srt).");
    EXPECT_EQ(ProjectPipeline::exportSuccessMessage(mov, false), "Exported MP4 + other.srt.");
    EXPECT_EQ(ProjectPipeline::exportSuccessMessage(dir.path() / "a.gif", false), "Exported GIF.");
}

}  // namespace
}  // namespace morvane::app
