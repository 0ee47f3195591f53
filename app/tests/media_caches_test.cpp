#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <vector>

#include "morvane/app/media/proxy_store.hpp"
#include "morvane/app/media/waveform_cache.hpp"
#include "morvane/app/pipeline/project_pipeline.hpp"
#include "morvane/engine/cache/media_cache_store.hpp"
#include "morvane/engine/cache/waveform_disk_cache.hpp"
#include "morvane/engine/probe/media_probe.hpp"
#include "morvane/testing/scoped_environment.hpp"
#include "morvane/testing/synthetic_media.hpp"
#include "morvane/testing/temp_dir.hpp"

namespace morvane::app {
namespace {

namespace fs = std::filesystem;
using engine::MediaCacheStore::fingerprint;

// Members in the order a front end keeps them: the caches go before the session and the loop they serve.
class MediaCachesFixture : public ::testing::Test {
  protected:
    MediaCachesFixture() {
        environment.set("XDG_CACHE_HOME", (dir.path() / "cache").c_str());
        session.onNotification([this](SessionNotification notification, ProjectSession& changed) {
            if (notification != SessionNotification::mediaJobsDidChange) return;
            for (const auto& job : changed.activeJobs)
                if (seenJobs.empty() || seenJobs.back().id != job.id) seenJobs.push_back(job);
        });
    }

    testing::TempDir dir;
    testing::ScopedEnvironment environment;
    ManualMainLoop loop;
    ProjectSession session;
    engine::MediaJobScheduler scheduler{2};
    WaveformCache waveforms{loop, scheduler};
    ProxyStore proxies{loop, scheduler};
    std::vector<MediaJob> seenJobs;

