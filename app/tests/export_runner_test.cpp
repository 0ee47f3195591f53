// An export run from a session holding a real recording: the status line, the display, the file and its
// sidecar, and each way a run can fail.

#include "morvane/app/export/export_runner.hpp"

#include <gtest/gtest.h>

#include <fstream>

#include "morvane/app/pipeline/export_pipeline.hpp"
#include "morvane/app/session/project_session.hpp"
#include "morvane/app/timeline/timeline_plan_bridge.hpp"
#include "morvane/testing/synthetic_media.hpp"
#include "morvane/testing/temp_dir.hpp"

namespace morvane::app {
namespace {

namespace fs = std::filesystem;

// Every status line and error the session shows, in order.
class StatusLog final : public ProjectSessionObserver {
  public:
    void projectSessionDidChange(ProjectSession& session) override {
        if (statuses.empty() || statuses.back() != session.statusMessage)
            statuses.push_back(session.statusMessage);
    }
    std::vector<std::string> statuses;
};

class RecordingDisplay final : public ExportProgressDisplay {
  public:
    void show(const std::string& title, const std::string& detail) override {
        shown.push_back(title + " / " + detail);
    }
    void update(const ExportProgressText& text) override { values.push_back(text.value); }
    void dismiss() override { ++dismissed; }
    std::vector<std::string> shown;
    std::vector<double> values;
    int dismissed = 0;
};

// A session holding a 4-second counter recording at 320x240, its storyline one clip, its canvas the
// recording's size.
class ExportRunnerMedia : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        dir_ = new morvane::testing::TempDir();
        morvane::testing::makeCounterMovie(dir_->path() / "talk.mov", 4.0, {.toneHz = 440.0});
    }
    static void TearDownTestSuite() {
        delete dir_;
        dir_ = nullptr;
    }

    void SetUp() override {
        session_.mediaURL = dir_->path() / "talk.mov";
        session_.mediaDurationSeconds = 4.0;
        session_.frameDuration = "1/30";
        ASSERT_TRUE(TimelinePlanBridge::bootstrapSourceTimeline(session_, "src1"));
        auto format = engine::ProjectFormat::fromPreset(engine::ProjectFormatPreset::custom, "1/30");
        format.width = 320;
        format.height = 240;
        session_.timeline->projectFormat = format;
        session_.addObserver(log_);
    }

    void run(const fs::path& to, ExportRequest request,
             std::function<void(PipelineRequest&)> whileRunning = {}) {
        const auto running =
            ExportRunner::run(session_, request, to, {.mainLoop = loop_}, {.display = &display_});
        if (whileRunning) whileRunning(*running);
        ASSERT_TRUE(loop_.runUntil([&] { return running->isFinished(); }, std::chrono::seconds(120)));
        loop_.runPending();
    }

    // "Hello there" for 2 s on the text track from `start`.
    void addCaption(engine::RationalTime start) {
        TimelineTrack text = *session_.timeline->track(TimelineTrackIDs::text);
        text.clips.push_back({.id = "t1",
                              .sourceID = "text",
                              .label = "Hello",
                              .sourceIn = engine::RationalTime::zero,
                              .sourceOut = engine::RationalTime{1200, 600},
                              .timelineStart = start,
                              .textContent = "Hello there",
                              .kind = std::string(TimelineClipKinds::text)});
        session_.timeline->updateTrack(text);
    }

    ManualMainLoop loop_;
    ProjectSession session_;
    std::shared_ptr<StatusLog> log_ = std::make_shared<StatusLog>();
    RecordingDisplay display_;
    morvane::testing::TempDir out_;
    static morvane::testing::TempDir* dir_;
};

morvane::testing::TempDir* ExportRunnerMedia::dir_ = nullptr;

