#include "morvane/engine/cache/media_job_scheduler.hpp"

#include <algorithm>
#include <thread>

namespace morvane::engine {

FifoSlots::FifoSlots(int limit) : limit_(std::max(limit, 1)) {}

bool FifoSlots::acquire(std::stop_token stop) {
    std::unique_lock lock(mutex_);
    if (running_ < limit_ && waiters_.empty()) {
        ++running_;
        return true;
    }
    const std::uint64_t ticket = nextTicket_++;
    waiters_.push_back(ticket);
    granted_.wait(lock, stop, [&] { return handedOver_.contains(ticket); });
    // A slot handed over just as the stop came is kept: the caller releases it like any other.
    if (handedOver_.erase(ticket) != 0) return true;
    std::erase(waiters_, ticket);
    return false;
}

void FifoSlots::release() {
    const std::lock_guard lock(mutex_);
    if (waiters_.empty()) {
        running_ = std::max(running_ - 1, 0);
        return;
    }
    // The slot passes straight to the longest waiter, so a newcomer can't overtake it.
    handedOver_.insert(waiters_.front());
    waiters_.pop_front();
    granted_.notify_all();
}

int FifoSlots::waiting() const {
    const std::lock_guard lock(mutex_);
    return static_cast<int>(waiters_.size());
}

int MediaJobScheduler::decodeLimit(unsigned processors) noexcept {
    if (processors >= 8) return 4;
    if (processors >= 4) return static_cast<int>(processors / 2);
    return 2;
}

MediaJobScheduler& MediaJobScheduler::shared() {
    static MediaJobScheduler scheduler(decodeLimit(std::thread::hardware_concurrency()));
    return scheduler;
}

}  // namespace morvane::engine
