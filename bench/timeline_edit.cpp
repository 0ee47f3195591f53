// The cost of the timeline's gestures on a long edit: a storyline of 500 clips cut from an hour-long
// recording, with 50 b-roll clips connected to it. Times split, ripple delete and move on their own (the
// editor's share of a gesture), then one split recorded as an undo step with the plan rebuilt (what a
// click costs in all). Then counts how often trimming and splitting a packed clip of 300 ranges copies
// its range list.

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <new>

#include "morvane/app/session/edit_coordinator.hpp"
#include "morvane/app/session/project_session.hpp"
#include "morvane/app/timeline/timeline_editor.hpp"
#include "morvane/app/timeline/timeline_plan_bridge.hpp"
#include "morvane/engine/support/uuid.hpp"

namespace {

// Allocations big enough to hold a sizeable part of a 300-range list; nothing else in a trim is as big.
std::atomic<bool> countingRangeLists{false};
std::atomic<int> rangeListAllocations{0};
constexpr std::size_t kRangeListBytes = 50 * sizeof(morvane::app::TimelineSourceRange);

}  // namespace

// The counting allocator frees with free() what it took with malloc(); gcc can't see that through the
// replaced operators and warns of a mismatch.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"

void* operator new(std::size_t size) {
    if (countingRangeLists.load(std::memory_order_relaxed) && size >= kRangeListBytes)
        rangeListAllocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(size == 0 ? 1 : size)) return p;
    throw std::bad_alloc();
}

void operator delete(void* p) noexcept {
    std::free(p);
}

void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}

#pragma GCC diagnostic pop

