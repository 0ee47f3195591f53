#include "morvane/app/project/project_autosave_controller.hpp"

#include <chrono>

#include "morvane/app/session/project_session.hpp"
#include "morvane/app/support/launch_log.hpp"
#include "pipeline/pipeline_support.hpp"

namespace morvane::app {

ProjectAutosaveController::ProjectAutosaveController(MainLoop& loop, BundleOptions options)
    : loop_(loop), options_(options) {
    options_.copyMedia = false;
}

ProjectAutosaveController::~ProjectAutosaveController() {
    detach();
}

void ProjectAutosaveController::attach(ProjectSession& session) {
    detach();
    session_ = &session;
    timer_ = loop_.startTimer(intervalMilliseconds, true, [this] { tick(); });
}

void ProjectAutosaveController::detach() {
    if (timer_) loop_.stopTimer(*timer_);
    timer_.reset();
    session_ = nullptr;
}

void ProjectAutosaveController::tick() {
    if (!session_) return;
    ProjectSession& session = *session_;
    if (!session.isDirty || !session.projectURL || session.hasExclusiveLock()) return;
    (void)ProjectBundleIO::saveInBackground(session, *session.projectURL, loop_, options_,
                                            [&session](std::exception_ptr failure) {
                                                if (!failure) {
                                                    session.lastAutosaveAt = std::chrono::system_clock::now();
                                                    session.notifyChange();
                                                    return;
                                                }
                                                const std::string reason = describeFailure(failure);
                                                LaunchLog::append("Autosave failed: " + reason);
                                                session.setError("Autosave failed: " + reason);
                                            });
}

}  // namespace morvane::app
