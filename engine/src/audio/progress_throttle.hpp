#pragma once

// Progress for streaming reads: the share of samples read, capped below 1 until the work is done, and
// passed on only when it has grown by more than a step, so that callbacks stay rare on long files.

#include <algorithm>

#include "morvane/engine/support/cancellation.hpp"

namespace morvane::engine {

class ProgressThrottle {
  public:
    explicit ProgressThrottle(const ProgressCallback& callback, double step = 0.02) noexcept
        : callback_(callback), step_(step) {}

    /// Passes min(share, 0.99) on when it exceeds the last value passed on by more than the step.
    void report(double share) {
        if (!callback_) return;
        const double capped = std::min(share, 0.99);
        if (capped - last_ > step_) {
            last_ = capped;
            callback_(capped);
        }
    }

    /// Passes 1.0 on.
    void finish() {
        if (callback_) callback_(1.0);
    }

  private:
    const ProgressCallback& callback_;
    double step_;
    double last_ = 0.0;
};

}  // namespace morvane::engine
