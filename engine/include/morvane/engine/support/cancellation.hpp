#pragma once

/// Progress and cancellation for long operations. Each takes a progress callback (a share of the work
/// from 0 to 1) and a `std::stop_token`; a requested stop ends the work by throwing `OperationCancelled`.
///
///     std::stop_source source;
///     std::jthread worker([&] {
///         try { auto spans = SilenceDetector::detect(path, {}, [](double share) { bar.set(share); },
///                                                   source.get_token()); }
///         catch (const OperationCancelled&) { /* the user stopped it; nothing was written */ }
///     });
///     source.request_stop();

#include <exception>
#include <functional>
#include <stop_token>

namespace morvane {

/// Receives the share of the work done, from 0 to 1.
using ProgressCallback = std::function<void(double)>;

/// A long operation stopped because its stop token asked it to. `what()` is "Cancelled".
class OperationCancelled : public std::exception {
  public:
    [[nodiscard]] const char* what() const noexcept override { return "Cancelled"; }
};

/// Throws `OperationCancelled` when `stop` has been requested.
inline void throwIfStopRequested(const std::stop_token& stop) {
    if (stop.stop_requested()) throw OperationCancelled();
}

}  // namespace morvane
