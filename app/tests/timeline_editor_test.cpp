#include "morvane/app/timeline/timeline_editor.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>

#include "morvane/app/pipeline/project_pipeline.hpp"
#include "morvane/app/session/edit_coordinator.hpp"
#include "session_fixture.hpp"

namespace morvane::app {
namespace {

using namespace testing;
namespace Editor = TimelineEditor;

constexpr double kFrame = 1001.0 / 30000.0;

// The talk (src1, 20 s) cut into three storyline clips, with b-roll, music and a logo in the bin and one
// b-roll clip on the overlay track:
//
//     overlay:                      [ X src2 1–5 ]
//     storyline: [ A src 2–6 ][ B src 8–12 ][ C src 14–18 ]
//                0            4             8              12
struct Cut {
    std::string a, b, c, x;
};

Cut loadCut(ProjectSession& session) {
    loadShortTalk(session);
    session.mediaBin.push_back({.id = "src2",
                                .label = "broll.mov",
                                .urlPath = "/media/broll.mov",
                                .kind = MediaBinKind::broll,
                                .durationSeconds = 10,
                                .hasVideo = true,
                                .hasAudio = true});
    session.mediaBin.push_back({.id = "src3",
                                .label = "music.wav",
                                .urlPath = "/media/music.wav",
                                .kind = MediaBinKind::audio,
                                .durationSeconds = 30,
                                .hasAudio = true});
    session.mediaBin.push_back({.id = "src4",
                                .label = "logo.png",
                                .urlPath = "/media/logo.png",
                                .kind = MediaBinKind::broll,
                                .durationSeconds = 5,
                                .hasVideo = true});
    session.extraSources["src2"] = "/media/broll.mov";
    const auto a = clipOf("A", 2, 6, 0);
    const auto b = clipOf("B", 8, 12, 4);
    const auto c = clipOf("C", 14, 18, 8);
    const auto x = clipOf("X", 1, 5, 5, "src2");
    session.timeline->track(TimelineTrackIDs::source)->clips = {a, b, c};
    session.timeline->track(TimelineTrackIDs::overlay)->clips = {x};
    return {a.id, b.id, c.id, x.id};
}

// A packed storyline clip playing 0–1, 3–4 and 6–8 of the talk: 4 s long.
std::string loadPackedClip(ProjectSession& session) {
    loadShortTalk(session);
    TimelineClip packed = clipOf("Accepted cut", 0, 8, 0);
    packed.assemblyRanges = std::vector<TimelineSourceRange>{
        {seconds(0), seconds(1)}, {seconds(3), seconds(4)}, {seconds(6), seconds(8)}};
    packed.originSourceRanges = packed.assemblyRanges;
    session.timeline->track(TimelineTrackIDs::source)->clips = {packed};
    return packed.id;
}

// Runs `edit` as one recorded step. A refused edit must leave the timeline as it was; a change must undo
// to the state before and redo to the state after, with the whole timeline sound at every step.
bool recorded(ProjectSession& session, const std::function<bool()>& edit) {
    const TimelineDocument before = *session.timeline;
    bool changed = false;
    EditCoordinator::perform(session, "Edit", [&] { changed = edit(); });
    expectConsistent(session);
    const TimelineDocument after = *session.timeline;
    if (!changed) {
        EXPECT_EQ(after, before) << "a refused edit changed the timeline";
        return false;
    }
    EXPECT_TRUE(EditCoordinator::undo(session).has_value()) << "a change left no undo step";
    expectConsistent(session);
    EXPECT_EQ(*session.timeline, before);
    EXPECT_TRUE(EditCoordinator::redo(session).has_value());
    expectConsistent(session);
    EXPECT_EQ(*session.timeline, after);
    return true;
}

// A clip as (program start, source in, source out) in seconds.
struct Placed {
    double start;
    double in;
    double out;
};

void expectLayout(const ProjectSession& session, std::string_view trackID,
                  const std::vector<Placed>& expected) {
    const auto& clips = session.timeline->clips(trackID);
    ASSERT_EQ(clips.size(), expected.size()) << "on " << trackID;
    for (std::size_t i = 0; i < clips.size(); ++i) {
        EXPECT_NEAR(clips[i].timelineStart.seconds(), expected[i].start, 1e-3) << trackID << " clip " << i;
        EXPECT_NEAR(clips[i].sourceIn.seconds(), expected[i].in, 1e-3) << trackID << " clip " << i;
        EXPECT_NEAR(clips[i].sourceOut.seconds(), expected[i].out, 1e-3) << trackID << " clip " << i;
    }
}

std::vector<std::string> labels(const ProjectSession& session, std::string_view trackID) {
    std::vector<std::string> out;
    for (const auto& clip : session.timeline->clips(trackID))
        out.push_back(clip.label);
    return out;
}

std::vector<std::pair<double, double>> rangesOf(const TimelineClip& clip) {
    std::vector<std::pair<double, double>> out;
    for (const auto& r : clip.assemblyRanges.value_or(std::vector<TimelineSourceRange>{}))
        out.emplace_back(r.sourceIn.seconds(), r.sourceOut.seconds());
    return out;
}

using Ranges = std::vector<std::pair<double, double>>;

// A delegate that answers every question with one choice, and remembers what it was asked.
struct AnsweringDelegate final : UserInterfaceDelegate {
    std::optional<std::size_t> answer;
    std::string question;
    void showAlert(const std::string&, const std::string&) override {}
    std::optional<std::size_t> ask(const std::string& q, const std::string&,
                                   const std::vector<std::string>& choices) override {
        question = q;
        EXPECT_EQ(choices,
                  (std::vector<std::string>{"Split & Insert", "Place Before", "Place After", "Cancel"}));
        return answer;
    }
};

// Split.

TEST(TimelineEditorSplit, cutsAStorylineClipOnlyAQuarterSecondInsideIt) {
    struct Case {
        const char* where;
        double at;
        bool splits;
    };
    const Case cases[] = {{"at its start", 4, false},
                          {"one frame in", 4 + kFrame, false},
                          {"at the shortest piece", 4.25, true},
                          {"in the middle", 6, true},
                          {"one frame before its end", 8 - kFrame, false},
                          {"0.2 s before its end", 7.8, false},
                          {"at its end", 8, false}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.where);
        ProjectSession session;
        const Cut cut = loadCut(session);
        EXPECT_EQ(recorded(session, [&] { return Editor::splitClip(session, cut.b, c.at); }), c.splits);
        if (!c.splits) continue;
        const double point = 8 + (c.at - 4);
        expectLayout(session, TimelineTrackIDs::source,
                     {{0, 2, 6}, {4, 8, point}, {c.at, point, 12}, {8, 14, 18}});
        const auto& clips = session.timeline->clips(TimelineTrackIDs::source);
        EXPECT_EQ(clips[1].id, cut.b);  // the left half keeps the id, the right half gets its own
        EXPECT_NE(clips[2].id, cut.b);
        EXPECT_EQ(clips[2].label, "B");
    }
}

TEST(TimelineEditorSplit, dividesAPackedClipsRangesAndTheirOrigins) {
    struct Case {
        const char* where;
        double at;
        Ranges left;
        Ranges right;
    };
    const Case cases[] = {
        {"inside the first range", 0.5, {{0, 0.5}}, {{0.5, 1}, {3, 4}, {6, 8}}},
        {"on a range boundary", 1.0, {{0, 1}}, {{3, 4}, {6, 8}}},
        {"on the next boundary", 2.0, {{0, 1}, {3, 4}}, {{6, 8}}},
        {"too near the start", 0.1, {}, {}},
        {"one frame before the end", 4 - kFrame, {}, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.where);
        ProjectSession session;
        const std::string id = loadPackedClip(session);
        const bool splits = !c.left.empty();
        EXPECT_EQ(recorded(session, [&] { return Editor::splitClip(session, id, c.at); }), splits);
        if (!splits) continue;
        const auto& clips = session.timeline->clips(TimelineTrackIDs::source);
        ASSERT_EQ(clips.size(), 2u);
        EXPECT_EQ(rangesOf(clips[0]), c.left);
        EXPECT_EQ(rangesOf(clips[1]), c.right);
        EXPECT_EQ(clips[0].originSourceRanges, clips[0].assemblyRanges);  // origins divide the same way
        EXPECT_EQ(clips[1].originSourceRanges, clips[1].assemblyRanges);
        EXPECT_NEAR(clips[1].timelineStart.seconds(), c.at, 1e-3);
        EXPECT_NEAR(clips[1].sourceIn.seconds(), c.right.front().first, 1e-3);  // bounds follow the ranges
    }
}

TEST(TimelineEditorSplit, atThePlayheadSplitsEveryTrackAndCarriesCrops) {
    ProjectSession session;
    const Cut cut = loadCut(session);
    auto& x = session.timeline->track(TimelineTrackIDs::overlay)->clips.front();
    x.zoomRegions = std::vector<engine::ClipZoomRegion>{{seconds(6), seconds(8), {0.1, 0.1, 0.5, 0.5}}};
    EXPECT_TRUE(recorded(session, [&] { return Editor::splitAllClipsAtPlayhead(session, 7) == 2; }));
    expectLayout(session, TimelineTrackIDs::source, {{0, 2, 6}, {4, 8, 11}, {7, 11, 12}, {8, 14, 18}});
    expectLayout(session, TimelineTrackIDs::overlay, {{5, 1, 3}, {7, 3, 5}});
    // The zoom over 6–8 s is cut with the clip: each half keeps its part, with the same crop.
    const auto& halves = session.timeline->clips(TimelineTrackIDs::overlay);
    ASSERT_TRUE(halves[0].zoomRegions && halves[1].zoomRegions);
    ASSERT_EQ(halves[0].zoomRegions->size(), 1u);
    EXPECT_NEAR(halves[0].zoomRegions->front().timelineEnd.seconds(), 7, 1e-3);
    EXPECT_NEAR(halves[1].zoomRegions->front().timelineStart.seconds(), 7, 1e-3);
    EXPECT_EQ(halves[1].zoomRegions->front().sourceRect, halves[0].zoomRegions->front().sourceRect);
    (void)cut;
}

// Trim.

TEST(TimelineEditorTrim, anOverlayClipsEdgeStopsAtTheShortestLengthAndItsSource) {
    struct Case {
        const char* where;
        TrimEdge edge;
        double to;
        bool changes;
        Placed result;
    };
    // X plays 1–5 of a 10 s b-roll at 5–9.
    const Case cases[] = {
        {"leading at its start", TrimEdge::leading, 5, false, {5, 1, 5}},
        {"leading one frame in", TrimEdge::leading, 5 + kFrame, true, {5 + kFrame, 1 + kFrame, 5}},
        {"leading to the middle", TrimEdge::leading, 7, true, {7, 3, 5}},
        {"leading one frame before its end", TrimEdge::leading, 9 - kFrame, true, {8.75, 4.75, 5}},
        {"leading at its end", TrimEdge::leading, 9, true, {8.75, 4.75, 5}},
        {"leading before the source starts", TrimEdge::leading, 2, true, {4, 0, 5}},
        {"trailing at its start", TrimEdge::trailing, 5, true, {5, 1, 1.25}},
        {"trailing one frame in", TrimEdge::trailing, 5 + kFrame, true, {5, 1, 1.25}},
        {"trailing to the middle", TrimEdge::trailing, 7, true, {5, 1, 3}},
        {"trailing one frame before its end", TrimEdge::trailing, 9 - kFrame, true, {5, 1, 5 - kFrame}},
        {"trailing at its end", TrimEdge::trailing, 9, false, {5, 1, 5}},
        {"trailing past the source's end", TrimEdge::trailing, 20, true, {5, 1, 10}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.where);
        ProjectSession session;
        const Cut cut = loadCut(session);
        EXPECT_EQ(recorded(session, [&] { return Editor::trimClip(session, cut.x, c.edge, c.to); }),
                  c.changes);
        expectLayout(session, TimelineTrackIDs::overlay, {c.result});
        // Off the storyline a trim leaves a gap and moves nothing else.
        expectLayout(session, TimelineTrackIDs::source, {{0, 2, 6}, {4, 8, 12}, {8, 14, 18}});
    }
}

TEST(TimelineEditorTrim, onTheStorylineATrimRipples) {
    struct Case {
        const char* where;
        TrimEdge edge;
        double to;
        bool changes;
        std::vector<Placed> result;
    };
    // B plays 8–12 at 4–8; the talk is 20 s long.
    const Case cases[] = {
        {"trailing at its start", TrimEdge::trailing, 4, true, {{0, 2, 6}, {4, 8, 8.25}, {4.25, 14, 18}}},
        {"trailing one frame in",
         TrimEdge::trailing,
         4 + kFrame,
         true,
         {{0, 2, 6}, {4, 8, 8.25}, {4.25, 14, 18}}},
        {"trailing to the middle", TrimEdge::trailing, 6, true, {{0, 2, 6}, {4, 8, 10}, {6, 14, 18}}},
        {"trailing one frame before its end",
         TrimEdge::trailing,
         8 - kFrame,
         true,
         {{0, 2, 6}, {4, 8, 12 - kFrame}, {8 - kFrame, 14, 18}}},
        {"trailing at its end", TrimEdge::trailing, 8, false, {{0, 2, 6}, {4, 8, 12}, {8, 14, 18}}},
        {"trailing to the end of the talk",
         TrimEdge::trailing,
         30,
         true,
         {{0, 2, 6}, {4, 8, 20}, {16, 14, 18}}},
        {"leading one frame in",
         TrimEdge::leading,
         4 + kFrame,
         true,
         {{0, 2, 6}, {4, 8 + kFrame, 12}, {8 - kFrame, 14, 18}}},
        {"leading to the middle", TrimEdge::leading, 6, true, {{0, 2, 6}, {4, 10, 12}, {6, 14, 18}}},
        {"leading at its end", TrimEdge::leading, 8, true, {{0, 2, 6}, {4, 11.75, 12}, {4.25, 14, 18}}},
        {"leading out into the source", TrimEdge::leading, 1, true, {{0, 2, 6}, {4, 5, 12}, {11, 14, 18}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.where);
        ProjectSession session;
        const Cut cut = loadCut(session);
        EXPECT_EQ(recorded(session, [&] { return Editor::trimClip(session, cut.b, c.edge, c.to); }),
                  c.changes);
        expectLayout(session, TimelineTrackIDs::source, c.result);
    }
}

TEST(TimelineEditorTrim, aPackedClipShortensByWholeCutsAndKeepsItsID) {
    struct Case {
        const char* where;
        TrimEdge edge;
        double to;
        Ranges kept;  // empty: refused
    };
    const Case cases[] = {
        {"tail at its start", TrimEdge::trailing, 0, {}},
        {"tail one frame in", TrimEdge::trailing, kFrame, {}},
        {"tail to a range boundary", TrimEdge::trailing, 2, {{0, 1}, {3, 4}}},
        {"tail inside a range", TrimEdge::trailing, 2.5, {{0, 1}, {3, 4}, {6, 6.5}}},
        {"tail by less than the shortest clip", TrimEdge::trailing, 4 - kFrame, {}},
        {"tail at its end", TrimEdge::trailing, 4, {}},
        {"tail past its end", TrimEdge::trailing, 6, {}},
        {"head inside the first range", TrimEdge::leading, 0.5, {{0.5, 1}, {3, 4}, {6, 8}}},
        {"head to a range boundary", TrimEdge::leading, 1, {{3, 4}, {6, 8}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.where);
        ProjectSession session;
        const std::string id = loadPackedClip(session);
        EXPECT_EQ(recorded(session, [&] { return Editor::trimClip(session, id, c.edge, c.to); }),
                  !c.kept.empty());
        if (c.kept.empty()) continue;
        const auto& clips = session.timeline->clips(TimelineTrackIDs::source);
        ASSERT_EQ(clips.size(), 1u);
        EXPECT_EQ(clips[0].id, id);
        EXPECT_EQ(clips[0].label, "Accepted cut");
        EXPECT_EQ(rangesOf(clips[0]), c.kept);
        EXPECT_EQ(clips[0].originSourceRanges, clips[0].assemblyRanges);
        EXPECT_EQ(clips[0].timelineStart.compare(RationalTime::zero), 0);
    }
}

TEST(TimelineEditorTrim, imagesStretchToAnHourAndRipplingMovesTheLaterClips) {
    ProjectSession session;
    loadCut(session);
    TimelineClip logo = clipOf("logo", 0, 5, 20, "src4");
    logo.kind = "image";
    TimelineClip y = clipOf("Y", 6, 8, 12, "src2");
    auto& overlay = session.timeline->track(TimelineTrackIDs::overlay)->clips;
    overlay.push_back(y);
    overlay.push_back(logo);
    const std::string xID = overlay.front().id;
    EXPECT_TRUE(
        recorded(session, [&] { return Editor::trimClip(session, logo.id, TrimEdge::trailing, 5000); }));
    EXPECT_NEAR(Editor::clip(session, logo.id)->sourceOut.seconds(), 3600, 1e-9);

    // X (5–9) loses 2 s at its tail; Y and the logo close up behind it.
    EXPECT_TRUE(
        recorded(session, [&] { return Editor::rippleTrimClip(session, xID, TrimEdge::trailing, 7); }));
    expectLayout(session, TimelineTrackIDs::overlay, {{5, 1, 3}, {10, 6, 8}, {18, 0, 3600}});
    // A ripple at the head keeps the clip's start and pulls the rest in the same way.
    EXPECT_TRUE(
        recorded(session, [&] { return Editor::rippleTrimClip(session, xID, TrimEdge::leading, 6); }));
    expectLayout(session, TimelineTrackIDs::overlay, {{5, 2, 3}, {9, 6, 8}, {17, 0, 3600}});
}

TEST(TimelineEditorRoll, movesTheCutBetweenNeighboursAndKeepsTheTotal) {
    struct Case {
        const char* where;
        double to;
        bool changes;
        double edge;  // where the cut between A and B ends up
    };
    // A (0–4, src 2–6) rolls its tail into B (4–8, src 8–12).
    const Case cases[] = {{"at A's start", 0, true, 0.25},
                          {"one frame into A", kFrame, true, 0.25},
                          {"in A's middle", 2, true, 2},
                          {"one frame before the cut", 4 - kFrame, true, 4 - kFrame},
                          {"at the cut", 4, false, 4},
                          {"into B", 6, true, 6},
                          {"one frame before B's end", 8 - kFrame, true, 7.75}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.where);
        ProjectSession session;
        const Cut cut = loadCut(session);
        EXPECT_EQ(
            recorded(session, [&] { return Editor::rollTrimClip(session, cut.a, TrimEdge::trailing, c.to); }),
            c.changes);
        expectLayout(session, TimelineTrackIDs::source,
                     {{0, 2, 2 + c.edge}, {c.edge, 8 + (c.edge - 4), 12}, {8, 14, 18}});
    }
    ProjectSession session;
    const Cut cut = loadCut(session);
    EXPECT_FALSE(recorded(session, [&] {
        return Editor::rollTrimClip(session, cut.x, TrimEdge::trailing, 8);
    })) << "X has no neighbour to roll into";
    EXPECT_TRUE(recorded(session, [&] {
        return Editor::trimClip(session, cut.c, TrimEdge::leading, 10, TrimDragMode::roll);
    }));
    expectLayout(session, TimelineTrackIDs::source, {{0, 2, 6}, {4, 8, 14}, {10, 16, 18}});
}

// Slip and slide.

TEST(TimelineEditorSlip, movesTheSourceWindowInsideTheSource) {
    struct Case {
        const char* where;
        double sourceIn;
        bool changes;
        double in;
    };
    // B shows 8–12 of the 20 s talk.
    const Case cases[] = {{"to the source's start", 0, true, 0},
                          {"before the source's start", -3, true, 0},
                          {"to where it is", 8, false, 8},
                          {"by less than a tenth of a millisecond", 8.00005, false, 8},
                          {"one frame on", 8 + kFrame, true, 8 + kFrame},
                          {"past the source's end", 18, true, 16}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.where);
        ProjectSession session;
        const Cut cut = loadCut(session);
        EXPECT_EQ(recorded(session, [&] { return Editor::slipClipToSourceIn(session, cut.b, c.sourceIn); }),
                  c.changes);
        expectLayout(session, TimelineTrackIDs::source, {{0, 2, 6}, {4, c.in, c.in + 4}, {8, 14, 18}});
    }
    ProjectSession session;
    const std::string packed = loadPackedClip(session);
    EXPECT_TRUE(recorded(session, [&] { return Editor::slipClipToSourceIn(session, packed, 2); }));
    EXPECT_EQ(rangesOf(session.timeline->clips(TimelineTrackIDs::source).front()),
              (Ranges{{2, 3}, {5, 6}, {8, 10}}));
}

TEST(TimelineEditorSlide, movesAClipBetweenItsNeighboursWhichGiveAndTake) {
    struct Case {
        const char* where;
        double to;
        bool changes;
        double start;  // where B ends up
    };
    // A (src 2–6) and C (src 14–18) have 2 s and 14 s of talk before them, A ends 14 s before the talk does.
    const Case cases[] = {{"to its own start", 4, false, 4},
                          {"one frame later", 4 + kFrame, true, 4 + kFrame},
                          {"a second later", 5, true, 5},
                          {"until C is shortest", 8, true, 7.75},
                          {"until A is shortest", 0, true, 0.25}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.where);
        ProjectSession session;
        const Cut cut = loadCut(session);
        EXPECT_EQ(recorded(session, [&] { return Editor::slideClipToProgramStart(session, cut.b, c.to); }),
                  c.changes);
        const double delta = c.start - 4;
        expectLayout(session, TimelineTrackIDs::source,
                     {{0, 2, 6 + delta}, {c.start, 8, 12}, {8 + delta, 14 + delta, 18}});
    }
    ProjectSession session;
    const Cut cut = loadCut(session);
    EXPECT_FALSE(Editor::slideClipToProgramStart(session, cut.a, 1)) << "A has nothing before it";
}

