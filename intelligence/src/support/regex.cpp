#define PCRE2_CODE_UNIT_WIDTH 8
#include "morvane/intelligence/support/regex.hpp"

#include <pcre2.h>

namespace morvane::intelligence {

struct Regex::Code {
    pcre2_code* code = nullptr;
    ~Code() { pcre2_code_free(code); }
};

std::optional<std::string_view> Regex::Match::capture(std::size_t index) const {
    if (index >= groups_.size()) return std::nullopt;
    return groups_[index];
}

std::optional<Regex> Regex::compile(std::string_view pattern, bool caseInsensitive) {
    int error = 0;
    PCRE2_SIZE offset = 0;
    std::uint32_t options = PCRE2_UTF | PCRE2_UCP | PCRE2_MATCH_INVALID_UTF;
    if (caseInsensitive) options |= PCRE2_CASELESS;
    pcre2_code* compiled = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern.data()), pattern.size(),
                                         options, &error, &offset, nullptr);
    if (compiled == nullptr) return std::nullopt;
    auto code = std::make_shared<Code>();
    code->code = compiled;
    return Regex(std::move(code));
}

std::optional<Regex::Match> Regex::firstMatch(std::string_view subject) const {
    std::unique_ptr<pcre2_match_data, decltype(&pcre2_match_data_free)> data(
        pcre2_match_data_create_from_pattern(code_->code, nullptr), &pcre2_match_data_free);
    if (!data) return std::nullopt;
    const int rc = pcre2_match(code_->code, reinterpret_cast<PCRE2_SPTR>(subject.data()), subject.size(), 0,
                               0, data.get(), nullptr);
    if (rc < 0) return std::nullopt;
    const PCRE2_SIZE* ovector = pcre2_get_ovector_pointer(data.get());
    const std::uint32_t pairs = pcre2_get_ovector_count(data.get());
    Match match;
    match.groups_.reserve(pairs);
    for (std::uint32_t i = 0; i < pairs; ++i) {
        const PCRE2_SIZE start = ovector[2 * i];
        const PCRE2_SIZE end = ovector[2 * i + 1];
        if (start == PCRE2_UNSET || i >= static_cast<std::uint32_t>(rc == 0 ? pairs : rc)) {
            match.groups_.emplace_back(std::nullopt);
        } else {
            match.groups_.emplace_back(subject.substr(start, end - start));
        }
    }
    return match;
}

}  // namespace morvane::intelligence