namespace {

using namespace morvane;
using namespace morvane::app;

RationalTime at(double seconds) {
    return RationalTime::fromSeconds(seconds, 600);
}

void loadLongCut(ProjectSession& session) {
    session.mediaURL = "/media/hour.mp4";
    session.mediaDurationSeconds = 3600;
    session.mediaBin.push_back({.id = "src1",
                                .label = "hour.mp4",
                                .urlPath = "/media/hour.mp4",
                                .durationSeconds = 3600,
                                .hasVideo = true,
                                .hasAudio = true});
    session.mediaBin.push_back({.id = "src2",
                                .label = "broll.mov",
                                .urlPath = "/media/broll.mov",
                                .kind = MediaBinKind::broll,
                                .durationSeconds = 600,
                                .hasVideo = true});
    session.extraSources["src2"] = "/media/broll.mov";
    TimelinePlanBridge::bootstrapEmptyTimeline(session);
    auto& storyline = session.timeline->track(TimelineTrackIDs::source)->clips;
    for (int i = 0; i < 500; ++i) {
        storyline.push_back({.id = makeUUID(),
                             .sourceID = "src1",
                             .label = "Take " + std::to_string(i),
                             .sourceIn = at(i * 7.0),
                             .sourceOut = at(i * 7.0 + 4.0),
                             .timelineStart = at(i * 4.0),
                             .originSegmentIDs = std::vector<int>{i}});
    }
    auto& overlay = session.timeline->track(TimelineTrackIDs::overlay)->clips;
    for (int i = 0; i < 50; ++i) {
        overlay.push_back({.id = makeUUID(),
                           .sourceID = "src2",
                           .label = "B-roll " + std::to_string(i),
                           .sourceIn = at(i * 10.0),
                           .sourceOut = at(i * 10.0 + 2.0),
                           .timelineStart = at(i * 40.0 + 1.0),
                           .connectedToClipID = storyline[static_cast<std::size_t>(i) * 10].id,
                           .connectedOffset = at(1.0)});
    }
    session.editPlan = TimelinePlanBridge::rebuildEditPlan(session);
}

const std::string& storylineClipID(const ProjectSession& session, std::size_t index) {
    return session.timeline->clips(TimelineTrackIDs::source)[index].id;
}

// Times `edit` on a fresh copy of the 500-clip timeline each round.
template <class Edit>
void timeEdit(benchmark::State& state, Edit edit) {
    ProjectSession session;
    loadLongCut(session);
    const TimelineDocument original = *session.timeline;
    for (auto _ : state) {
        state.PauseTiming();
        *session.timeline = original;
        state.ResumeTiming();
        benchmark::DoNotOptimize(edit(session));
    }
}

void splitInTheMiddle(benchmark::State& state) {
    timeEdit(state,
             [](ProjectSession& s) { return TimelineEditor::splitClip(s, storylineClipID(s, 250), 1002.0); });
}

void rippleDelete(benchmark::State& state) {
    timeEdit(state, [](ProjectSession& s) { return TimelineEditor::deleteClip(s, storylineClipID(s, 250)); });
}

void moveToTheEnd(benchmark::State& state) {
    timeEdit(state,
             [](ProjectSession& s) { return TimelineEditor::moveClip(s, storylineClipID(s, 10), 2000.0); });
}

void rippleTrim(benchmark::State& state) {
    timeEdit(state, [](ProjectSession& s) {
        return TimelineEditor::trimClip(s, storylineClipID(s, 250), TrimEdge::trailing, 1002.0);
    });
}

// The whole click: refuse-if-locked, snapshot, split, undo step, plan and playback map rebuilt.
void recordedSplit(benchmark::State& state) {
    ProjectSession session;
    loadLongCut(session);
    const TimelineDocument original = *session.timeline;
    for (auto _ : state) {
        state.PauseTiming();
        *session.timeline = original;
        session.editHistory.clear();
        state.ResumeTiming();
        EditCoordinator::perform(session, "Split Clip", [&] {
            TimelineEditor::splitClip(session, storylineClipID(session, 250), 1002.0);
        });
    }
}

BENCHMARK(splitInTheMiddle)->Unit(benchmark::kMicrosecond);
BENCHMARK(rippleDelete)->Unit(benchmark::kMicrosecond);
BENCHMARK(moveToTheEnd)->Unit(benchmark::kMicrosecond);
BENCHMARK(rippleTrim)->Unit(benchmark::kMicrosecond);
BENCHMARK(recordedSplit)->Unit(benchmark::kMicrosecond);

// A storyline holding one accepted cut of 300 ranges, 0.5 s each.
std::string loadPackedCut(ProjectSession& session) {
    session.mediaURL = "/media/hour.mp4";
    session.mediaDurationSeconds = 3600;
    TimelinePlanBridge::bootstrapEmptyTimeline(session);
    TimelineClip packed{.id = makeUUID(), .sourceID = "src1", .label = "Accepted cut"};
    std::vector<TimelineSourceRange> ranges;
    for (int i = 0; i < 300; ++i)
        ranges.push_back({at(i * 2.0), at(i * 2.0 + 0.5)});
    packed.sourceIn = ranges.front().sourceIn;
    packed.sourceOut = ranges.back().sourceOut;
    packed.assemblyRanges = ranges;
    packed.originSourceRanges = std::move(ranges);
    const std::string id = packed.id;
    auto& clips = session.timeline->track(TimelineTrackIDs::source)->clips;
    clips.reserve(4);  // so that a split's new clip doesn't count as a copy of ranges
    clips.push_back(std::move(packed));
    return id;
}

template <class Edit>
int rangeListCopies(Edit edit) {
    ProjectSession session;
    const std::string id = loadPackedCut(session);
    rangeListAllocations = 0;
    countingRangeLists = true;
    const bool changed = edit(session, id);
    countingRangeLists = false;
    if (!changed) std::printf("  (the edit was refused)\n");
    return rangeListAllocations.load();
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();

    std::printf("A packed clip of 300 ranges (150 s): range lists allocated by one edit\n");
    std::printf("  trim its tail to 75 s:  %d (target: at most 1)\n",
                rangeListCopies([](ProjectSession& s, const std::string& id) {
                    return TimelineEditor::trimClip(s, id, TrimEdge::trailing, 75.2);
                }));
    std::printf("  trim its head to 75 s:  %d (target: at most 1)\n",
                rangeListCopies([](ProjectSession& s, const std::string& id) {
                    return TimelineEditor::trimClip(s, id, TrimEdge::leading, 75.2);
                }));
    std::printf("  split it at 75 s:       %d (the new half's ranges and origins, each copied once)\n",
                rangeListCopies([](ProjectSession& s, const std::string& id) {
                    return TimelineEditor::splitClip(s, id, 75.2);
                }));
}