// Move and insert.

TEST(TimelineEditorMove, reordersTheStorylineAtTheNearestBoundary) {
    struct Case {
        const char* what;
        int clip;  // 0 A, 1 B, 2 C
        double to;
        std::vector<std::string> order;
    };
    const Case cases[] = {{"A to the end", 0, 12, {"B", "C", "A"}},
                          {"A onto its own place", 0, 0, {"A", "B", "C"}},
                          {"A just past its own end", 0, 4.1, {"A", "B", "C"}},
                          {"B near the start", 1, 0.5, {"B", "A", "C"}},
                          {"C into B's first half", 2, 5, {"A", "C", "B"}},
                          {"A into C's second half", 0, 11, {"B", "C", "A"}}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        ProjectSession session;
        const Cut cut = loadCut(session);
        const std::string ids[] = {cut.a, cut.b, cut.c};
        const bool moves = c.order != std::vector<std::string>{"A", "B", "C"};
        EXPECT_EQ(recorded(session, [&] { return Editor::moveClip(session, ids[c.clip], c.to); }), moves);
        EXPECT_EQ(labels(session, TimelineTrackIDs::source), c.order);
    }
}

TEST(TimelineEditorMove, betweenLanesInsertsSplitsOrAsks) {
    struct Case {
        const char* what;
        bool asks;
        std::optional<std::size_t> answer;
        bool changes;
        std::vector<std::string> order;
    };
    const Case cases[] = {
        {"without anyone to ask, split", false, std::nullopt, true, {"A", "B", "X", "B", "C"}},
        {"Split & Insert", true, 0, true, {"A", "B", "X", "B", "C"}},
        {"Place Before", true, 1, true, {"A", "X", "B", "C"}},
        {"Place After", true, 2, true, {"A", "B", "X", "C"}},
        {"Cancel", true, 3, false, {"A", "B", "C"}},
        {"a front end that can't ask", true, std::nullopt, false, {"A", "B", "C"}}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        ProjectSession session;
        const Cut cut = loadCut(session);
        AnsweringDelegate delegate;
        delegate.answer = c.answer;
        InsertPlacementOptions options;
        if (c.asks) options.delegate = &delegate;
        EXPECT_EQ(
            recorded(
                session,
                [&] { return Editor::moveClip(session, cut.x, TimelineLaneKind::storyline, 6, options); }),
            c.changes);
        EXPECT_EQ(labels(session, TimelineTrackIDs::source), c.order);
        if (options.delegate) {
            EXPECT_EQ(delegate.question, "Insert into the middle of “B”?");
        }
    }

    // Up from the storyline: the storyline closes, the clip hangs on what now plays at 2 s.
    ProjectSession session;
    const Cut cut = loadCut(session);
    EXPECT_TRUE(
        recorded(session, [&] { return Editor::moveClip(session, cut.a, TimelineLaneKind::overlay, 2); }));
    expectLayout(session, TimelineTrackIDs::source, {{0, 8, 12}, {4, 14, 18}});
    const TimelineClip* a = Editor::clip(session, cut.a);
    EXPECT_EQ(Editor::trackID(session, cut.a), "overlay");
    EXPECT_EQ(a->connectedToClipID, cut.b);
    EXPECT_NEAR(a->timelineStart.seconds(), 2, 1e-9);
}

