// Auto-reframe from the session's side: the analysis of real pictures on a worker, the keyframes and the
// switch to the shorts format written as one undoable step, and what an export of the result shows.

#include <gtest/gtest.h>

#include <fstream>

#include "morvane/app/pipeline/export_pipeline.hpp"
#include "morvane/app/pipeline/project_pipeline.hpp"
#include "morvane/app/pipeline/shorts_project_builder.hpp"
#include "morvane/app/session/edit_coordinator.hpp"
#include "morvane/app/timeline/timeline_editor.hpp"
#include "morvane/engine/render/frame_sampler.hpp"
#include "morvane/testing/synthetic_media.hpp"
#include "morvane/testing/temp_dir.hpp"
#include "session_fixture.hpp"

namespace morvane::app {
namespace {

namespace fs = std::filesystem;
using namespace testing;
using ID = intelligence::AssistantCommandID;
namespace Analyzer = intelligence::AutoReframeAnalyzer;

std::string whatOf(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const std::exception& e) {
        return e.what();
    } catch (...) {
        return "unknown";
    }
}

class ReframePipelineMedia : public ::testing::Test {
  protected:
    morvane::testing::TempDir dir;
    ManualMainLoop loop;
    ProjectSession session;
    fs::path movie;

    PipelineContext context() { return {.mainLoop = loop}; }
    void run(const std::shared_ptr<PipelineRequest>& request) {
        ASSERT_TRUE(loop.runUntil([&] { return request->isFinished(); }));
        loop.runPending();
    }
    bool analysing() const {
        return std::any_of(session.activeJobs.begin(), session.activeJobs.end(),
                           [](const MediaJob& job) { return job.kind == MediaJobKind::analyzeSubject; });
    }
    const std::vector<TimelineClip>& storyline() const {
        return session.timeline->clips(TimelineTrackIDs::source);
    }
    bool isShorts() const {
        return session.timeline->projectFormat &&
               session.timeline->projectFormat->preset == engine::ProjectFormatPreset::shorts;
    }

