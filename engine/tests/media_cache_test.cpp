#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "morvane/engine/cache/media_cache_store.hpp"
#include "morvane/engine/cache/media_job_scheduler.hpp"
#include "morvane/engine/cache/proxy_generator.hpp"
#include "morvane/engine/cache/waveform_disk_cache.hpp"
#include "morvane/engine/engine_error.hpp"
#include "morvane/engine/probe/media_probe.hpp"
#include "morvane/engine/support/files.hpp"
#include "morvane/testing/scoped_environment.hpp"
#include "morvane/testing/synthetic_media.hpp"
#include "morvane/testing/temp_dir.hpp"

namespace morvane::engine {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

// Every test's cache lives in its own temporary folder, never in the user's.
class CacheFolderFixture : public ::testing::Test {
  protected:
    CacheFolderFixture() { environment.set("XDG_CACHE_HOME", dir.path().c_str()); }
    testing::TempDir dir;
    testing::ScopedEnvironment environment;

    void writeBytes(const fs::path& path, std::size_t bytes) {
        std::ofstream out(path, std::ios::binary);
        const std::string block(bytes, 'x');
        out.write(block.data(), static_cast<std::streamsize>(block.size()));
    }
};

using MediaCacheStoreTest = CacheFolderFixture;

TEST_F(MediaCacheStoreTest, aFileHasOneFingerprintUntilItChanges) {
    const fs::path file = dir.write("talk.mov", "first take");
    fs::create_directories(dir.path() / "a");
    const auto original = MediaCacheStore::fingerprint(file);
    ASSERT_TRUE(original.has_value());
    EXPECT_EQ(original->size(), 64u);
    EXPECT_EQ(original->find_first_not_of("0123456789abcdef"), std::string::npos);

    struct Case {
        const char* what;
        std::function<void()> change;
        bool sameKey;
    };
    const Case cases[] = {
        {"read again", [] {}, true},
        {"through a/..", [] {}, true},
        {"touched", [&] { fs::last_write_time(file, fs::last_write_time(file) + 10s); }, false},
        {"rewritten, another length", [&] { dir.write("talk.mov", "second, longer take"); }, false},
    };
    std::optional<std::string> before = original;
    for (const auto& c : cases) {
        c.change();
        const fs::path asked =
            std::string(c.what) == "through a/.." ? dir.path() / "a" / ".." / "talk.mov" : file;
        const auto now = MediaCacheStore::fingerprint(asked);
        ASSERT_TRUE(now.has_value()) << c.what;
        EXPECT_EQ(*now == *before, c.sameKey) << c.what;
        before = now;
    }
    EXPECT_EQ(MediaCacheStore::fingerprint(dir.path() / "missing.mov"), std::nullopt);
}

TEST_F(MediaCacheStoreTest, twoPathsToOneFileShareOneFolder) {
    const fs::path file = dir.write("clip.mp4", "frames");
    fs::create_directories(dir.path() / "a");
    const auto direct = MediaCacheStore::fingerprint(file);
    const auto roundabout = MediaCacheStore::fingerprint(dir.path() / "a" / ".." / "clip.mp4");
    ASSERT_TRUE(direct && roundabout);
    EXPECT_EQ(MediaCacheStore::directory(*direct), MediaCacheStore::directory(*roundabout));
    EXPECT_EQ(MediaCacheStore::directory(*direct), dir.path() / "Morvane" / "MediaCache" / *direct);
    EXPECT_TRUE(fs::is_directory(MediaCacheStore::directory(*direct)));
}

TEST_F(MediaCacheStoreTest, evictionDropsTheLeastRecentlyUsedUntilUnderBudget) {
    // Four folders of 64 KiB, used in the order d, a, c, b (oldest first); a is marked used last.
    const auto now = fs::file_time_type::clock::now();
    const std::pair<const char*, int> folders[] = {{"a", 3}, {"b", 1}, {"c", 2}, {"d", 4}};
    for (const auto& [name, hoursAgo] : folders) {
        const fs::path folder = MediaCacheStore::directory(name);
        writeBytes(folder / "peaks.bin", 64 * 1024);
        fs::last_write_time(folder, now - std::chrono::hours(hoursAgo));
    }
    MediaCacheStore::markUsed("a");
    const auto remaining = [&] {
        std::vector<std::string> names;
        for (const char* name : {"a", "b", "c", "d"})
            if (fs::exists(MediaCacheStore::root() / name)) names.emplace_back(name);
        return names;
    };

    EXPECT_EQ(MediaCacheStore::evictIfNeeded(1024 * 1024), 0u);  // under budget: nothing goes
    EXPECT_EQ(remaining(), (std::vector<std::string>{"a", "b", "c", "d"}));
    // Room for two and a half: the two least recently used go.
    EXPECT_EQ(MediaCacheStore::evictIfNeeded(160 * 1024), 2u);
    EXPECT_EQ(remaining(), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(MediaCacheStore::evictIfNeeded(0), 2u);
    EXPECT_TRUE(remaining().empty());
}

TEST_F(MediaCacheStoreTest, evictionOfAMissingCacheDoesNothing) {
    EXPECT_EQ(MediaCacheStore::evictIfNeeded(0), 0u);
}

using WaveformDiskCacheTest = CacheFolderFixture;

TEST_F(WaveformDiskCacheTest, envelopesComeBackBitForBit) {
    const WaveformEnvelope envelopes[] = {
        {{}, {}, 0.0},
        {{-1.0f, -0.25f, 0.0f}, {1.0f, 0.5f, 1e-7f}, 12.5},
        {std::vector<float>(4096, -0.125f), std::vector<float>(4096, 0.875f), 3600.04},
    };
    for (const auto& envelope : envelopes) {
        const std::string bytes = WaveformDiskCache::encode(envelope);
        EXPECT_EQ(bytes.size(), 16 + 8 * envelope.mins.size());
        EXPECT_EQ(WaveformDiskCache::decode(bytes), envelope);
    }
    // The layout, byte for byte: magic, count 1, 2.0 as a double, -0.5f, 0.5f.
    const std::string one = WaveformDiskCache::encode({{-0.5f}, {0.5f}, 2.0});
    EXPECT_EQ(one, std::string("MRWF\x01\0\0\0\0\0\0\0\0\0\0\x40\0\0\0\xbf\0\0\0\x3f", 24));

    WaveformDiskCache::save(envelopes[1], "key");
    EXPECT_EQ(WaveformDiskCache::load("key"), envelopes[1]);
    EXPECT_TRUE(fs::exists(MediaCacheStore::root() / "key" / "peaks.bin"));
    EXPECT_EQ(WaveformDiskCache::load("other"), std::nullopt);
}

TEST_F(WaveformDiskCacheTest, damagedFilesCountAsAbsent) {
    const std::string good = WaveformDiskCache::encode({{-0.5f, -0.1f}, {0.5f, 0.1f}, 1.0});
    std::string wrongMagic = good;
    wrongMagic[3] = 'X';
    std::string negative = good;
    negative.replace(4, 4, std::string("\xff\xff\xff\xff", 4));
    std::string huge = good;
    huge.replace(4, 4, std::string("\xff\xff\xff\x7f", 4));
    const std::pair<const char*, std::string> cases[] = {
        {"empty", ""},
        {"short of a header", good.substr(0, 15)},
        {"wrong magic", wrongMagic},
        {"negative count", negative},
        {"count past the end", huge},
        {"truncated maxima", good.substr(0, good.size() - 1)},
    };
    for (const auto& [what, bytes] : cases) {
        EXPECT_EQ(WaveformDiskCache::decode(bytes), std::nullopt) << what;
        writeFileAtomically(MediaCacheStore::directory("bad") / "peaks.bin", bytes);
        EXPECT_EQ(WaveformDiskCache::load("bad"), std::nullopt) << what;
    }
    // Extra bytes after the maxima are no damage.
    EXPECT_TRUE(WaveformDiskCache::decode(good + "trailing").has_value());
}

TEST(MediaJobScheduler, decodeSlotsFollowTheProcessorCount) {
    const std::pair<unsigned, int> cases[] = {{0, 2}, {1, 2}, {3, 2},  {4, 2}, {6, 3},
                                              {7, 3}, {8, 4}, {10, 4}, {64, 4}};
    for (const auto& [processors, limit] : cases)
        EXPECT_EQ(MediaJobScheduler::decodeLimit(processors), limit) << processors << " processors";
    MediaJobScheduler scheduler(3);
    EXPECT_EQ(scheduler.decodeSlots().limit(), 3);
    EXPECT_EQ(scheduler.proxySlots().limit(), 1);
}

// Waits (briefly, polling) until `slots` has `count` waiters.
void awaitWaiters(const FifoSlots& slots, int count) {
    for (int i = 0; i < 2000 && slots.waiting() != count; ++i)
        std::this_thread::sleep_for(1ms);
    ASSERT_EQ(slots.waiting(), count);
}

TEST(MediaJobScheduler, waitersAreServedInArrivalOrder) {
    FifoSlots slots(1);
    ASSERT_TRUE(slots.acquire({}));
    std::mutex mutex;
    std::vector<int> served;
    std::vector<std::jthread> workers;
    for (int i = 0; i < 4; ++i) {
        workers.emplace_back([&, i] {
            MediaJobSlot slot(slots, {});
            const std::lock_guard lock(mutex);
            served.push_back(i);
        });
        awaitWaiters(slots, i + 1);  // the next one queues behind this one
    }
    slots.release();
    for (auto& worker : workers)
        worker.join();
    EXPECT_EQ(served, (std::vector<int>{0, 1, 2, 3}));
    // Every slot came back: two acquires in a row succeed on a limit of one only after a release.
    ASSERT_TRUE(slots.acquire({}));
    slots.release();
    EXPECT_EQ(slots.waiting(), 0);
}

TEST(MediaJobScheduler, aStoppedWaiterLeavesTheQueueWithoutASlot) {
    MediaJobScheduler scheduler(1);
    ASSERT_TRUE(scheduler.acquireDecode());
    std::stop_source stop;
    std::atomic<int> outcome{-1};
    std::jthread waiter([&] { outcome = scheduler.acquireDecode(stop.get_token()) ? 1 : 0; });
    awaitWaiters(scheduler.decodeSlots(), 1);
    stop.request_stop();
    waiter.join();
    EXPECT_EQ(outcome, 0);
    EXPECT_EQ(scheduler.decodeSlots().waiting(), 0);
    // The slot is still the first holder's: releasing it frees it for the next comer.
    scheduler.releaseDecode();
    EXPECT_TRUE(scheduler.acquireDecode());
    scheduler.releaseDecode();
    // The proxy slot is separate and single.
    ASSERT_TRUE(scheduler.acquireProxy());
    std::stop_source late;
    late.request_stop();
    EXPECT_FALSE(scheduler.acquireProxy(late.get_token()));
    scheduler.releaseProxy();
}

class ProxyGeneratorMedia : public CacheFolderFixture {};

TEST_F(ProxyGeneratorMedia, aLargeMovieBecomesA960By540Proxy) {
    // 16:9 above 2560 pixels wide, half a second: the proxy is exactly the preset's box.
    const fs::path source = testing::makeCounterMovie(dir.path() / "wide.mov", 0.5,
                                                      {.width = 2720, .height = 1530, .toneHz = 440.0});
    const fs::path proxy = dir.path() / "cache" / "proxy.mov";
    fs::create_directories(proxy.parent_path());
    writeFileAtomically(proxy, "an old, broken proxy");
    std::vector<double> progress;
    ProxyGenerator::generate(source, proxy, [&](double share) { progress.push_back(share); });
    const MediaProbeReport report = MediaProbe::probe(proxy);
    EXPECT_EQ(report.videoNaturalSize(), (std::pair<int, int>{960, 540}));
    EXPECT_TRUE(report.audio.has_value());
    EXPECT_NEAR(report.durationSeconds, 0.5, 0.1);
    ASSERT_FALSE(progress.empty());
    EXPECT_DOUBLE_EQ(progress.back(), 1.0);
    // Only the proxy is left in its folder: no partial file.
    EXPECT_EQ(std::distance(fs::directory_iterator(proxy.parent_path()), fs::directory_iterator()), 1);
}

TEST_F(ProxyGeneratorMedia, sourcesWithoutAnUnturnedPictureAreRefusedAndLeaveNothing) {
    const fs::path voice =
        testing::writeWav(dir.path() / "voice.wav", std::vector<float>(4800, 0.1f), 1, 48000);
    const fs::path proxy = dir.path() / "out" / "proxy.mov";
    const std::pair<fs::path, const char*> cases[] = {
        {voice, "Export failed: Source is not compatible with the proxy preset"},
        {dir.write("notes.mov", "not a movie"),
         "Export failed: Source is not compatible with the proxy preset"},
        {testing::makeCounterMovie(dir.path() / "upright.mp4", 0.2, {.rotationDegrees = 90}),
         "Export failed: Source is not compatible with the proxy preset"},
    };
    for (const auto& [source, message] : cases) {
        try {
            ProxyGenerator::generate(source, proxy);
            ADD_FAILURE() << source << " made a proxy";
        } catch (const EngineError& e) {
            EXPECT_STREQ(e.what(), message) << source;
        }
        EXPECT_FALSE(fs::exists(proxy)) << source;
    }
}

}  // namespace
}  // namespace morvane::engine
