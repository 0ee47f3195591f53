#pragma once

/// Brings each source's waveform into the session: from "peaks.bin" in the file's cache folder when it is
/// there, otherwise decoded on a worker (under a decode slot, as a background job of the kind `waveform`),
/// saved for next time, and handed over on the main loop. The primary source's envelope goes to
/// `session.waveformEnvelope`, the others' to `session.auxiliaryWaveforms`. A waveform that can't be made
/// leaves the source without one; nothing else fails.
///
///     WaveformCache waveforms(loop);                       // destroyed before the loop and the session
///     waveforms.scheduleEnsure(session, "src2", "/videos/b-roll.mov");
///     loop.runUntil([&] { return waveforms.isIdle(); });
///     session.auxiliaryWaveforms.at("src2").mins.size();

#include <atomic>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "morvane/app/session/project_session.hpp"
#include "morvane/app/support/main_loop.hpp"
#include "morvane/engine/cache/media_job_scheduler.hpp"

namespace morvane::app {

class KeyedWorkers;

/// The waveforms of a front end's sessions. The sessions it serves, and its main loop, must outlive it.
class WaveformCache {
  public:
    explicit WaveformCache(MainLoop& loop,
                           engine::MediaJobScheduler& scheduler = engine::MediaJobScheduler::shared());
    /// Stops the generations still running and waits for them; their jobs end.
    ~WaveformCache();
    WaveformCache(const WaveformCache&) = delete;
    WaveformCache& operator=(const WaveformCache&) = delete;

    /// Makes sure source `sourceID` of `session`, playing from `file`, gets its waveform. One file is read
    /// or decoded once at a time however many ask for it. Call on the main thread.
    void scheduleEnsure(ProjectSession& session, const std::string& sourceID,
                        const std::filesystem::path& file);
    /// `scheduleEnsure` for every source of the bin that has sound and no waveform yet: what an opened
    /// project needs.
    void scheduleAll(ProjectSession& session);

    /// Whether nothing is being read or decoded. Call on the main thread.
    [[nodiscard]] bool isIdle() const noexcept;
    /// Waveforms decoded from their media (not loaded from the cache) so far.
    [[nodiscard]] int generatedCount() const noexcept { return generated_.load(); }

  private:
    using Target = std::pair<ProjectSession*, std::string>;  // a session and one of its sources
    struct Job {
        ProjectSession* session;
        std::string id;
    };

    void finish(const std::string& key, std::optional<engine::WaveformEnvelope> envelope);

    engine::MediaJobScheduler& scheduler_;
    std::atomic<int> generated_{0};
    std::map<std::string, std::vector<Target>> waiting_;  // by file: who gets its envelope
    std::map<Target, std::string> latest_;                // the file each source asked for last
    std::map<std::string, Job> jobs_;                     // by file: the job shown while decoding
    std::unique_ptr<KeyedWorkers> workers_;               // last: joined first
};

}  // namespace morvane::app