    void SetUp() override {
        // A white square crossing a grey picture, with sound so that the import takes it as a recording.
        movie = morvane::testing::makeMovingSquareMovie(dir.path() / "square.mp4", 2.0, {.withTone = true});
        run(ProjectPipeline::importMedia(session, movie, context()));
        ASSERT_TRUE(session.timeline.has_value()) << session.errorMessage.value_or("");
        ASSERT_EQ(storyline().size(), 1u);
    }
};

TEST_F(ReframePipelineMedia, theAssistantsCommandCropsEveryClipInOneUndoableStep) {
    ASSERT_EQ(TimelineEditor::splitClip(session, storyline().front().id, 1.0), true);
    ASSERT_FALSE(isShorts());
    const auto before = *session.timeline;

    (void)ProjectPipeline::applyCommand(session, ID::autoReframe, context());
    ASSERT_TRUE(analysing()) << session.errorMessage.value_or("");
    ASSERT_TRUE(loop.runUntil([&] { return !analysing(); }));
    loop.runPending();

    EXPECT_EQ(session.statusMessage, "Auto-reframe applied to 2 clips.");
    EXPECT_FALSE(session.errorMessage.has_value());
    EXPECT_TRUE(isShorts());
    for (const auto& clip : storyline()) {
        ASSERT_TRUE(clip.reframeKeyframes.has_value()) << clip.id;
        const auto& keyframes = *clip.reframeKeyframes;
        ASSERT_EQ(keyframes.size(), 2u);  // 1 s every 0.5 s
        EXPECT_EQ(keyframes.front().programStart.compare(clip.timelineStart), 0);
        EXPECT_EQ(keyframes.back().programEnd.compare(clip.timelineStart.adding(clip.sourceDuration())), 0);
        EXPECT_NEAR(keyframes.front().sourceRect.height, 1.0, 1e-9);
    }
    // The square moves right: the second clip's crops lie right of the first's.
    EXPECT_LT(storyline()[0].reframeKeyframes->front().sourceRect.x,
              storyline()[1].reframeKeyframes->back().sourceRect.x);
    ASSERT_TRUE(session.editPlan.has_value());
    EXPECT_EQ(session.editPlan->timeline.renderSize, "1080x1920");
    expectConsistent(session);

    EXPECT_EQ(session.editHistory.undoMenuTitle(), "Undo Auto-Reframe");
    ASSERT_TRUE(EditCoordinator::undo(session).has_value());
    EXPECT_EQ(*session.timeline, before);  // keyframes and format, in one step
    ASSERT_TRUE(EditCoordinator::redo(session).has_value());
    EXPECT_TRUE(isShorts());
    EXPECT_TRUE(storyline()[1].reframeKeyframes.has_value());
}

TEST_F(ReframePipelineMedia, aClipThatFailsDoesNotStopTheOthers) {
    const auto garbage = dir.path() / "broken.mp4";
    std::ofstream(garbage) << "no pictures here";
    session.mediaBin.push_back({.id = "src2",
                                .label = "broken.mp4",
                                .urlPath = garbage.string(),
                                .kind = MediaBinKind::broll,
                                .durationSeconds = 3,
                                .hasVideo = true});
    session.syncExtraSourcesFromMediaBin();
    TimelineClip overlay = clipOf("broken.mp4", 0, 1, 0.5, "src2");
    session.timeline->track(TimelineTrackIDs::overlay)->clips.push_back(overlay);
    const std::string good = storyline().front().id;

    struct Case {
        std::vector<std::string> clips;
        std::string status;
        std::optional<std::string> error;
    } cases[] = {
        {{overlay.id, good}, "Auto-reframe applied to 1 clip.", std::nullopt},
        {{overlay.id}, "", std::string(Analyzer::undecodableMessage)},
    };
    for (const auto& c : cases) {
        session.errorMessage.reset();
        session.statusMessage.clear();
        const auto undoSteps = session.editHistory.undoMenuTitle();
        run(ProjectPipeline::autoReframeClips(session, c.clips, false, context()));
        EXPECT_EQ(session.errorMessage, c.error);
        if (!c.error) {
            EXPECT_EQ(session.statusMessage, c.status);
        }
        EXPECT_FALSE(session.timeline->findClip(overlay.id)->reframeKeyframes.has_value());
        EXPECT_FALSE(isShorts());  // asked to keep the format
    }
    EXPECT_TRUE(storyline().front().reframeKeyframes.has_value());
}

TEST_F(ReframePipelineMedia, aReframedShortExportsUprightAndShowsTheSubjectNotBars) {
    run(ProjectPipeline::runAutoReframe(session, context(), false));
    ASSERT_TRUE(isShorts()) << session.errorMessage.value_or("");

    const auto output = dir.path() / "short.mp4";
    std::optional<ExportOutcome> outcome;
    run(ProjectPipeline::exportMP4(session, output, context(),
                                   {.completion = [&](const ExportOutcome& o) { outcome = o; }}));
    ASSERT_TRUE(outcome.has_value());
    ASSERT_FALSE(outcome->error) << whatOf(outcome->error);

    engine::FrameSampler exported(output, {}, {.maxDimension = 1920});
    ASSERT_EQ(exported.sampleSize(), (engine::PixelSize{1080, 1920}));
    for (const double t : {0.25, 1.0, 1.75}) {
        SCOPED_TRACE(t);
        const auto frame = exported.frameNear(t);
        ASSERT_TRUE(frame.has_value());
        const auto& image = frame->image;
        const auto grey = [&](int x, int y) { return image.pixel(x, y)[1]; };
        // Letterboxing would leave the top and bottom black; the crop fills them with the grey picture.
        EXPECT_GT(grey(540, 10), 40);
        EXPECT_GT(grey(540, 1910), 40);
        // And the square (60 px of 360, so 320 px here) is in view, white at mid-height.
        int white = 0;
        for (int x = 0; x < image.width; x += 4)
            white += grey(x, 960) > 200 ? 1 : 0;
        EXPECT_GT(white, 40);
    }
}

TEST_F(ReframePipelineMedia, aShortProjectIsReframedBeforeItIsAnnounced) {
    const intelligence::ShortsCandidate candidate{.id = "c1",
                                                  .title = "Square",
                                                  .segmentIDs = {0},
                                                  .sourceStart = seconds(0.5),
                                                  .sourceEnd = seconds(1.9)};
    ProjectSession shortSession;
    run(ShortsProjectBuilder::populateShortProject(session, candidate, shortSession, context()));
    const auto& clip = shortSession.timeline->clips(TimelineTrackIDs::source).front();
    ASSERT_TRUE(clip.reframeKeyframes.has_value()) << shortSession.errorMessage.value_or("");
    EXPECT_EQ(clip.reframeKeyframes->size(), 3u);
    EXPECT_NEAR(clip.reframeKeyframes->back().programEnd.seconds(), 1.4, 1e-9);
    ASSERT_FALSE(shortSession.chatMessages.empty());
    EXPECT_EQ(shortSession.chatMessages.back().text, "Short project \"Square\" — 0:01.");
    EXPECT_EQ(shortSession.editHistory.undoMenuTitle(), "Undo Auto-Reframe");
}

}  // namespace
}  // namespace morvane::app
