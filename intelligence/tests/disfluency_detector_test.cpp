#include "morvane/intelligence/cleanup/disfluency_detector.hpp"

#include <gtest/gtest.h>

#include "morvane/intelligence/cleanup/cleanup_evidence.hpp"
#include "transcript_builder.hpp"

namespace morvane::intelligence {
namespace {

using testing::segmentOf;
using testing::TranscriptBuilder;

// One segment over all the words of `words`, lasting `seconds`.
struct OneSegment {
    TranscriptDocument transcript;
    TranscriptSegment segment;
};

OneSegment spoken(std::string_view words, double seconds) {
    TranscriptBuilder builder;
    builder.say(words, 0.1, 0.0);
    OneSegment one{builder.build(), {}};
    const int last = static_cast<int>(one.transcript.words.size()) - 1;
    one.segment = segmentOf(0, std::string(words), 0.0, seconds, 0, last);
    return one;
}

TEST(DisfluencyDetector, recognisesFillerWordsWhateverTheirCaseAndPunctuation) {
    struct Case {
        const char* text;
        bool filler;
    } cases[] = {
        {"um", true},      {"Uh,", true},       {"\"HMM...\"", true}, {"  like\n", true}, {"mm", true},
        {"likely", false}, {"umbrella", false}, {"...", false},       {"", false},        {"er-", true},
    };
    for (const auto& c : cases)
        EXPECT_EQ(DisfluencyDetector::isFiller(c.text), c.filler) << c.text;
}

TEST(DisfluencyDetector, scoresTheShareOfFillerRaisedForShortAndAllFillerSegments) {
    struct Case {
        const char* name;
        const char* words;
        double seconds;
        double score;
    } cases[] = {
        {"a lone um", "um", 0.4, 1.0},
        {"one filler in ten words over three seconds", "so um this is how we cut the clip now", 3.0, 0.1},
        {"the same in one second", "so um this is how we cut the clip now", 1.0, 0.55},
        {"the same just over 1.2 s", "so um this is how we cut the clip now", 1.2, 0.1},
        {"three fillers", "um uh like", 2.0, 1.0},
        {"four fillers are just all filler", "um uh er ah", 2.0, 1.0},
        {"two of four, short", "um so uh yes", 1.0, 0.55},
        {"clean", "this is clean", 0.5, 0.0},
    };
    for (const auto& c : cases) {
        const auto one = spoken(c.words, c.seconds);
        EXPECT_DOUBLE_EQ(DisfluencyDetector::disfluencyScore(one.segment, one.transcript), c.score) << c.name;
    }
    // A segment with no words is wholly disfluent.
    const auto empty = spoken("hello", 1.0);
    EXPECT_DOUBLE_EQ(DisfluencyDetector::disfluencyScore(segmentOf(0, "", 5.0, 6.0, 7, 9), empty.transcript),
                     1.0);
    const auto mixed = spoken("um so uh yes", 1.0);
    EXPECT_EQ(DisfluencyDetector::disfluencyCount(mixed.segment, mixed.transcript), 2);
}

TEST(DisfluencyDetector, aQuietSegmentsFillerCountsForMore) {
    const auto one = spoken("so um this is how we cut the clip now", 3.0);
    engine::PCMBuffer quiet{std::vector<float>(48000 * 4, 0.01f), 48000.0, 4.0};
    engine::PCMBuffer loud{std::vector<float>(48000 * 4, 0.02f), 48000.0, 4.0};
    EXPECT_DOUBLE_EQ(DisfluencyDetector::disfluencyScore(one.segment, one.transcript, &quiet), 0.7);
    EXPECT_DOUBLE_EQ(DisfluencyDetector::disfluencyScore(one.segment, one.transcript, &loud), 0.1);

    // Nothing to measure past the end of the audio: the level doesn't count.
    auto late = one;
    late.segment = segmentOf(0, "late", 10.0, 13.0, 0, 9);
    EXPECT_DOUBLE_EQ(DisfluencyDetector::disfluencyScore(late.segment, late.transcript, &quiet), 0.1);
    const auto clean = spoken("this is clean speech", 3.0);
    EXPECT_DOUBLE_EQ(DisfluencyDetector::disfluencyScore(clean.segment, clean.transcript, &quiet), 0.0);
}

TEST(DisfluencyDetector, removesOrKeepsFillerByTheInstructionsMode) {
    const auto transcript = TranscriptBuilder()
                                .say("Um.")
                                .pause(1.0)
                                .say("So this is how we cut the clip with the tool today.", 0.25, 0.05)
                                .pause(1.0)
                                .say("Uh, like, um, yeah.")
                                .build();
    const auto segments = testing::documentOf({
        segmentOf(0, "Um.", 0.0, 0.4, 0, 0), segmentOf(1, "So this is...", 1.4, 4.65, 1, 11),
        segmentOf(2, "Uh, like, um, yeah.", 5.65, 7.15, 12, 15),
        segmentOf(3, "", 8.0, 9.0, 16, 15),  // no words at all
    });
    const auto removed =
        DisfluencyDetector::classify(segments, transcript, "Remove filler words.", std::nullopt);
    ASSERT_EQ(removed.results.size(), 1u);
    const auto& document = removed.results[0];
    EXPECT_EQ(document.modelNotes, "deterministic:disfluency_detector");
    EXPECT_EQ(document.chunkSegmentIDs, (std::vector{0, 1, 2, 3}));
    EXPECT_EQ(document.keepSegmentIDs, (std::vector{1}));
    EXPECT_EQ(removed.mergedKeepSegmentIDs, (std::vector{1}));
    EXPECT_FALSE(removed.modelBackend.has_value());
    EXPECT_FALSE(document.estimatedPromptTokens.has_value());
    struct Verdict {
        double confidence;
        const char* reason;
    } expected[] = {{0.99, "disfluency_score=1.00"},
                    {0.99, "clean speech"},
                    {0.75, "disfluency_score=0.75"},
                    {0.99, "disfluency_score=1.00"}};
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_DOUBLE_EQ(document.segmentResults[i].confidence, expected[i].confidence) << i;
        EXPECT_EQ(document.segmentResults[i].reason, expected[i].reason) << i;
    }

