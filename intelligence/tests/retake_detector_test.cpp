#include "morvane/intelligence/cleanup/retake_detector.hpp"

#include <gtest/gtest.h>

#include <random>

#include "morvane/intelligence/cleanup/cleanup_evidence.hpp"
#include "transcript_builder.hpp"

namespace morvane::intelligence {
namespace {

using testing::segmentOf;
using testing::TranscriptBuilder;

using testing::takes;

std::vector<std::vector<int>> clusterIDs(const SegmentDocument& segments) {
    std::vector<std::vector<int>> out;
    for (const auto& cluster : RetakeDetector::retakeClusters(segments)) {
        auto& ids = out.emplace_back();
        for (const auto& segment : cluster)
            ids.push_back(segment.id);
    }
    return out;
}

std::size_t referenceDistance(const std::string& a, const std::string& b) {
    std::vector<std::vector<std::size_t>> d(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i)
        d[i][0] = i;
    for (std::size_t j = 0; j <= b.size(); ++j)
        d[0][j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        for (std::size_t j = 1; j <= b.size(); ++j) {
            d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + (a[i - 1] != b[j - 1])});
        }
    }
    return d[a.size()][b.size()];
}

TEST(RetakeDetector, normalizesToLowercaseWordsOfLettersAndNumbers) {
    struct Case {
        const char* text;
        const char* normalized;
    } cases[] = {
        {"Um, so -- THE first", "um so the first"},
        {"  It's  2.5x\tfaster!  ", "it s 2 5x faster"},
        {"...!?", ""},
        {"Café déjà-vu", "café déjà vu"},
        {"ÉCOLE", "école"},
        {"", ""},
    };
    for (const auto& c : cases)
        EXPECT_EQ(RetakeDetector::normalize(c.text), c.normalized) << c.text;
}

TEST(RetakeDetector, measuresEditDistanceInCharacters) {
    struct Case {
        const char* a;
        const char* b;
        std::size_t distance;
    } cases[] = {
        {"kitten", "sitting", 3}, {"", "abc", 3},
        {"abc", "", 3},           {"same", "same", 0},
        {"café", "cafe", 1},      {"cafe\u0301", "caf\u00e9", 0},  // one character either way
        {"日本語", "日本", 1},
    };
    for (const auto& c : cases)
        EXPECT_EQ(RetakeDetector::levenshtein(c.a, c.b), c.distance) << c.a << "/" << c.b;
}

TEST(RetakeDetector, textsAreTakesOfOneLineAtSeventyEightPercent) {
    const std::string fifty(50, 'a');
    struct Case {
        std::string a;
        std::string b;
        bool similar;
    } cases[] = {
        {fifty, std::string(39, 'a') + std::string(11, 'b'), true},   // exactly 0.78
        {fifty, std::string(38, 'a') + std::string(12, 'b'), false},  // 0.76
        {"So the first thing you do", "so, the first thing you do!", true},
        {"So the first thing you do", "Then you pick a cut", false},
        {"...", "?!", true},  // both normalize to nothing
        {"...", "a", false},
        {"", "", true},
    };
    for (const auto& c : cases)
        EXPECT_EQ(RetakeDetector::isSimilar(c.a, c.b), c.similar) << c.a << " / " << c.b;
}

// The similarity test stops early once two texts can no longer match; it must agree with the full
// distance everywhere, and most of all near the threshold.
TEST(RetakeDetector, similarityAgreesWithTheFullEditDistance) {
    std::mt19937 random(3);
    std::uniform_int_distribution<int> letter(0, 3);
    std::uniform_int_distribution<int> length(1, 60);
    std::uniform_int_distribution<int> edits(0, 15);
    int similar = 0;
    for (int round = 0; round < 3000; ++round) {
        std::string a;
        for (int i = length(random); i > 0; --i)
            a += static_cast<char>('a' + letter(random));
        std::string b = a;
        for (int i = edits(random); i > 0 && !b.empty(); --i) {
            const auto at = std::uniform_int_distribution<std::size_t>(0, b.size() - 1)(random);
            switch (letter(random)) {
                case 0:
                    b.erase(at, 1);
                    break;
                case 1:
                    b.insert(at, 1, 'x');
                    break;
                default:
                    b[at] = static_cast<char>('a' + letter(random));
                    break;
            }
        }
        const std::size_t distance = referenceDistance(a, b);
        EXPECT_EQ(RetakeDetector::levenshtein(a, b), distance) << a << " / " << b;
        const double m = static_cast<double>(std::max(a.size(), b.size()));
        const bool expected = b.empty() ? false : 1.0 - static_cast<double>(distance) / m >= 0.78;
        EXPECT_EQ(RetakeDetector::isSimilar(a, b), expected) << a << " / " << b;
        similar += expected ? 1 : 0;
    }
    EXPECT_GT(similar, 300);
}

