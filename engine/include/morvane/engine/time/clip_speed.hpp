#pragma once

/// Clip speed: which rates count, and how a source length becomes a program length.
///
///     ClipSpeed::programDuration(RationalTime{10, 1}, 2.0);   // 300000/60000: 5 s of program
///     ClipSpeed::programDuration(RationalTime{10, 1}, 1.00005); // 10/1, untouched: too close to 1x to scale
///     ClipSpeed::displayLabel(0.25);                           // "0.25×"
///
/// A rate that is absent, zero, negative or not finite plays at 1.0, at every entry point.

#include <array>
#include <optional>
#include <string>

#include "morvane/engine/time/rational_time.hpp"

namespace morvane::engine::ClipSpeed {

inline constexpr double defaultRate = 1.0;
/// The rates offered in menus, slowest first.
inline constexpr std::array<double, 8> presets{0.25, 0.5, 0.75, 1.0, 1.25, 1.5, 2.0, 4.0};

/// `rate` when it is present, finite and above zero; otherwise 1.0.
[[nodiscard]] double resolved(std::optional<double> rate) noexcept;

/// Whether the resolved rate is at least 0.0001 away from 1.0, so that lengths must be scaled.
[[nodiscard]] bool needsScale(std::optional<double> rate) noexcept;

/// The program length of `source` played at `rate`: `source` itself (its timescale kept) when no scale is
/// needed, else `source` × 1/rate rounded to timescale 60000, half away from zero. A rate so small that
/// 1/rate is infinite gives the longest time there is.
[[nodiscard]] RationalTime programDuration(RationalTime source, std::optional<double> rate);

/// The inverse: the source length that plays for `program` at `rate`, rounded the same way.
[[nodiscard]] RationalTime sourceDuration(RationalTime program, std::optional<double> rate);

/// "2×" when the resolved rate is within 0.001 of a whole number, else the rate as printf's "%g" writes it
/// ("1.25×", "0.75×"). Locale-free.
[[nodiscard]] std::string displayLabel(std::optional<double> rate);

/// "1× — Normal" when `rate` is less than 0.001 from 1.0, else `displayLabel(rate)`.
[[nodiscard]] std::string menuTitle(double rate);

}  // namespace morvane::engine::ClipSpeed
