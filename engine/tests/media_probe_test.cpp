#include "morvane/engine/probe/media_probe.hpp"

#include <gtest/gtest.h>

#include "morvane/engine/engine_error.hpp"
#include "morvane/engine/support/cancellation.hpp"
#include "morvane/testing/synthetic_media.hpp"
#include "morvane/testing/temp_dir.hpp"

using namespace morvane;
using namespace morvane::engine;
namespace mt = morvane::testing;

namespace {

std::vector<RationalTime> stamps(std::initializer_list<std::int64_t> values, std::int32_t timescale) {
    std::vector<RationalTime> out;
    for (const auto v : values)
        out.push_back({v, timescale});
    return out;
}

}  // namespace

TEST(FrameDurationGuess, mapsRatesToTheProjectFrameDuration) {
    struct Case {
        std::optional<double> rate;
        const char* expected;
    };
    const Case cases[] = {
        {std::nullopt, "1001/30000"}, {0.0, "1001/30000"},    {-5.0, "1001/30000"}, {29.97, "1001/30000"},
        {29.99, "1001/30000"},        {23.976, "1001/24000"}, {24.0, "1/24"},       {25.0, "1/25"},
        {59.93, "1001/60000"},        {59.5, "1001/30000"},   {60.0, "1/60"},       {30.0005, "1/30"},
        {12.5, "1001/30000"},         {0.4, "1001/30000"},  // a rate rounding to 0 is not a frame duration
    };
    for (const Case& c : cases) {
        EXPECT_EQ(FrameDurationGuess::fromRate(c.rate), c.expected) << (c.rate ? *c.rate : -1);
    }
}

TEST(VFRAnalyzer, judgesTimingFromSortedGaps) {
    // Steady 1001/30000 frames stored in decoding order (B-frames): sorting first keeps them steady.
    const auto reordered = stamps({0, 3003, 1001, 2002, 6006, 4004, 5005}, 30000);
    const VFRAnalysis steady = VFRAnalyzer::analyze(reordered, 30000.0 / 1001.0);
    EXPECT_FALSE(steady.isLikelyVFR);
    EXPECT_EQ(steady.sampleCount, 7);
    EXPECT_EQ(steady.uniqueDeltaCount, 1);
    EXPECT_DOUBLE_EQ(steady.medianDeltaSeconds, 1001.0 / 30000.0);
    EXPECT_EQ(steady.notes, "PTS deltas consistent with CFR (~0.03337s nominal)");

    // A screen recording's gaps: many distinct values, widely spread.
    const auto ragged = stamps({0, 33, 66, 116, 133, 200, 216, 300}, 1000);
    const VFRAnalysis variable = VFRAnalyzer::analyze(ragged, 30.0);
    EXPECT_TRUE(variable.isLikelyVFR);
    EXPECT_EQ(variable.uniqueDeltaCount, 6);  // 0.033, 0.050, 0.017, 0.067, 0.016, 0.084
    EXPECT_DOUBLE_EQ(variable.minDeltaSeconds, 0.016);
    EXPECT_DOUBLE_EQ(variable.maxDeltaSeconds, 0.084);
    EXPECT_EQ(variable.notes, "PTS deltas vary (6 unique values, spread 0.06800s)");

    // Three distinct gaps, however wide, are a still-like track, not variable timing.
    EXPECT_FALSE(VFRAnalyzer::analyze(stamps({0, 10, 110, 1110}, 1000), 30.0).isLikelyVFR);
}

TEST(VFRAnalyzer, ignoresRepeatsAndHandlesTooFewFrames) {
    const VFRAnalysis single = VFRAnalyzer::analyze(stamps({0}, 25), 25.0);
    EXPECT_EQ(single.sampleCount, 1);
    EXPECT_FALSE(single.isLikelyVFR);
    EXPECT_EQ(single.notes, "No delta samples");
    EXPECT_DOUBLE_EQ(single.nominalFrameDurationSeconds, 0.04);

    // Duplicated stamps give gaps of zero, which don't count; with no rate the nominal duration is 1 s.
    const VFRAnalysis repeats = VFRAnalyzer::analyze(stamps({5, 5, 5}, 25), 0.0);
    EXPECT_EQ(repeats.uniqueDeltaCount, 0);
    EXPECT_DOUBLE_EQ(repeats.nominalFrameDurationSeconds, 1.0);

    // Jitter below 5% of a frame is rounding, not variable timing, whatever the count of distinct gaps.
    const auto jitter = stamps({0, 40000, 80001, 119999, 160002, 199998, 240000}, 1000000);
    EXPECT_FALSE(VFRAnalyzer::analyze(jitter, 25.0).isLikelyVFR);

    // Times on different timescales are compared exactly.
    const std::vector<RationalTime> mixed{{0, 600}, {1, 30}, {4, 60}, {3, 30}};
    const VFRAnalysis exact = VFRAnalyzer::analyze(mixed, 30.0);
    EXPECT_EQ(exact.uniqueDeltaCount, 1);
    EXPECT_DOUBLE_EQ(exact.minDeltaSeconds, 1.0 / 30.0);
}