TEST(TimelineEditorMove, lanesTakeOnlyWhatTheyCanPlay) {
    ProjectSession session;
    const Cut cut = loadCut(session);
    TimelineClip music = clipOf("music", 0, 10, 0, "src3");
    TimelineClip logo = clipOf("logo", 0, 5, 0, "src4");
    logo.kind = "image";
    TimelineClip title = clipOf("Hi", 0, 2, 0, "text");
    title.kind = "text";
    session.timeline->track(TimelineTrackIDs::audio)->clips = {music};
    session.timeline->track(TimelineTrackIDs::overlay)->clips.push_back(logo);
    session.timeline->track(TimelineTrackIDs::text)->clips = {title};
    using L = TimelineLaneKind;
    struct Case {
        std::string clipID;
        L from;
        L to;
        bool allowed;
    };
    const Case cases[] = {{cut.a, L::storyline, L::overlay, true},  {cut.a, L::storyline, L::audio, true},
                          {cut.a, L::storyline, L::program, false}, {cut.a, L::storyline, L::layout, false},
                          {music.id, L::audio, L::overlay, false},  {music.id, L::audio, L::storyline, true},
                          {logo.id, L::overlay, L::audio, false},   {logo.id, L::overlay, L::storyline, true},
                          {title.id, L::text, L::overlay, false},   {title.id, L::text, L::text, true},
                          {cut.x, L::overlay, L::text, false}};
    for (const auto& c : cases) {
        SCOPED_TRACE(Editor::clip(session, c.clipID)->label);
        EXPECT_EQ(Editor::canMoveClip(session, c.clipID, c.from, c.to), c.allowed);
    }
    EXPECT_FALSE(recorded(session, [&] { return Editor::moveClip(session, music.id, L::overlay, 3); }));
    // Down to the storyline a clip becomes a host: it hangs on nothing.
    ASSERT_TRUE(Editor::connectClip(session, cut.x, cut.b));
    EXPECT_TRUE(recorded(session, [&] { return Editor::moveClip(session, cut.x, L::storyline, 12); }));
    EXPECT_FALSE(Editor::clip(session, cut.x)->connectedToClipID.has_value());
    EXPECT_FALSE(Editor::connectClip(session, cut.x, cut.b)) << "a storyline clip can't be connected";
    // Moving to the audio track drops what only a picture uses.
    auto& a = session.timeline->track(TimelineTrackIDs::source)->clips.front();
    a.slotID = "webcam";
    a.matte = engine::ClipMatte{};
    EXPECT_TRUE(recorded(session, [&] { return Editor::moveClip(session, cut.a, L::audio, 3); }));
    const TimelineClip* moved = Editor::clip(session, cut.a);
    EXPECT_FALSE(moved->slotID.has_value());
    EXPECT_FALSE(moved->matte.has_value());
}

