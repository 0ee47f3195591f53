#pragma once

/// Keeps the spoken segments and drops those that sit in long pauses.

#include <string_view>

namespace morvane::intelligence::SilenceRemover {

/// Pauses at least this long (seconds) count against a segment.
inline constexpr double defaultMinPauseSeconds = 1.5;

/// Whether typed text asks for silence removal ("cut pauses", "keep spoken", ...), ignoring case.
[[nodiscard]] bool matches(std::string_view instruction);

}  // namespace morvane::intelligence::SilenceRemover
