#pragma once

/// Dates in files and logs: ISO 8601 in UTC with whole seconds, "2026-11-22T03:08:23Z".

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace morvane {

using Date = std::chrono::system_clock::time_point;

/// `date` as "YYYY-MM-DDTHH:MM:SSZ", fractions of a second dropped.
[[nodiscard]] std::string formatISO8601(Date date);

/// A date written as "YYYY-MM-DDTHH:MM:SS" followed by "Z" or an offset "+HH:MM"/"-HH:MM", with optional
/// fractional seconds; nothing for anything else.
[[nodiscard]] std::optional<Date> parseISO8601(std::string_view text);

}  // namespace morvane
