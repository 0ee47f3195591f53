#pragma once

/// Clean up: the segments that the silence, filler and retake rules all keep.

#include <string_view>

namespace morvane::intelligence::CleanupComposer {

/// Whether typed text asks for the whole clean-up ("clean up", "remove mistakes", ...), ignoring case.
[[nodiscard]] bool matches(std::string_view instruction);

}  // namespace morvane::intelligence::CleanupComposer
