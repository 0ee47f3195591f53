// How long resolving, reading and writing a large edit plan takes: 10,000 operations, as a long talk cut
// into sentence-sized keeps with some screen clips, transitions and layout changes among them.

#include <benchmark/benchmark.h>
#include <fmt/core.h>

#include "morvane/engine/layout/layout_resolver.hpp"
#include "morvane/engine/plan/edit_plan_coding.hpp"
#include "morvane/engine/plan/edit_plan_resolver.hpp"

namespace {

using namespace morvane::engine;

EditPlan largePlan(int operations) {
    EditPlan plan;
    plan.timeline.frameDuration = "1001/30000";
    plan.sources = {{"src1", "talk.mov", "1001/30000", false, std::nullopt},
                    {"src2", "screen.mov", "1/60", true, std::nullopt}};
    for (int i = 0; i < operations; ++i) {
        // Keeps in shuffled document order, so the layout has sorting to do.
        const long start = (static_cast<long>(i) * 7919 % operations) * 90000;
        EditPlanOperation op{.type = "keep",
                             .sourceID = "src1",
                             .start = fmt::format("{}/60000", start),
                             .end = fmt::format("{}/60000", start + 60000 + i % 7 * 1001)};
        switch (i % 10) {
            case 7:
                op.type = "clip";
                op.sourceID = "src2";
                op.trackID = "overlay";
                op.timelineStart = fmt::format("{}/60000", start);
                op.slotID = "webcam";
                break;
            case 8:
                op.type = "transition";
                op.timelineStart = fmt::format("{}/60000", start);
                op.transition = EditPlanTransition{"crossfade", "1/2"};
                break;
            case 9:
                op.type = "layout";
                op.label = i % 20 == 9 ? "pip" : "full_frame";
                break;
            default:
                op.playbackRate = i % 3 == 0 ? 1.25 : 1.0;
                op.origin = EditPlanOrigin{"instruction", std::vector<std::int64_t>{i}};
        }
        plan.operations.push_back(std::move(op));
    }
    return plan;
}

const EditPlan& plan() {
    static const EditPlan p = largePlan(10000);
    return p;
}

void programClips(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(EditPlanResolver::programClips(plan()));
}
BENCHMARK(programClips)->Unit(benchmark::kMillisecond);

void keepSpans(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(EditPlanResolver::keepSpans(plan()));
}
BENCHMARK(keepSpans)->Unit(benchmark::kMillisecond);

void transitionsAndLayouts(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(EditPlanResolver::transitions(plan()));
        benchmark::DoNotOptimize(LayoutResolver::regions(plan()));
    }
}
BENCHMARK(transitionsAndLayouts)->Unit(benchmark::kMillisecond);

void wholeResolve(benchmark::State& state) {
    // Everything `morvane plan show` does after reading: check every time, then resolve.
    for (auto _ : state) {
        EditPlanResolver::checkTimes(plan());
        benchmark::DoNotOptimize(EditPlanResolver::programClips(plan()));
        benchmark::DoNotOptimize(EditPlanResolver::transitions(plan()));
        benchmark::DoNotOptimize(LayoutResolver::regions(plan()));
    }
}
BENCHMARK(wholeResolve)->Unit(benchmark::kMillisecond);

void decode(benchmark::State& state) {
    const std::string bytes = EditPlanCoding::encode(plan());
    for (auto _ : state)
        benchmark::DoNotOptimize(EditPlanCoding::decode(bytes));
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes.size()));
}
BENCHMARK(decode)->Unit(benchmark::kMillisecond);

void encode(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(EditPlanCoding::encode(plan()));
}
BENCHMARK(encode)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
