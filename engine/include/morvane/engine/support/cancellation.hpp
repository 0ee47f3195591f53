#pragma once

/// Cancelling long work: operations take a `std::stop_token` and, when a stop is requested, throw
/// `OperationCancelled`, which front ends show as a cancelled step rather than a failure.
///
///     for (auto& block : blocks) { throwIfStopRequested(stop); decode(block); }

#include <exception>
#include <stop_token>

namespace morvane {

class OperationCancelled : public std::exception {
  public:
    [[nodiscard]] const char* what() const noexcept override { return "Cancelled."; }
};

inline void throwIfStopRequested(const std::stop_token& stop) {
    if (stop.stop_requested()) throw OperationCancelled();
}

}  // namespace morvane
