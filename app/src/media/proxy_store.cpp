#include "morvane/app/media/proxy_store.hpp"

#include <algorithm>

#include "media/keyed_workers.hpp"
#include "morvane/app/media/media_bin_entry.hpp"
#include "morvane/engine/cache/media_cache_store.hpp"
#include "morvane/engine/cache/proxy_generator.hpp"
#include "pipeline/pipeline_support.hpp"

namespace morvane::app {

namespace fs = std::filesystem;

ProxyStore::ProxyStore(MainLoop& loop, engine::MediaJobScheduler& scheduler)
    : scheduler_(scheduler), workers_(std::make_unique<KeyedWorkers>(loop)) {}

ProxyStore::~ProxyStore() {
    workers_.reset();
    for (const auto& [key, job] : jobs_)
        job.first->endJob(job.second);
}

bool ProxyStore::isIdle() const noexcept {
    return workers_->empty();
}

std::optional<fs::path> ProxyStore::proxyURL(const fs::path& file) {
    const fs::path source = MediaPathGuard::standardized(file);
    std::error_code error;
    if (const auto known = memo_.find(source.string()); known != memo_.end()) {
        // A source changed after its proxy was made has another fingerprint, so another proxy or none.
        std::error_code sourceError;
        const auto proxyTime = fs::last_write_time(known->second, error);
        const auto sourceTime = fs::last_write_time(source, sourceError);
        if (!error && !sourceError && sourceTime <= proxyTime) return known->second;
        memo_.erase(known);
    }
    const auto fingerprint = engine::MediaCacheStore::fingerprint(source);
    if (!fingerprint) return std::nullopt;
    const fs::path proxy = engine::MediaCacheStore::root() / *fingerprint / engine::ProxyGenerator::fileName;
    if (!fs::is_regular_file(proxy, error)) return std::nullopt;
    memo_[source.string()] = proxy;
    return proxy;
}

std::map<std::string, std::string> ProxyStore::proxyOverrides(const ProjectSession& session) {
    std::map<std::string, std::string> overrides;
    for (const auto& entry : session.mediaBin) {
        if (!entry.hasVideo) continue;
        if (const auto proxy = proxyURL(sourceFile(session, entry)))
            overrides.emplace(entry.id, proxy->string());
    }
    return overrides;
}

bool ProxyStore::scheduleIfNeeded(const fs::path& file, const std::string& sourceID,
                                  engine::PixelSize naturalSize, ProjectSession& session) {
    if (std::max(naturalSize.width, naturalSize.height) <= largestUnproxiedSide) return false;
    const std::string key = MediaPathGuard::standardized(file).string();
    if (workers_->isRunning(key) || proxyURL(file)) return false;

    const std::string name = file.filename().string();
    const std::string jobID =
        session.beginJob(MediaJobKind::proxy, "Generating smooth-playback proxy for " + name, sourceID);
    jobs_[key] = {&session, jobID};
    workers_->start(key,
                    [this, key, file, jobID, &session](std::stop_token stop,
                                                       const MainLoopPoster& post) -> MainLoop::Task {
                        try {
                            const auto fingerprint = engine::MediaCacheStore::fingerprint(file);
                            const engine::MediaJobSlot slot(scheduler_.proxySlots(), stop);
                            if (fingerprint && slot.acquired()) {
                                const fs::path proxy = engine::MediaCacheStore::directory(*fingerprint) /
                                                       engine::ProxyGenerator::fileName;
                                engine::ProxyGenerator::generate(
                                    file, proxy,
                                    [&post, &session, jobID](double share) {
                                        post([&session, jobID, share] { session.updateJob(jobID, share); });
                                    },
                                    stop);
                                engine::MediaCacheStore::markUsed(*fingerprint);
                            }
                        } catch (const std::exception&) {
                            // Dropped without a word: playback keeps the original, and the generator left no
                            // partial file.
                        }
                        return [this, key, &session, jobID] {
                            jobs_.erase(key);
                            session.endJob(jobID);
                            session.notifyChange();  // the preview may switch to the proxy now
                        };
                    });
    return true;
}

}  // namespace morvane::app
