// Short candidates and packing to a length on the hour-long talk that bench/cleanup.sh generates (about
// 9,000 words in 1,500 segments), read from $MORVANE_BENCH_CLEANUP_DIR (default
// build/bench-cache/cleanup-60min). bench/shorts.sh generates it when missing and runs this.

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <memory>

#include "json_file.hpp"
#include "morvane/intelligence/cleanup/duration_target_packer.hpp"
#include "morvane/intelligence/publish/shorts_candidate_scorer.hpp"

namespace {

using namespace morvane;
using namespace morvane::intelligence;

struct Talk {
    TranscriptDocument transcript;
    SegmentDocument segments;
};

using bench::readJSON;

const Talk* talk() {
    static const std::unique_ptr<Talk> loaded = []() -> std::unique_ptr<Talk> {
        const char* env = std::getenv("MORVANE_BENCH_CLEANUP_DIR");
        const std::filesystem::path dir = env != nullptr ? env : "build/bench-cache/cleanup-60min";
        if (!std::filesystem::exists(dir / "talk.segments.json")) return nullptr;
        return std::make_unique<Talk>(Talk{readJSON<TranscriptDocument>(dir / "talk.transcript.json"),
                                           readJSON<SegmentDocument>(dir / "talk.segments.json")});
    }();
    return loaded.get();
}

// The Extract Shorts sheet: five passages of 15 to 58 s.
void shortsCandidates(benchmark::State& state) {
    const Talk* hour = talk();
    if (hour == nullptr) return state.SkipWithError("no generated talk: run bench/shorts.sh");
    for (auto _ : state) {
        auto candidates = ShortsCandidateScorer::propose(hour->segments, &hour->transcript, std::nullopt,
                                                         ShortsCandidateScorer::sheetMaxCandidates,
                                                         ShortsCandidateScorer::sheetTargetDuration);
        benchmark::DoNotOptimize(candidates.data());
    }
}

// Short cut to `state.range(0)` seconds: the scorer over every window of that length, then the limit.
void packToLength(benchmark::State& state) {
    const Talk* hour = talk();
    if (hour == nullptr) return state.SkipWithError("no generated talk: run bench/shorts.sh");
    const std::string instruction = DurationTargetPacker::instruction(static_cast<double>(state.range(0)));
    for (auto _ : state) {
        auto run = DurationTargetPacker::classify(hour->segments, &hour->transcript, instruction);
        benchmark::DoNotOptimize(run.mergedKeepSegmentIDs.data());
    }
}

BENCHMARK(shortsCandidates)->Unit(benchmark::kMillisecond);
BENCHMARK(packToLength)->Arg(60)->Arg(120)->Arg(600)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
