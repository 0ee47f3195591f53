#include "morvane/intelligence/cleanup/duration_target_packer.hpp"

#include <gtest/gtest.h>

namespace morvane::intelligence {
namespace {

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

}  // namespace
}  // namespace morvane::intelligence
