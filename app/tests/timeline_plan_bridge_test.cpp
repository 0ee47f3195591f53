#include "morvane/app/timeline/timeline_plan_bridge.hpp"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "morvane/app/timeline/transcript_cut.hpp"
#include "morvane/engine/support/uuid.hpp"
#include "session_fixture.hpp"

namespace morvane::app {
namespace {

using namespace testing;

TEST(TimelinePlanBridge, aRoughCutWinsThePictureAndKeepsTheStorylineOnSourceTime) {
    ProjectSession session;
    loadShortTalk(session);
    auto& source = session.timeline->track(TimelineTrackIDs::source)->clips;
    source.front().timelineStart = seconds(3);
    EXPECT_TRUE(TimelinePlanBridge::storylineUsesProgramAxis(session));
    auto primary = TimelinePlanBridge::primaryVideoClips(session);
    ASSERT_EQ(primary.size(), 1u);
    // Laid out in source order, an untouched clip still starts at zero.
    EXPECT_EQ(
        TimelinePlanBridge::sequentialProgramClips(primary)[0].timelineStart.compare(RationalTime::zero), 0);

    session.timeline->track(TimelineTrackIDs::program)->clips = {clipOf("cut", 1, 2, 0)};
    EXPECT_FALSE(TimelinePlanBridge::storylineUsesProgramAxis(session));
    primary = TimelinePlanBridge::primaryVideoClips(session);
    ASSERT_EQ(primary.size(), 1u);
    EXPECT_EQ(primary[0].label, "cut");
    EXPECT_DOUBLE_EQ(TimelinePlanBridge::timelineAxisDuration(session), 1.0);

    session.timeline->track(TimelineTrackIDs::program)->clips.clear();
    source.push_back(clipOf("b", 5, 6, 1));  // two clips: a packed cut on the program axis
    EXPECT_TRUE(TimelinePlanBridge::storylineIsPackedCut(source));
    EXPECT_DOUBLE_EQ(TimelinePlanBridge::timelineAxisDuration(session), 23.0);
}

TEST(TimelinePlanBridge, rebuildsThePlanFromEveryTrack) {
    ProjectSession session;
    loadShortTalk(session);
    TimelineClip packed = clipOf("Accepted cut", 0, 9, 0);
    packed.assemblyRanges = std::vector<TimelineSourceRange>{
        {seconds(0), seconds(2)}, {seconds(4), seconds(5)}, {seconds(7), seconds(9)}};
    packed.playbackRate = 2.0;
    packed.originSegmentIDs = std::vector{0, 2};
    session.timeline->track(TimelineTrackIDs::source)->clips = {packed};
    TimelineClip title = clipOf("Title", 5, 8, 10, "text");
    title.kind = "text";
    title.textContent = "Hello";
    title.textStyle = engine::TextClipStyle::forPreset(engine::TextStylePreset::lowerThird);
    session.timeline->track(TimelineTrackIDs::text)->clips = {title};
    session.timeline->layoutRegions = {{makeUUID(), "sideBySide", seconds(1), seconds(2)}};
    session.extraSources["src2"] = "/media/b roll.mov";

    const auto plan = TimelinePlanBridge::rebuildEditPlan(session);
    ASSERT_TRUE(plan.has_value());
    ASSERT_EQ(plan->sources.size(), 2u);
    EXPECT_EQ(plan->sources[0].id, "src1");
    EXPECT_EQ(plan->sources[0].url, "file:///media/talk.mp4");
    EXPECT_EQ(plan->sources[1].url, "file:///media/b%20roll.mov");
    ASSERT_EQ(plan->operations.size(), 5u);
    // Three ranges at 2x: each starts half the previous range's length later.
    EXPECT_EQ(plan->operations[0].timelineStart, "0/600");
    EXPECT_EQ(RationalTime::parse(*plan->operations[1].timelineStart).compare(seconds(1)), 0);
    EXPECT_EQ(RationalTime::parse(*plan->operations[2].timelineStart).compare(seconds(1.5)), 0);
    EXPECT_EQ(plan->operations[1].start, "2400/600");
    EXPECT_EQ(plan->operations[0].type, "clip");
    EXPECT_EQ(plan->operations[0].trackID, "program");
    EXPECT_EQ(plan->operations[0].origin->kind, "segment");
    EXPECT_EQ(plan->operations[0].playbackRate, 2.0);
    // A text clip is stated in program time, whatever its source range.
    const auto& text = plan->operations[3];
    EXPECT_EQ(text.type, "text");
    EXPECT_EQ(text.start, "6000/600");
    EXPECT_EQ(RationalTime::parse(text.end).compare(seconds(13)), 0);
    EXPECT_FALSE(text.playbackRate.has_value());
    EXPECT_EQ(text.reason, "Hello");
    ASSERT_TRUE(text.text.has_value());
    EXPECT_EQ(text.text->preset, "lowerThird");
    EXPECT_EQ(text.text->horizontalAlign, "left");
    EXPECT_EQ(plan->operations[4].type, "layout");
    EXPECT_EQ(plan->operations[4].label, "sideBySide");
    EXPECT_EQ(plan->timeline.renderSize, "1920x1080");

    session.mediaURL.reset();
    EXPECT_FALSE(TimelinePlanBridge::rebuildEditPlan(session).has_value());
}

TEST(TimelinePlanBridge, aProposalNotYetOnTheTimelinePreviewsFromTheCutList) {
    ProjectSession session;
    loadShortTalk(session);
    session.timeline->track(TimelineTrackIDs::source)->clips.clear();
    session.cutItems[0].accepted = false;
    session.cutItems[2].confidence = 0.9;
    session.beginProposalReview(EditableStateSnapshot{}, std::nullopt, intelligence::EditProposal{});
    const auto plan = TimelinePlanBridge::rebuildEditPlan(session);
    ASSERT_TRUE(plan.has_value());
    ASSERT_EQ(plan->operations.size(), 2u);
    EXPECT_EQ(plan->operations[0].type, "keep");
    EXPECT_EQ(plan->operations[0].origin->segmentIDs, (std::vector<std::int64_t>{1}));
    EXPECT_EQ(plan->operations[1].confidence, 0.9);
}

TEST(TimelinePlanBridge, acceptFoldsTheRoughCutIntoOneStorylineClipPerSource) {
    ProjectSession session;
    loadShortTalk(session);
    TranscriptCutMaterializer::setWordsRemoved(session, {1, 5, 6}, true);
    ASSERT_EQ(session.timeline->clips(TimelineTrackIDs::program).size(), 3u);
    TimelinePlanBridge::promoteProgramToStoryline(session);
    const auto& storyline = session.timeline->clips(TimelineTrackIDs::source);
    ASSERT_EQ(storyline.size(), 1u);
    const auto& folded = storyline.front();
    EXPECT_EQ(folded.label, "Accepted cut");
    ASSERT_TRUE(folded.assemblyRanges.has_value());
    EXPECT_EQ(folded.assemblyRanges->size(), 3u);
    EXPECT_EQ(folded.sourceIn, seconds(0));
    EXPECT_EQ(folded.sourceOut, seconds(5.4));
    EXPECT_EQ(folded.originWordIDs, (std::vector{0, 2, 3, 4, 7, 8, 9}));
    EXPECT_EQ(folded.originSegmentIDs, (std::vector{0, 2}));
    EXPECT_TRUE(session.timeline->clips(TimelineTrackIDs::program).empty());
    EXPECT_EQ(folded.sourceSpan().compare(seconds(0.3 + 1.2 + 1.4)), 0);
    expectConsistent(session);
    // The transcript still shows the cut words as struck after the fold.
    session.removedWordIDs.clear();
    EXPECT_EQ(TranscriptCutMaterializer::displayRemovedWordIDs(session), (std::set<int>{1, 5, 6}));
}

TEST(TimelineMagneticBridge, connectedClipsFollowTheirHost) {
    ProjectSession session;
    loadShortTalk(session);
    session.timeline->track(TimelineTrackIDs::source)->clips = {clipOf("a", 0, 4, 0), clipOf("b", 10, 14, 4)};
    TimelineClip broll = clipOf("broll", 0, 2, 0, "src2");
    TimelineMagneticBridge::attachToSpine(broll, 8.0, session);  // exactly the end of the last clip
    EXPECT_EQ(broll.connectedToClipID, session.timeline->clips(TimelineTrackIDs::source)[1].id);
    EXPECT_EQ(broll.connectedOffset, seconds(4));
    TimelineClip far = clipOf("far", 0, 2, 0, "src2");
    TimelineMagneticBridge::attachToSpine(far, 30.0, session);  // well past: the nearest start
    EXPECT_EQ(far.connectedToClipID, session.timeline->clips(TimelineTrackIDs::source)[1].id);
    session.timeline->track(TimelineTrackIDs::overlay)->clips = {broll};

    // Deleting the first clip closes the gap; the connected clip moves with its host.
    auto& storyline = session.timeline->track(TimelineTrackIDs::source)->clips;
    storyline.erase(storyline.begin());
    TimelinePlanBridge::compactSourceTrack(session);
    EXPECT_EQ(session.timeline->clips(TimelineTrackIDs::overlay)[0].timelineStart.compare(seconds(4)), 0);
    expectConsistent(session);

    // Deleting the host leaves the clip where it is.
    storyline.clear();
    TimelineMagneticBridge::resolveConnectedClips(session);
    EXPECT_EQ(session.timeline->clips(TimelineTrackIDs::overlay)[0].timelineStart.compare(seconds(4)), 0);

    TimelineClip lone = clipOf("lone", 0, 1, 0, "src2");
    TimelineMagneticBridge::attachToSpine(lone, -3.0, session);
    EXPECT_FALSE(lone.connectedToClipID.has_value());
    EXPECT_EQ(lone.timelineStart, seconds(0));
}

TEST(TimelineDocument, roundTripsAndRefusesBadDocuments) {
    ProjectSession session;
    loadShortTalk(session);
    TranscriptCutMaterializer::setWordsRemoved(session, {1}, true);
    auto& clip = session.timeline->track(TimelineTrackIDs::program)->clips.front();
    clip.captionWords = std::vector<engine::CaptionWordTiming>{{"So", seconds(0), seconds(0.3)}};
    clip.connectedOffset = seconds(1);
    session.timeline->markers = {{makeUUID(), "Intro", seconds(2)}};
    const Json json = *session.timeline;
    const std::string text = dumpJson(json);
    const Json reread = parseJson(text, "timeline.json");
    EXPECT_EQ(JsonReader(reread).get<TimelineDocument>(), *session.timeline);

    struct Case {
        std::function<void(Json&)> damage;
        std::string message;
    } cases[] = {
        {[](Json& j) { j["frameDuration"] = "1001/0"; },
         "/frameDuration: expected a positive frame duration like \"1001/30000\""},
        {[](Json& j) { j["tracks"][1]["clips"][0]["id"] = "clip-1"; },
         "/tracks/1/clips/0/id: expected a UUID"},
        {[](Json& j) { j["tracks"][0]["kind"] = "video"; }, "/tracks/0/kind: unknown value \"video\""},
        {[](Json& j) { j["tracks"][1]["clips"][0].erase("audioGain"); },
         "/tracks/1/clips/0/audioGain: required key is missing"},
    };
    for (const auto& c : cases) {
        Json bad = reread;
        c.damage(bad);
        try {
            (void)JsonReader(bad).get<TimelineDocument>();
            ADD_FAILURE() << c.message;
        } catch (const JsonDecodeError& e) {
            EXPECT_EQ(std::string(e.what()), c.message);
        }
    }
}

TEST(TimelineDocument, derivedValuesOfClipsAndTracks) {
    TimelineClip clip = clipOf("Intro", 0, 4, 0);
    clip.assemblyRanges =
        std::vector<TimelineSourceRange>{{seconds(0), seconds(1)}, {seconds(3), seconds(4)}};
    EXPECT_EQ(clip.sourceSpan().compare(seconds(2)), 0);
    clip.originSourceRanges = std::vector<TimelineSourceRange>{};
    EXPECT_EQ(clip.transcriptSourceRanges().size(), 2u);  // an empty list falls through
    clip.playbackRate = 2.0;
    EXPECT_EQ(clip.timelineBadgeLabel(), "2× Intro");
    clip.kind = "text";
    EXPECT_EQ(clip.timelineBadgeLabel(), "Intro");

    TimelineDocument document = TimelineDocument::makeDefault("1001/30000");
    ASSERT_EQ(document.tracks.size(), 5u);
    EXPECT_EQ(document.projectFormat->renderSizeToken(), "1920x1080");
    EXPECT_EQ(document.track("nope"), nullptr);
    document.updateTrack({"extra", TimelineTrackKind::overlay, "B", std::nullopt, {}});
    EXPECT_EQ(document.tracks.size(), 6u);
    EXPECT_EQ(document.track("extra")->displayName(), "B");
    document.updateTrack({"program", TimelineTrackKind::program, "", TimelineTrackRole::dialogue, {}});
    EXPECT_EQ(document.tracks.size(), 6u);
    EXPECT_EQ(document.track("program")->displayName(), "Rough Cut");
    EXPECT_EQ(document.track("audio")->displayName(), "Audio");
    EXPECT_EQ(document.track("overlay")->displayName(), "B-Roll");
}

}  // namespace
}  // namespace morvane::app
