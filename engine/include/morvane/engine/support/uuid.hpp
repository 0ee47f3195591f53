#pragma once

/// Identifiers for records that must be unique across sessions (proposals, checkpoints): random
/// version-4 UUIDs in their upper-case text form, "E621E1F8-C36C-495A-93FC-0C247A3E6E5F".

#include <string>
#include <string_view>

namespace morvane {

/// A fresh random UUID.
[[nodiscard]] std::string makeUUID();

/// Whether `text` is a UUID in the 8-4-4-4-12 hexadecimal form (either case).
[[nodiscard]] bool isUUID(std::string_view text) noexcept;

}  // namespace morvane
