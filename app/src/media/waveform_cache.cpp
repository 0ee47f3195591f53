#include "morvane/app/media/waveform_cache.hpp"

#include <algorithm>
#include <set>

#include "media/keyed_workers.hpp"
#include "morvane/app/media/media_bin_entry.hpp"
#include "morvane/engine/audio/waveform_generator.hpp"
#include "morvane/engine/cache/media_cache_store.hpp"
#include "morvane/engine/cache/waveform_disk_cache.hpp"
#include "pipeline/pipeline_support.hpp"

namespace morvane::app {

namespace fs = std::filesystem;
using engine::WaveformEnvelope;

WaveformCache::WaveformCache(MainLoop& loop, engine::MediaJobScheduler& scheduler)
    : scheduler_(scheduler), workers_(std::make_unique<KeyedWorkers>(loop)) {}

WaveformCache::~WaveformCache() {
    workers_.reset();
    for (const auto& [key, job] : jobs_)
        job.session->endJob(job.id);
}

bool WaveformCache::isIdle() const noexcept {
    return workers_->empty();
}

void WaveformCache::scheduleAll(ProjectSession& session) {
    for (const auto& entry : session.mediaBin) {
        const bool drawn = entry.id == session.primarySourceID
                               ? session.waveformEnvelope.has_value()
                               : session.auxiliaryWaveforms.contains(entry.id);
        if (entry.hasAudio && !drawn) scheduleEnsure(session, entry.id, sourceFile(session, entry));
    }
}

void WaveformCache::scheduleEnsure(ProjectSession& session, const std::string& sourceID,
                                   const fs::path& file) {
    const std::string key = MediaPathGuard::standardized(file).string();
    const Target target{&session, sourceID};
    latest_[target] = key;
    auto& waiting = waiting_[key];
    if (std::find(waiting.begin(), waiting.end(), target) == waiting.end()) waiting.push_back(target);
    if (workers_->isRunning(key)) return;

    const std::string name = file.filename().string();
    workers_->start(
        key, [this, key, file, name](std::stop_token stop, const MainLoopPoster& post) -> MainLoop::Task {
            std::optional<WaveformEnvelope> envelope;
            try {
                const auto fingerprint = engine::MediaCacheStore::fingerprint(file);
                if (fingerprint) envelope = engine::WaveformDiskCache::load(*fingerprint);
                if (envelope) {
                    engine::MediaCacheStore::markUsed(*fingerprint);
                } else {
                    post([this, key, name] {
                        const auto& first = waiting_[key].front();
                        jobs_[key] = {first.first,
                                      first.first->beginJob(MediaJobKind::waveform,
                                                            "Reading the waveform of " + name, first.second)};
                    });
                    const engine::MediaJobSlot slot(scheduler_.decodeSlots(), stop);
                    if (!slot.acquired()) return [this, key] { finish(key, std::nullopt); };
                    envelope = engine::WaveformGenerator::generate(
                        file, std::nullopt,
                        [this, key, &post](double share) {
                            post([this, key, share] {
                                if (const auto job = jobs_.find(key); job != jobs_.end())
                                    job->second.session->updateJob(job->second.id, share);
                            });
                        },
                        stop);
                    ++generated_;
                    // A cache that can't be written costs the next launch a decode, nothing more.
                    if (fingerprint) {
                        try {
                            engine::WaveformDiskCache::save(*envelope, *fingerprint);
                        } catch (const std::exception&) {
                        }
                    }
                }
            } catch (const std::exception&) {
                envelope.reset();  // no waveform for this source; the rest of the work goes on
            }
            return
                [this, key, envelope = std::move(envelope)]() mutable { finish(key, std::move(envelope)); };
        });
}

void WaveformCache::finish(const std::string& key, std::optional<WaveformEnvelope> envelope) {
    if (const auto job = jobs_.find(key); job != jobs_.end()) {
        job->second.session->endJob(job->second.id);
        jobs_.erase(job);
    }
    const auto node = waiting_.extract(key);
    if (node.empty()) return;
    std::set<ProjectSession*> changed;
    for (const auto& target : node.mapped()) {
        const auto latest = latest_.find(target);
        // A source relinked meanwhile waits for its new file's waveform instead.
        if (latest == latest_.end() || latest->second != key) continue;
        latest_.erase(latest);
        auto& [session, sourceID] = target;
        if (!envelope || !session->binEntry(sourceID)) continue;
        if (sourceID == session->primarySourceID) {
            session->waveformEnvelope = *envelope;
        } else {
            session->auxiliaryWaveforms[sourceID] = *envelope;
        }
        changed.insert(session);
    }
    for (ProjectSession* session : changed)
        session->notifyChange();
}

}  // namespace morvane::app
