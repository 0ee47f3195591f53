#include "morvane/app/timeline/transcript_cut.hpp"

#include <gtest/gtest.h>

#include "session_fixture.hpp"

namespace morvane::app {
namespace {

using namespace testing;

std::vector<std::vector<int>> wordRuns(const std::vector<TranscriptCutMaterializer::KeptRange>& ranges) {
    std::vector<std::vector<int>> runs;
    for (const auto& r : ranges)
        runs.push_back(r.wordIDs);
    return runs;
}

TEST(TranscriptCutMaterializer, keepsRunsOfWordsSplitAtStruckWordsAndLongPauses) {
    const auto talk = words({{"a", 0.0, 0.5},
                             {"b", 0.6, 1.0},
                             {"c", 1.1, 1.5},
                             {"d", 2.25, 2.5},
                             {"e", 3.249, 3.5},
                             {"f", 3.6, 4.0}});
    struct Case {
        std::set<int> removed;
        std::vector<std::vector<int>> runs;
    } cases[] = {
        {{}, {{0, 1, 2}, {3, 4, 5}}},  // 1.5 -> 2.25 is exactly 0.75: split; 2.5 -> 3.249 is 0.749: joined
        {{1}, {{0}, {2}, {3, 4, 5}}},  // a struck word splits with no padding
        {{0, 1, 2, 3, 4, 5}, {}},
        {{5}, {{0, 1, 2}, {3, 4}}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(wordRuns(TranscriptCutMaterializer::keptRanges(talk, c.removed, nullptr)), c.runs);
    }
    const auto ranges = TranscriptCutMaterializer::keptRanges(talk, {1}, nullptr);
    EXPECT_EQ(ranges[1].start, seconds(1.1));
    EXPECT_EQ(ranges[1].end, seconds(1.5));
    EXPECT_TRUE(TranscriptCutMaterializer::keptRanges({}, {}, nullptr).empty());

    // Out-of-order words are sorted by time first.
    auto shuffled = talk;
    std::swap(shuffled[0], shuffled[2]);
    EXPECT_EQ(wordRuns(TranscriptCutMaterializer::keptRanges(shuffled, {}, nullptr)),
              (std::vector<std::vector<int>>{{0, 1, 2}, {3, 4, 5}}));
}

TEST(TranscriptCutMaterializer, labelsRunsAndNamesTheirSegments) {
    const auto twentyEight = words({{"abcdefghijklm", 0, 1}, {"nopqrstuvwxyzA", 1.1, 2}});  // 13 + 1 + 14
    EXPECT_EQ(TranscriptCutMaterializer::keptRanges(twentyEight, {}, nullptr)[0].label,
              "abcdefghijklm nopqrstuvwxyzA");
    const auto twentyNine = words({{"abcdefghijklm", 0, 1}, {"nopqrstuvwxyzAé", 1.1, 2}});
    EXPECT_EQ(TranscriptCutMaterializer::keptRanges(twentyNine, {}, nullptr)[0].label,
              "abcdefghijklm nopqrstuvwx…");

    const auto talk = words({{"a", 0, 1}, {"b", 1.1, 2}, {"c", 2.1, 3}, {"d", 3.1, 4}});
    const intelligence::SegmentDocument segments{"t",
                                                 3,
                                                 {{0, "a b", seconds(0), seconds(2), 0, 1},
                                                  {1, "c", seconds(2.1), seconds(3), 2, 2},
                                                  {2, "d", seconds(3.1), seconds(4), 3, 3}}};
    const auto ranges = TranscriptCutMaterializer::keptRanges(talk, {2}, &segments);
    ASSERT_EQ(ranges.size(), 2u);
    EXPECT_EQ(ranges[0].segmentIDs, (std::vector{0}));
    EXPECT_EQ(ranges[1].segmentIDs, (std::vector{2}));
}

TEST(TranscriptCutMaterializer, strikingWordsLaysTheRoughCutAndRestoringUndoesIt) {
    ProjectSession session;
    loadShortTalk(session);
    TranscriptCutMaterializer::setWordsRemoved(session, {1}, true);  // "um"
    const auto& program = session.timeline->clips(TimelineTrackIDs::program);
    ASSERT_EQ(program.size(), 3u);
    EXPECT_EQ(program[0].label, "So");
    EXPECT_EQ(program[1].label, "today we cut. It works.");
    EXPECT_EQ(program[1].sourceIn, seconds(0.8));
    EXPECT_EQ(program[1].timelineStart, seconds(0.3).adding(RationalTime::zero));
    EXPECT_EQ(program[2].originSegmentIDs, (std::vector{2}));
    EXPECT_EQ(program[1].originSegmentIDs, (std::vector{0, 1}));
    EXPECT_EQ(program[0].kind, "media");
    EXPECT_TRUE(std::all_of(session.cutItems.begin(), session.cutItems.end(),
                            [](const CutItem& i) { return i.accepted; }));
    expectConsistent(session);

    // Dropping a whole segment strikes its words and clears its cut item.
    TranscriptCutMaterializer::setSegmentAccepted(session, false, 1);
    EXPECT_FALSE(session.cutItems[1].accepted);
    EXPECT_TRUE(session.removedWordIDs.contains(5) && session.removedWordIDs.contains(6));
    EXPECT_EQ(session.timeline->clips(TimelineTrackIDs::program).size(), 3u);
    expectConsistent(session);

    TranscriptCutMaterializer::setSegmentAccepted(session, true, 1);
    TranscriptCutMaterializer::setWordsRemoved(session, {1}, false);
    EXPECT_TRUE(session.removedWordIDs.empty());
    EXPECT_EQ(session.timeline->clips(TimelineTrackIDs::program).size(), 2u);  // split only by the 1 s pause

    TranscriptCutMaterializer::setWordsRemoved(session, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9}, true);
    EXPECT_TRUE(session.timeline->clips(TimelineTrackIDs::program).empty());
}

TEST(TranscriptCutMaterializer, withoutWordsSegmentClipsRunOnIntoTheFollowingPause) {
    ProjectSession session;
    loadShortTalk(session);
    session.transcript->words.clear();
    session.cutItems[1].accepted = false;
    TranscriptCutMaterializer::rebuildProgram(session);
    const auto& program = session.timeline->clips(TimelineTrackIDs::program);
    ASSERT_EQ(program.size(), 2u);
    EXPECT_EQ(program[0].label, "Seg 00");
    EXPECT_EQ(program[0].sourceOut, seconds(2.15));  // 0.15 s pad, the next kept item starts at 4.0
    EXPECT_EQ(program[1].sourceOut, seconds(5.55));  // the last one is padded whatever follows
    EXPECT_EQ(program[1].timelineStart.compare(seconds(2.15)), 0);
}

TEST(TranscriptCutMaterializer, newClipsInheritThePictureTreatmentOfWhatTheyReplace) {
    ProjectSession session;
    loadShortTalk(session);
    auto& storyline = session.timeline->track(TimelineTrackIDs::source)->clips.front();
    storyline.slotID = "left";
    storyline.zoomRegions =
        std::vector<engine::ClipZoomRegion>{{seconds(0), seconds(20), {0.1, 0.1, 0.5, 0.5}}};
    TranscriptCutMaterializer::setWordsRemoved(session, {1}, true);
    const auto& program = session.timeline->clips(TimelineTrackIDs::program);
    ASSERT_EQ(program.size(), 3u);
    for (const auto& clip : program) {
        EXPECT_EQ(clip.slotID, "left");
        ASSERT_TRUE(clip.zoomRegions.has_value());
        EXPECT_EQ(clip.zoomRegions->front().sourceRect, (engine::EditPlanRect{0.1, 0.1, 0.5, 0.5}));
    }
}

TEST(PlaybackMapper, mapsBetweenSourceAndProgramClocks) {
    // Source 0-2 plays at 0; source 5-6 at double speed plays from 2.
    const std::vector<PlaybackRange> ranges{{0, 0.0, 2.0, 0.0, 1.0}, {1, 5.0, 6.0, 2.0, 2.0}};
    struct Case {
        double source;
        std::optional<double> composition;
        std::optional<double> nearest;
    } cases[] = {
        {1.0, 1.0, 1.0},          {2.0, 2.0, 2.0},          {5.5, 2.25, 2.25},
        {6.0, 2.5, 2.5},          {3.0, std::nullopt, 2.0},  // cut out, nearer the first range's end
        {4.5, std::nullopt, 2.0},                            // nearer the second range's start
        {3.5, std::nullopt, 2.0},                            // equally near: the earlier range wins
        {9.0, std::nullopt, 2.5},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(PlaybackMapper::sourceToComposition(c.source, ranges), c.composition) << c.source;
        EXPECT_EQ(PlaybackMapper::nearestComposition(c.source, ranges), c.nearest) << c.source;
    }
    EXPECT_DOUBLE_EQ(PlaybackMapper::compositionToSource(2.25, ranges), 5.5);
    EXPECT_DOUBLE_EQ(PlaybackMapper::compositionToSource(9.0, ranges), 6.0);
    EXPECT_DOUBLE_EQ(PlaybackMapper::compositionToSource(-1.0, ranges), 0.0);
    EXPECT_FALSE(PlaybackMapper::compositionToSourceOptional(9.0, ranges).has_value());
    EXPECT_TRUE(PlaybackMapper::hasProgramCoverage(2.4, ranges));
    EXPECT_FALSE(PlaybackMapper::hasProgramCoverage(2.5, ranges));
    EXPECT_EQ(PlaybackMapper::sourceToComposition(7.0, {}), 7.0);

    const PlaybackRange stopped{0, 0, 2, 0, 0.0};
    EXPECT_DOUBLE_EQ(stopped.compositionLength(), 2.0);  // a rate of 0 counts as 1
}

TEST(PlaybackMapper, buildsRangesFromClipsAndCutItems) {
    TimelineClip packed{.id = "x",
                        .sourceID = "src1",
                        .sourceIn = seconds(0),
                        .sourceOut = seconds(10),
                        .timelineStart = seconds(4),
                        .originSegmentIDs = std::vector{7},
                        .assemblyRanges = std::vector<TimelineSourceRange>{{seconds(0), seconds(2)},
                                                                           {seconds(5), seconds(5)},
                                                                           {seconds(8), seconds(10)}},
                        .playbackRate = 2.0};
    const auto ranges = PlaybackMapper::ranges(std::vector{packed});
    ASSERT_EQ(ranges.size(), 2u);  // the empty piece is dropped
    EXPECT_EQ(ranges[0], (PlaybackRange{7, 0, 2, 4, 2}));
    EXPECT_EQ(ranges[1], (PlaybackRange{7, 8, 10, 5, 2}));

    const std::vector<CutItem> items{{2, "b", seconds(3), seconds(4), {}, {}, true},
                                     {1, "a", seconds(0), seconds(1.5), {}, {}, true},
                                     {3, "c", seconds(5), seconds(6), {}, {}, false}};
    const auto fromItems = PlaybackMapper::ranges(items);
    ASSERT_EQ(fromItems.size(), 2u);
    EXPECT_EQ(fromItems[1], (PlaybackRange{2, 3, 4, 1.5, 1}));
}

}  // namespace
}  // namespace morvane::app
