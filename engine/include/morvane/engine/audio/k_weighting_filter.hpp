#pragma once

/// K-weighting: the frequency weighting of programme loudness, a high shelf (+4 dB above ~1.5 kHz, the
/// head's acoustic effect) followed by a high-pass (the RLB curve, -3 dB near 38 Hz).
///
/// Each stage is a biquad in transposed direct form II with 64-bit state:
///
///     y[n]  = b0·x[n] + s1
///     s1    = b1·x[n] − a1·y[n] + s2
///     s2    = b2·x[n] − a2·y[n]
///
/// The shelf's output is stored as a 32-bit float before the high-pass, as the samples between the two
/// stages are. The coefficients are the 48 kHz ones and are used at every rate, which is why audio is
/// measured at 48 kHz.
///
///     KWeightingFilter filter;
///     filter.process(block);      // in place, block after block; the state carries over

#include <span>

namespace morvane::engine {

/// One second-order section in transposed direct form II; `step` filters one sample.
struct Biquad {
    double b0, b1, b2, a1, a2;
    double s1 = 0.0;
    double s2 = 0.0;

    /// The output for input `x`, advancing the state.
    [[nodiscard]] double step(double x) noexcept {
        const double y = b0 * x + s1;
        s1 = b1 * x - a1 * y + s2;
        s2 = b2 * x - a2 * y;
        return y;
    }
};

/// The shelf and the high-pass in series, with their 48 kHz coefficients.
class KWeightingFilter {
  public:
    /// Weights `samples` in place.
    void process(std::span<float> samples) noexcept {
        for (float& sample : samples) {
            const auto shelved = static_cast<float>(shelf_.step(sample));
            sample = static_cast<float>(highPass_.step(shelved));
        }
    }

    /// Back to silence, as before the first sample.
    void reset() noexcept { *this = KWeightingFilter{}; }

  private:
    Biquad shelf_{1.535124859586665, -2.691696194406738, 1.1983928128521886, -1.69065929318241,
                  0.73248077421585};
    Biquad highPass_{1.0, -2.0, 1.0, -1.99004745483398, 0.99007225036621};
};

}  // namespace morvane::engine
