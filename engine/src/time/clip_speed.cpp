#include "morvane/engine/time/clip_speed.hpp"

#include <fmt/core.h>

#include <cmath>
#include <limits>

namespace morvane::engine {

double ClipSpeed::resolved(std::optional<double> rate) noexcept {
    if (rate && std::isfinite(*rate) && *rate > 0.0) return *rate;
    return defaultRate;
}

bool ClipSpeed::needsScale(std::optional<double> rate) noexcept {
    return std::abs(resolved(rate) - 1.0) >= 0.0001;
}

RationalTime ClipSpeed::programDuration(RationalTime source, std::optional<double> rate) {
    if (!needsScale(rate)) return source;
    double factor = 1.0 / resolved(rate);
    // A subnormal rate overflows the reciprocal; the scaled time saturates either way.
    if (!std::isfinite(factor)) factor = std::numeric_limits<double>::max();
    return source.multipliedBy(factor);
}

RationalTime ClipSpeed::sourceDuration(RationalTime program, std::optional<double> rate) {
    if (!needsScale(rate)) return program;
    return program.multipliedBy(resolved(rate));
}

std::string ClipSpeed::displayLabel(std::optional<double> rate) {
    const double r = resolved(rate);
    const double whole = std::round(r);
    if (std::abs(r - whole) <= 0.001) return fmt::format("{:.0f}×", whole);
    return fmt::format("{:g}×", r);
}

std::string ClipSpeed::menuTitle(double rate) {
    if (std::abs(rate - 1.0) < 0.001) return "1× — Normal";
    return displayLabel(rate);
}

}  // namespace morvane::engine
