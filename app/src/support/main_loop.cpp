#include "morvane/app/support/main_loop.hpp"

#include <algorithm>

namespace morvane::app {

ManualMainLoop::ManualMainLoop() : owner_(std::this_thread::get_id()) {}

void ManualMainLoop::post(Task task) {
    {
        const std::lock_guard lock(mutex_);
        tasks_.push_back(std::move(task));
    }
    posted_.notify_all();
}

int ManualMainLoop::startTimer(int milliseconds, bool repeat, Task task) {
    const std::lock_guard lock(mutex_);
    const int id = nextTimer_++;
    timers_.push_back({id, now_ + milliseconds, milliseconds, repeat, std::move(task)});
    return id;
}

void ManualMainLoop::stopTimer(int id) {
    const std::lock_guard lock(mutex_);
    std::erase_if(timers_, [id](const Timer& t) { return t.id == id; });
}

bool ManualMainLoop::isMainThread() const {
    return std::this_thread::get_id() == owner_;
}

int ManualMainLoop::runPending() {
    int ran = 0;
    for (;;) {
        Task task;
        {
            const std::lock_guard lock(mutex_);
            if (tasks_.empty()) return ran;
            task = std::move(tasks_.front());
            tasks_.pop_front();
        }
        task();
        ++ran;
    }
}

void ManualMainLoop::advance(int milliseconds) {
    const long long target = now_ + milliseconds;
    for (;;) {
        Task task;
        {
            const std::lock_guard lock(mutex_);
            auto next = std::min_element(timers_.begin(), timers_.end(),
                                         [](const Timer& a, const Timer& b) { return a.due < b.due; });
            if (next == timers_.end() || next->due > target) break;
            now_ = next->due;
            task = next->task;
            if (next->repeat && next->interval > 0) {
                next->due += next->interval;
            } else {
                timers_.erase(next);
            }
        }
        task();
        runPending();
    }
    now_ = target;
}

bool ManualMainLoop::runUntil(const std::function<bool()>& done, std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!done()) {
        if (runPending() > 0) continue;
        std::unique_lock lock(mutex_);
        if (!posted_.wait_until(lock, deadline, [this] { return !tasks_.empty(); })) return done();
    }
    return true;
}

RunLoop::RunLoop() : owner_(std::this_thread::get_id()) {}

void RunLoop::post(Task task) {
    {
        const std::lock_guard lock(mutex_);
        tasks_.push_back(std::move(task));
    }
    wake_.notify_all();
}

int RunLoop::startTimer(int milliseconds, bool repeat, Task task) {
    const std::lock_guard lock(mutex_);
    const int id = nextTimer_++;
    const auto interval = std::chrono::milliseconds(milliseconds);
    timers_.push_back({id, std::chrono::steady_clock::now() + interval, interval, repeat, std::move(task)});
    wake_.notify_all();
    return id;
}

void RunLoop::stopTimer(int id) {
    const std::lock_guard lock(mutex_);
    std::erase_if(timers_, [id](const Timer& t) { return t.id == id; });
}

bool RunLoop::isMainThread() const {
    return std::this_thread::get_id() == owner_;
}

void RunLoop::quit() {
    {
        const std::lock_guard lock(mutex_);
        quit_ = true;
    }
    wake_.notify_all();
}

void RunLoop::run() {
    std::unique_lock lock(mutex_);
    while (!quit_) {
        if (!tasks_.empty()) {
            Task task = std::move(tasks_.front());
            tasks_.pop_front();
            lock.unlock();
            task();
            lock.lock();
            continue;
        }
        auto next = std::min_element(timers_.begin(), timers_.end(),
                                     [](const Timer& a, const Timer& b) { return a.due < b.due; });
        if (next != timers_.end() && next->due <= std::chrono::steady_clock::now()) {
            Task task = next->task;
            if (next->repeat) {
                next->due += next->interval;
            } else {
                timers_.erase(next);
            }
            lock.unlock();
            task();
            lock.lock();
            continue;
        }
        if (next != timers_.end()) {
            wake_.wait_until(lock, next->due);
        } else {
            wake_.wait(lock);
        }
    }
}

}  // namespace morvane::app
