#pragma once

/// Unicode text operations behind the assistant's rules, on UTF-8 strings, through ICU. Case mapping is
/// the locale-independent default; "characters" are user-perceived characters (grapheme clusters).
///
///     lowercased("REMOVE Retakes")          // "remove retakes"
///     trimmingPunctuation("\"Um,\"")        // "Um"
///     characterCount("e\u0301t\u00e9")      // 3: "é" written with a combining accent is one character
///     containsAlphanumeric("...")            // false

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "morvane/engine/support/text.hpp"

namespace morvane::intelligence {

/// Full Unicode lowercase mapping, independent of the user's locale.
[[nodiscard]] std::string lowercased(std::string_view text);

/// `text` without punctuation (Unicode general category P) at either end.
[[nodiscard]] std::string_view trimmingPunctuation(std::string_view text);

/// True for letters, marks and numbers (Unicode general categories L, M and N).
[[nodiscard]] bool isAlphanumeric(char32_t c) noexcept;

/// Whether some character of `text` is a letter, mark or number.
[[nodiscard]] bool containsAlphanumeric(std::string_view text);

/// The number of user-perceived characters (extended grapheme clusters).
[[nodiscard]] std::size_t characterCount(std::string_view text);

/// The first `count` user-perceived characters of `text` (all of it when shorter).
[[nodiscard]] std::string_view firstCharacters(std::string_view text, std::size_t count);

/// Case-insensitive comparison in the collation order of the user's locale: negative, zero or positive.
[[nodiscard]] int localizedCaseInsensitiveCompare(std::string_view a, std::string_view b);

/// The pieces of `text` between runs of white space and newlines, empty pieces left out.
[[nodiscard]] std::vector<std::string_view> whitespaceSeparatedWords(std::string_view text);

/// Whether `text` contains any of `needles` (plain byte containment of UTF-8).
[[nodiscard]] bool containsAny(std::string_view text, std::initializer_list<std::string_view> needles);

}  // namespace morvane::intelligence