TEST(TimelineEditorInsert, binMediaGoesIntoTheStorylineOrLayersAbove) {
    ProjectSession session;
    const Cut cut = loadCut(session);
    EXPECT_TRUE(recorded(session, [&] {
        return Editor::insertBinMedia(session, "src2", 4, TimelineLaneKind::storyline,
                                      MediaDropMode::parallel);
    }));
    EXPECT_EQ(labels(session, TimelineTrackIDs::source),
              (std::vector<std::string>{"A", "broll.mov", "B", "C"}));
    expectLayout(session, TimelineTrackIDs::source, {{0, 2, 6}, {4, 0, 10}, {14, 8, 12}, {18, 14, 18}});

    EXPECT_FALSE(recorded(session, [&] {
        return Editor::insertBinMedia(session, "src3", 1, TimelineLaneKind::overlay, MediaDropMode::parallel);
    })) << "music has no picture";
    EXPECT_FALSE(recorded(session, [&] {
        return Editor::insertBinMedia(session, "src9", 1, TimelineLaneKind::audio, MediaDropMode::parallel);
    })) << "no such source";
    // Sequential drops on X (5–9) land after it; parallel ones stack where they fall.
    EXPECT_TRUE(recorded(session, [&] {
        return Editor::insertBinMedia(session, "src4", 6, TimelineLaneKind::overlay,
                                      MediaDropMode::sequential);
    }));
    EXPECT_TRUE(recorded(session, [&] {
        return Editor::insertBinMedia(session, "src3", 6, TimelineLaneKind::audio, MediaDropMode::parallel);
    }));
    const auto& overlay = session.timeline->clips(TimelineTrackIDs::overlay);
    ASSERT_EQ(overlay.size(), 2u);
    EXPECT_EQ(overlay[1].kind, "image");
    EXPECT_NEAR(overlay[1].timelineStart.seconds(), 9, 1e-9);
    const auto& music = session.timeline->clips(TimelineTrackIDs::audio).front();
    EXPECT_NEAR(music.timelineStart.seconds(), 6, 1e-9);
    // At 6 s the storyline plays the inserted b-roll (4–14 s): that is the music's host.
    EXPECT_EQ(music.connectedToClipID, session.timeline->clips(TimelineTrackIDs::source)[1].id);
    (void)cut;
}