TEST(RetakeDetector, groupsTakesAmongTheSixFollowingSegments) {
    const char* line = "So the first thing you do is drop the file";
    const auto sixApart = takes({line, "a", "b", "c", "d", "e", line});
    EXPECT_EQ(clusterIDs(sixApart.segments), (std::vector<std::vector<int>>{{0, 6}}));
    const auto sevenApart = takes({line, "a", "b", "c", "d", "e", "f", line});
    EXPECT_TRUE(clusterIDs(sevenApart.segments).empty());

    // A resembles B and B resembles C, but A doesn't resemble C: one group of three.
    const auto chain = takes({"the quick brown fox jumps", "the quick brown fox jumps over", "x",
                              "the quick brown fox jumps over it all"});
    EXPECT_FALSE(RetakeDetector::isSimilar(chain.segments.segments[0].text, chain.segments.segments[3].text));
    EXPECT_EQ(clusterIDs(chain.segments), (std::vector<std::vector<int>>{{0, 1, 3}}));

    // Punctuation alone normalizes to nothing, and two nothings are alike; groups come in order.
    const auto mixed = takes({"Hello there world", "...", "—", "Hello there world!", "done"});
    EXPECT_EQ(clusterIDs(mixed.segments), (std::vector<std::vector<int>>{{0, 3}, {1, 2}}));
}

TEST(RetakeDetector, keepsTheBestTakeAndTheEarlierOneOnATie) {
    const auto twice = takes({"Then you pick a cut.", "Hello.", "Then you pick a cut."});
    const auto run =
        RetakeDetector::classify(twice.segments, twice.transcript, "Remove retakes.", std::nullopt);
    EXPECT_EQ(run.mergedKeepSegmentIDs, (std::vector{0, 1}));
    const auto& verdicts = run.results.at(0).segmentResults;
    EXPECT_EQ(verdicts[0], (SegmentClassification{0, true, 0.92, "best_retake"}));
    EXPECT_EQ(verdicts[1], (SegmentClassification{1, true, 0.95, std::nullopt}));
    EXPECT_EQ(verdicts[2], (SegmentClassification{2, false, 0.88, "duplicate_retake"}));
    EXPECT_EQ(run.results[0].modelNotes, "deterministic:retake_detector");

    // A fluffed first take loses to a clean second one.
    const auto fluffed = takes({"Like, clean up removes the filler and the long pauses.",
                                "Clean up removes the filler and the long pauses."});
    EXPECT_EQ(RetakeDetector::classify(fluffed.segments, fluffed.transcript, "x", std::nullopt)
                  .mergedKeepSegmentIDs,
              (std::vector{1}));

    const auto none =
        RetakeDetector::classify(testing::documentOf({}), TranscriptDocument{}, "x", std::nullopt);
    ASSERT_EQ(none.results.size(), 1u);
    EXPECT_TRUE(none.results[0].chunkSegmentIDs.empty());
}

TEST(RetakeDetector, prefersTheSteadierVoiceBetweenEqualTexts) {
    const auto twice = takes({"Then you pick a cut.", "Then you pick a cut."});
    const auto& [first, second] = std::pair(twice.segments.segments[0], twice.segments.segments[1]);
    // A level voice everywhere but in `wobbly`, where it jumps between loud and soft every 0.05 s.
    const auto voice = [](const TranscriptSegment& wobbly) {
        engine::PCMBuffer pcm{std::vector<float>(48000 * 6, 0.1f), 48000.0, 6.0};
        const auto from = static_cast<std::size_t>(wobbly.start.seconds() * 48000);
        const auto to = static_cast<std::size_t>(wobbly.end.seconds() * 48000);
        for (std::size_t i = from; i < to; ++i)
            pcm.samples[i] = (i / 2400) % 2 ? 0.9f : 0.01f;
        return pcm;
    };
    const auto secondWobbles = voice(second);
    EXPECT_DOUBLE_EQ(RetakeDetector::audioStability(first, &secondWobbles), 1.0);
    EXPECT_LT(RetakeDetector::audioStability(second, &secondWobbles), 0.5);
    EXPECT_DOUBLE_EQ(RetakeDetector::audioStability(second, nullptr), 0.5);
    EXPECT_DOUBLE_EQ(RetakeDetector::audioStability(segmentOf(0, "x", 1.0, 1.09), &secondWobbles), 0.5);

    const auto keptWith = [&](const engine::PCMBuffer& pcm) {
        const CleanupEvidence evidence{.levels = SegmentAudioMeter::measure(twice.segments.segments, pcm)};
        return RetakeDetector::classify(twice.segments, twice.transcript, "x", evidence).mergedKeepSegmentIDs;
    };
    EXPECT_EQ(keptWith(secondWobbles), (std::vector{0}));
    // Steadiness decides even when the steadier take comes second.
    EXPECT_EQ(keptWith(voice(first)), (std::vector{1}));
}

}  // namespace
}  // namespace morvane::intelligence
