#include "morvane/intelligence/cleanup/duration_target_packer.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "morvane/intelligence/support/regex.hpp"
#include "morvane/intelligence/support/text.hpp"

namespace morvane::intelligence {
namespace {

struct WordForm {
    std::string_view phrase;
    double seconds;
};

constexpr WordForm kWordForms[] = {
    {"three-minute", 180}, {"three minute", 180}, {"3-minute", 180}, {"3 minute", 180},
    {"two-minute", 120},   {"two minute", 120},   {"2-minute", 120}, {"2 minute", 120},
    {"one-minute", 60},    {"one minute", 60},    {"1-minute", 60},  {"1 minute", 60},
};

struct LengthPattern {
    std::optional<Regex> regex;
    double multiplier;
};

const std::array<LengthPattern, 4>& lengthPatterns() {
    static const std::array<LengthPattern, 4> patterns{{
        {Regex::compile(R"((\d+(?:\.\d+)?)\s*-?\s*seconds?)"), 1.0},
        {Regex::compile(R"((\d+(?:\.\d+)?)\s*s\b)"), 1.0},
        {Regex::compile(R"((\d+(?:\.\d+)?)\s*-?\s*min(?:ute)?s?\b)"), 60.0},
        {Regex::compile(R"(build a (\d+))"), 1.0},
    }};
    return patterns;
}

// A decimal number as written ("90", "1.5"), parsed locale-free; digits of other scripts don't parse.
std::optional<double> parseDecimal(std::string_view text) {
    double value = 0.0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
    return value;
}

double clampTarget(double seconds) {
    return std::clamp(seconds, DurationTargetPacker::minimumTargetSeconds,
                      DurationTargetPacker::maximumTargetSeconds);
}

}  // namespace

std::optional<double> DurationTargetPacker::targetSeconds(std::string_view instruction) {
    const std::string lowered = lowercased(instruction);
    for (const auto& form : kWordForms) {
        if (lowered.find(form.phrase) != std::string::npos) return form.seconds;
    }
    for (const auto& pattern : lengthPatterns()) {
        if (!pattern.regex) continue;
        const auto match = pattern.regex->firstMatch(lowered);
        if (!match) continue;
        const auto capture = match->capture(1);
        if (!capture) continue;
        const auto value = parseDecimal(*capture);
        if (!value || !(*value > 0.0)) continue;
        return clampTarget(*value * pattern.multiplier);
    }
    return std::nullopt;
}

bool DurationTargetPacker::matches(std::string_view instruction) {
    if (targetSeconds(instruction)) return true;
    return containsAny(lowercased(instruction),
                       {"short version with a strong hook", "short cut", "pack to a target"});
}

DurationTargetPacker::SecondsRange DurationTargetPacker::range(double targetSeconds) {
    const double c = clampTarget(targetSeconds);
    return {std::max(5.0, std::min(c - 0.5, c * 0.75)), c};
}

double DurationTargetPacker::hardMax(double targetSeconds) {
    if (targetSeconds < 8.0) return 10.0;
    if (targetSeconds >= 600.0) return 750.0;
    return std::min(std::max(targetSeconds * 1.25, 10.0), 750.0);
}

std::string DurationTargetPacker::displayLabel(double seconds) {
    const auto n = std::max<long long>(std::llround(seconds), 1);
    if (n >= 60 && n % 60 == 0) return n < 120 ? "1 min" : std::to_string(n / 60) + " min";
    return std::to_string(n) + "s";
}

std::string DurationTargetPacker::instruction(double targetSeconds) {
    const auto n = std::max<long long>(std::llround(targetSeconds), 1);
    return "Build a " + std::to_string(n) + "-second version with a strong hook.";
}

}  // namespace morvane::intelligence