    // Asking for the filler keeps exactly the other segments, with the same reasons.
    const auto identified = DisfluencyDetector::classify(
        segments, transcript, "Select segments that are mostly filler", std::nullopt);
    EXPECT_EQ(identified.mergedKeepSegmentIDs, (std::vector{0, 2, 3}));
    EXPECT_EQ(identified.results[0].segmentResults[2].reason, "disfluency_score=0.75");

    // Instructions that name no mode remove filler.
    EXPECT_EQ(
        DisfluencyDetector::classify(segments, transcript, "whatever", std::nullopt).mergedKeepSegmentIDs,
        (std::vector{1}));
}

TEST(DisfluencyDetector, aClearTranscriptHasNoFillerToIdentify) {
    const auto transcript = TranscriptBuilder().say("Everything here is clear.").build();
    const auto segments = testing::documentOf({segmentOf(0, "Everything here is clear.", 0.0, 1.6, 0, 3)});
    const auto run = DisfluencyDetector::classify(segments, transcript, "false starts", std::nullopt);
    EXPECT_TRUE(run.mergedKeepSegmentIDs.empty());
    EXPECT_TRUE(run.results[0].keepSegmentIDs.empty());

    const auto empty =
        DisfluencyDetector::classify(testing::documentOf({}), transcript, "x", CleanupEvidence{});
    ASSERT_EQ(empty.results.size(), 1u);
    EXPECT_TRUE(empty.results[0].segmentResults.empty());
}

}  // namespace
}  // namespace morvane::intelligence
