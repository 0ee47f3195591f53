#include "morvane/engine/time/rational_time.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <unordered_set>

#include "morvane/engine/engine_error.hpp"

namespace morvane::engine {
namespace {

RationalTime rt(std::int64_t value, std::int32_t timescale) {
    return {value, timescale};
}

TEST(RationalTime, parsesWrittenFormsKeepingTheirTimescale) {
    struct Case {
        const char* text;
        RationalTime expected;
    } cases[] = {
        {"  1001/30000s\n", rt(1001, 30000)},
        {"1001/30000", rt(1001, 30000)},
        {"-3/2s", rt(-3, 2)},
        {"+7/+1s", rt(7, 1)},
        {"0/1", rt(0, 1)},
        {"2/4s", rt(2, 4)},                     // no reduction
        {"\u00a0 12/600s\u2028", rt(12, 600)},  // Unicode blanks trim too
        {"9223372036854775807/2147483647s", rt(std::numeric_limits<std::int64_t>::max(), 2147483647)},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(RationalTime::parse(c.text), c.expected) << c.text;
    }
}

TEST(RationalTime, refusesMalformedTextQuotingItUnchanged) {
    const char* bad[] = {"1/2/3",
                         "/2",
                         "1/",
                         "1",
                         "12",
                         "1.5s",
                         "5/0",
                         "5/0s",
                         "5/-1",
                         "",
                         "   ",
                         "s",
                         "1/2ss",
                         "1 /2",
                         "0x10/1",
                         "+-1/2",
                         "1/+",
                         "a/b",
                         "99999999999999999999/1",
                         "1/2 s"};
    for (const char* text : bad) {
        try {
            (void)RationalTime::parse(text);
            ADD_FAILURE() << "accepted: '" << text << "'";
        } catch (const EngineError& e) {
            EXPECT_EQ(e.kind(), EngineError::Kind::invalidRationalTime) << text;
            EXPECT_EQ(e.payload(), text);
            EXPECT_EQ(std::string(e.what()), std::string("Invalid rational time: ") + text);
        }
    }
}

TEST(RationalTimeDeathTest, timescaleBeyondThirtyTwoBitsIsFatal) {
    EXPECT_DEATH((void)RationalTime::parse("1/2147483648s"), "timescale");
}

TEST(RationalTime, tryParseReadsWhatParseReadsAndRefusesEverythingElseQuietly) {
    struct Case {
        const char* text;
        std::optional<RationalTime> expected;
    } cases[] = {
        {"  1001/30000s\n", rt(1001, 30000)},
        {"-3/2", rt(-3, 2)},
        {"1/2147483647", rt(1, 2147483647)},
        {"1/2147483648s", std::nullopt},  // fatal for parse, only "no time" here
        {"450450/3000444444444440", std::nullopt},
        {"1.5s", std::nullopt},
        {"5/0", std::nullopt},
        {"", std::nullopt},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(RationalTime::tryParse(c.text), c.expected) << c.text;
    }
}

TEST(RationalTime, formatsWithAndWithoutSuffix) {
    EXPECT_EQ(rt(1001, 30000).formatted(), "1001/30000s");
    EXPECT_EQ(rt(1001, 30000).formatted(false), "1001/30000");
    EXPECT_EQ(rt(-3, 2).formatted(), "-3/2s");
    EXPECT_EQ(rt(std::numeric_limits<std::int64_t>::min(), 1).formatted(), "-9223372036854775808/1s");
    for (auto t : {rt(0, 1), rt(-1, 60000), rt(123, 60000), rt(5, 7)}) {
        EXPECT_EQ(RationalTime::parse(t.formatted()), t);
    }
}

TEST(RationalTime, sumsAndDifferencesLandOnTheWorkingGridRoundedHalfAwayFromZero) {
    struct Case {
        RationalTime a, b, sum, difference;
    } cases[] = {
        {rt(1, 3), rt(1, 3), rt(40000, 60000), rt(0, 60000)},
        {rt(1001, 24000), RationalTime::zero, rt(2503, 60000), rt(2503, 60000)},   // 2502.5 rounds up
        {RationalTime::zero, rt(1001, 24000), rt(2503, 60000), rt(-2503, 60000)},  // and -2502.5 down
        {rt(1, 2), rt(2, 4), rt(60000, 60000), rt(0, 60000)},
        {rt(1, 120000), RationalTime::zero, rt(1, 60000), rt(1, 60000)},     // exactly half a tick
        {rt(-1, 120000), RationalTime::zero, rt(-1, 60000), rt(-1, 60000)},  // symmetric
        {rt(1, 120001), RationalTime::zero, rt(0, 60000), rt(0, 60000)},     // just under half
        {rt(1001, 30000), rt(1001, 30000), rt(4004, 60000), rt(0, 60000)},
        {rt(7, 60000), rt(3, 60000), rt(10, 60000), rt(4, 60000)},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.a.adding(c.b), c.sum) << c.a.formatted() << " + " << c.b.formatted();
        EXPECT_EQ(c.a.subtracting(c.b), c.difference) << c.a.formatted() << " - " << c.b.formatted();
    }
}

TEST(RationalTime, addingZeroMovesAnotherTimescaleToTheWorkingGrid) {
    const auto a = rt(1001, 30000);
    EXPECT_NE(a.adding(RationalTime::zero), a);
    EXPECT_FALSE(a.adding(RationalTime::zero) < a);
    EXPECT_FALSE(a < a.adding(RationalTime::zero));
}

TEST(RationalTime, keepsLongTimelinesExactWhereSixtyFourBitCrossProductsWouldOverflow) {
    // 48 hours on timescale 2^31-1 times another large timescale overflows 64 bits in a naive cross sum.
    const auto a = rt(48LL * 3600 * 2147483647LL, 2147483647);
    const auto b = rt(1, 2147483646);
    EXPECT_EQ(a.adding(b), rt(48LL * 3600 * 60000, 60000));
    EXPECT_LT(a, a.adding(rt(1, 60000)));
    EXPECT_GT(rt(std::numeric_limits<std::int64_t>::max(), 2),
              rt(std::numeric_limits<std::int64_t>::max() - 1, 2));
}

TEST(RationalTime, ordersNumericallyButComparesEqualFieldWise) {
    EXPECT_NE(rt(2, 4), rt(1, 2));
    EXPECT_FALSE(rt(2, 4) < rt(1, 2));
    EXPECT_FALSE(rt(2, 4) > rt(1, 2));
    EXPECT_TRUE(rt(2, 4) <= rt(1, 2));
    EXPECT_TRUE(rt(2, 4) >= rt(1, 2));
    EXPECT_EQ(rt(2, 4).compare(rt(1, 2)), 0);

    EXPECT_LT(rt(-1, 1), RationalTime::zero);
    EXPECT_LT(rt(1001, 30000), rt(1, 29));
    EXPECT_GT(rt(1001, 30000), rt(1, 30));

    std::unordered_set<RationalTime> keys{rt(1, 2), rt(2, 4), rt(30000, 60000)};
    EXPECT_EQ(keys.size(), 3u);
}

TEST(RationalTime, invalidTimesPropagateAndSortLast) {
    const auto invalid = rt(5, 0);
    EXPECT_FALSE(invalid.isValid());
    EXPECT_FALSE(invalid.adding(rt(1, 1)).isValid());
    EXPECT_FALSE(rt(1, 1).subtracting(invalid).isValid());
    EXPECT_FALSE(invalid.multipliedBy(2.0).isValid());
    EXPECT_GT(invalid, rt(std::numeric_limits<std::int64_t>::max(), 1));
    EXPECT_EQ(invalid.compare(rt(-3, -1)), 0);
}

TEST(RationalTime, fromSecondsRoundsHalfAwayFromZeroOnTheGivenTimescale) {
    struct Case {
        double seconds;
        std::int32_t timescale;
        RationalTime expected;
    } cases[] = {
        {0.5, 600, rt(300, 600)},        {0.00125, 600, rt(1, 600)},  // 0.75 ticks
        {-0.00125, 600, rt(-1, 600)},    {0.0025 / 3, 600, rt(1, 600)},
        {3600.0, 600, rt(2160000, 600)}, {1.0 / 120000, 60000, rt(1, 60000)},
        {-0.5 / 600, 600, rt(-1, 600)},  {0.0, 7, rt(0, 7)},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(RationalTime::fromSeconds(c.seconds, c.timescale), c.expected) << c.seconds;
    }
    EXPECT_DOUBLE_EQ(rt(1001, 30000).seconds(), 1001.0 / 30000.0);
}

TEST(RationalTimeDeathTest, nonFiniteOrHugeSecondsAreFatal) {
    EXPECT_DEATH((void)RationalTime::fromSeconds(std::numeric_limits<double>::quiet_NaN(), 600), "finite");
    EXPECT_DEATH((void)RationalTime::fromSeconds(std::numeric_limits<double>::infinity(), 600), "finite");
    EXPECT_DEATH((void)RationalTime::fromSeconds(1e17, 600), "64-bit");
    EXPECT_DEATH((void)rt(1, 1).multipliedBy(std::numeric_limits<double>::quiet_NaN()), "non-finite");
}

TEST(RationalTime, speedScalingDoublesTheTimescaleThenRoundsToTheWorkingGrid) {
    struct Case {
        RationalTime time;
        double factor;
        RationalTime expected;
    } cases[] = {
        {rt(6000, 600), 1.0 / 2.0, rt(300000, 60000)},   // 10 s at 2x
        {rt(1800, 600), 1.0 / 0.75, rt(240000, 60000)},  // 3 s at 0.75x
        {rt(1, 3), 1.0, rt(20000, 60000)},
        {rt(1, 1), 1.0 / 3.0, rt(20000, 60000)},
        {rt(-6000, 600), 0.5, rt(-300000, 60000)},
        // On 90000 (already above 65536) the product is rounded there first: 1.5 ticks -> 2 -> 1.333 -> 1.
        {rt(3, 90000), 0.5, rt(1, 60000)},
        // On 600 the grid is 76800: 1 tick * 128 * 0.3 = 38.4 -> 38 ticks of 1/76800 -> 29.69 -> 30.
        {rt(1, 600), 0.3, rt(30, 60000)},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.time.multipliedBy(c.factor), c.expected) << c.time.formatted() << " x " << c.factor;
    }
}