TEST(TimelineEditorInsert, textAndOverlayFilesHangOnTheStoryline) {
    ProjectSession session;
    const Cut cut = loadCut(session);
    std::optional<std::string> title;
    EXPECT_TRUE(
        recorded(session, [&] { return (title = Editor::addTextClip(session, "Hello", 5, 3)).has_value(); }));
    const TimelineClip* text = Editor::clip(session, *title);
    EXPECT_EQ(text->kind, "text");
    EXPECT_EQ(text->textContent, "Hello");
    EXPECT_EQ(text->connectedToClipID, cut.b);
    EXPECT_NEAR(text->connectedOffset->seconds(), 1, 1e-9);
    EXPECT_FALSE(Editor::addTextClip(session, "Nothing", 5, 0).has_value());
    EXPECT_FALSE(recorded(session, [&] { return Editor::setPlaybackRate(session, {*title}, 2.0); }));

    std::optional<std::string> overlay;
    EXPECT_TRUE(recorded(session, [&] {
        overlay = Editor::addOverlayMedia(session, "/media/new.mov", 9,
                                          {.preferredSourceID = "src7", .durationHint = 3});
        return overlay.has_value();
    }));
    EXPECT_EQ(Editor::clip(session, *overlay)->sourceID, "src7");
    EXPECT_EQ(session.extraSources.at("src7"), "/media/new.mov");
    EXPECT_FALSE(Editor::addOverlayMedia(session, "/media/unknown.mov", 1).has_value()) << "no length known";
}

