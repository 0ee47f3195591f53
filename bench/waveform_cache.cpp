// A source's waveform through the window's cache: cold (decoded, then saved as peaks.bin) or warm (loaded
// from peaks.bin). bench/waveform_cache.sh runs it beside `ffmpeg` decoding the same audio and prints the
// ratios. The cache folder is $XDG_CACHE_HOME's, as in the window.
//
// Usage: bench_waveform_cache SOURCE [cold|warm]   (cold removes the source's cache folder first)

#include <fmt/core.h>

#include <chrono>
#include <filesystem>
#include <string>

#include "morvane/app/media/waveform_cache.hpp"
#include "morvane/engine/cache/media_cache_store.hpp"

int main(int argc, char** argv) {
    using namespace morvane;
    if (argc < 2) {
        fmt::print(stderr, "usage: bench_waveform_cache SOURCE [cold|warm]\n");
        return 2;
    }
    const std::filesystem::path source = std::filesystem::absolute(argv[1]);
    const std::string mode = argc > 2 ? argv[2] : "cold";
    const auto key = engine::MediaCacheStore::fingerprint(source);
    if (!key) {
        fmt::print(stderr, "bench_waveform_cache: no such file {}\n", source.string());
        return 1;
    }
    if (mode == "cold") std::filesystem::remove_all(engine::MediaCacheStore::root() / *key);

    app::ManualMainLoop loop;
    app::ProjectSession session;
    session.mediaBin.push_back(
        {.id = "src1", .label = source.filename().string(), .urlPath = source.string(), .hasAudio = true});
    session.mediaURL = source;
    const auto start = std::chrono::steady_clock::now();
    {
        app::WaveformCache waveforms(loop);
        waveforms.scheduleEnsure(session, "src1", source);
        if (!loop.runUntil([&] { return waveforms.isIdle(); }, std::chrono::hours(2))) return 1;
        loop.runPending();
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        if (!session.waveformEnvelope) {
            fmt::print(stderr, "bench_waveform_cache: no waveform for {}\n", source.string());
            return 1;
        }
        fmt::print("{}: {} bins over {:.1f} s of sound in {:.3f} s ({} decoded)\n", mode,
                   session.waveformEnvelope->mins.size(), session.waveformEnvelope->durationSeconds, seconds,
                   waveforms.generatedCount());
    }
    return 0;
}
