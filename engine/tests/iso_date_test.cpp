#include "morvane/engine/support/iso_date.hpp"

#include <gtest/gtest.h>

namespace morvane {
namespace {

TEST(ISO8601, readsUtcOffsetsAndFractionsAndRefusesWhatTheClockCantHold) {
    const auto reference = parseISO8601("2026-11-22T09:30:00Z");
    ASSERT_TRUE(reference.has_value());
    EXPECT_EQ(formatISO8601(*reference), "2026-11-22T09:30:00Z");
    struct Case {
        const char* text;
        std::optional<const char*> written;  // as formatted again; none: refused
    } cases[] = {
        {"2026-11-22T10:30:00+01:00", "2026-11-22T09:30:00Z"},
        {"2026-11-22T09:30:00.75Z", "2026-11-22T09:30:00Z"},  // fractions are read, written whole
        {"1970-01-01T00:00:00Z", "1970-01-01T00:00:00Z"},
        {"2261-12-31T00:00:00Z", "2261-12-31T00:00:00Z"},
        {"2262-12-31T00:00:00Z", std::nullopt},  // past the 64-bit nanosecond clock
        {"4052-11-23T18:28:20Z", std::nullopt},
        {"1600-01-01T00:00:00Z", std::nullopt},
        {"2026-13-01T00:00:00Z", std::nullopt},
        {"2026-11-22 09:30:00Z", std::nullopt},
        {"2026-11-22T09:30:00", std::nullopt},
    };
    for (const auto& c : cases) {
        const auto date = parseISO8601(c.text);
        ASSERT_EQ(date.has_value(), c.written.has_value()) << c.text;
        if (date) {
            EXPECT_EQ(formatISO8601(*date), *c.written) << c.text;
        }
    }
}

}  // namespace
}  // namespace morvane
