#pragma once

// Σ x² over a block of samples, in double precision. Four independent sums let the compiler keep the
// pipeline full without reassociating floating-point additions on its own.

#include <cstddef>
#include <span>

namespace morvane::engine {

[[nodiscard]] inline double sumOfSquares(std::span<const float> samples) noexcept {
    double a = 0.0, b = 0.0, c = 0.0, d = 0.0;
    const std::size_t n = samples.size();
    std::size_t i = 0;
    for (; i + 4 <= n; i += 4) {
        const double x0 = samples[i], x1 = samples[i + 1], x2 = samples[i + 2], x3 = samples[i + 3];
        a += x0 * x0;
        b += x1 * x1;
        c += x2 * x2;
        d += x3 * x3;
    }
    for (; i < n; ++i)
        a += static_cast<double>(samples[i]) * samples[i];
    return (a + b) + (c + d);
}

}  // namespace morvane::engine