TEST(RationalTime, convertsBetweenTimescalesWithEitherRounding) {
    EXPECT_EQ(rt(1001, 24000).convertedTo(60000, TimeRounding::halfAwayFromZero), rt(2503, 60000));
    EXPECT_EQ(rt(1001, 24000).convertedTo(60000, TimeRounding::towardZero), rt(2502, 60000));
    EXPECT_EQ(rt(-1001, 24000).convertedTo(60000, TimeRounding::towardZero), rt(-2502, 60000));
    EXPECT_EQ(rt(-1001, 24000).convertedTo(60000, TimeRounding::halfAwayFromZero), rt(-2503, 60000));
    EXPECT_EQ(rt(7, 9).convertedTo(9, TimeRounding::towardZero), rt(7, 9));
    EXPECT_FALSE(rt(7, 9).convertedTo(0, TimeRounding::towardZero).isValid());
}

TEST(FrameRate, indexesFramesByTruncationAndPlacesThemOnItsOwnTimescale) {
    const FrameRate ntsc{rt(1001, 30000)};
    EXPECT_NEAR(ntsc.nominalFPS(), 29.97, 0.001);
    const auto frame10 = ntsc.timeForFrame(10);
    EXPECT_EQ(frame10, rt(10010, 30000));
    EXPECT_EQ(ntsc.frameIndex(frame10), 10);
    EXPECT_EQ(ntsc.frameIndex(rt(10009, 30000)), 9);
    EXPECT_EQ(ntsc.frameIndex(rt(20019, 60000)), 9);  // one working tick short of frame 10
    EXPECT_EQ(ntsc.frameIndex(rt(-1, 30000)), 0);     // truncates toward zero
    EXPECT_EQ(ntsc.frameIndex(rt(-1002, 30000)), -1);
    EXPECT_EQ(ntsc.frameIndex(RationalTime::zero), 0);

    const FrameRate pal{rt(1, 25)};
    EXPECT_EQ(pal.frameIndex(rt(1, 1)), 25);
    EXPECT_EQ(pal.timeForFrame(-2), rt(-2, 25));
}

