#include "morvane/engine/support/iso_date.hpp"

#include <fmt/core.h>

#include <charconv>
#include <ctime>

namespace morvane {
namespace {

bool readNumber(std::string_view text, std::size_t at, std::size_t digits, int& out) {
    if (at + digits > text.size()) return false;
    for (std::size_t i = at; i < at + digits; ++i) {
        if (text[i] < '0' || text[i] > '9') return false;
    }
    std::from_chars(text.data() + at, text.data() + at + digits, out);
    return true;
}

}  // namespace

std::string formatISO8601(Date date) {
    const std::time_t seconds =
        std::chrono::system_clock::to_time_t(std::chrono::floor<std::chrono::seconds>(date));
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}Z", utc.tm_year + 1900, utc.tm_mon + 1,
                       utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec);
}

std::optional<Date> parseISO8601(std::string_view text) {
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    if (text.size() < 20 || text[4] != '-' || text[7] != '-' || text[10] != 'T' || text[13] != ':' ||
        text[16] != ':' || !readNumber(text, 0, 4, year) || !readNumber(text, 5, 2, month) ||
        !readNumber(text, 8, 2, day) || !readNumber(text, 11, 2, hour) || !readNumber(text, 14, 2, minute) ||
        !readNumber(text, 17, 2, second)) {
        return std::nullopt;
    }
    if (month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 60) {
        return std::nullopt;
    }
    std::size_t at = 19;
    std::chrono::nanoseconds fraction{0};
    if (text[at] == '.') {
        ++at;
        long long scale = 100000000;
        const std::size_t first = at;
        while (at < text.size() && text[at] >= '0' && text[at] <= '9') {
            fraction += std::chrono::nanoseconds((text[at] - '0') * scale);
            scale /= 10;
            ++at;
        }
        if (at == first) return std::nullopt;
    }
    int offsetMinutes = 0;
    if (at < text.size() && text[at] == 'Z' && at + 1 == text.size()) {
        // UTC
    } else if (at + 6 == text.size() && (text[at] == '+' || text[at] == '-') && text[at + 3] == ':') {
        int oh = 0, om = 0;
        if (!readNumber(text, at + 1, 2, oh) || !readNumber(text, at + 4, 2, om)) return std::nullopt;
        offsetMinutes = (oh * 60 + om) * (text[at] == '-' ? -1 : 1);
    } else {
        return std::nullopt;
    }
    std::tm utc{};
    utc.tm_year = year - 1900;
    utc.tm_mon = month - 1;
    utc.tm_mday = day;
    utc.tm_hour = hour;
    utc.tm_min = minute;
    utc.tm_sec = second;
    const std::time_t seconds = timegm(&utc);
    // The clock counts nanoseconds in 64 bits: about 1678 to 2262. A date outside (a damaged file's year
    // 4052) isn't one this system can hold; a day's margin leaves room for the offset and the fraction.
    using Seconds = std::chrono::seconds;
    constexpr auto kLatest = std::chrono::floor<Seconds>(Date::max()).time_since_epoch().count() - 86'400;
    constexpr auto kEarliest = std::chrono::ceil<Seconds>(Date::min()).time_since_epoch().count() + 86'400;
    if (seconds > kLatest || seconds < kEarliest) return std::nullopt;
    return std::chrono::system_clock::from_time_t(seconds) - std::chrono::minutes(offsetMinutes) +
           std::chrono::duration_cast<std::chrono::system_clock::duration>(fraction);
}

}  // namespace morvane