    PipelineContext context() { return {.mainLoop = loop, .waveforms = &waveforms, .proxies = &proxies}; }
    void import(const fs::path& file) {
        const auto request = ProjectPipeline::importMedia(session, file, context());
        ASSERT_TRUE(loop.runUntil([&] { return request->isFinished(); }));
        ASSERT_FALSE(session.errorMessage.has_value()) << *session.errorMessage;
    }
    void settle() {
        ASSERT_TRUE(loop.runUntil([&] { return waveforms.isIdle() && proxies.isIdle(); }));
        loop.runPending();
    }
    [[nodiscard]] int jobsOfKind(MediaJobKind kind) const {
        return static_cast<int>(std::count_if(seenJobs.begin(), seenJobs.end(),
                                              [&](const MediaJob& job) { return job.kind == kind; }));
    }
    [[nodiscard]] fs::path toneMovie(const std::string& name, int width, int height) {
        return testing::makeCounterMovie(dir.path() / name, 1.0,
                                         {.width = width, .height = height, .toneHz = 440.0});
    }
};

using MediaCachesMedia = MediaCachesFixture;

TEST_F(MediaCachesMedia, anImportedSourceGetsItsWaveformOnceAndThenFromTheCache) {
    const fs::path movie = toneMovie("talk.mov", 320, 240);
    import(movie);
    EXPECT_FALSE(session.waveformEnvelope.has_value());  // not made on the main thread
    settle();

    ASSERT_TRUE(session.waveformEnvelope.has_value());
    const engine::WaveformEnvelope first = *session.waveformEnvelope;
    EXPECT_NEAR(first.durationSeconds, 1.0, 0.05);
    EXPECT_GE(first.maxs.size(), 1024u);
    EXPECT_GT(*std::max_element(first.maxs.begin(), first.maxs.end()), 0.5f);  // the tone is there
    EXPECT_EQ(waveforms.generatedCount(), 1);
    EXPECT_EQ(jobsOfKind(MediaJobKind::waveform), 1);
    EXPECT_TRUE(session.activeJobs.empty());
    const auto key = fingerprint(movie);
    ASSERT_TRUE(key.has_value());
    EXPECT_EQ(engine::WaveformDiskCache::load(*key), first);  // peaks.bin written

    // The same file again, now to the bin: loaded, not decoded, and no job shows.
    seenJobs.clear();
    import(movie);
    settle();
    ASSERT_EQ(session.mediaBin.size(), 2u);
    const std::string second = session.mediaBin[1].id;
    ASSERT_TRUE(session.auxiliaryWaveforms.contains(second));
    EXPECT_EQ(session.auxiliaryWaveforms.at(second), first);
    EXPECT_EQ(waveforms.generatedCount(), 1);
    EXPECT_EQ(jobsOfKind(MediaJobKind::waveform), 0);
    // A small picture gets no proxy.
    EXPECT_EQ(jobsOfKind(MediaJobKind::proxy), 0);
}

TEST_F(MediaCachesMedia, aVeryLargeImportGetsAProxyJobAndProxy) {
    const fs::path movie = toneMovie("wide.mov", 2720, 1530);
    import(movie);
    ASSERT_EQ(jobsOfKind(MediaJobKind::proxy), 1);
    const MediaJob proxyJob = *std::find_if(seenJobs.begin(), seenJobs.end(), [](const MediaJob& job) {
        return job.kind == MediaJobKind::proxy;
    });
    EXPECT_EQ(proxyJob.title, "Generating smooth-playback proxy for wide.mov");
    EXPECT_EQ(proxyJob.sourceID, session.primarySourceID);
    settle();
    EXPECT_TRUE(session.activeJobs.empty());
    const auto proxy = proxies.proxyURL(movie);
    ASSERT_TRUE(proxy.has_value());
    EXPECT_EQ(proxy->filename(), "proxy.mov");
    EXPECT_EQ(engine::MediaProbe::probe(*proxy).videoNaturalSize(), (std::pair<int, int>{960, 540}));
    EXPECT_TRUE(session.waveformEnvelope.has_value());
    // Made once: asking again starts nothing.
    EXPECT_FALSE(proxies.scheduleIfNeeded(movie, session.primarySourceID, {2720, 1530}, session));
}

TEST_F(MediaCachesMedia, onlyPicturesLongerThan2560PixelsGetAProxy) {
    struct Case {
        engine::PixelSize declared;
        bool proxied;
    };
    const Case cases[] = {
        {{2560, 1440}, false}, {{1440, 2560}, false}, {{2561, 1440}, true},
        {{1080, 2561}, true},  {{320, 240}, false},
    };
    int index = 0;
    for (const auto& c : cases) {
        // A tiny source stands for the declared size, so the generation itself is quick.
        const fs::path file =
            testing::makeCounterMovie(dir.path() / ("tiny" + std::to_string(index++) + ".mp4"), 0.2);
        const bool started = proxies.scheduleIfNeeded(file, "src1", c.declared, session);
        EXPECT_EQ(started, c.proxied) << c.declared.width << "x" << c.declared.height;
        if (started) {
            // One generation per file at a time.
            EXPECT_FALSE(proxies.scheduleIfNeeded(file, "src1", c.declared, session));
        }
        settle();
        EXPECT_EQ(proxies.proxyURL(file).has_value(), c.proxied)
            << c.declared.width << "x" << c.declared.height;
    }
    EXPECT_EQ(jobsOfKind(MediaJobKind::proxy), 2);
    EXPECT_TRUE(session.activeJobs.empty());
}

TEST_F(MediaCachesMedia, aWaveformThatCantBeMadeLeavesNoWaveformAndNoError) {
    const fs::path movie = toneMovie("talk.mov", 320, 240);
    import(movie);
    settle();
    const fs::path broken = testing::truncateCopy(movie, dir.path() / "broken.mov", 600);
    waveforms.scheduleEnsure(session, "src1", broken);
    settle();
    // The source asked for the broken file last: its old envelope stays, nothing new arrives, no error.
    EXPECT_FALSE(session.errorMessage.has_value());
    EXPECT_TRUE(session.activeJobs.empty());
    EXPECT_EQ(waveforms.generatedCount(), 1);
    ASSERT_TRUE(fingerprint(broken).has_value());
    EXPECT_FALSE(fs::exists(engine::MediaCacheStore::root() / *fingerprint(broken) / "peaks.bin"));
}

TEST(WaveformCacheMedia, aLongGenerationStopsWhenTheCacheGoes) {
    const testing::TempDir dir;
    testing::ScopedEnvironment environment;
    environment.set("XDG_CACHE_HOME", (dir.path() / "cache").c_str());
    const fs::path hour = testing::writeLongSilentWav(dir.path() / "hour.wav", 3600.0);
    ManualMainLoop loop;
    ProjectSession session;
    session.mediaBin.push_back(
        {.id = "src1", .label = "hour.wav", .urlPath = hour.string(), .hasAudio = true});
    session.mediaURL = hour;
    engine::MediaJobScheduler scheduler{1};
    {
        WaveformCache waveforms(loop, scheduler);
        waveforms.scheduleEnsure(session, "src1", hour);
        // Let it start decoding: its job appears.
        ASSERT_TRUE(loop.runUntil([&] { return !session.activeJobs.empty(); }));
        EXPECT_EQ(session.activeJobs.front().kind, MediaJobKind::waveform);
    }  // stops, joins, ends the job
    EXPECT_TRUE(session.activeJobs.empty());
    loop.runPending();  // what the worker posted on its way out is dropped
    EXPECT_FALSE(session.waveformEnvelope.has_value());
    // The slot came back.
    EXPECT_TRUE(scheduler.acquireDecode());
    scheduler.releaseDecode();
}

}  // namespace
}  // namespace morvane::app
