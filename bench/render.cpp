// The render engine on a long talking-head plan: 200 keep spans of one 1280x720 30 fps source making 10
// minutes of program. Three runs: every frame rendered to raw frames (no encode), the same with the framed
// look on every frame, and the mixed audio. bench/render.sh runs it beside `ffmpeg -f null` on the same
// source and prints the ratios.
//
// Usage: bench_render SOURCE [frames|framed|audio] [FRAME_LIMIT]

#include <fmt/core.h>

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <string>

#include "morvane/engine/composition/composition_renderer.hpp"

namespace {

using namespace morvane::engine;

EditPlan talkPlan(const std::string& source, bool framed) {
    EditPlan plan;
    plan.timeline.frameDuration = "1/30";
    plan.timeline.renderSize = "1280x720";
    plan.sources = {{.id = "talk", .url = source, .frameDuration = "1/30"}};
    // 3 s kept out of every 3.6 s: the pauses between sentences cut out.
    for (int i = 0; i < 200; ++i) {
        EditPlanOperation keep{.type = "keep",
                               .sourceID = "talk",
                               .start = fmt::format("{}/10", i * 36),
                               .end = fmt::format("{}/10", i * 36 + 30)};
        if (framed) keep.presentationStyle = ClipPresentationStyle::demoDefault();
        plan.operations.push_back(std::move(keep));
    }
    return plan;
}

double cpuSeconds() {
    return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        fmt::print(stderr, "usage: bench_render SOURCE [frames|framed|audio] [FRAME_LIMIT]\n");
        return 2;
    }
    const std::string source = argv[1];
    const std::string mode = argc > 2 ? argv[2] : "frames";
    const std::int64_t limit = argc > 3 ? std::atoll(argv[3]) : -1;
    try {
        const auto started = std::chrono::steady_clock::now();
        const double cpuStarted = cpuSeconds();
        CompositionRenderer renderer(
            CompositionBuilder::build(talkPlan(source, mode == "framed"), AudioFinishingOptions::preview()));
        if (mode == "audio") {
            const PCMBuffer mix = renderer.renderAudio({.sampleRate = 48000});
            const double elapsed =
                std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
            fmt::print("audio: {:.1f} s of program in {:.2f} s ({:.2f} s CPU): {:.0f}x real time\n",
                       mix.durationSeconds, elapsed, cpuSeconds() - cpuStarted,
                       mix.durationSeconds / elapsed);
            return 0;
        }
        std::int64_t frames = renderer.frameCount();
        if (limit > 0) frames = std::min(frames, limit);
        std::int64_t passthrough = 0;
        std::int64_t pixels = 0;
        for (std::int64_t i = 0; i < frames; ++i) {
            const VideoFrame frame = renderer.frame(renderer.frameTime(i));
            passthrough += frame.isPassthrough() ? 1 : 0;
            pixels += frame.size().width;
        }
        const double elapsed =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
        fmt::print(
            "{}: {} frames in {:.2f} s ({:.2f} s CPU), {:.1f} frames/s, {:.2f} ms a frame, {} passed through "
            "(checksum {})\n",
            mode, frames, elapsed, cpuSeconds() - cpuStarted, frames / elapsed, elapsed * 1000.0 / frames,
            passthrough, pixels);
    } catch (const std::exception& e) {
        fmt::print(stderr, "bench_render: {}\n", e.what());
        return 1;
    }
    return 0;
}
