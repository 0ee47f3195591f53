#include "qt_main_loop.hpp"

#include <QThread>
#include <QTimer>
#include <exception>
#include <iostream>

namespace morvane::studio {

QtMainLoop::QtMainLoop(QObject* context, ErrorHandler onUncaught)
    : context_(context), onUncaught_(std::move(onUncaught)) {
    if (!onUncaught_) {
        onUncaught_ = [](const std::string& message) { std::cerr << "morvane-studio: " << message << "\n"; };
    }
}

QtMainLoop::~QtMainLoop() {
    for (auto& [id, timer] : timers_)
        delete timer;
}

namespace {

void runGuarded(const app::MainLoop::Task& task, const QtMainLoop::ErrorHandler& onUncaught) {
    try {
        task();
    } catch (const std::exception& error) {
        onUncaught(error.what());
    } catch (...) {
        onUncaught("unknown error");
    }
}

}  // namespace

void QtMainLoop::post(Task task) {
    // A queued call on the context object: Qt delivers it on the context's thread, after what was posted
    // before, and drops it when the context is destroyed first.
    QObject* context = context_.data();
    if (!context) return;
    QMetaObject::invokeMethod(
        context, [onUncaught = onUncaught_, task = std::move(task)] { runGuarded(task, onUncaught); },
        Qt::QueuedConnection);
}

int QtMainLoop::startTimer(int milliseconds, bool repeat, Task task) {
    const int id = nextTimer_++;
    auto* timer = new QTimer();
    timer->setSingleShot(!repeat);
    timer->setInterval(milliseconds);
    QObject::connect(timer, &QTimer::timeout, [this, id, repeat, task = std::move(task)] {
        runGuarded(task, onUncaught_);
        if (!repeat) stopTimer(id);
    });
    timers_[id] = timer;
    timer->start();
    return id;
}

void QtMainLoop::stopTimer(int id) {
    const auto it = timers_.find(id);
    if (it == timers_.end()) return;
    it->second->stop();
    it->second->deleteLater();  // it may be the timer whose task is running now
    timers_.erase(it);
}

bool QtMainLoop::isMainThread() const {
    const QObject* context = context_.data();
    return context != nullptr && QThread::currentThread() == context->thread();
}

}  // namespace morvane::studio
