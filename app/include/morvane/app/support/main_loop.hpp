#pragma once

/// The thread that owns a project session. Engine and intelligence work runs on worker threads; anything
/// that touches the session is posted here. The window implements it with Qt, the command line with
/// `RunLoop`, tests with `ManualMainLoop`, which runs posted work only when told to.
///
///     loop.post([&session, run] { session.classification = run; session.notifyChange(); });

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace morvane::app {

class MainLoop {
  public:
    using Task = std::function<void()>;
    virtual ~MainLoop() = default;
    /// Runs `task` on the main thread, after what was posted before it. Safe from any thread.
    virtual void post(Task task) = 0;
    /// Runs `task` every `milliseconds` (or once, unless `repeat`) on the main thread. Returns an id for
    /// `stopTimer`.
    virtual int startTimer(int milliseconds, bool repeat, Task task) = 0;
    virtual void stopTimer(int id) = 0;
    [[nodiscard]] virtual bool isMainThread() const = 0;
};

/// A main loop for tests: posted tasks and due timers run only inside `runPending`, on the calling thread,
/// which is the main thread. Time is the test's: `advance` moves the timer clock.
class ManualMainLoop final : public MainLoop {
  public:
    ManualMainLoop();
    void post(Task task) override;
    int startTimer(int milliseconds, bool repeat, Task task) override;
    void stopTimer(int id) override;
    [[nodiscard]] bool isMainThread() const override;

    /// Runs everything posted so far, and whatever that posts in turn. Returns how many tasks ran.
    int runPending();
    /// Moves the timer clock by `milliseconds` and runs the timers that fall due, in time order.
    void advance(int milliseconds);
    /// Runs posted tasks until `done` holds, waiting for workers to post; gives up after `limit`.
    bool runUntil(const std::function<bool()>& done,
                  std::chrono::milliseconds limit = std::chrono::seconds(30));

  private:
    struct Timer {
        int id;
        long long due;
        int interval;
        bool repeat;
        Task task;
    };
    std::thread::id owner_;
    mutable std::mutex mutex_;
    std::condition_variable posted_;
    std::deque<Task> tasks_;
    std::vector<Timer> timers_;
    long long now_ = 0;
    int nextTimer_ = 1;
};

/// The command line's main loop: `run` executes posted tasks and timers until `quit`.
class RunLoop final : public MainLoop {
  public:
    RunLoop();
    void post(Task task) override;
    int startTimer(int milliseconds, bool repeat, Task task) override;
    void stopTimer(int id) override;
    [[nodiscard]] bool isMainThread() const override;

    /// Runs until `quit` is called (from any thread or from a task).
    void run();
    void quit();

  private:
    struct Timer {
        int id;
        std::chrono::steady_clock::time_point due;
        std::chrono::milliseconds interval;
        bool repeat;
        Task task;
    };
    std::thread::id owner_;
    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<Task> tasks_;
    std::vector<Timer> timers_;
    bool quit_ = false;
    int nextTimer_ = 1;
};

}  // namespace morvane::app
