#pragma once

// Long verbs on a terminal: a progress bar on stderr, and Ctrl-C turned into a clean stop.

#include <chrono>
#include <csignal>
#include <stop_token>
#include <string>
#include <thread>

namespace morvane::cli {

/// What a bar shows besides the share done.
struct ProgressStyle {
    bool timeLeft = false;  ///< an estimate of the time left ("2:05 left"), for work that runs for minutes
};

/// A one-line bar on stderr ("silences [#########           ]  45%"). It appears only on a terminal (or
/// with MORVANE_PROGRESS=always) and only once the work has run for half a second, so quick runs print
/// nothing. The line is cleared when the bar is destroyed.
class ProgressBar {
  public:
    explicit ProgressBar(std::string label, ProgressStyle style = {});
    ~ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    /// The share of the work done, 0 to 1.
    void update(double share);

  private:
    [[nodiscard]] std::string timeLeft(double share) const;

    std::string label_;
    ProgressStyle style_;
    bool enabled_;
    bool drawn_ = false;
    int lastPercent_ = -1;
    std::string lastTimeLeft_;
    std::chrono::steady_clock::time_point started_;
};

/// While it lives, SIGINT and SIGTERM request a stop on `token()` instead of killing the process, so that
/// the work ends through its own cancellation path and nothing is left half-written.
class InterruptStop {
  public:
    InterruptStop();
    ~InterruptStop();
    InterruptStop(const InterruptStop&) = delete;
    InterruptStop& operator=(const InterruptStop&) = delete;

    [[nodiscard]] std::stop_token token() const noexcept { return source_.get_token(); }

  private:
    std::stop_source source_;
    sigset_t previousMask_{};
    std::jthread watcher_;
};

/// Runs `work(progress, stop)` with a bar labelled `label` and Ctrl-C as its stop, and returns its result
/// once the bar is cleared from the terminal.
template <class Work>
auto withProgress(std::string label, Work&& work, ProgressStyle style = {}) {
    const InterruptStop interrupt;
    ProgressBar bar(std::move(label), style);
    return work([&bar](double share) { bar.update(share); }, interrupt.token());
}

}  // namespace morvane::cli