TEST(FrameRate, degenerateFrameDurationsNeverDivideByZero) {
    for (const FrameRate rate : {FrameRate{rt(0, 30000)}, FrameRate{rt(-5, 30000)}}) {
        EXPECT_EQ(rate.nominalFPS(), 0.0);
        EXPECT_EQ(rate.frameIndex(rt(5, 1)), 0);
    }
    EXPECT_EQ(FrameRate{rt(1, 0)}.frameIndex(rt(5, 1)), 0);
    EXPECT_EQ(FrameRate{rt(1001, 30000)}, FrameRate{rt(1001, 30000)});
    EXPECT_NE(FrameRate{rt(1001, 30000)}, FrameRate{rt(2002, 60000)});
}

TEST(FrameRateDeathTest, frameTimeOverflowIsFatal) {
    EXPECT_DEATH((void)FrameRate{rt(1001, 30000)}.timeForFrame(std::numeric_limits<std::int64_t>::max() / 2),
                 "overflows");
}

TEST(TimeSpan, durationMayBeNegativeAndIsOnTheWorkingGrid) {
    EXPECT_EQ((TimeSpan{rt(1, 1), rt(3, 1)}.duration()), rt(120000, 60000));
    EXPECT_EQ((TimeSpan{rt(3, 1), rt(1, 1)}.duration()), rt(-120000, 60000));
    EXPECT_EQ((TimeSpan{rt(1, 2), rt(2, 4)}.duration()), rt(0, 60000));
}