TEST(MediaProbeMedia, readsAConstantRateMovieWithSound) {
    const mt::TempDir dir;
    const auto wav = mt::writeWav(dir.path() / "tone.wav", mt::tone(440, 0.5, 2.0, 48000), 1, 48000);
    const auto movie = mt::makeMovie(dir.path() / "talk.mp4", 2.0, wav);

    const MediaProbeReport report = MediaProbe::probe(movie);
    EXPECT_EQ(report.url.rfind("file:///", 0), 0u);
    EXPECT_NEAR(report.durationSeconds, 2.0, 0.05);
    ASSERT_TRUE(report.video && report.audio && report.vfr);
    EXPECT_EQ(report.video->naturalSize, "320x240");
    EXPECT_EQ(report.videoNaturalSize(), std::make_pair(320, 240));
    EXPECT_EQ(report.video->formatDescriptions.front().rfind("h264", 0), 0u);
    EXPECT_EQ(report.audio->formatDescriptions.front().rfind("aac", 0), 0u);
    EXPECT_EQ(report.vfr->sampleCount, 50);
    EXPECT_FALSE(report.vfr->isLikelyVFR);
    EXPECT_EQ(FrameDurationGuess::from(report), "1/25");
    EXPECT_FALSE(report.audio->naturalSize);
}

TEST(MediaProbeMedia, tellsVariableTimingAndNtscRates) {
    const mt::TempDir dir;
    // Frames at irregular times on a millisecond grid, kept as stamped.
    const auto vfr = dir.path() / "screen.mkv";
    mt::runFfmpeg(
        {"-f", "lavfi", "-i", "testsrc=size=160x120:rate=30:duration=3", "-vf",
         "settb=1/1000,setpts='(N/30+if(mod(N,3),0,0.011)+if(mod(N,5),0,0.017)+if(mod(N,7),0,0.005))/TB'",
         "-fps_mode", "passthrough", "-enc_time_base:v", "1:1000", "-c:v", "libx264", "-bf", "0",
         vfr.string()});
    const MediaProbeReport variable = MediaProbe::probe(vfr);
    ASSERT_TRUE(variable.vfr);
    EXPECT_TRUE(variable.vfr->isLikelyVFR) << variable.vfr->notes;
    EXPECT_GE(variable.vfr->uniqueDeltaCount, 4);

    const auto ntsc = dir.path() / "camera.mov";
    mt::runFfmpeg({"-f", "lavfi", "-i", "testsrc=size=160x120:rate=30000/1001:duration=2", "-c:v", "libx264",
                   "-timecode", "01:00:00;00", ntsc.string()});
    const MediaProbeReport camera = MediaProbe::probe(ntsc);
    EXPECT_FALSE(camera.vfr->isLikelyVFR) << camera.vfr->notes;
    EXPECT_EQ(FrameDurationGuess::from(camera), "1001/30000");
    EXPECT_EQ(camera.video->timecode, "01:00:00;00");
}

TEST(MediaProbeMedia, readsSoundOnlyAndSinglePictures) {
    const mt::TempDir dir;
    const auto wav = mt::writeWav(dir.path() / "voice.wav", mt::tone(220, 0.5, 1.5, 44100), 2, 44100);
    const MediaProbeReport sound = MediaProbe::probe(wav);
    EXPECT_FALSE(sound.video);
    EXPECT_FALSE(sound.vfr);
    ASSERT_TRUE(sound.audio);
    EXPECT_NEAR(sound.durationSeconds, 0.75, 0.01);  // 1.5 s of interleaved samples over two channels
    EXPECT_EQ(FrameDurationGuess::from(sound), "1001/30000");
    EXPECT_EQ(sound.videoNaturalSize(), std::make_pair(0, 0));

    const auto png = dir.path() / "slide.png";
    mt::runFfmpeg({"-f", "lavfi", "-i", "color=c=red:size=64x48", "-frames:v", "1", png.string()});
    const MediaProbeReport still = MediaProbe::probe(png);
    ASSERT_TRUE(still.vfr);
    EXPECT_EQ(still.vfr->sampleCount, 1);
    EXPECT_FALSE(still.vfr->isLikelyVFR);
}

TEST(MediaProbeMedia, failsClearlyOnWhatIsNotMedia) {
    const mt::TempDir dir;
    try {
        (void)MediaProbe::probe(dir.path() / "gone.mp4");
        ADD_FAILURE() << "a missing file was probed";
    } catch (const EngineError& e) {
        EXPECT_EQ(e.kind(), EngineError::Kind::missingFile);
    }
    const auto text = dir.write("notes.mp4", "these are not the frames you are looking for");
    try {
        (void)MediaProbe::probe(text);
        ADD_FAILURE() << "text was probed as media";
    } catch (const EngineError& e) {
        EXPECT_EQ(e.kind(), EngineError::Kind::readerFailed);
        EXPECT_NE(std::string(e.what()).find("notes.mp4"), std::string::npos) << e.what();
    }
    const auto movie = mt::makeMovie(dir.path() / "talk.mp4", 1.0);
    std::stop_source stop;
    stop.request_stop();
    EXPECT_THROW((void)MediaProbe::probe(movie, stop.get_token()), OperationCancelled);
}

TEST(MediaProbeMedia, aSteadyMatroskaFileKeepsItsRateDespiteMillisecondStamps) {
    const mt::TempDir dir;
    const auto file = dir.path() / "steady.mkv";
    mt::runFfmpeg(
        {"-f", "lavfi", "-i", "testsrc=size=160x120:rate=25:duration=2", "-c:v", "libx264", file.string()});
    const MediaProbeReport report = MediaProbe::probe(file);
    EXPECT_FALSE(report.vfr->isLikelyVFR) << report.vfr->notes;
    EXPECT_EQ(FrameDurationGuess::from(report), "1/25");
    ASSERT_TRUE(report.video->estimatedFrameRate);
    EXPECT_NEAR(*report.video->estimatedFrameRate, 25.0, 0.1);
}
