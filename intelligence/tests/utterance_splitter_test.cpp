#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "morvane/intelligence/transcription/utterance_splitter.hpp"
#include "morvane/testing/synthetic_media.hpp"

using namespace morvane;
using namespace morvane::intelligence;
namespace mt = morvane::testing;

namespace {

constexpr int kRate = 16000;
constexpr int kScanRate = engine::SilenceScanner::sampleRate;

// A signal laid out as pieces of sound (amplitude > 0) and digital silence (amplitude 0), at a rate.
using Layout = std::vector<std::pair<double, double>>;  // seconds, amplitude

std::vector<float> render(const Layout& layout, int rate) {
    std::vector<float> samples;
    for (const auto& [seconds, amplitude] : layout) {
        const auto piece =
            amplitude > 0 ? mt::tone(300, amplitude, seconds, rate) : mt::silence(seconds, rate);
        samples.insert(samples.end(), piece.begin(), piece.end());
    }
    return samples;
}

// Feeds the splitter and its pause scanner in step, `blockSeconds` at a time, as a stream would.
std::vector<Utterance> split(const Layout& layout, double blockSeconds,
                             UtteranceSplitter::Options options = {}) {
    const std::vector<float> speech = render(layout, kRate);
    const std::vector<float> scanned = render(layout, kScanRate);
    UtteranceSplitter splitter(kRate, options);
    engine::SilenceScanner scanner(splitter.pauseDetection());
    std::vector<Utterance> utterances;
    const auto emit = [&](Utterance&& u) { utterances.push_back(std::move(u)); };
    const auto block = std::max<std::size_t>(static_cast<std::size_t>(blockSeconds * kRate), 1);
    std::size_t scannedSoFar = 0;
    for (std::size_t at = 0; at < speech.size(); at += block) {
        const std::size_t end = std::min(at + block, speech.size());
        const auto scanEnd = std::min(scanned.size(), end * kScanRate / kRate);
        scanner.process(std::span(scanned).subspan(scannedSoFar, scanEnd - scannedSoFar));
        scannedSoFar = scanEnd;
        splitter.process(std::span(speech).subspan(at, end - at), scanner.closedSpans(), emit);
    }
    scanner.process(std::span(scanned).subspan(scannedSoFar));
    splitter.finish(scanner.finish(), emit);
    return utterances;
}

double seconds(std::int64_t samples) {
    return static_cast<double>(samples) / kRate;
}

}  // namespace

TEST(UtteranceSplitter, cutsAtPausesKeepingAMarginOfEachPause) {
    // 1 s of sound, a 1 s pause, 1 s of sound, then 0.5 s of silence to the end.
    const auto utterances = split({{1.0, 0.3}, {1.0, 0.0}, {1.0, 0.3}, {0.5, 0.0}}, 0.1);
    ASSERT_EQ(utterances.size(), 2u);
    EXPECT_EQ(utterances[0].index, 0);
    EXPECT_EQ(utterances[0].firstSample, 0);
    EXPECT_NEAR(seconds(static_cast<std::int64_t>(utterances[0].samples.size())), 1.2, 1e-3);
    EXPECT_EQ(utterances[1].index, 1);
    EXPECT_NEAR(seconds(utterances[1].firstSample), 1.8, 1e-3);  // 0.2 s before the sound resumes
    EXPECT_NEAR(seconds(static_cast<std::int64_t>(utterances[1].samples.size())), 1.4, 1e-3);
    // Both together account for the stream up to the end of the last one.
    EXPECT_NEAR(seconds(utterances[0].coveredSamples + utterances[1].coveredSamples), 3.2, 1e-3);
    // The samples are the sound's, as 16-bit.
    const auto peak = *std::max_element(utterances[0].samples.begin(), utterances[0].samples.end());
    EXPECT_NEAR(peak, 0.3 * 32767, 40);
}

TEST(UtteranceSplitter, aShortPauseOrAPauseNarrowerThanTwoMarginsSplitsFittingly) {
    struct Case {
        const char* name;
        Layout layout;
        std::vector<std::pair<double, double>> expected;  // first second, length in seconds
    };
    const Case cases[] = {
        {"a pause under the minimum doesn't split", {{1.0, 0.3}, {0.2, 0.0}, {1.0, 0.3}}, {{0.0, 2.2}}},
        {"a pause under two margins is shared at its middle",
         {{1.0, 0.3}, {0.34, 0.0}, {1.0, 0.3}},
         {{0.0, 1.17}, {1.17, 1.17}}},
        {"leading silence is skipped but for the margin", {{2.0, 0.0}, {1.0, 0.3}}, {{1.8, 1.2}}},
        {"digital silence alone gives nothing", {{3.0, 0.0}}, {}},
        {"sound below the threshold alone gives nothing", {{3.0, 0.005}}, {}},
    };
    for (const Case& c : cases) {
        const auto utterances = split(c.layout, 0.05);
        ASSERT_EQ(utterances.size(), c.expected.size()) << c.name;
        for (std::size_t i = 0; i < utterances.size(); ++i) {
            EXPECT_NEAR(seconds(utterances[i].firstSample), c.expected[i].first, 0.021)
                << c.name << ", " << i;
            EXPECT_NEAR(seconds(static_cast<std::int64_t>(utterances[i].samples.size())),
                        c.expected[i].second, 0.021)
                << c.name << ", " << i;
        }
    }
}

TEST(UtteranceSplitter, cutsLongSpeechAtItsQuietestPoint) {
    // 30 s of sound without a pause, quieter (still above the threshold) for 40 ms at 17.3 s.
    const auto utterances = split({{17.3, 0.5}, {0.04, 0.03}, {12.66, 0.5}}, 0.25, {.maxSeconds = 20.0});
    ASSERT_EQ(utterances.size(), 2u);
    const double cut = seconds(static_cast<std::int64_t>(utterances[0].samples.size()));
    EXPECT_GT(cut, 17.3);
    EXPECT_LT(cut, 17.34);
    EXPECT_EQ(utterances[1].firstSample, static_cast<std::int64_t>(utterances[0].samples.size()));
    EXPECT_NEAR(seconds(static_cast<std::int64_t>(utterances[1].samples.size())), 30.0 - cut, 1e-3);
}

TEST(UtteranceSplitter, givesTheSameUtterancesWhateverTheBlockSize) {
    const Layout layout{{0.5, 0.0}, {2.0, 0.4}, {0.6, 0.0}, {0.4, 0.2}, {1.2, 0.0}, {25.0, 0.3}, {0.3, 0.0}};
    const auto reference = split(layout, 0.01);
    ASSERT_EQ(reference.size(), 4u);  // the 25 s stretch is cut once
    for (const double block : {0.003, 0.1, 1.0, 7.0}) {
        EXPECT_EQ(split(layout, block), reference) << block << " s blocks";
    }
}
