#pragma once

/// Finds repeated takes of a line among nearby segments and keeps the best one.

#include <string_view>

namespace morvane::intelligence::RetakeDetector {

/// Whether typed text is about retakes ("retake", "start over", "best take", "dedupe", ...), ignoring case.
[[nodiscard]] bool matches(std::string_view instruction);

}  // namespace morvane::intelligence::RetakeDetector
