#include "morvane/intelligence/cleanup/duration_target_packer.hpp"

#include <fmt/core.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "long_talk.hpp"
#include "transcript_builder.hpp"

namespace morvane::intelligence {
namespace {

using testing::documentOf;
using testing::segmentOf;

const ClassificationDocument& onlyDocument(const ClassificationRun& run) {
    EXPECT_EQ(run.results.size(), 1u);
    return run.results.front();
}

TEST(DurationTargetPacker, readsSpokenLengthsWordFormsFirstThenPatterns) {
    struct Case {
        const char* text;
        std::optional<double> seconds;
    } cases[] = {
        {"a 3 minute version", 180},   // word form, unclamped
        {"Two minutes, please", 120},  // "two minute" inside "two minutes"
        {"one-minute teaser", 60},
        {"90s", 90},                 // second pattern
        {"make it 45 seconds", 45},  // first pattern
        {"a 30-second cut", 30},
        {"5 minutes", 300},  // third pattern, times 60
        {"1.5 min", 90},
        {"build a 75", 75},
        {"Build a 60-second version with a strong hook.", 60},
        {"0 seconds", std::nullopt},  // not above zero: passed over
        {"2000 seconds", 600},        // clamped
        {"3 seconds", 8},
        {"20 mins", 600},
        {"keep the best parts", std::nullopt},
        {"it has 10 sections", std::nullopt},    // "s\b" needs a word boundary right after the s
        {"the 1990s", 600},                      // a decade reads as a length, and is clamped
        {"\u0661\u0662 seconds", std::nullopt},  // digits of another script don't parse as a number
    };
    for (const auto& c : cases) {
        EXPECT_EQ(DurationTargetPacker::targetSeconds(c.text), c.seconds) << c.text;
    }
}

TEST(DurationTargetPacker, matchesLengthsAndItsOwnPhrases) {
    EXPECT_TRUE(DurationTargetPacker::matches("a 20 s version"));
    EXPECT_TRUE(DurationTargetPacker::matches("Pack To A Target length"));
    EXPECT_TRUE(DurationTargetPacker::matches("a short version with a strong hook"));
    EXPECT_TRUE(DurationTargetPacker::matches("short cut"));
    EXPECT_FALSE(DurationTargetPacker::matches("shorten the intro"));
}

TEST(DurationTargetPacker, rangesLimitsAndLabels) {
    struct RangeCase {
        double target;
        DurationTargetPacker::SecondsRange expected;
    } ranges[] = {{60, {45, 60}}, {8, {6, 8}}, {3, {6, 8}}, {6000, {450, 600}}, {10, {7.5, 10}}};
    for (const auto& c : ranges)
        EXPECT_EQ(DurationTargetPacker::range(c.target), c.expected) << c.target;

    struct LimitCase {
        double target;
        double hardMax;
    } limits[] = {{600, 750}, {60, 75}, {7.9, 10}, {8, 10}, {9, 11.25}, {599, 748.75}, {1000, 750}};
    for (const auto& c : limits)
        EXPECT_DOUBLE_EQ(DurationTargetPacker::hardMax(c.target), c.hardMax) << c.target;

    struct LabelCase {
        double seconds;
        const char* label;
    } labels[] = {{60, "1 min"},  {120, "2 min"},  {90, "90s"}, {0.2, "1s"},
                  {180, "3 min"}, {59.6, "1 min"}, {45, "45s"}, {0, "1s"}};
    for (const auto& c : labels)
        EXPECT_EQ(DurationTargetPacker::displayLabel(c.seconds), c.label) << c.seconds;
    for (const auto& preset : DurationTargetPacker::presets) {
        EXPECT_EQ(DurationTargetPacker::displayLabel(preset.seconds), preset.label);
    }

    EXPECT_EQ(DurationTargetPacker::instruction(60), "Build a 60-second version with a strong hook.");
    EXPECT_EQ(DurationTargetPacker::instruction(44.5), "Build a 45-second version with a strong hook.");
    EXPECT_EQ(DurationTargetPacker::instruction(0.2), "Build a 1-second version with a strong hook.");
}

TEST(DurationTargetPacker, packedCutsOfARealTalkStayWithinTheirTarget) {
    const auto& [transcript, segments] = testing::longTalk();
    struct Case {
        const char* instruction;
        double target;
    } cases[] = {
        {"build a 45 second version", 45},
        {"Pack to 2 minutes.", 120},
        {"a 20s teaser", 20},
        {"Build a 60-second version with a strong hook.", 60},
        {"short cut", 60},
        {"make it 8 seconds", 8},
    };
    for (const auto& c : cases) {
        const auto run = DurationTargetPacker::classify(segments, &transcript, c.instruction);
        const auto& document = onlyDocument(run);
        const auto notes = document.modelNotes.value_or("");
        EXPECT_TRUE(notes.ends_with(fmt::format(";target={}s", c.target))) << notes;
        ASSERT_FALSE(run.mergedKeepSegmentIDs.empty()) << c.instruction;
        EXPECT_EQ(run.mergedKeepSegmentIDs, document.keepSegmentIDs);
        EXPECT_LE(DurationTargetPacker::outputDurationSeconds(run.mergedKeepSegmentIDs, segments), c.target)
            << c.instruction;
        // Kept segments follow each other: a packed cut is one passage.
        for (std::size_t i = 1; i < run.mergedKeepSegmentIDs.size(); ++i) {
            EXPECT_EQ(run.mergedKeepSegmentIDs[i], run.mergedKeepSegmentIDs[i - 1] + 1) << c.instruction;
        }
        for (const auto& verdict : document.segmentResults) {
            const bool kept = std::count(run.mergedKeepSegmentIDs.begin(), run.mergedKeepSegmentIDs.end(),
                                         verdict.segmentID) == 1;
            EXPECT_EQ(verdict.keep, kept);
            EXPECT_EQ(verdict.confidence, kept ? 0.91 : 0.88);
            EXPECT_EQ(verdict.reason, kept ? "duration_pack_keep" : "duration_pack_drop");
        }
    }
    // The passage the scorer likes best for a minute is the one kept, and the note says how it scored.
    const auto minute = DurationTargetPacker::classify(segments, &transcript, "one minute");
    const auto best = ShortsCandidateScorer::propose(segments, &transcript, std::nullopt, 5, {45, 60});
    ASSERT_FALSE(best.empty());
    EXPECT_EQ(minute.mergedKeepSegmentIDs, best.front().segmentIDs);
    EXPECT_EQ(onlyDocument(minute).modelNotes,
              fmt::format("duration_pack:shorts_window;score={:.2f};target=60s", best.front().score));
}

TEST(DurationTargetPacker, fallsBackToGreedyPackingAndAlwaysKeepsTheFirstSegment) {
    const auto empty = DurationTargetPacker::classify(documentOf({}), nullptr, "");
    EXPECT_TRUE(empty.mergedKeepSegmentIDs.empty());
    EXPECT_EQ(onlyDocument(empty).modelNotes, "duration_pack:greedy;target=60s");
    EXPECT_TRUE(onlyDocument(empty).segmentResults.empty());

    // One segment longer than the target and its hard limit: kept all the same.
    const auto longOne = documentOf({segmentOf(0, "A long take.", 0, 100), segmentOf(1, "More.", 100, 110)});
    const auto run = DurationTargetPacker::classify(longOne, nullptr, "60 seconds");
    EXPECT_EQ(run.mergedKeepSegmentIDs, std::vector{0});
    EXPECT_EQ(onlyDocument(run).modelNotes, "duration_pack:greedy;target=60s");

    // A range given is used as it stands, and the note shows its upper end cut to whole seconds.
    const auto ranged = DurationTargetPacker::classify(longOne, nullptr, "two minute cut", std::nullopt,
                                                       SecondsRange{5, 10.9});
    EXPECT_EQ(onlyDocument(ranged).modelNotes, "duration_pack:shorts_window;score=0.57;target=10s");
    EXPECT_EQ(ranged.mergedKeepSegmentIDs, std::vector{1});

    // Only the candidate segments take part.
    const auto talk = documentOf({segmentOf(0, "Why?", 0, 20), segmentOf(1, "so.", 20, 40),
                                  segmentOf(2, "and.", 40, 60), segmentOf(3, "then.", 60, 80)});
    const auto scoped = DurationTargetPacker::classify(talk, nullptr, "", std::set<int>{2, 3});
    EXPECT_EQ(scoped.mergedKeepSegmentIDs, (std::vector{2, 3}));
}

TEST(DurationTargetPacker, greedyPackingScoresRunsThatReachHalfTheLength) {
    const auto document = documentOf(
        {segmentOf(0, "so we begin.", 10, 14), segmentOf(1, "Here's the secret.", 0, 4),
         segmentOf(2, "and that.", 20, 26), segmentOf(3, "Why?", 30, 36), segmentOf(4, "the end.", 40, 44)});
    const std::set<int> all{0, 1, 2, 3, 4};
    struct Case {
        std::set<int> pool;
        double maxSeconds;
        std::vector<int> expected;
    } cases[] = {
        // By start time: 1 (4 s), 0 (4 s), 2 (6 s), 3 (6 s), 4 (4 s). The question's runs score best.
        {all, 12, {3, 4}},
        {all, 6, {3}},
        // The hook opens the best run when the question isn't in the pool.
        {{0, 1, 2, 4}, 10, {1, 0}},
        // Nothing reaches half of 100 s: from the first while the sum fits.
        {all, 100, {1, 0, 2, 3, 4}},
        {all, 0, {3}},  // every window passes 0 s at once: the first segments alone are scored
        {{}, 10, {}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(DurationTargetPacker::greedyPack(document, c.pool, nullptr, c.maxSeconds), c.expected)
            << c.maxSeconds;
    }
}

TEST(DurationTargetPacker, windowScoresLengthsAndLimits) {
    const auto window = [](const char* text) { return std::vector{segmentOf(0, text, 0, 60, 0, 9)}; };
    struct ScoreCase {
        const char* text;
        double duration;
        double target;
        double expected;
    } scores[] = {
        {"Why?", 60, 60, 0.44999999999999996 + 0.12 + 0.25},
        {"is it?", 30, 60, 0.44999999999999996 + 0.125},
        {"plain.", 90, 60, 0.3 + 0.125},
        {"plain.", 200, 60, 0.3},
        {"The TRUTH.", 0, 60, 0.3 + 0.12},
    };
    for (const auto& c : scores) {
        EXPECT_NEAR(DurationTargetPacker::windowScore(window(c.text), nullptr, c.duration, c.target),
                    c.expected, 1e-15)
            << c.text;
    }
    testing::TranscriptBuilder builder;
    builder.say("um uh um uh um uh um uh um uh");
    const auto transcript = builder.build();
    EXPECT_NEAR(DurationTargetPacker::windowScore(window("plain."), &transcript, 60, 60), 0.3 + 0.25 - 0.15,
                1e-15);
    const std::vector firstTwoWords{segmentOf(0, "plain.", 0, 60, 0, 1)};
    EXPECT_NEAR(DurationTargetPacker::windowScore(firstTwoWords, &transcript, 60, 60), 0.3 + 0.25 - 0.04,
                1e-15);

    const auto segments = documentOf({segmentOf(0, "a", 0, 30), segmentOf(1, "b", 30, 70),
                                      segmentOf(2, "c", 70, 75), segmentOf(3, "d", 80, 79)});
    struct ClampCase {
        std::vector<int> keep;
        double hardMax;
        std::vector<int> expected;
    } clamps[] = {
        {{0, 1, 2}, 75, {0, 1, 2}}, {{0, 1, 2}, 74.9, {0, 1}},
        {{1, 2, 0}, 50, {1, 2}},     // in the order given, stopping at the first that doesn't fit
        {{0, 1, 2}, 40, {0}},        // stops at 1 rather than skipping to 2, which would fit
        {{9, 1}, 10, {1}},           // an unknown id is passed over; the first known one stays
        {{3, 0, 2}, 35, {3, 0, 2}},  // a reversed segment counts as 0 s
    };
    for (const auto& c : clamps) {
        EXPECT_EQ(DurationTargetPacker::clampToHardMax(c.keep, segments, c.hardMax), c.expected) << c.hardMax;
    }
    EXPECT_DOUBLE_EQ(DurationTargetPacker::outputDurationSeconds(std::vector{0, 2, 3, 9}, segments), 35.0);
    EXPECT_DOUBLE_EQ(DurationTargetPacker::outputDurationSeconds({}, segments), 0.0);
}

}  // namespace
}  // namespace morvane::intelligence
