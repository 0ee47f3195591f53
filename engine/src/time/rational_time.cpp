#include "morvane/engine/time/rational_time.hpp"

#include <fmt/core.h>
#include <charconv>
#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>
#include <vector>

#include "morvane/engine/engine_error.hpp"
#include "morvane/engine/support/fatal.hpp"
#include "morvane/engine/support/text.hpp"

namespace morvane::engine {
namespace {

__extension__ using Int128 = __int128;

constexpr std::int64_t kInt64Max = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kInt64Min = std::numeric_limits<std::int64_t>::min();
constexpr std::int32_t kInt32Max = std::numeric_limits<std::int32_t>::max();
constexpr RationalTime kInvalid{0, 0};

Int128 absolute(Int128 v) {
    return v < 0 ? -v : v;
}

// num / den with den > 0, rounded as asked. C++ division truncates toward zero and the remainder takes the
// sign of the numerator, which is what both rounding rules start from.
Int128 divideRounded(Int128 num, Int128 den, TimeRounding rounding) {
    Int128 quotient = num / den;
    if (rounding == TimeRounding::halfAwayFromZero) {
        const Int128 remainder = num % den;
        if (2 * absolute(remainder) >= den) quotient += (num < 0 ? -1 : 1);
    }
    return quotient;
}

std::int64_t saturate(Int128 v) {
    if (v > kInt64Max) return kInt64Max;
    if (v < kInt64Min) return kInt64Min;
    return static_cast<std::int64_t>(v);
}

// The exact rational num/den (den > 0) on timescale 60000.
RationalTime onWorkingGrid(Int128 num, Int128 den) {
    return {
        saturate(divideRounded(num * RationalTime::workingTimescale, den, TimeRounding::halfAwayFromZero)),
        RationalTime::workingTimescale};
}

RationalTime combine(RationalTime a, RationalTime b, int sign) {
    if (!a.isValid() || !b.isValid()) return kInvalid;
    if (a.timescale == b.timescale && a.timescale == RationalTime::workingTimescale) {
        return {saturate(Int128{a.value} + sign * Int128{b.value}), RationalTime::workingTimescale};
    }
    const Int128 num = Int128{a.value} * b.timescale + sign * Int128{b.value} * a.timescale;
    return onWorkingGrid(num, Int128{a.timescale} * b.timescale);
}

// Swift's Int64(String): an optional sign, then ASCII digits only, within range.
bool parseInt64(std::string_view text, std::int64_t& out) {
    if (text.starts_with('+')) {
        text.remove_prefix(1);
        if (text.empty() || text.front() < '0' || text.front() > '9') return false;
    }
    const auto* end = text.data() + text.size();
    const auto [ptr, ec] = std::from_chars(text.data(), end, out);
    return ec == std::errc{} && ptr == end;
}

// The two numbers of "value/timescale" with an optional "s" and blanks around it, the timescale at least 1
// but not yet narrowed to 32 bits; nothing for any other text.
std::optional<std::pair<std::int64_t, std::int64_t>> parseParts(std::string_view text) noexcept {
    std::string_view body = trimWhitespaceAndNewlines(text);
    if (body.ends_with('s')) body.remove_suffix(1);
    const auto slash = body.find('/');
    if (slash == std::string_view::npos || body.find('/', slash + 1) != std::string_view::npos)
        return std::nullopt;
    const std::string_view numerator = body.substr(0, slash);
    const std::string_view denominator = body.substr(slash + 1);
    if (numerator.empty() || denominator.empty()) return std::nullopt;
    std::int64_t value = 0;
    std::int64_t scale = 0;
    if (!parseInt64(numerator, value) || !parseInt64(denominator, scale) || scale < 1) return std::nullopt;
    return std::pair{value, scale};
}

}  // namespace

RationalTime RationalTime::fromSeconds(double seconds, std::int32_t timescale) {
    const double product = seconds * timescale;
    // 2^63 as a double is the first value that no longer fits.
    if (!std::isfinite(product) || product >= 9223372036854775808.0 || product < -9223372036854775808.0) {
        MORVANE_FATAL("seconds value is not finite or does not fit a 64-bit time");
    }
    return {static_cast<std::int64_t>(std::round(product)), timescale};
}

RationalTime RationalTime::parse(std::string_view text) {
    const auto parts = parseParts(text);
    if (!parts) throw EngineError::invalidRationalTime(std::string(text));
    if (parts->second > kInt32Max) MORVANE_FATAL("rational time timescale exceeds 32 bits");
    return {parts->first, static_cast<std::int32_t>(parts->second)};
}

std::optional<RationalTime> RationalTime::tryParse(std::string_view text) noexcept {
    const auto parts = parseParts(text);
    if (!parts || parts->second > kInt32Max) return std::nullopt;
    return RationalTime{parts->first, static_cast<std::int32_t>(parts->second)};
}

std::string RationalTime::formatted(bool includeSuffix) const {
    return fmt::format("{}/{}{}", value, timescale, includeSuffix ? "s" : "");
}

RationalTime RationalTime::adding(RationalTime other) const noexcept {
    return combine(*this, other, 1);
}

RationalTime RationalTime::subtracting(RationalTime other) const noexcept {
    return combine(*this, other, -1);
}

RationalTime RationalTime::multipliedBy(double factor) const {
    MORVANE_ASSERT(std::isfinite(factor), "time scaled by a non-finite factor");
    if (!isValid()) return kInvalid;
    std::int64_t scale = timescale;
    Int128 ticks = value;
    while (scale < 65536) {
        scale *= 2;
        ticks *= 2;
    }
    const double product = static_cast<double>(ticks) * factor;
    Int128 scaled = 0;
    if (product >= 9223372036854775808.0) {
        scaled = kInt64Max;
    } else if (product < -9223372036854775808.0) {
        scaled = kInt64Min;
    } else {
        scaled = static_cast<std::int64_t>(std::round(product));
    }
    return onWorkingGrid(scaled, scale);
}

RationalTime RationalTime::convertedTo(std::int32_t newTimescale, TimeRounding rounding) const noexcept {
    if (!isValid() || newTimescale < 1) return kInvalid;
    if (newTimescale == timescale) return *this;
    return {saturate(divideRounded(Int128{value} * newTimescale, timescale, rounding)), newTimescale};
}

int RationalTime::compare(RationalTime other) const noexcept {
    if (!isValid() || !other.isValid()) {
        if (!isValid() && !other.isValid()) return 0;
        return isValid() ? -1 : 1;
    }
    const Int128 lhs = Int128{value} * other.timescale;
    const Int128 rhs = Int128{other.value} * timescale;
    return lhs < rhs ? -1 : (lhs > rhs ? 1 : 0);
}

double FrameRate::nominalFPS() const noexcept {
    if (frameDuration.value < 1) return 0.0;
    return static_cast<double>(frameDuration.timescale) / static_cast<double>(frameDuration.value);
}

std::int64_t FrameRate::frameIndex(RationalTime time) const noexcept {
    if (frameDuration.value < 1) return 0;
    const RationalTime onGrid = time.convertedTo(frameDuration.timescale, TimeRounding::towardZero);
    if (!onGrid.isValid()) return 0;
    return onGrid.value / frameDuration.value;
}

RationalTime FrameRate::timeForFrame(std::int64_t frame) const {
    std::int64_t value = 0;
    if (__builtin_mul_overflow(frame, frameDuration.value, &value)) {
        MORVANE_FATAL("frame time overflows 64 bits");
    }
    return {value, frameDuration.timescale};
}

void to_json(Json& json, const RationalTime& time) {
    json = Json::object();
    json["value"] = time.value;
    json["timescale"] = time.timescale;
}

void fromJson(const JsonReader& reader, RationalTime& time) {
    const auto value = reader["value"].get<std::int64_t>();
    const JsonReader scale = reader["timescale"];
    const auto timescale = scale.get<std::int64_t>();
    if (timescale < 1 || timescale > kInt32Max) scale.fail("expected a timescale from 1 to 2147483647");
    time = {value, static_cast<std::int32_t>(timescale)};
}

void to_json(Json& json, const TimeSpan& span) {
    json = Json::object();
    json["start"] = span.start;
    json["end"] = span.end;
}

void fromJson(const JsonReader& reader, TimeSpan& span) {
    span.start = reader["start"].get<RationalTime>();
    span.end = reader["end"].get<RationalTime>();
}

}  // namespace morvane::engine
