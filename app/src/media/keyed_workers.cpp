#include "media/keyed_workers.hpp"

namespace morvane::app {

void MainLoopPoster::operator()(MainLoop::Task task) const {
    loop_->post([alive = alive_, task = std::move(task)] {
        if (alive.lock()) task();
    });
}

KeyedWorkers::~KeyedWorkers() {
    // Tasks posted from here on are dropped; the workers see the stop and end, and are joined.
    alive_.reset();
    for (auto& [key, worker] : workers_)
        worker.request_stop();
}

void KeyedWorkers::start(const std::string& key, Work work) {
    const MainLoopPoster post(loop_, alive_);
    workers_[key] = std::jthread([this, key, post, work = std::move(work)](std::stop_token stop) {
        MainLoop::Task finished = work(stop, post);
        // Last act of the worker: once this runs, the thread is past everything but its return.
        post([this, key, finished = std::move(finished)] {
            if (auto node = workers_.extract(key); !node.empty()) node.mapped().join();
            if (finished) finished();
        });
    });
}

}  // namespace morvane::app
