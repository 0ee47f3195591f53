#include "morvane/engine/silence/silence_detector.hpp"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "morvane/engine/engine_error.hpp"
#include "morvane/testing/synthetic_media.hpp"
#include "morvane/testing/temp_dir.hpp"

namespace morvane::engine {
namespace {

using namespace morvane::testing;
constexpr int kRate = SilenceScanner::sampleRate;

std::vector<float> speech(double seconds) {
    return tone(440.0, 0.5, seconds, kRate);
}

struct Expected {
    double startSeconds;
    double endSeconds;
};

void expectSpans(const std::vector<SilenceSpan>& spans, const std::vector<Expected>& expected,
                 double tolerance, const std::string& what) {
    ASSERT_EQ(spans.size(), expected.size()) << what;
    for (std::size_t i = 0; i < spans.size(); ++i) {
        EXPECT_NEAR(spans[i].startSeconds, expected[i].startSeconds, tolerance) << what << " span " << i;
        EXPECT_NEAR(spans[i].endSeconds, expected[i].endSeconds, tolerance) << what << " span " << i;
    }
}

// Gaps on the 882-sample window grid (0.02 s at 44100 Hz): 0.5 s, 0.06 s, 0.04 s, and 1.01 s at the end,
// whose last window is half full.
std::vector<float> knownGaps() {
    return concat({speech(1.0), silence(0.5, kRate), speech(0.5), silence(0.06, kRate), speech(0.3),
                   silence(0.04, kRate), speech(0.5), silence(1.01, kRate)});
}

TEST(SilenceDetector, findsEachGapToTheWindowWithPaddingAndTheMinimumAfterIt) {
    const auto spans = SilenceDetector::detect(knownGaps());
    // 0.06 s of pause passes once padded to 0.16 s; 0.04 s (0.14 s padded) does not.
    expectSpans(spans, {{0.95, 1.55}, {1.95, 2.11}, {2.85, 3.96}}, 1e-9, "known gaps");
    // Times are truncated to 1/60000 s, not rounded: 2.11 s is 126599.99... ticks.
    EXPECT_EQ(spans[0].start.formatted(), "57000/60000s");
    EXPECT_EQ(spans[1].end.formatted(), "126599/60000s");
    EXPECT_EQ(spans[2].end.formatted(), "237600/60000s");
}

TEST(SilenceDetector, edgeCases) {
    struct Case {
        std::string name;
        std::vector<float> samples;
        SilenceDetectionOptions options;
        std::vector<Expected> expected;
    } cases[] = {
        {"no samples", {}, {}, {}},
        {"all digital silence: 0 to the length plus padding", silence(2.0, kRate), {}, {{0.0, 2.05}}},
        {"RMS exactly at the threshold is not silent",
         std::vector<float>(kRate, 1.0f),
         {.thresholdDB = 0.0f},
         {}},
        {"RMS exactly at -40 dB is not silent", std::vector<float>(kRate, 0.01f), {}, {}},
        {"just below the threshold is silent", std::vector<float>(kRate, 0.0099f), {}, {{0.0, 1.05}}},
        {"pauses 0.06 s apart overlap once padded, both reported",
         concat({speech(0.5), silence(0.5, kRate), speech(0.06), silence(0.5, kRate), speech(0.5)}),
         {},
         {{0.45, 1.05}, {1.01, 1.61}}},
        {"no padding, no minimum",
         concat({speech(0.1), silence(0.02, kRate), speech(0.1)}),
         {.minSilenceSeconds = 0.0, .paddingSeconds = 0.0},
         {{0.1, 0.12}}},
        {"a larger window quantizes the pause",
         concat({speech(0.1), silence(0.5, kRate), speech(0.1)}),
         {.windowSeconds = 0.1, .paddingSeconds = 0.0},
         {{0.1, 0.6}}},
    };
    for (const auto& c : cases)
        expectSpans(SilenceDetector::detect(c.samples, c.options), c.expected, 1e-9, c.name);
}

TEST(SilenceDetector, noiseCountsAsSilenceByItsLevel) {
    struct Case {
        double noiseDB;
        float thresholdDB;
        bool silent;
    } cases[] = {{-60, -40, true}, {-43, -40, true}, {-37, -40, false}, {-20, -40, false}, {-37, -30, true}};
    for (const auto& c : cases) {
        const auto samples = noise(std::pow(10.0, c.noiseDB / 20.0), 1.0, kRate);
        const auto spans = SilenceDetector::detect(samples, {.thresholdDB = c.thresholdDB});
        EXPECT_EQ(spans.size(), c.silent ? 1u : 0u) << c.noiseDB << " dB against " << c.thresholdDB;
    }
}

TEST(SilenceDetector, streamingInAnyBlockSizeGivesTheSameSpans) {
    const auto samples = knownGaps();
    const auto whole = SilenceDetector::detect(samples);
    for (const std::size_t block : {1u, 7u, 882u, 1000u, 65536u}) {
        SilenceScanner scanner;
        for (std::size_t at = 0; at < samples.size(); at += block)
            scanner.process(
                std::span<const float>(samples).subspan(at, std::min(block, samples.size() - at)));
        EXPECT_EQ(scanner.finish(), whole) << block;
    }
}

TEST(SilenceDetector, spansRoundTripThroughJsonWithTheirKeys) {
    const auto spans = SilenceDetector::detect(knownGaps());
    const Json json = spans;
    EXPECT_EQ(json[1].dump(),
              R"({"start":"117000/60000s","end":"126599/60000s","startSeconds":1.95,"endSeconds":2.11})");
    EXPECT_EQ(JsonReader(json).get<std::vector<SilenceSpan>>(), spans);

    const Json bad =
        parseJson(R"([{"start":"1.5s","end":"1/60000s","startSeconds":0,"endSeconds":0}])", "spans.json");
    try {
        (void)JsonReader(bad, "spans.json").get<std::vector<SilenceSpan>>();
        ADD_FAILURE() << "a bad time was accepted";
    } catch (const JsonDecodeError& e) {
        EXPECT_STREQ(e.what(), R"(spans.json: /0/start: expected a time like "123/60000s")");
    }

    const Json partial = parseJson(R"({"thresholdDB": -35.5, "paddingSeconds": 0})", "options");
    EXPECT_EQ(JsonReader(partial).get<SilenceDetectionOptions>(),
              (SilenceDetectionOptions{.thresholdDB = -35.5f, .paddingSeconds = 0.0}));
}

TEST(SilenceDetectorMedia, findsTheGapsOfEncodedFilesWithinAWindow) {
    const TempDir dir;
    const auto at48k = [](double s) { return tone(440.0, 0.5, s, 48000); };
    const auto samples = concat({at48k(1.0), silence(0.5, 48000), at48k(1.0), silence(1.0, 48000)});
    const auto wav = writeWav(dir.path() / "gaps.wav", samples, 1, 48000);
    const std::vector<Expected> expected = {{0.95, 1.55}, {2.45, 3.55}};
    for (const auto& file :
         {wav, encodeAudio(wav, dir.path() / "gaps.m4a"), makeMovie(dir.path() / "gaps.mp4", 3.5, wav)})
        expectSpans(SilenceDetector::detect(file), expected, 0.021, file.filename().string());
}

TEST(SilenceDetectorMedia, aTenSecondFileEndingInSilenceEndsItsSpanAtTenPointZeroFive) {
    const TempDir dir;
    const auto samples = concat({tone(440.0, 0.5, 9.0, 48000), silence(1.0, 48000)});
    const auto wav = writeWav(dir.path() / "ten.wav", samples, 1, 48000);
    std::vector<double> shares;
    const auto spans = SilenceDetector::detect(wav, {}, [&](double share) { shares.push_back(share); });
    ASSERT_EQ(spans.size(), 1u);
    EXPECT_NEAR(spans[0].startSeconds, 8.95, 0.021);
    EXPECT_DOUBLE_EQ(spans[0].endSeconds, 10.05);
    ASSERT_FALSE(shares.empty());
    EXPECT_EQ(shares.back(), 1.0);
}

TEST(SilenceDetectorMedia, failsLikeTheReader) {
    const TempDir dir;
    const auto wav = writeWav(dir.path() / "empty.wav", std::vector<float>{}, 1, 48000);
    EXPECT_TRUE(SilenceDetector::detect(wav).empty());
    EXPECT_THROW((void)SilenceDetector::detect(dir.path() / "missing.wav"), EngineError);
    try {
        (void)SilenceDetector::detect(makeMovie(dir.path() / "silent.mp4", 1.0));
        ADD_FAILURE() << "a movie without audio gave spans";
    } catch (const EngineError& e) {
        EXPECT_EQ(e.kind(), EngineError::Kind::noAudioTrack);
    }
}

}  // namespace
}  // namespace morvane::engine
