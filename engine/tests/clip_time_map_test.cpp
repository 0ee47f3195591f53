#include "morvane/engine/time/clip_time_map.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "morvane/engine/time/clip_speed.hpp"

namespace morvane::engine {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

RationalTime seconds(double s) {
    return RationalTime::fromSeconds(s, 60000);
}

ClipTimeMap::Span span(double in, double out) {
    return {seconds(in), seconds(out)};
}

// The clip of the examples: source 0–2 s and 5–6 s played at 1x from program 10 s.
ClipTimeMap twoRangeClip() {
    return ClipTimeMap(seconds(10), {span(0, 2), span(5, 6)}, 1.0);
}

TEST(ClipSpeed, programAndSourceDurations) {
    struct Case {
        RationalTime time;
        std::optional<double> rate;
        RationalTime program;
    } cases[] = {
        {{10, 1}, 2.0, {300000, 60000}},
        {{3, 1}, 0.75, {240000, 60000}},
        {{1001, 30000}, 2.0, {1001, 60000}},
        // Too close to 1x to scale: returned untouched, timescale included.
        {{10, 1}, 1.00005, {10, 1}},
        {{10, 1}, std::nullopt, {10, 1}},
        {{10, 1}, 0.0, {10, 1}},
        {{10, 1}, -1.0, {10, 1}},
        {{10, 1}, kNaN, {10, 1}},
        {{10, 1}, kInf, {10, 1}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(ClipSpeed::programDuration(c.time, c.rate), c.program)
            << c.time.formatted() << " at " << *c.rate;
    }
    EXPECT_EQ(ClipSpeed::sourceDuration({5, 1}, 2.0), (RationalTime{600000, 60000}));
    EXPECT_EQ(ClipSpeed::sourceDuration({4, 1}, 0.75), (RationalTime{180000, 60000}));
    EXPECT_EQ(ClipSpeed::sourceDuration({4, 1}, -3.0), (RationalTime{4, 1}));
    // A subnormal rate has no finite reciprocal: the length saturates instead of stopping the process.
    EXPECT_GT(ClipSpeed::programDuration({10, 1}, 1e-310).seconds(), 1e12);
}

TEST(ClipSpeed, ratesResolveAndScaleOnlyAwayFromOne) {
    EXPECT_EQ(ClipSpeed::resolved(std::nullopt), 1.0);
    EXPECT_EQ(ClipSpeed::resolved(0.0), 1.0);
    EXPECT_EQ(ClipSpeed::resolved(-kInf), 1.0);
    EXPECT_EQ(ClipSpeed::resolved(0.5), 0.5);
    EXPECT_FALSE(ClipSpeed::needsScale(1.00009));
    EXPECT_TRUE(ClipSpeed::needsScale(1.00011));
    EXPECT_TRUE(ClipSpeed::needsScale(0.9998));
    EXPECT_FALSE(ClipSpeed::needsScale(kNaN));
}

TEST(ClipSpeed, labelsAndMenuTitles) {
    struct Case {
        std::optional<double> rate;
        const char* label;
    } labels[] = {
        {2.0, "2×"},
        {0.25, "0.25×"},
        {std::nullopt, "1×"},
        {1.25, "1.25×"},
        {0.75, "0.75×"},
        {4.0, "4×"},
        {1.0004, "1×"},
        {3.9995, "4×"},
        {1.0015, "1.0015×"},
        {0.0, "1×"},
        {-2.0, "1×"},
        {1.5, "1.5×"},
        {0.333333333, "0.333333×"},
    };
    for (const auto& c : labels)
        EXPECT_EQ(ClipSpeed::displayLabel(c.rate), c.label) << (c.rate ? *c.rate : -99.0);

    EXPECT_EQ(ClipSpeed::menuTitle(1.0), "1× — Normal");
    EXPECT_EQ(ClipSpeed::menuTitle(1.0004), "1× — Normal");
    EXPECT_EQ(ClipSpeed::menuTitle(2.0), "2×");
    EXPECT_EQ(ClipSpeed::menuTitle(1.25), "1.25×");
    EXPECT_EQ(ClipSpeed::menuTitle(kNaN), "1×");
    EXPECT_EQ(ClipSpeed::presets.front(), 0.25);
    EXPECT_EQ(ClipSpeed::presets.back(), 4.0);
}

TEST(ClipTimeMap, keepsOnlyForwardSpansAndResolvesTheRate) {
    const ClipTimeMap map(seconds(0), {span(0, 2), span(3, 3), span(5, 4), span(6, 7)}, 0.0);
    EXPECT_EQ(map.ranges(), (std::vector{span(0, 2), span(6, 7)}));
    EXPECT_EQ(map.rate(), 1.0);
    EXPECT_DOUBLE_EQ(map.programDurationSeconds(), 3.0);
    EXPECT_EQ(ClipTimeMap(seconds(0), {span(0, 2)}, 0.5).rate(), 0.5);
    EXPECT_EQ(ClipTimeMap(seconds(0), {span(0, 2)}, kNaN).rate(), 1.0);
    // The rate is floored under division, so a near-zero speed gives a long but finite clip.
    EXPECT_DOUBLE_EQ(ClipTimeMap(seconds(0), {span(0, 1)}, 1e-9).programDurationSeconds(), 10000.0);
    EXPECT_EQ((ClipTimeMap::Span{seconds(3), seconds(1)}.durationSeconds()), 0.0);
}

TEST(ClipTimeMap, sourceTimeAtProgramTimes) {
    const auto map = twoRangeClip();
    struct Case {
        double program;
        std::optional<double> source;
    } cases[] = {
        {9.999, std::nullopt},  // before the clip, beyond the tolerance
        {9.9995, 0.0},          // within the tolerance of the start: held to it
        {10.0, 0.0},
        {11.0, 1.0},
        {12.0, 5.0},  // the join belongs to the second range
        {12.5, 5.5},
        {13.0, 6.0},     // the clip's end gives its last source time
        {13.0007, 6.0},  // still within the tolerance past the end
        {13.0009, std::nullopt},
        {20.0, std::nullopt},
    };
    for (const auto& c : cases) {
        const auto source = map.sourceTime(seconds(c.program));
        ASSERT_EQ(source.has_value(), c.source.has_value()) << c.program;
        if (c.source) {
            EXPECT_EQ(*source, seconds(*c.source)) << c.program;
            EXPECT_EQ(source->timescale, 60000);
        }
    }
    EXPECT_FALSE(ClipTimeMap(seconds(0), {}, 1.0).sourceTime(seconds(0)).has_value());
}

TEST(ClipTimeMap, programTimeAtSourceTimes) {
    const auto map = twoRangeClip();
    struct Case {
        double source;
        std::optional<double> program;
    } cases[] = {
        {0.0, 10.0},    {1.0, 11.0}, {2.0, 12.0}, {2.0005, 12.0},        {3.0, std::nullopt},
        {4.9995, 12.0}, {5.5, 12.5}, {6.0, 13.0}, {6.001, std::nullopt}, {-0.001, std::nullopt},
    };
    for (const auto& c : cases) {
        const auto program = map.programTime(seconds(c.source));
        ASSERT_EQ(program.has_value(), c.program.has_value()) << c.source;
        if (c.program) {
            EXPECT_EQ(*program, seconds(*c.program)) << c.source;
        }
    }
    // A source moment played twice answers with its first showing.
    const ClipTimeMap repeated(seconds(0), {span(0, 2), span(0, 2)}, 1.0);
    EXPECT_EQ(repeated.programTime(seconds(1)), seconds(1));
    EXPECT_EQ(repeated.sourceTime(seconds(3)), seconds(1));
}

TEST(ClipTimeMap, mappingsHonourTheRateAndLandOnASixHundredthGrid) {
    const ClipTimeMap fast(seconds(0), {span(0, 10)}, 2.0);
    EXPECT_DOUBLE_EQ(fast.programDurationSeconds(), 5.0);
    EXPECT_EQ(fast.sourceTime(seconds(2.5)), seconds(5));
    EXPECT_EQ(fast.programTime(seconds(5)), seconds(2.5));
    EXPECT_EQ(fast.programIntervals(2, 4), (std::vector<ClipTimeMap::Interval>{{1, 2}}));

    // 1001/30000 s is 20.02 six-hundredths: the answer is 20/600 on timescale 60000.
    const ClipTimeMap plain(seconds(0), {span(0, 10)}, 1.0);
    EXPECT_EQ(plain.sourceTime({1001, 30000}), (RationalTime{2000, 60000}));
}

TEST(ClipTimeMap, programIntervalsOfSourceRanges) {
    const auto map = twoRangeClip();
    using Intervals = std::vector<ClipTimeMap::Interval>;
    struct Case {
        double start;
        double end;
        Intervals intervals;
    } cases[] = {
        {1.0, 5.5, {{11.0, 12.0}, {12.0, 12.5}}},
        {0.0, 10.0, {{10.0, 12.0}, {12.0, 13.0}}},
        {3.0, 4.0, {}},
        {5.5, 1.0, {}},
        {5.5, 5.5, {}},
        {1.9995, 5.0005, {}},  // crossings of less than a millisecond count for nothing
    };
    for (const auto& c : cases)
        EXPECT_EQ(map.programIntervals(c.start, c.end), c.intervals) << c.start << "–" << c.end;
}

TEST(ClipTimeMap, overlapSecondsSumsTheClippedRanges) {
    const std::vector ranges{span(0, 2), span(5, 6)};
    EXPECT_DOUBLE_EQ(ClipTimeMap::overlapSeconds(1, 5.5, ranges), 1.5);
    EXPECT_DOUBLE_EQ(ClipTimeMap::overlapSeconds(-4, 40, ranges), 3.0);
    EXPECT_DOUBLE_EQ(ClipTimeMap::overlapSeconds(2.5, 4.5, ranges), 0.0);
    EXPECT_DOUBLE_EQ(ClipTimeMap::overlapSeconds(3, 1, ranges), 0.0);
}

const EditPlanRect kZoomA{0.1, 0.1, 0.5, 0.5};
const EditPlanRect kZoomB{0.4, 0.3, 0.6, 0.6};

ReframeKeyframe keyframe(double start, double end, EditPlanRect rect) {
    return {seconds(start), seconds(end), rect};
}

TEST(ClipTimeMap, keyframesFollowTheirSourceThroughAnEdit) {
    const ClipTimeMap whole(seconds(0), {span(0, 10)}, 1.0);
    using Keyframes = std::vector<ReframeKeyframe>;
    struct Case {
        const char* name;
        Keyframes keyframes;
        ClipTimeMap from;
        ClipTimeMap onto;
        Keyframes expected;
    } cases[] = {
        {"a cut inside the keyframe splits it in two",
         {keyframe(2, 6, kZoomA)},
         whole,
         ClipTimeMap(seconds(0), {span(0, 3), span(5, 10)}, 1.0),
         {keyframe(2, 3, kZoomA), keyframe(3, 4, kZoomA)}},
        {"a blade through its middle: the left clip keeps the first half",
         {keyframe(2, 6, kZoomA)},
         whole,
         ClipTimeMap(seconds(0), {span(0, 4)}, 1.0),
         {keyframe(2, 4, kZoomA)}},
        {"... and the right clip the second",
         {keyframe(2, 6, kZoomA)},
         whole,
         ClipTimeMap(seconds(4), {span(4, 10)}, 1.0),
         {keyframe(4, 6, kZoomA)}},
        {"doubling the speed halves the program times",
         {keyframe(2, 4, kZoomA)},
         whole,
         ClipTimeMap(seconds(0), {span(0, 10)}, 2.0),
         {keyframe(1, 2, kZoomA)}},
        {"the result is in program order",
         {keyframe(6, 8, kZoomB), keyframe(1, 2, kZoomA)},
         whole,
         whole,
         {keyframe(1, 2, kZoomA), keyframe(6, 8, kZoomB)}},
        {"all cut away: one keyframe over the new clip, from the one nearest the middle",
         {keyframe(0, 1, kZoomA), keyframe(8, 9, kZoomB)},
         whole,
         ClipTimeMap(seconds(0), {span(4, 6)}, 1.0),
         {keyframe(0, 2, kZoomB)}},
        {"... but overlap with what remains outweighs nearness",
         {keyframe(0, 4, kZoomA), keyframe(9, 10, kZoomB)},
         whole,
         ClipTimeMap(seconds(0), {{RationalTime{39995, 10000}, seconds(8.9995)}}, 1.0),
         {keyframe(0, 5, kZoomA)}},
        {"a keyframe outside the old clip is measured by nothing, yet still lends its look",
         {keyframe(50, 60, kZoomB)},
         whole,
         whole,
         {keyframe(0, 10, kZoomB)}},
        {"no keyframes", {}, whole, whole, {}},
        {"an old clip with no ranges", {keyframe(0, 1, kZoomA)}, ClipTimeMap(seconds(0), {}, 1.0), whole, {}},
        {"a new clip with no ranges", {keyframe(0, 1, kZoomA)}, whole, ClipTimeMap(seconds(0), {}, 1.0), {}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(ClipTimeMap::remapKeyframes(c.keyframes, c.from, c.onto), c.expected) << c.name;
}

TEST(ClipTimeMap, zoomRegionsFollowTheirSourceButAreNeverInvented) {
    const ClipTimeMap whole(seconds(0), {span(0, 10)}, 1.0);
    const ClipZoomRegion region{seconds(2), seconds(6), kZoomA};
    const ClipTimeMap cutInside(seconds(0), {span(0, 3), span(5, 10)}, 1.0);
    EXPECT_EQ(
        ClipTimeMap::remapZoomRegions({region}, whole, cutInside),
        (std::vector<ClipZoomRegion>{{seconds(2), seconds(3), kZoomA}, {seconds(3), seconds(4), kZoomA}}));
    const ClipTimeMap elsewhere(seconds(0), {span(7, 9)}, 1.0);
    EXPECT_TRUE(ClipTimeMap::remapZoomRegions({region}, whole, elsewhere).empty());
    EXPECT_TRUE(ClipTimeMap::remapZoomRegions({}, whole, whole).empty());
}

}  // namespace
}  // namespace morvane::engine
