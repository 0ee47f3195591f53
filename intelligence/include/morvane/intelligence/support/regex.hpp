#pragma once

/// Regular expressions for the assistant's rules: PCRE2 in UTF mode with Unicode character classes
/// (\d, \s, \b and \w know Unicode), compiled once.
///
///     static const auto seconds = Regex::compile(R"((\d+(?:\.\d+)?)\s*s\b)");
///     if (seconds) if (auto m = seconds->firstMatch("a 90s cut")) m->capture(1);   // "90"

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace morvane::intelligence {

class Regex {
  public:
    /// The first match of a pattern in a subject: the whole match and its capture groups.
    class Match {
      public:
        /// Group `index` (0 is the whole match), or nothing when that group took no part in the match.
        [[nodiscard]] std::optional<std::string_view> capture(std::size_t index) const;

      private:
        friend class Regex;
        std::vector<std::optional<std::string_view>> groups_;
    };

    /// The compiled pattern, or nothing when it doesn't compile.
    [[nodiscard]] static std::optional<Regex> compile(std::string_view pattern, bool caseInsensitive = false);

    /// The first match in `subject` (valid UTF-8), or nothing. The match borrows `subject`.
    [[nodiscard]] std::optional<Match> firstMatch(std::string_view subject) const;

  private:
    struct Code;
    explicit Regex(std::shared_ptr<const Code> code) : code_(std::move(code)) {}
    std::shared_ptr<const Code> code_;
};

}  // namespace morvane::intelligence
