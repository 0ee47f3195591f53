#include "morvane/app/pipeline/shorts_project_builder.hpp"

#include <gtest/gtest.h>

#include "morvane/app/pipeline/project_pipeline.hpp"
#include "morvane/engine/plan/edit_plan_resolver.hpp"
#include "morvane/engine/support/uuid.hpp"
#include "morvane/intelligence/support/text.hpp"
#include "morvane/testing/temp_dir.hpp"
#include "session_fixture.hpp"

namespace morvane::app {
namespace {

using namespace testing;
using intelligence::ShortsCandidate;
using ID = intelligence::AssistantCommandID;

// The second and third sentences of the short talk: "It works." (2.2-3.0 s), "Thanks for watching." (4.0-5.4
// s).
ShortsCandidate lastTwoSentences() {
    return {.id = makeUUID(),
            .title = "It works. Thanks for watching.",
            .segmentIDs = {1, 2},
            .sourceStart = seconds(2.2),
            .sourceEnd = seconds(5.4),
            .score = 0.6,
            .hookSummary = "Strong hook phrasing"};
}

TEST(ShortsProjectBuilder, namesProjectsSafelyFromTitles) {
    struct Case {
        std::string title;
        std::string name;
    } cases[] = {
        {"  Why export twice?\n", "Why export twice?"},
        {"a/b\\c:d", "a-b-c-d"},
        {"///", "---"},
        {" \t ", "Short"},
        {"", "Short"},
        {std::string(64, 'x'), std::string(64, 'x')},
        {std::string(60, 'x') + " yyyy", std::string(60, 'x')},  // 65 characters: cut to 61, then trimmed
    };
    for (const auto& c : cases)
        EXPECT_EQ(ShortsProjectBuilder::sanitizedProjectName(c.title), c.name) << c.title;
    std::string accented;
    for (int i = 0; i < 70; ++i)
        accented += "e\u0301";
    EXPECT_EQ(intelligence::characterCount(ShortsProjectBuilder::sanitizedProjectName(accented)), 61u);
}

TEST(ShortsProjectBuilder, keepsTheWordsAndSegmentsThatOverlapThePassage) {
    ProjectSession parent;
    loadShortTalk(parent);
    parent.transcript->disfluencyHits =
        intelligence::TranscriptDocument::disfluencyHitsFor(parent.transcript->words);
    ASSERT_EQ(parent.transcript->disfluencyHits.size(), 1u);  // "um", word 1

    // From the end of "cut." (2.0 s) to the start of "Thanks" (4.0 s): neither touching word takes part.
    const auto between =
        ShortsProjectBuilder::filteredTranscript(*parent.transcript, seconds(2.0), seconds(4.0));
    ASSERT_TRUE(between.has_value());
    std::vector<int> ids;
    for (const auto& word : between->words)
        ids.push_back(word.id);
    EXPECT_EQ(ids, (std::vector{5, 6}));
    EXPECT_EQ(between->fullText, "It works.");
    EXPECT_DOUBLE_EQ(between->durationSeconds, 2.0);
    EXPECT_TRUE(between->disfluencyHits.empty());
    EXPECT_EQ(between->sourceURL, parent.transcript->sourceURL);

    // A passage that cuts into words keeps them, and their fillers with them.
    const auto into =
        ShortsProjectBuilder::filteredTranscript(*parent.transcript, seconds(0.5), seconds(0.9));
    ASSERT_TRUE(into.has_value());
    EXPECT_EQ(into->words.size(), 2u);  // "um" and "today"
    EXPECT_EQ(into->disfluencyHits.size(), 1u);

    EXPECT_FALSE(ShortsProjectBuilder::filteredTranscript(*parent.transcript, seconds(3.0), seconds(4.0)));
    EXPECT_FALSE(ShortsProjectBuilder::filteredTranscript(*parent.transcript, seconds(4.0), seconds(2.0)));

    const auto segments =
        ShortsProjectBuilder::filteredSegments(*parent.segments, seconds(1.9), seconds(4.0));
    ASSERT_TRUE(segments.has_value());
    EXPECT_EQ(segments->segmentCount, 2);
    EXPECT_EQ(segments->segments[0].id, 0);
    EXPECT_EQ(segments->segments[1].id, 1);
    EXPECT_FALSE(ShortsProjectBuilder::filteredSegments(*parent.segments, seconds(3.0), seconds(4.0)));
}

TEST(ShortsProjectBuilder, makesAVerticalProjectOfThePassageAndLeavesTheParentAlone) {
    ProjectSession parent;
    loadShortTalk(parent);
    parent.frameDuration = "1/25";
    const auto parentTimeline = parent.timeline;

    ProjectSession shortSession;
    int changes = 0;
    struct Counter final : ProjectSessionObserver {
        int* changes;
        explicit Counter(int* c) : changes(c) {}
        void projectSessionDidChange(ProjectSession&) override { ++*changes; }
    };
    const auto counter = std::make_shared<Counter>(&changes);
    shortSession.addObserver(counter);
    ManualMainLoop loop;
    const auto built = ShortsProjectBuilder::populateShortProject(parent, lastTwoSentences(), shortSession,
                                                                  {.mainLoop = loop});
    ASSERT_TRUE(loop.runUntil([&] { return built->isFinished(); }));

    EXPECT_EQ(shortSession.projectName, "It works. Thanks for watching.");
    EXPECT_EQ(shortSession.mediaURL, parent.mediaURL);
    EXPECT_EQ(shortSession.mediaBin, parent.mediaBin);
    EXPECT_FALSE(shortSession.projectURL.has_value());
    EXPECT_EQ(shortSession.frameDuration, "1/25");
    ASSERT_TRUE(shortSession.transcript.has_value());
    EXPECT_EQ(shortSession.transcript->fullText, "It works. Thanks for watching.");
    ASSERT_TRUE(shortSession.segments.has_value());
    EXPECT_EQ(shortSession.segments->segmentCount, 2);

    const auto& timeline = *shortSession.timeline;
    ASSERT_TRUE(timeline.projectFormat.has_value());
    EXPECT_EQ(timeline.projectFormat->renderSizeToken(), "1080x1920");
    EXPECT_EQ(timeline.projectFormat->frameDuration, "1/25");
    ASSERT_EQ(timeline.clips(TimelineTrackIDs::source).size(), 1u);
    const auto& clip = timeline.clips(TimelineTrackIDs::source).front();
    EXPECT_EQ(clip.sourceID, "src1");
    EXPECT_EQ(clip.sourceIn, seconds(2.2));
    EXPECT_EQ(clip.sourceOut, seconds(5.4));
    EXPECT_EQ(clip.timelineStart, RationalTime::zero);
    EXPECT_EQ(clip.audioGain, 1.0);
    EXPECT_EQ(clip.kind, TimelineClipKinds::media);
    EXPECT_EQ(shortSession.selectedClipID, clip.id);
    expectConsistent(shortSession);

    // The derived plan plays the passage from program time zero on the vertical canvas.
    ASSERT_TRUE(shortSession.editPlan.has_value());
    EXPECT_EQ(shortSession.editPlan->timeline.renderSize, "1080x1920");
    const auto programClips = engine::EditPlanResolver::programClips(*shortSession.editPlan);
    ASSERT_EQ(programClips.size(), 1u);
    EXPECT_DOUBLE_EQ(programClips[0].timelineStart.seconds(), 0.0);
    EXPECT_NEAR(programClips[0].start.seconds(), 2.2, 1e-9);
    EXPECT_NEAR(programClips[0].end.seconds(), 5.4, 1e-9);
    EXPECT_FALSE(shortSession.playbackRanges.empty());

    ASSERT_EQ(shortSession.chatMessages.size(), 1u);
    EXPECT_EQ(shortSession.chatMessages[0].text, "Short project \"It works. Thanks for watching.\" — 0:03.");
    EXPECT_EQ(shortSession.chatMessages[0].role, ChatMessage::Role::assistant);
    EXPECT_GE(changes, 1);

    EXPECT_EQ(parent.timeline, parentTimeline);
    EXPECT_EQ(parent.transcript->words.size(), 10u);

    // The short is a project that takes assistant commands of its own.
    const auto request = ProjectPipeline::applyCommand(shortSession, ID::cleanUp, {.mainLoop = loop});
    ASSERT_TRUE(loop.runUntil([&] { return request->isFinished(); }));
    loop.runPending();
    EXPECT_TRUE(shortSession.isReviewingProposal()) << shortSession.errorMessage.value_or("");
}

TEST(ShortsProjectBuilder, mediaOfABundledParentIsFoundFromTheShort) {
    const morvane::testing::TempDir bundle;
    ProjectSession parent;
    loadShortTalk(parent);
    parent.projectURL = bundle.path();
    parent.mediaBin[0].urlPath = "Media/talk.mp4";
    ProjectSession shortSession;
    ManualMainLoop loop;
    const auto built = ShortsProjectBuilder::populateShortProject(parent, lastTwoSentences(), shortSession,
                                                                  {.mainLoop = loop});
    ASSERT_TRUE(loop.runUntil([&] { return built->isFinished(); }));
    const std::filesystem::path path = shortSession.mediaBin[0].urlPath;
    EXPECT_TRUE(path.is_absolute()) << path;
    EXPECT_EQ(path.filename(), "talk.mp4");
    EXPECT_EQ(path.parent_path().filename(), "Media");
    EXPECT_EQ(shortSession.extraSources.at("src1"), path);
}

TEST(ShortsProjectBuilder, refusesAPassageItCannotPlaceAndChangesNothing) {
    ProjectSession withoutMedia;
    ProjectSession parent;
    loadShortTalk(parent);
    auto backwards = lastTwoSentences();
    std::swap(backwards.sourceStart, backwards.sourceEnd);
    for (const auto& [from, candidate] :
         {std::pair<ProjectSession*, ShortsCandidate>{&withoutMedia, lastTwoSentences()},
          {&parent, backwards}}) {
        ProjectSession target;
        target.projectName = "Keep me";
        try {
            ManualMainLoop loop;
            (void)ShortsProjectBuilder::populateShortProject(*from, candidate, target, {.mainLoop = loop});
            ADD_FAILURE();
        } catch (const ShortProjectError& e) {
            EXPECT_STREQ(e.what(), "Could not create timeline.");
        }
        EXPECT_EQ(target.projectName, "Keep me");
    }
}

TEST(ProjectPipelineShorts, aShortsPlanKeepsThePassageOnTheFormatsCanvas) {
    ProjectSession session;
    loadShortTalk(session);
    const auto plan = ProjectPipeline::shortEditPlan(
        session, lastTwoSentences(),
        engine::ProjectFormat::fromPreset(engine::ProjectFormatPreset::shorts, "1/30"));
    EXPECT_EQ(plan.version, "0.3");
    EXPECT_EQ(plan.timeline.frameDuration, session.frameDuration);
    EXPECT_EQ(plan.timeline.renderSize, "1080x1920");
    ASSERT_EQ(plan.sources.size(), 1u);
    EXPECT_EQ(plan.sources[0].id, "src1");
    EXPECT_EQ(plan.sources[0].url, "file:///media/talk.mp4");
    ASSERT_EQ(plan.operations.size(), 1u);
    const auto& keep = plan.operations[0];
    EXPECT_EQ(keep.type, "keep");
    EXPECT_EQ(keep.sourceID, "src1");
    EXPECT_EQ(keep.start, "1320/600");
    EXPECT_EQ(keep.end, "3240/600");
    ASSERT_TRUE(keep.origin.has_value());
    EXPECT_EQ(keep.origin->kind, "short");
    EXPECT_EQ(keep.origin->segmentIDs, (std::vector<std::int64_t>{1, 2}));
    const auto clips = engine::EditPlanResolver::programClips(plan);
    ASSERT_EQ(clips.size(), 1u);
    EXPECT_NEAR(clips[0].sourceDuration().seconds(), 3.2, 1e-9);

    ProjectSession empty;
    EXPECT_THROW((void)ProjectPipeline::shortEditPlan(empty, lastTwoSentences(), {}), ShortProjectError);
}

TEST(ProjectPipelineShorts, theShortCutPacksToTheLengthAsked) {
    ProjectSession session;
    loadMessyTalk(session);
    ManualMainLoop loop;
    const auto request =
        ProjectPipeline::applyCommand(session, ID::shortCut60s, {.mainLoop = loop}, {.targetSeconds = 8});
    ASSERT_TRUE(loop.runUntil([&] { return request->isFinished(); }));
    loop.runPending();
    ASSERT_TRUE(session.isReviewingProposal()) << session.errorMessage.value_or("");
    EXPECT_EQ(session.chatMessages.front().text, "Short cut · target 8s");
    // "Welcome to the show." holds "how", a hook: it opens the best passage of 6 to 8 s, the first four
    // sentences (7.5 s).
    EXPECT_EQ(session.pendingProposal->keepSegmentIDs, (std::vector{0, 1, 2, 3}));
    EXPECT_TRUE(session.statusMessage.starts_with("Short cut · target 8s · kept ")) << session.statusMessage;
    EXPECT_TRUE(session.classification->results[0].modelNotes->ends_with(";target=8s"));
}

}  // namespace
}  // namespace morvane::app
