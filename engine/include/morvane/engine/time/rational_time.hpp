#pragma once

/// Exact time for the whole edit model: a signed 64-bit count of ticks over a signed 32-bit timescale.
///
///     auto a = RationalTime::parse("1001/30000s");          // value 1001, timescale 30000, kept as written
///     auto b = a.adding(RationalTime::zero);                // 2002/60000: results meet on the working grid
///     a < RationalTime{1, 2};                               // ordering is numeric across timescales
///     RationalTime{2, 4} == RationalTime{1, 2};             // false: equality (and hashing) is field-wise
///     auto half = RationalTime::fromSeconds(0.5, 600);      // 300/600
///     b.formatted();                                        // "2002/60000s"
///
/// Rounding happens in one place: every sum, difference, speed scaling or conversion from a media timestamp
/// lands on timescale 60000, rounded half away from zero. Frame indexing alone truncates toward zero.
/// A time whose timescale is below 1 is invalid; it only comes from a record built by hand, and arithmetic
/// on it gives the invalid time 0/0. Results beyond the signed 64-bit range saturate.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "morvane/engine/support/json.hpp"

namespace morvane::engine {

/// How a rescaled time drops the ticks that the new timescale cannot hold.
enum class TimeRounding { halfAwayFromZero, towardZero };

struct RationalTime {
    /// The grid of every arithmetic result: 24, 25, 30, 50 and 60 fps and their NTSC rates have whole-tick
    /// frames on it (except 23.976, whose 2502.5-tick frame rounds where it is added).
    static constexpr std::int32_t workingTimescale = 60000;
    /// The timescale of times made from a seconds value that has no frame grid of its own.
    static constexpr std::int32_t secondsTimescale = 600;
    static const RationalTime zero;

    std::int64_t value = 0;      ///< ticks of 1/timescale second; may be negative
    std::int32_t timescale = 1;  ///< ticks per second; at least 1 when well formed

    /// `seconds × timescale` rounded half away from zero, on `timescale` as given.
    /// A non-finite product, or one beyond 64 bits, is fatal.
    [[nodiscard]] static RationalTime fromSeconds(double seconds, std::int32_t timescale);

    /// Parses "value/timescale" with an optional trailing "s" and blanks around it ("  1001/30000s\n"),
    /// keeping both numbers as written. Throws `EngineError::invalidRationalTime` quoting `text` unchanged
    /// for anything else ("12", "1.5s", "5/0s"); a timescale beyond 2147483647 is fatal.
    [[nodiscard]] static RationalTime parse(std::string_view text);

    /// What `parse` reads, or nothing for what it refuses and for a timescale beyond 2147483647 as well:
    /// for text from files, which must never stop the process.
    [[nodiscard]] static std::optional<RationalTime> tryParse(std::string_view text) noexcept;

    /// "value/timescale", followed by "s" when `includeSuffix`. No reduction, no padding.
    [[nodiscard]] std::string formatted(bool includeSuffix = true) const;

    /// value / timescale in double precision, unguarded.
    [[nodiscard]] double seconds() const noexcept { return static_cast<double>(value) / timescale; }

    [[nodiscard]] bool isValid() const noexcept { return timescale >= 1; }

    /// The exact sum, on timescale 60000, rounded half away from zero.
    [[nodiscard]] RationalTime adding(RationalTime other) const noexcept;
    /// The exact difference, on timescale 60000, rounded half away from zero.
    [[nodiscard]] RationalTime subtracting(RationalTime other) const noexcept;

    /// This time scaled by `factor` (a speed change): the operand's timescale is doubled until it reaches
    /// 65536, the product is rounded there half away from zero, then rescaled to 60000 the same way.
    /// A non-finite factor is fatal.
    [[nodiscard]] RationalTime multipliedBy(double factor) const;

    /// This time on `newTimescale` (at least 1), dropping ticks as `rounding` says.
    [[nodiscard]] RationalTime convertedTo(std::int32_t newTimescale, TimeRounding rounding) const noexcept;

    /// -1, 0 or 1 as this time is before, at or after `other`, compared as exact rationals.
    /// Invalid times equal each other and come after every valid time.
    [[nodiscard]] int compare(RationalTime other) const noexcept;

    friend bool operator==(RationalTime, RationalTime) = default;
    friend bool operator<(RationalTime a, RationalTime b) noexcept { return a.compare(b) < 0; }
    friend bool operator>(RationalTime a, RationalTime b) noexcept { return a.compare(b) > 0; }
    friend bool operator<=(RationalTime a, RationalTime b) noexcept { return a.compare(b) <= 0; }
    friend bool operator>=(RationalTime a, RationalTime b) noexcept { return a.compare(b) >= 0; }
};

inline constexpr RationalTime RationalTime::zero{0, 1};

/// A frame duration: "1001/30000" is 29.97 frames per second.
struct FrameRate {
    RationalTime frameDuration{1, 30};

    /// frameDuration.timescale / frameDuration.value; 0.0 when the value is below 1.
    [[nodiscard]] double nominalFPS() const noexcept;

    /// The frame that holds `time`: the time on the frame duration's timescale (rounded toward zero),
    /// divided by the frame duration's value. 0 for a frame duration below one tick.
    [[nodiscard]] std::int64_t frameIndex(RationalTime time) const noexcept;

    /// The start of frame `frame`, on the frame duration's own timescale. Overflow is fatal.
    [[nodiscard]] RationalTime timeForFrame(std::int64_t frame) const;

    friend bool operator==(const FrameRate&, const FrameRate&) = default;
};

/// A half-open range of program or source time. It keeps no invariant: `end` may precede `start`.
struct TimeSpan {
    RationalTime start;
    RationalTime end;

    /// end - start, on timescale 60000; negative when the span is reversed.
    [[nodiscard]] RationalTime duration() const noexcept { return end.subtracting(start); }

    friend bool operator==(const TimeSpan&, const TimeSpan&) = default;
};

/// The record form {"value": integer, "timescale": integer}, both keys required; a timescale below 1 or
/// beyond 32 bits is refused.
void to_json(Json& json, const RationalTime& time);
void fromJson(const JsonReader& reader, RationalTime& time);
/// {"start": RationalTime, "end": RationalTime}.
void to_json(Json& json, const TimeSpan& span);
void fromJson(const JsonReader& reader, TimeSpan& span);

}  // namespace morvane::engine

template <>
struct std::hash<morvane::engine::RationalTime> {
    std::size_t operator()(morvane::engine::RationalTime t) const noexcept {
        const auto v = static_cast<std::uint64_t>(t.value);
        const auto s = static_cast<std::uint64_t>(static_cast<std::uint32_t>(t.timescale));
        return std::hash<std::uint64_t>{}(v ^ (s * 0x9E3779B97F4A7C15ull));
    }
};

template <>
struct std::hash<morvane::engine::FrameRate> {
    std::size_t operator()(const morvane::engine::FrameRate& r) const noexcept {
        return std::hash<morvane::engine::RationalTime>{}(r.frameDuration);
    }
};

template <>
struct std::hash<morvane::engine::TimeSpan> {
    std::size_t operator()(const morvane::engine::TimeSpan& s) const noexcept {
        const std::hash<morvane::engine::RationalTime> h;
        return h(s.start) * 31 + h(s.end);
    }
};
