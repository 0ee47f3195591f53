#include "progress.hpp"

#include <fmt/core.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace morvane::cli {
namespace {

constexpr int kBarWidth = 30;
constexpr auto kShowAfter = std::chrono::milliseconds(500);
constexpr double kEstimateAfterShare = 0.02;
constexpr double kEstimateAfterSeconds = 3.0;

bool progressWanted() {
    const char* mode = std::getenv("MORVANE_PROGRESS");
    if (mode != nullptr && std::strcmp(mode, "always") == 0) return true;
    if (mode != nullptr && std::strcmp(mode, "never") == 0) return false;
    return isatty(STDERR_FILENO) == 1;
}

sigset_t interruptSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    return set;
}

}  // namespace

ProgressBar::ProgressBar(std::string label, ProgressStyle style)
    : label_(std::move(label)),
      style_(style),
      enabled_(progressWanted()),
      started_(std::chrono::steady_clock::now()) {}

ProgressBar::~ProgressBar() {
    if (drawn_) std::fputs("\r\033[K", stderr);
}

std::string ProgressBar::timeLeft(double share) const {
    // The rate so far, once there is enough of it to go by: a straight line to the end.
    const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - started_).count();
    if (!style_.timeLeft || share < kEstimateAfterShare || elapsed < kEstimateAfterSeconds) return {};
    const auto seconds = static_cast<long>(std::lround(elapsed * (1.0 - share) / share));
    return fmt::format("  {}:{:02d} left", seconds / 60, seconds % 60);
}

void ProgressBar::update(double share) {
    if (!enabled_) return;
    const int percent = std::clamp(static_cast<int>(share * 100.0), 0, 100);
    std::string left = timeLeft(share);
    if (percent == lastPercent_ && left == lastTimeLeft_) return;
    if (!drawn_ && std::chrono::steady_clock::now() - started_ < kShowAfter) return;
    lastPercent_ = percent;
    lastTimeLeft_ = std::move(left);
    drawn_ = true;
    const int filled = percent * kBarWidth / 100;
    fmt::print(stderr, "\r{} [{}{}] {:3d}%{}\033[K", label_,
               std::string(static_cast<std::size_t>(filled), '#'),
               std::string(static_cast<std::size_t>(kBarWidth - filled), ' '), percent, lastTimeLeft_);
    std::fflush(stderr);
}

InterruptStop::InterruptStop() {
    // Blocked here, the signals stay pending for the watcher alone: threads started later inherit the mask.
    const sigset_t signals = interruptSignals();
    pthread_sigmask(SIG_BLOCK, &signals, &previousMask_);
    watcher_ = std::jthread([this, signals](std::stop_token done) {
        const timespec poll{0, 100'000'000};
        while (!done.stop_requested()) {
            if (sigtimedwait(&signals, nullptr, &poll) > 0) source_.request_stop();
        }
    });
}

InterruptStop::~InterruptStop() {
    watcher_.request_stop();
    watcher_.join();
    pthread_sigmask(SIG_SETMASK, &previousMask_, nullptr);
}

}  // namespace morvane::cli