TEST_F(ExportRunnerMedia, aRunShowsItsProgressThenTheFileAndItsCaptions) {
    addCaption(engine::RationalTime{600, 600});
    const fs::path to = out_.path() / "cut.mp4";
    ExportRequest request = ExportRequest::defaultFor(session_);
    request.burnInCaptions = false;
    run(to, request);

    EXPECT_EQ(session_.statusMessage, "Exported MP4 + cut.srt.");
    EXPECT_EQ(session_.statusKind, SessionStatusKind::success);
    EXPECT_FALSE(session_.isBusy());
    EXPECT_EQ(session_.errorMessage, std::nullopt);
    EXPECT_EQ(morvane::testing::countVideoFrames(to), 120);
    std::ifstream srt(out_.path() / "cut.srt");
    const std::string captions{std::istreambuf_iterator<char>(srt), {}};
    EXPECT_EQ(captions, "1\n00:00:01,000 --> 00:00:03,000\nHello there\n");

    ASSERT_GE(log_->statuses.size(), 3u);
    EXPECT_EQ(log_->statuses.front(), "Exporting video…");
    for (std::size_t i = 1; i + 1 < log_->statuses.size(); ++i) {
        const auto& status = log_->statuses[i];
        EXPECT_TRUE(status == "Preparing export…" || status.starts_with("Exporting… ")) << status;
    }
    EXPECT_EQ(display_.shown, (std::vector<std::string>{"Exporting video… / Starting encode…"}));
    EXPECT_EQ(display_.dismissed, 1);
    ASSERT_FALSE(display_.values.empty());
    EXPECT_EQ(display_.values.back(), 1.0);
}

TEST_F(ExportRunnerMedia, aCancelledRunShowsCancelledAndLeavesNoFile) {
    const fs::path to = out_.path() / "cut.mov";
    ExportRequest request = ExportRequest::defaultFor(session_);
    request.videoSettings.codec = engine::ExportVideoCodec::proRes422;
    run(to, request, [](PipelineRequest& running) { running.cancel(); });
    EXPECT_EQ(session_.errorMessage, "Cancelled");
    EXPECT_EQ(session_.statusKind, SessionStatusKind::error);
    EXPECT_FALSE(session_.isBusy());
    EXPECT_TRUE(fs::is_empty(out_.path()));
    EXPECT_EQ(display_.dismissed, 1);
}

TEST_F(ExportRunnerMedia, failuresReachTheErrorBannerWithTheirOwnWords) {
    const fs::path to = out_.path() / "cut.mp4";
    session_.mediaURL = out_.path() / "moved-away.mov";
    session_.extraSources["src1"] = *session_.mediaURL;
    run(to, ExportRequest::defaultFor(session_));
    EXPECT_EQ(session_.errorMessage, "Missing file: " + (out_.path() / "moved-away.mov").string());
    EXPECT_FALSE(session_.isBusy());

    session_.mediaURL.reset();
    run(to, ExportRequest::defaultFor(session_));
    EXPECT_EQ(session_.errorMessage, "No edit plan to export");
    EXPECT_TRUE(fs::is_empty(out_.path()));
}

TEST_F(ExportRunnerMedia, aGifRunWritesTheAnimationAloneAtItsRateAndSize) {
    // A caption on the text track would give a movie its sidecar; a GIF has none.
    addCaption(engine::RationalTime::zero);
    ExportRequest gif = ExportRequest::defaultFor(session_);
    gif.videoSettings.codec = engine::ExportVideoCodec::gif;
    gif.videoSettings.gifFramesPerSecond = 2;  // held to 4
    gif.videoSettings.gifMaxDimension = 160;
    run(out_.path() / "cut.gif", gif);

    EXPECT_EQ(session_.errorMessage, std::nullopt);
    EXPECT_EQ(session_.statusMessage, "Exported GIF.");
    EXPECT_EQ(morvane::testing::streamCodecs(out_.path() / "cut.gif"), std::vector<std::string>{"gif"});
    EXPECT_EQ(morvane::testing::countVideoFrames(out_.path() / "cut.gif"), 16);  // 4 s at 4 a second
    EXPECT_FALSE(fs::exists(out_.path() / "cut.srt"));
}

}  // namespace
}  // namespace morvane::app
