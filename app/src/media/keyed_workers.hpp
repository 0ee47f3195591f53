#pragma once

// Background work for the media caches: at most one worker per key (a file), whose results come back on
// the main loop only while the owner lives. The owner's destruction stops and joins every worker.

#include <functional>
#include <map>
#include <memory>
#include <stop_token>
#include <string>
#include <thread>

#include "morvane/app/support/main_loop.hpp"

namespace morvane::app {

/// Runs tasks on the main loop for a worker, or drops them once the workers' owner is gone.
class MainLoopPoster {
  public:
    MainLoopPoster(MainLoop& loop, std::weak_ptr<void> alive) : loop_(&loop), alive_(std::move(alive)) {}
    /// Safe from any thread.
    void operator()(MainLoop::Task task) const;

  private:
    MainLoop* loop_;
    std::weak_ptr<void> alive_;
};

/// One worker per key.
class KeyedWorkers {
  public:
    /// What a worker runs: given a stop token and a poster, it returns what to do on the main loop once it
    /// has ended (after its key is free again), or nothing.
    using Work = std::function<MainLoop::Task(std::stop_token, const MainLoopPoster&)>;

    explicit KeyedWorkers(MainLoop& loop) : loop_(loop) {}
    ~KeyedWorkers();
    KeyedWorkers(const KeyedWorkers&) = delete;
    KeyedWorkers& operator=(const KeyedWorkers&) = delete;

    /// Call on the main thread.
    [[nodiscard]] bool isRunning(const std::string& key) const { return workers_.contains(key); }
    [[nodiscard]] bool empty() const noexcept { return workers_.empty(); }
    /// Starts `work` for `key`, which must not be running. Call on the main thread.
    void start(const std::string& key, Work work);

  private:
    MainLoop& loop_;
    std::shared_ptr<int> alive_ = std::make_shared<int>(0);
    std::map<std::string, std::jthread> workers_;
};

}  // namespace morvane::app
