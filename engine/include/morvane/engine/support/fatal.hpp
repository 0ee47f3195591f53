#pragma once

/// Fatal programming errors: broken invariants that no user action can cause and no caller can recover
/// from (a timescale above 2^31-1, NaN seconds). They print where and why, then abort the process.
///
///     MORVANE_ASSERT(rate > 0.0, "speed must be positive here");
///     if (overflowed) MORVANE_FATAL("frame index overflows 64 bits");

#include <string_view>

namespace morvane::detail {
[[noreturn]] void fatal(const char* file, int line, std::string_view message) noexcept;
}  // namespace morvane::detail

#define MORVANE_FATAL(message) ::morvane::detail::fatal(__FILE__, __LINE__, (message))
#define MORVANE_ASSERT(condition, message) ((condition) ? static_cast<void>(0) : MORVANE_FATAL(message))
