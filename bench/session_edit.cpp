// The cost of one edit on an hour-long talk: a 9,000-word transcript in 1,500 segments with a clean-up run
// that drops every fourth segment. Times materialising the rough cut, rebuilding the plan, taking an undo
// snapshot and recording a whole edit, then reports the memory that 50 undo steps of it hold.

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstdio>

#include "morvane/app/session/edit_coordinator.hpp"
#include "morvane/app/session/project_session.hpp"
#include "morvane/app/timeline/timeline_plan_bridge.hpp"
#include "morvane/app/timeline/transcript_cut.hpp"

namespace {

using namespace morvane;
using namespace morvane::app;

void loadHour(ProjectSession& session) {
    intelligence::TranscriptDocument transcript{
        .sourceURL = "/media/hour.mp4", .locale = "en-US", .durationSeconds = 3600};
    intelligence::SegmentDocument segments{.sourceTranscript = "/media/hour.mp4"};
    const char* vocabulary[] = {"so", "today", "we", "look", "at", "the", "timeline", "and", "um", "cut"};
    double t = 0.2;
    for (int s = 0; s < 1500; ++s) {
        const int first = static_cast<int>(transcript.words.size());
        std::string text;
        for (int w = 0; w < 6; ++w) {
            const int id = static_cast<int>(transcript.words.size());
            transcript.words.push_back({id,
                                        vocabulary[id % 10],
                                        RationalTime::fromSeconds(t, 600),
                                        RationalTime::fromSeconds(t + 0.3, 600),
                                        0.9,
                                        {}});
            text += (w ? " " : "") + std::string(vocabulary[id % 10]);
            t += 0.38;
        }
        segments.segments.push_back({s, text, transcript.words[static_cast<std::size_t>(first)].start,
                                     transcript.words.back().end, first,
                                     static_cast<int>(transcript.words.size()) - 1});
        t += 0.1;
    }
    segments.segmentCount = 1500;
    session.mediaURL = "/media/hour.mp4";
    session.mediaDurationSeconds = 3600;
    session.transcript = std::move(transcript);
    session.segments = std::move(segments);
    session.transcriptSourceID = "src1";
    TimelinePlanBridge::bootstrapSourceTimeline(session, "src1");
    intelligence::ClassificationRun run{.instruction = "Clean up"};
    for (int s = 0; s < 1500; ++s) {
        if (s % 4 != 3) run.mergedKeepSegmentIDs.push_back(s);
    }
    session.rebuildCutItems(run);
}

void materializeRoughCut(benchmark::State& state) {
    ProjectSession session;
    loadHour(session);
    for (auto _ : state)
        TranscriptCutMaterializer::rebuildProgram(session);
    state.counters["clips"] = static_cast<double>(session.timeline->clips(TimelineTrackIDs::program).size());
}

void rebuildPlan(benchmark::State& state) {
    ProjectSession session;
    loadHour(session);
    TranscriptCutMaterializer::rebuildProgram(session);
    for (auto _ : state)
        benchmark::DoNotOptimize(TimelinePlanBridge::rebuildEditPlan(session));
}

void captureSnapshot(benchmark::State& state) {
    ProjectSession session;
    loadHour(session);
    TranscriptCutMaterializer::rebuildProgram(session);
    for (auto _ : state)
        benchmark::DoNotOptimize(EditableStateSnapshot::capture(session));
}

void recordOneEdit(benchmark::State& state) {
    ProjectSession session;
    loadHour(session);
    TranscriptCutMaterializer::rebuildProgram(session);
    int word = 0;
    for (auto _ : state) {
        EditCoordinator::perform(session, "Strike Word", [&] {
            TranscriptCutMaterializer::setWordsRemoved(session, {word++ % 9000}, true);
        });
    }
}

BENCHMARK(materializeRoughCut)->Unit(benchmark::kMillisecond);
BENCHMARK(rebuildPlan)->Unit(benchmark::kMillisecond);
BENCHMARK(captureSnapshot)->Unit(benchmark::kMillisecond);
BENCHMARK(recordOneEdit)->Unit(benchmark::kMillisecond);

std::size_t heapInUse() {
    return mallinfo2().uordblks;
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();

    const std::size_t before = heapInUse();
    {
        ProjectSession session;
        loadHour(session);
        TranscriptCutMaterializer::rebuildProgram(session);
        for (int i = 0; i < 50; ++i) {
            EditCoordinator::perform(session, "Strike Word", [&] {
                TranscriptCutMaterializer::setWordsRemoved(session, {i * 7}, true);
            });
        }
        std::printf("50 undo steps of an hour-long talk: %.1f MB of heap (target: under 200 MB)\n",
                    static_cast<double>(heapInUse() - before) / 1e6);
    }
}
