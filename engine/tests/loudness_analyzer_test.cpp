#include "morvane/engine/audio/loudness_analyzer.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <regex>

#include "morvane/testing/process.hpp"
#include "morvane/testing/synthetic_media.hpp"
#include "morvane/testing/temp_dir.hpp"

namespace morvane::engine {
namespace {

using namespace morvane::testing;
constexpr double kInf = std::numeric_limits<double>::infinity();

PCMBuffer bufferOf(std::vector<float> samples, double rate = 48000.0) {
    const double seconds = static_cast<double>(samples.size()) / rate;
    return {std::move(samples), rate, seconds};
}

double measure(std::vector<float> samples, double rate = 48000.0) {
    return LoudnessAnalyzer::measureIntegratedLUFS(bufferOf(std::move(samples), rate)).value();
}

TEST(KWeightingFilter, shelvesHighsAndCutsLows) {
    struct Case {
        double hz;
        double lowDB;
        double highDB;
    } cases[] = {{20.0, -30.0, -10.0}, {997.0, 0.64, 0.74}, {10000.0, 3.5, 4.5}};
    for (const auto& c : cases) {
        auto samples = tone(c.hz, 0.5, 4.0, 48000);
        KWeightingFilter filter;
        filter.process(samples);
        const auto tail = std::span<const float>(samples).subspan(96000);
        double sum = 0.0;
        for (float s : tail)
            sum += static_cast<double>(s) * s;
        const double gainDB = 10.0 * std::log10(sum / static_cast<double>(tail.size()) / 0.125);
        EXPECT_GT(gainDB, c.lowDB) << c.hz;
        EXPECT_LT(gainDB, c.highDB) << c.hz;
    }
}

TEST(LoudnessAnalyzer, a997HzSineMeasuresBs1770MinusTheSecondOffset) {
    // BS.1770 reads a full-scale 997 Hz sine on one channel as -3.01 LKFS; this system 0.691 LU lower.
    for (const double peakDB : {0.0, -20.0, -40.0}) {
        const double lufs = measure(tone(997.0, std::pow(10.0, peakDB / 20.0), 5.0, 48000));
        EXPECT_NEAR(lufs, peakDB - 3.01 - 0.691, 0.02) << peakDB;
    }
}

TEST(LoudnessAnalyzer, aBufferShorterThanOneBlockIsMeasuredUngatedWithOneOffset) {
    const auto sine = [](double seconds) { return tone(997.0, 0.1, seconds, 48000); };
    const double shortLUFS = measure(sine(0.3));
    const double longLUFS = measure(sine(5.0));
    EXPECT_NEAR(shortLUFS - longLUFS, 0.691, 0.03);
    // One whole block is gated like any longer buffer.
    EXPECT_NEAR(measure(sine(0.4)), longLUFS, 0.03);
}

TEST(LoudnessAnalyzer, gatesBlocksAsSpecified) {
    const auto powerMean = [](std::initializer_list<double> levels) {
        double sum = 0.0;
        for (double l : levels)
            sum += std::pow(10.0, l / 10.0);
        return 10.0 * std::log10(sum / static_cast<double>(levels.size())) - 0.691;
    };
    struct Case {
        std::string name;
        std::vector<double> blocks;
        double expected;
    } cases[] = {
        {"no blocks", {}, -kInf},
        {"a block at exactly -70 is gated out", {-70.0}, -kInf},
        {"just above -70 stays", {-69.99}, -69.99 - 0.691},
        {"the absolute gate drops quiet blocks first", {-70.0, -80.0, -20.0}, -20.691},
        {"within 10 LU of the ungated level: kept", {-20.0, -29.0}, powerMean({-20.0, -29.0})},
        // ungated = powerMean(-20, -35) ≈ -23.7, so the relative gate sits near -33.7.
        {"more than 10 LU below it: dropped", {-20.0, -35.0}, -20.691},
    };
    for (const auto& c : cases)
        EXPECT_DOUBLE_EQ(LoudnessMeter::gatedLoudness(c.blocks), c.expected) << c.name;
}

TEST(LoudnessAnalyzer, silenceAndEmptyInputMeasureNothing) {
    EXPECT_EQ(measure(silence(3.0, 48000)), -kInf);
    EXPECT_EQ(measure(silence(0.1, 48000)), -kInf);
    EXPECT_FALSE(LoudnessAnalyzer::measureIntegratedLUFS(bufferOf({})));
    EXPECT_FALSE(LoudnessAnalyzer::measureIntegratedLUFS(PCMBuffer{{0.5f, 0.5f}, 0.0, 0.0}));
    EXPECT_FALSE(LoudnessAnalyzer::measureIntegratedLUFS(PCMBuffer{{0.5f, 0.5f}, -48000.0, 0.0}));
}

TEST(LoudnessAnalyzer, streamingInAnyBlockSizeMatchesOnePass) {
    const auto samples = concat({noise(0.1, 1.3, 48000), silence(0.7, 48000), tone(200, 0.3, 1.1, 48000)});
    const double whole = measure(samples);
    for (const std::size_t block : {1u, 100u, 4800u, 19201u}) {
        LoudnessMeter meter(48000);
        for (std::size_t at = 0; at < samples.size(); at += block)
            meter.process(std::span<const float>(samples).subspan(at, std::min(block, samples.size() - at)));
        EXPECT_NEAR(meter.integratedLUFS(), whole, 1e-9) << block;
    }
}

TEST(LoudnessAnalyzer, correctiveMeasurementAimsAtTheTarget) {
    EXPECT_EQ(LoudnessAnalyzer::correctiveMeasurement(-20.0, LoudnessTarget::youtube),
              (LoudnessMeasurement{-20.0, -14.0, 6.0}));
    EXPECT_EQ(LoudnessAnalyzer::correctiveMeasurement(-10.5, LoudnessTarget::podcast),
              (LoudnessMeasurement{-10.5, -16.0, -5.5}));
    EXPECT_FALSE(LoudnessAnalyzer::correctiveMeasurement(-20.0, LoudnessTarget::none));
    EXPECT_EQ(label(LoudnessTarget::podcast), "Podcast (-16 LUFS)");
    EXPECT_EQ(kLoudnessTargetNames.parse("youtube"), LoudnessTarget::youtube);
}

// FFmpeg's ebur128 filter, an independent BS.1770 meter, prints "I: -23.0 LUFS" in its summary.
double ffmpegIntegratedLUFS(const std::filesystem::path& file) {
    const auto result = runProcess({"/usr/bin/ffmpeg", "-nostdin", "-hide_banner", "-i", file.string(), "-af",
                                    "ebur128", "-f", "null", "-"});
    std::smatch match;
    const std::regex summary(R"(Integrated loudness:\s*\n\s*I:\s*(-?[0-9.]+) LUFS)");
    if (!std::regex_search(result.err, match, summary)) throw std::runtime_error("no ebur128 summary");
    return std::stod(match[1]);
}

TEST(LoudnessAnalyzerMedia, agreesWithAnIndependentMeterLessTheSecondOffset) {
    const TempDir dir;
    // Bursts of noise at two levels between pauses: gating matters, and the pauses are digital silence.
    const auto samples = concat({noise(0.05, 3.0, 48000, 1), silence(2.0, 48000), noise(0.2, 2.0, 48000, 2),
                                 silence(1.0, 48000), tone(997, 0.3, 2.0, 48000)});
    const auto wav = writeWav(dir.path() / "bursts.wav", samples, 1, 48000);
    const auto ours = LoudnessAnalyzer::measureIntegratedLUFS(wav);
    ASSERT_TRUE(ours);
    EXPECT_NEAR(*ours, ffmpegIntegratedLUFS(wav) - 0.691, 0.1);
    EXPECT_NEAR(*ours, measure(samples), 1e-9);

    const auto m = LoudnessAnalyzer::analyze(wav, LoudnessTarget::youtube);
    ASSERT_TRUE(m);
    EXPECT_DOUBLE_EQ(m->gainDB, -14.0 - *ours);
    // The first seconds alone: only the quiet noise.
    const auto firstTwo = LoudnessAnalyzer::measureIntegratedLUFS(wav, 2.0);
    EXPECT_NEAR(*firstTwo, measure(noise(0.05, 2.0, 48000, 1)), 1e-9);
}

TEST(LoudnessAnalyzerMedia, digitalSilenceHasNothingToCorrect) {
    const TempDir dir;
    const auto wav = writeWav(dir.path() / "quiet.wav", silence(2.0, 48000), 1, 48000);
    EXPECT_EQ(LoudnessAnalyzer::measureIntegratedLUFS(wav), -kInf);
    EXPECT_FALSE(LoudnessAnalyzer::analyze(wav, LoudnessTarget::youtube));
    EXPECT_FALSE(LoudnessAnalyzer::analyze(writeWav(dir.path() / "empty.wav", std::vector<float>{}, 1, 48000),
                                           LoudnessTarget::youtube));
    const auto loud = writeWav(dir.path() / "loud.wav", tone(997, 0.5, 2.0, 48000), 1, 48000);
    EXPECT_FALSE(LoudnessAnalyzer::analyze(loud, LoudnessTarget::none));
}

}  // namespace
}  // namespace morvane::engine