TEST(TimelineEditorText, titlesAreSplitStretchedAndRewrittenByLengthAlone) {
    ProjectSession session;
    loadCut(session);
    std::optional<std::string> note;
    EXPECT_TRUE(
        recorded(session, [&] { return (note = Editor::addAnnotation(session, "Note", 5, 3)).has_value(); }));
    EXPECT_EQ(Editor::clip(session, *note)->textStyle, Editor::annotationStyle());
    EXPECT_TRUE(Editor::annotationStyle().hasBackground());
    EXPECT_TRUE(Editor::isTextClip(session, *note));

    // Its head goes out to 4 s with the words unchanged: a title has no source to run out of.
    EXPECT_TRUE(recorded(session, [&] { return Editor::trimClip(session, *note, TrimEdge::leading, 4); }));
    expectLayout(session, TimelineTrackIDs::text, {{4, 0, 4}});
    EXPECT_TRUE(recorded(session, [&] { return Editor::splitClip(session, *note, 6); }));
    expectLayout(session, TimelineTrackIDs::text, {{4, 0, 2}, {6, 2, 4}});

    EXPECT_TRUE(recorded(session, [&] {
        return Editor::updateTextClip(session, *note, "Hello there", Editor::annotationStyle());
    }));
    EXPECT_EQ(Editor::clip(session, *note)->label, "Hello there");
    EXPECT_FALSE(recorded(session, [&] {
        return Editor::updateTextClip(session, *note, "Hello there", Editor::annotationStyle());
    }));
    const std::string a = session.timeline->clips(TimelineTrackIDs::source).front().id;
    EXPECT_FALSE(Editor::updateTextClip(session, a, "Not a title", Editor::annotationStyle()));
}

// Delete.

