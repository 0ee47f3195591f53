#pragma once

/// Locale-free text helpers that the engine needs without a Unicode library. Strings are UTF-8.

#include <string_view>
#include <vector>

namespace morvane {

/// True for the Unicode white space and line separators: U+0009-U+000D, U+0020, U+0085, U+00A0, U+1680,
/// U+2000-U+200A, U+2028, U+2029, U+202F, U+205F and U+3000.
[[nodiscard]] bool isWhitespaceOrNewline(char32_t c) noexcept;

/// `text` without white space and newlines at either end. Malformed UTF-8 is never trimmed.
[[nodiscard]] std::string_view trimWhitespaceAndNewlines(std::string_view text) noexcept;

/// The pieces of `text` between runs of white space and newlines, in order, none of them empty. Malformed
/// UTF-8 is never a separator.
[[nodiscard]] std::vector<std::string_view> splitAtWhitespace(std::string_view text);

}  // namespace morvane
