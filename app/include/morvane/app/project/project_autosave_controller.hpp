#pragma once

/// Saves a project in the background once a minute while it has unsaved changes. Only a project that
/// has been saved once (it has a bundle) is autosaved; the autosave writes over the one manifest, there is
/// no separate recovery file. A failed autosave shows "Autosave failed: " and the reason in the error
/// banner and in the launch log.
///
///     ProjectAutosaveController autosave(loop);
///     autosave.attach(session);   // every 60 s: save if dirty and saved before

#include <optional>

#include "morvane/app/project/project_bundle_io.hpp"
#include "morvane/app/support/main_loop.hpp"

namespace morvane::app {

class ProjectSession;

class ProjectAutosaveController {
  public:
    static constexpr int intervalMilliseconds = 60'000;

    /// Autosaves on `loop`'s timers; `recentProjects` is noted as on any save.
    explicit ProjectAutosaveController(MainLoop& loop, BundleOptions options = {});
    ~ProjectAutosaveController();
    ProjectAutosaveController(const ProjectAutosaveController&) = delete;
    ProjectAutosaveController& operator=(const ProjectAutosaveController&) = delete;

    /// Watches `session` (which must outlive the controller or be detached), replacing the one watched
    /// before, and starts the minute timer afresh.
    void attach(ProjectSession& session);
    /// Stops watching; the timer stops.
    void detach();
    /// One autosave check: with a session that is dirty, saved before and not being opened or saved,
    /// starts a save of its bundle (media outside it copied in, as every save does).
    void tick();

  private:
    MainLoop& loop_;
    BundleOptions options_;
    ProjectSession* session_ = nullptr;
    std::optional<int> timer_;
};

}  // namespace morvane::app
