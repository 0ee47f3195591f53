#pragma once

/// The project session's main loop over Qt's event loop: work posted from the pipeline's workers runs on
/// the thread of `context` (the GUI thread), in order, between Qt's own events.
///
///     QtMainLoop loop(&window);
///     PipelineContext context{.mainLoop = loop};
///     loop.post([&] { session.notifyChange(); });   // from any thread
///
/// An exception escaping a task never reaches Qt: it goes to `onUncaught` (by default: stderr).

#include <QObject>
#include <QPointer>
#include <functional>
#include <map>
#include <string>

#include "morvane/app/support/main_loop.hpp"

class QTimer;

namespace morvane::studio {

/// `MainLoop` over the Qt event loop of `context`'s thread. Tasks posted after `context` is gone are dropped.
class QtMainLoop final : public app::MainLoop {
  public:
    using ErrorHandler = std::function<void(const std::string&)>;

    explicit QtMainLoop(QObject* context, ErrorHandler onUncaught = {});
    ~QtMainLoop() override;
    QtMainLoop(const QtMainLoop&) = delete;
    QtMainLoop& operator=(const QtMainLoop&) = delete;

    void post(Task task) override;
    int startTimer(int milliseconds, bool repeat, Task task) override;
    void stopTimer(int id) override;
    [[nodiscard]] bool isMainThread() const override;

  private:
    QPointer<QObject> context_;
    ErrorHandler onUncaught_;
    std::map<int, QTimer*> timers_;  // main thread only
    int nextTimer_ = 1;
};

}  // namespace morvane::studio