TEST(RationalTime, recordJsonRoundTripsAndRefusesBadRecordsSayingWhere) {
    const TimeSpan span{rt(1001, 30000), rt(-7, 600)};
    const Json written = span;
    EXPECT_EQ(dumpJson(written, -1),
              R"({"start":{"value":1001,"timescale":30000},"end":{"value":-7,"timescale":600}})");
    const Json reread = parseJson(dumpJson(written), "span.json");
    EXPECT_EQ(JsonReader(reread, "span.json").get<TimeSpan>(), span);

    struct Bad {
        const char* json;
        const char* message;
    } bad[] = {
        {R"({"start":{"value":1},"end":{"value":1,"timescale":1}})",
         "span.json: /start/timescale: required key is missing"},
        {R"({"start":{"value":"1","timescale":1},"end":{"value":1,"timescale":1}})",
         "span.json: /start/value: expected an integer, found a string"},
        {R"({"start":{"value":1,"timescale":0},"end":{"value":1,"timescale":1}})",
         "span.json: /start/timescale: expected a timescale from 1 to 2147483647"},
        {R"({"start":{"value":1,"timescale":2147483648},"end":{"value":1,"timescale":1}})",
         "span.json: /start/timescale: expected a timescale from 1 to 2147483647"},
        {R"({"start":{"value":1.5,"timescale":2},"end":{"value":1,"timescale":1}})",
         "span.json: /start/value: expected an integer, found 1.500000"},
        {R"({"start":{"value":1,"timescale":1}})", "span.json: /end: required key is missing"},
        {R"({"start":{"value":1,"timescale":1},"end":null})", "span.json: /end: required value is null"},
        {R"([1,2])", "span.json: /: expected an object, found an array"},
    };
    for (const auto& b : bad) {
        const Json doc = parseJson(b.json, "span.json");
        try {
            (void)JsonReader(doc, "span.json").get<TimeSpan>();
            ADD_FAILURE() << "accepted " << b.json;
        } catch (const JsonDecodeError& e) {
            EXPECT_EQ(std::string(e.what()), b.message);
        }
    }
}

}  // namespace
}  // namespace morvane::engine