TEST(TimelineEditorDelete, theStorylineClosesUpAndConnectedClipsFollowTheirHosts) {
    ProjectSession session;
    const Cut cut = loadCut(session);
    auto& c = session.timeline->track(TimelineTrackIDs::source)->clips[2];
    c.zoomRegions = std::vector<engine::ClipZoomRegion>{{seconds(9), seconds(10), {0, 0, 0.5, 0.5}}};
    auto& x = session.timeline->track(TimelineTrackIDs::overlay)->clips.front();
    ASSERT_TRUE(Editor::connectClip(session, cut.x, cut.c));
    EXPECT_NEAR(x.connectedOffset->seconds(), -3, 1e-9);

    EXPECT_TRUE(recorded(session, [&] { return Editor::deleteClip(session, cut.b); }));
    expectLayout(session, TimelineTrackIDs::source, {{0, 2, 6}, {4, 14, 18}});
    expectLayout(session, TimelineTrackIDs::overlay, {{1, 1, 5}});  // X followed C
    const auto& zoom = *session.timeline->clips(TimelineTrackIDs::source)[1].zoomRegions;
    EXPECT_NEAR(zoom.front().timelineStart.seconds(), 5, 1e-9);  // C's zoom moved with it

    // Deleting the host leaves its connected clip where it is; overlay deletes leave gaps.
    EXPECT_TRUE(recorded(session, [&] { return Editor::deleteClip(session, cut.c); }));
    expectLayout(session, TimelineTrackIDs::overlay, {{1, 1, 5}});
    EXPECT_FALSE(recorded(session, [&] { return Editor::deleteClip(session, cut.c); }));

    session.selectClips({cut.a, cut.x}, cut.a, std::nullopt);
    EXPECT_TRUE(recorded(session, [&] { return Editor::deleteSelectedClips(session) == 2; }));
    EXPECT_TRUE(session.timeline->clips(TimelineTrackIDs::source).empty());
    EXPECT_TRUE(session.selectedClipIDs.empty());
}

// Join.

TEST(TimelineEditorJoin, saysWhyASelectionCantBeJoined) {
    using Failure = Editor::JoinSelectedClipsFailure;
    struct Case {
        const char* what;
        double gap;
        const char* secondSource;
        int selected;
        bool onOverlay;
        std::optional<Failure> failure;
        const char* message;
    };
    const Case cases[] = {
        {"touching within 0.02 s", 0.02, "src1", 2, false, std::nullopt, ""},
        {"0.03 s apart", 0.03, "src1", 2, false, Failure::timelineGap(2, 2.03),
         "There’s a gap between these clips — the empty strip on Storyline. Close it, or select clips that "
         "actually touch."},
        {"different files", 0, "src2", 2, false, Failure::differentMedia("a", "b"),
         "“a” and “b” are different files. Join only stitches pieces of the same recording."},
        {"one clip", 0, "src1", 1, false, Failure{}, "Select two or more adjacent Storyline clips to join."},
        {"overlay clips", 0, "src1", 2, true, Failure{.kind = Failure::Case::wrongTrack},
         "Join works on Storyline or Rough Cut."}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        ProjectSession session;
        loadShortTalk(session);
        const TimelineClip a = clipOf("a", 0, 2, 0);
        const TimelineClip b = clipOf("b", 2, 4, 2 + c.gap, c.secondSource);
        session.timeline->track(c.onOverlay ? TimelineTrackIDs::overlay : TimelineTrackIDs::program)
            ->clips = {a, b};
        if (c.selected == 2) {
            session.selectClips({a.id, b.id}, a.id, std::nullopt);
        } else {
            session.selectClip(a.id);
        }
        const auto failure = Editor::diagnoseJoinSelectedClips(session);
        EXPECT_EQ(failure.has_value(), c.failure.has_value());
        if (failure && c.failure) {
            EXPECT_EQ(failure->kind, c.failure->kind);
            EXPECT_NEAR(failure->gapStart, c.failure->gapStart, 1e-9);
            EXPECT_NEAR(failure->gapEnd, c.failure->gapEnd, 1e-9);
            EXPECT_EQ(failure->message(), c.message);
        }
        EXPECT_EQ(recorded(session, [&] { return Editor::joinSelectedClips(session); }), !c.failure);
    }
}

TEST(TimelineEditorJoin, twoHalvesOfASplitBecomeOneRangeAgain) {
    ProjectSession session;
    const Cut cut = loadCut(session);
    ASSERT_TRUE(Editor::splitClip(session, cut.b, 6));
    const std::string right = session.timeline->clips(TimelineTrackIDs::source)[2].id;
    ASSERT_TRUE(Editor::connectClip(session, cut.x, right));
    session.selectClips({cut.b, right}, cut.b, std::nullopt);
    EXPECT_TRUE(recorded(session, [&] { return Editor::joinSelectedClips(session); }));
    const auto& clips = session.timeline->clips(TimelineTrackIDs::source);
    ASSERT_EQ(clips.size(), 3u);
    EXPECT_EQ(clips[1].id, cut.b);
    EXPECT_EQ(rangesOf(clips[1]), (Ranges{{8, 12}}));
    const TimelineClip* x = Editor::clip(session, cut.x);
    EXPECT_EQ(x->connectedToClipID, cut.b);  // X now hangs on the joined clip, where it was
    EXPECT_NEAR(x->connectedOffset->seconds(), 1, 1e-9);
    EXPECT_NEAR(x->timelineStart.seconds(), 5, 1e-9);
    EXPECT_EQ(session.selectedClipIDs, (std::set<std::string>{cut.b}));
}

// Speed, sound and the rest.

TEST(TimelineEditorSpeed, theStorylineClosesUpAroundAFasterClip) {
    ProjectSession session;
    const Cut cut = loadCut(session);
    EXPECT_TRUE(recorded(session, [&] { return Editor::setPlaybackRate(session, {cut.a, cut.x}, 2.0); }));
    expectLayout(session, TimelineTrackIDs::source, {{0, 2, 6}, {2, 8, 12}, {6, 14, 18}});
    expectLayout(session, TimelineTrackIDs::overlay, {{5, 1, 5}});  // off the storyline, the start stays
    EXPECT_EQ(Editor::clip(session, cut.a)->playbackRate, 2.0);
    EXPECT_FALSE(recorded(session, [&] { return Editor::setPlaybackRate(session, {cut.a}, 2.00005); }));
    EXPECT_TRUE(recorded(session, [&] { return Editor::setPlaybackRate(session, {cut.a}, 1.00005); }));
    EXPECT_FALSE(Editor::clip(session, cut.a)->playbackRate.has_value()) << "1x stores no rate";
}

