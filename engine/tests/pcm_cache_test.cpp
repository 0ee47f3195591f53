#include "morvane/engine/audio/pcm_cache.hpp"

#include <gtest/gtest.h>

#include <thread>

#include "morvane/engine/engine_error.hpp"
#include "morvane/testing/synthetic_media.hpp"
#include "morvane/testing/temp_dir.hpp"

namespace morvane::engine {
namespace {

using namespace morvane::testing;

TEST(PCMCacheMedia, decodesAFileOnceForEachRateUntilItChanges) {
    const TempDir dir;
    const auto wav = writeWav(dir.path() / "a.wav", tone(440, 0.5, 1.0, 48000), 1, 48000);
    PCMCache cache;
    const auto first = cache.monoFloat(wav, 48000);
    EXPECT_EQ(cache.monoFloat(wav, 48000), first);
    EXPECT_EQ(cache.monoFloat(dir.path() / "." / "a.wav", 48000), first);  // the same file by another path
    EXPECT_EQ(cache.bytes(), 48000 * sizeof(float));

    const auto other = cache.monoFloat(wav, 44100);
    EXPECT_NE(other, first);
    EXPECT_EQ(other->samples.size(), 44100u);

    // A rewritten file is decoded again.
    writeWav(wav, tone(440, 0.5, 2.0, 48000), 1, 48000);
    const auto changed = cache.monoFloat(wav, 48000);
    EXPECT_EQ(changed->samples.size(), 96000u);
    EXPECT_EQ(first->samples.size(), 48000u);  // holders of the old samples keep them

    cache.clear();
    EXPECT_EQ(cache.bytes(), 0u);
    EXPECT_NE(cache.monoFloat(wav, 48000), changed);
}

TEST(PCMCacheMedia, dropsTheLeastRecentlyUsedPastItsBudget) {
    const TempDir dir;
    const auto a = writeWav(dir.path() / "a.wav", tone(440, 0.5, 1.0, 8000), 1, 8000);
    const auto b = writeWav(dir.path() / "b.wav", tone(440, 0.5, 1.0, 8000), 1, 8000);
    const auto c = writeWav(dir.path() / "c.wav", tone(440, 0.5, 1.0, 8000), 1, 8000);
    PCMCache cache(2 * 8000 * sizeof(float));  // room for two
    const auto pa = cache.monoFloat(a, 8000);
    const auto pb = cache.monoFloat(b, 8000);
    EXPECT_EQ(cache.monoFloat(a, 8000), pa);  // a is now the most recent
    (void)cache.monoFloat(c, 8000);           // evicts b
    EXPECT_EQ(cache.bytes(), 2 * 8000 * sizeof(float));
    EXPECT_EQ(cache.monoFloat(a, 8000), pa);
    EXPECT_NE(cache.monoFloat(b, 8000), pb);
}

TEST(PCMCacheMedia, sharesOneDecodeBetweenThreadsAndKeepsNoFailures) {
    const TempDir dir;
    const auto wav = writeWav(dir.path() / "a.wav", tone(440, 0.5, 3.0, 48000), 1, 48000);
    PCMCache cache;
    std::shared_ptr<const PCMBuffer> seen[4];
    {
        std::vector<std::jthread> threads;
        for (auto& slot : seen)
            threads.emplace_back([&cache, &wav, &slot] { slot = cache.monoFloat(wav, 48000); });
    }
    for (const auto& p : seen)
        EXPECT_EQ(p, seen[0]);

    EXPECT_THROW((void)cache.monoFloat(dir.path() / "gone.wav", 48000), EngineError);
    const auto notes = dir.write("notes.wav", "text");
    EXPECT_THROW((void)cache.monoFloat(notes, 48000), EngineError);
    EXPECT_THROW((void)cache.monoFloat(notes, 48000), EngineError);  // tried again, not remembered
    EXPECT_EQ(cache.bytes(), 3 * 48000 * sizeof(float));
}

}  // namespace
}  // namespace morvane::engine
