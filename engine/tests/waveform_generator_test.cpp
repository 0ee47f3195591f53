#include "morvane/engine/audio/waveform_generator.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <nlohmann/json.hpp>

#include "morvane/engine/engine_error.hpp"
#include "morvane/testing/synthetic_media.hpp"
#include "morvane/testing/temp_dir.hpp"

namespace morvane::engine {
namespace {

using namespace morvane::testing;

TEST(WaveformGenerator, binCountFollowsTheDurationWithinItsBounds) {
    struct Case {
        double seconds;
        std::optional<int> target;
        std::size_t expected;
    } cases[] = {
        {10.0, std::nullopt, 1200},
        {8.6, std::nullopt, 1032},
        {8.5, std::nullopt, 1024},
        {1.0, std::nullopt, 1024},
        {36000.0, std::nullopt, 65536},
        {546.0, std::nullopt, 65520},
        {10.0, 300, 300},
        {10.0, 0, 1200},
        {10.0, -5, 1200},
    };
    for (const auto& c : cases)
        EXPECT_EQ(WaveformGenerator::binCount(c.seconds, c.target), c.expected) << c.seconds;
}

TEST(WaveformGenerator, binsKeepTheExtremesOfTheirSamples) {
    const std::vector<float> samples = {0.1f, -0.2f, 0.3f, 0.5f, -0.5f, 0.0f, 0.25f};
    struct Case {
        std::string name;
        std::size_t bins;
        double samplesPerBin;
        std::vector<float> mins;
        std::vector<float> maxs;
    } cases[] = {
        {"whole bins",
         3,
         2.0,
         {-0.2f, 0.3f, -0.5f},
         {0.1f, 0.5f, 0.25f}},  // the 7th sample falls into the last bin
        {"fractional bins", 2, 3.5, {-0.2f, -0.5f}, {0.5f, 0.25f}},
        {"bins between samples hold zero",
         10,
         0.5,
         {0.1f, 0, -0.2f, 0, 0.3f, 0, 0.5f, 0, -0.5f, 0},
         {0.1f, 0, -0.2f, 0, 0.3f, 0, 0.5f, 0, -0.5f, 0.25f}},
        {"one bin", 1, 7.0, {-0.5f}, {0.5f}},
    };
    for (const auto& c : cases) {
        for (const std::size_t block : {1u, 3u, 100u}) {
            WaveformBinner binner(c.bins, c.samplesPerBin);
            for (std::size_t at = 0; at < samples.size(); at += block)
                binner.process(
                    std::span<const float>(samples).subspan(at, std::min(block, samples.size() - at)));
            const auto envelope = std::move(binner).finish(1.0);
            EXPECT_EQ(envelope.mins, c.mins) << c.name << " in blocks of " << block;
            EXPECT_EQ(envelope.maxs, c.maxs) << c.name << " in blocks of " << block;
        }
    }
    WaveformBinner infinite(1, 2.0);
    const float wild[] = {std::numeric_limits<float>::infinity(), -std::numeric_limits<float>::infinity()};
    infinite.process(wild);
    const auto cleaned = std::move(infinite).finish(1.0);
    EXPECT_EQ(cleaned.mins, std::vector<float>{0.0f});
    EXPECT_EQ(cleaned.maxs, std::vector<float>{0.0f});
}

TEST(WaveformGenerator, normalizesToThe99thPercentileAndClamps) {
    // 100 bins at ±0.1 and one click at 1.0: the click doesn't set the scale.
    WaveformEnvelope speech{std::vector<float>(100, -0.1f), std::vector<float>(100, 0.1f), 1.0};
    speech.maxs[50] = 1.0f;
    WaveformGenerator::normalizeSigned(speech);
    EXPECT_FLOAT_EQ(speech.mins[0], -1.0f);
    EXPECT_FLOAT_EQ(speech.maxs[0], 1.0f);
    EXPECT_FLOAT_EQ(speech.maxs[50], 1.0f);

    // Below 0.001 the gain is fixed at about 1000.
    WaveformEnvelope quiet{std::vector<float>(100, -0.0002f), std::vector<float>(100, 0.0005f), 1.0};
    quiet.maxs[3] = 0.01f;
    WaveformGenerator::normalizeSigned(quiet);
    EXPECT_NEAR(quiet.mins[0], -0.2f, 1e-6);
    EXPECT_NEAR(quiet.maxs[0], 0.5f, 1e-6);
    EXPECT_EQ(quiet.maxs[3], 1.0f);

    // The reference is index trunc(count * 0.99) of the sorted magnitudes: here 0.4 of {0.1 ... 0.4, 0.8}.
    WaveformEnvelope few{{-0.1f, -0.2f, -0.3f}, {0.2f, 0.4f, 0.8f}, 1.0};
    WaveformGenerator::normalizeSigned(few);
    EXPECT_FLOAT_EQ(few.mins[0], -0.125f);
    EXPECT_FLOAT_EQ(few.maxs[2], 1.0f);

    WaveformEnvelope empty;
    WaveformGenerator::normalizeSigned(empty);
    EXPECT_TRUE(empty.mins.empty());
}

TEST(WaveformGenerator, envelopesRoundTripThroughJsonInShortestForm) {
    const WaveformEnvelope envelope{{-0.1f, -1.0f}, {0.3f, 0.5f}, 2.5};
    const Json json = envelope;
    EXPECT_EQ(json.dump(), R"({"mins":[-0.1,-1.0],"maxs":[0.3,0.5],"durationSeconds":2.5})");
    EXPECT_EQ(JsonReader(json).get<WaveformEnvelope>(), envelope);
}

TEST(WaveformGeneratorMedia, drawsToneAndSilenceAndReportsProgress) {
    const TempDir dir;
    const auto samples = concat({tone(440, 0.25, 2.0, 48000), silence(2.0, 48000)});
    const auto wav = writeWav(dir.path() / "half.wav", samples, 1, 48000);
    std::vector<double> shares;
    const auto envelope = WaveformGenerator::generate(wav, 100, [&](double s) { shares.push_back(s); });
    ASSERT_EQ(envelope.mins.size(), 100u);
    EXPECT_DOUBLE_EQ(envelope.durationSeconds, 4.0);
    for (std::size_t i = 0; i < 100; ++i) {
        if (i < 49) {
            EXPECT_NEAR(envelope.maxs[i], 1.0f, 0.01f) << i;
            EXPECT_NEAR(envelope.mins[i], -1.0f, 0.01f) << i;
        } else if (i > 50) {
            EXPECT_EQ(envelope.maxs[i], 0.0f) << i;
            EXPECT_EQ(envelope.mins[i], 0.0f) << i;
        }
    }
    ASSERT_GE(shares.size(), 2u);
    EXPECT_EQ(shares.back(), 1.0);
    for (std::size_t i = 1; i + 1 < shares.size(); ++i) {
        EXPECT_GT(shares[i] - shares[i - 1], 0.02);
        EXPECT_LE(shares[i], 0.99);
    }

    // By the rule: 4 s is held at 1024 bins.
    EXPECT_EQ(WaveformGenerator::generate(wav).maxs.size(), 1024u);
}

TEST(WaveformGeneratorMedia, sourcesWithoutAudioGiveAnEmptyEnvelope) {
    const TempDir dir;
    EXPECT_EQ(WaveformGenerator::generate(makeMovie(dir.path() / "silent.mp4", 1.0)), WaveformEnvelope{});
    EXPECT_EQ(WaveformGenerator::generate(writeWav(dir.path() / "empty.wav", std::vector<float>{}, 1, 48000)),
              WaveformEnvelope{});
    try {
        (void)WaveformGenerator::generate(dir.path() / "gone.wav");
        ADD_FAILURE() << "a missing file gave an envelope";
    } catch (const EngineError& e) {
        EXPECT_EQ(e.kind(), EngineError::Kind::missingFile);
    }
}

}  // namespace
}  // namespace morvane::engine