TEST(TimelineEditorSpeed, aRegionIsCutOutAndPlayedAtItsRate) {
    struct Case {
        const char* what;
        double from;
        double to;
        std::vector<Placed> layout;  // empty: refused
    };
    // B plays 8–12 at 4–8; the region plays at 2x.
    const Case cases[] = {
        {"inside the clip", 5, 7, {{0, 2, 6}, {4, 8, 9}, {5, 9, 11}, {6, 11, 12}, {7, 14, 18}}},
        {"from just after its start", 4.04, 6, {{0, 2, 6}, {4, 8, 10}, {5, 10, 12}, {7, 14, 18}}},
        {"to just before its end", 6, 7.99, {{0, 2, 6}, {4, 8, 10}, {6, 10, 12}, {7, 14, 18}}},
        {"the whole clip", 3.99, 8.01, {{0, 2, 6}, {4, 8, 12}, {6, 14, 18}}},
        {"half a second", 5, 5.5, {}},
        {"too near an edge to cut", 4.1, 6, {}}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        ProjectSession session;
        const Cut cut = loadCut(session);
        EXPECT_EQ(
            recorded(session, [&] { return Editor::applySpeedRegion(session, cut.b, c.from, c.to, 2.0); }),
            !c.layout.empty());
        if (!c.layout.empty()) expectLayout(session, TimelineTrackIDs::source, c.layout);
    }
}

TEST(TimelineEditorGain, isHeldBetweenSilenceAndDouble) {
    struct Case {
        double gain;
        bool changes;
        double stored;
    };
    const Case cases[] = {
        {3.0, true, 2.0}, {-1.0, true, 0.0}, {0.5, true, 0.5}, {1.0, false, 1.0}, {NAN, false, 1.0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.gain);
        ProjectSession session;
        const Cut cut = loadCut(session);
        EXPECT_EQ(recorded(session, [&] { return Editor::setAudioGain(session, cut.b, c.gain); }), c.changes);
        EXPECT_EQ(Editor::clip(session, cut.b)->audioGain, c.stored);
    }
}

TEST(TimelineEditorQueries, knowWhatEachClipIs) {
    ProjectSession session;
    const Cut cut = loadCut(session);
    TimelineClip logo = clipOf("logo", 0, 5, 0, "src4");
    TimelineClip music = clipOf("music", 0, 10, 0, "src3");
    session.timeline->track(TimelineTrackIDs::overlay)->clips.push_back(logo);
    session.timeline->track(TimelineTrackIDs::audio)->clips.push_back(music);
    EXPECT_TRUE(Editor::isVideoClip(session, cut.a));
    EXPECT_TRUE(Editor::isVideoClip(session, logo.id));
    EXPECT_FALSE(Editor::isVideoClip(session, music.id));
    EXPECT_FALSE(Editor::clipSupportsPlaybackRate(logo, session)) << "a still, by its file";
    EXPECT_TRUE(Editor::clipSupportsPlaybackRate(music, session));
    EXPECT_EQ(Editor::maxSourceEnd(logo, session), RationalTime::fromSeconds(3600, 600));
    EXPECT_EQ(Editor::maxSourceEnd(music, session), RationalTime::fromSeconds(30, 600));
    EXPECT_EQ(Editor::maxSourceEnd(clipOf("?", 0, 1, 0, "src9"), session), std::nullopt);
    EXPECT_TRUE(Editor::usesProgramAxis(TimelineTrackKind::source, session));
    EXPECT_FALSE(Editor::usesProgramAxis(TimelineTrackKind::text, session));
    EXPECT_TRUE(
        recorded(session, [&] { return Editor::setTrackRole(session, "overlay", TimelineTrackRole::sfx); }));
    EXPECT_FALSE(
        recorded(session, [&] { return Editor::setTrackRole(session, "overlay", TimelineTrackRole::sfx); }));
    EXPECT_TRUE(recorded(
        session, [&] { return Editor::setClipSourceWindow(session, cut.a, seconds(1), seconds(3)); }));
    expectLayout(session, TimelineTrackIDs::source, {{0, 1, 3}, {2, 8, 12}, {6, 14, 18}});
    EXPECT_FALSE(Editor::setClipSourceWindow(session, cut.a, seconds(3), seconds(3)));
}

TEST(TimelineEditorSourceAxis, aStorylineBesideARoughCutIsCutOnSourceTime) {
    ProjectSession session;
    loadShortTalk(session);  // one clip for the whole 20 s talk
    session.timeline->track(TimelineTrackIDs::program)->clips = {clipOf("cut", 1, 2, 0)};
    const std::string whole = session.timeline->clips(TimelineTrackIDs::source).front().id;
    EXPECT_FALSE(Editor::usesProgramAxis(TimelineTrackKind::source, session));
    // Trimming its head to 3 s of source moves it on the axis with it.
    EXPECT_TRUE(recorded(session, [&] { return Editor::trimClip(session, whole, TrimEdge::leading, 3); }));
    expectLayout(session, TimelineTrackIDs::source, {{3, 3, 20}});
    EXPECT_TRUE(recorded(session, [&] { return Editor::splitClip(session, whole, 10); }));
    expectLayout(session, TimelineTrackIDs::source, {{0, 3, 10}, {7, 10, 20}});
}

}  // namespace
}  // namespace morvane::app
