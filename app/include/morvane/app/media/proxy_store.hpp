#pragma once

/// Smooth-playback proxies for very large sources (longer side above 2560 pixels): made once per file
/// version on a worker under the single proxy slot, as a background job of the kind `proxy`, and kept as
/// "proxy.mov" in the file's cache folder. A failed proxy is dropped without a word: playback uses the
/// original.
///
///     ProxyStore proxies(loop);                            // destroyed before the loop and the session
///     proxies.scheduleIfNeeded("/videos/talk-4k.mov", "src1", {3840, 2160}, session);
///     if (auto proxy = proxies.proxyURL("/videos/talk-4k.mov")) preview.play(*proxy);

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "morvane/app/session/project_session.hpp"
#include "morvane/app/support/main_loop.hpp"
#include "morvane/engine/cache/media_job_scheduler.hpp"
#include "morvane/engine/layout/project_format.hpp"

namespace morvane::app {

class KeyedWorkers;

/// The proxies of a front end's sessions. The sessions it serves, and its main loop, must outlive it.
class ProxyStore {
  public:
    /// Sources whose longer side is at most this many pixels play as they are.
    static constexpr int largestUnproxiedSide = 2560;

    explicit ProxyStore(MainLoop& loop,
                        engine::MediaJobScheduler& scheduler = engine::MediaJobScheduler::shared());
    /// Stops the generation still running and waits for it; its job ends and its partial file goes.
    ~ProxyStore();
    ProxyStore(const ProxyStore&) = delete;
    ProxyStore& operator=(const ProxyStore&) = delete;

    /// The proxy made for `file` as it is now, when one exists. Answers from memory while the proxy is
    /// there and no newer than the source's last change. Call on the main thread.
    [[nodiscard]] std::optional<std::filesystem::path> proxyURL(const std::filesystem::path& file);

    /// The proxies that exist for the session's sources with a picture, by source id: what a player plays
    /// instead of them. Call on the main thread.
    [[nodiscard]] std::map<std::string, std::string> proxyOverrides(const ProjectSession& session);

    /// Starts making the proxy of `file` (source `sourceID` of `session`) when its picture is larger than
    /// the limit and neither a proxy nor its generation exists yet. Returns whether it started. Call on the
    /// main thread.
    bool scheduleIfNeeded(const std::filesystem::path& file, const std::string& sourceID,
                          engine::PixelSize naturalSize, ProjectSession& session);

    /// Whether no proxy is being made. Call on the main thread.
    [[nodiscard]] bool isIdle() const noexcept;

  private:
    engine::MediaJobScheduler& scheduler_;
    std::map<std::string, std::filesystem::path> memo_;                    // by standardized source path
    std::map<std::string, std::pair<ProjectSession*, std::string>> jobs_;  // by file: the job shown
    std::unique_ptr<KeyedWorkers> workers_;                                // last: joined first
};

}  // namespace morvane::app
