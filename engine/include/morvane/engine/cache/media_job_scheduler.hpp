#pragma once

/// Bounds the background decoding that caches do (waveforms, and more to come), so it never starves
/// playback, and lets one proxy be made at a time. Waiters are served first come, first served. Acquires
/// block the calling worker thread; a stop request gives up the wait.
///
///     MediaJobSlot slot(MediaJobScheduler::shared().decodeSlots(), stop);
///     if (!slot.acquired()) return;   // stopped while waiting
///     ... decode ...                  // the slot is given back with `slot`

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <set>
#include <stop_token>

namespace morvane::engine {

/// A counted set of slots handed out in request order.
class FifoSlots {
  public:
    explicit FifoSlots(int limit);
    /// Takes a slot, waiting behind earlier requests when all are taken. False when `stop` was requested
    /// before a slot came.
    bool acquire(std::stop_token stop);
    /// Gives a slot back: the longest waiter gets it, or it becomes free.
    void release();
    [[nodiscard]] int limit() const noexcept { return limit_; }
    /// Requests waiting now.
    [[nodiscard]] int waiting() const;

  private:
    int limit_;
    mutable std::mutex mutex_;
    std::condition_variable_any granted_;
    int running_ = 0;
    std::uint64_t nextTicket_ = 0;
    std::deque<std::uint64_t> waiters_;
    std::set<std::uint64_t> handedOver_;
};

/// The decode slots and the single proxy slot.
class MediaJobScheduler {
  public:
    /// Slots for decoding with `processors` active processors: 4 at 8 or more, half of them at 4 to 7, 2
    /// below.
    [[nodiscard]] static int decodeLimit(unsigned processors) noexcept;
    /// The instance every cache shares, sized by this computer's processors.
    static MediaJobScheduler& shared();

    explicit MediaJobScheduler(int decodeLimit) : decode_(decodeLimit), proxy_(1) {}

    bool acquireDecode(std::stop_token stop = {}) { return decode_.acquire(std::move(stop)); }
    void releaseDecode() { decode_.release(); }
    bool acquireProxy(std::stop_token stop = {}) { return proxy_.acquire(std::move(stop)); }
    void releaseProxy() { proxy_.release(); }

    [[nodiscard]] FifoSlots& decodeSlots() noexcept { return decode_; }
    [[nodiscard]] FifoSlots& proxySlots() noexcept { return proxy_; }

  private:
    FifoSlots decode_;
    FifoSlots proxy_;
};

/// A slot held for one scope: taken (waiting as needed) on construction, given back on destruction.
/// `acquired()` is false when `stop` ended the wait; nothing is then held.
class MediaJobSlot {
  public:
    MediaJobSlot(FifoSlots& pool, std::stop_token stop)
        : pool_(pool), held_(pool.acquire(std::move(stop))) {}
    ~MediaJobSlot() {
        if (held_) pool_.release();
    }
    MediaJobSlot(const MediaJobSlot&) = delete;
    MediaJobSlot& operator=(const MediaJobSlot&) = delete;
    [[nodiscard]] bool acquired() const noexcept { return held_; }

  private:
    FifoSlots& pool_;
    bool held_;
};

}  // namespace morvane::engine
