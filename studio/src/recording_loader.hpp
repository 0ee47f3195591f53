#pragma once

/// Opens a recording whose transcript is already written (a transcript JSON beside it): the file is
/// probed, the transcript read and cut into segments snapped to the recording's pauses, all on a worker;
/// then the session starts afresh with the recording as its primary source and the whole recording on the
/// storyline. Progress and the outcome go to the session's status line and error banner.
///
///     auto loading = RecordingLoader::open(session, loop, "talk.mp4", "talk.transcript.json");

#include <atomic>
#include <filesystem>
#include <memory>
#include <thread>

namespace morvane::app {
class MainLoop;
class ProjectSession;
}  // namespace morvane::app

namespace morvane::studio {

/// A recording being opened; cancelling leaves the session as it was.
class RecordingLoad {
  public:
    void cancel() noexcept { worker_.request_stop(); }
    [[nodiscard]] bool isFinished() const noexcept { return finished_.load(); }

  private:
    friend struct RecordingLoader;
    std::atomic<bool> finished_{false};
    std::jthread worker_;
};

struct RecordingLoader {
    /// Starts opening `media` with the transcript at `transcript`. `session` and `loop` must outlive the
    /// returned load (or the load must be finished).
    static std::shared_ptr<RecordingLoad> open(app::ProjectSession& session, app::MainLoop& loop,
                                               std::filesystem::path media, std::filesystem::path transcript);
};

}  // namespace morvane::studio
