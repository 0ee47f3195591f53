#include "morvane/engine/audio/pcm_cache.hpp"

#include "morvane/engine/engine_error.hpp"

namespace morvane::engine {

std::shared_ptr<const PCMBuffer> PCMCache::monoFloat(const std::filesystem::path& url, int sampleRate,
                                                     std::stop_token stop) {
    std::error_code error;
    const auto canonical = std::filesystem::weakly_canonical(url, error);
    const auto size = std::filesystem::file_size(url, error);
    if (error) throw EngineError::missingFile(url.string());
    const auto modified = std::filesystem::last_write_time(url, error).time_since_epoch().count();
    const Key key{(error ? url : canonical).string(), sampleRate, size, static_cast<std::int64_t>(modified)};

    std::promise<std::shared_ptr<const PCMBuffer>> promise;
    std::shared_future<std::shared_ptr<const PCMBuffer>> pending;
    {
        const std::lock_guard lock(mutex_);
        if (const auto found = entries_.find(key); found != entries_.end()) {
            found->second.lastUse = ++clock_;
            pending = found->second.value;
        } else {
            entries_[key] = Entry{promise.get_future().share(), 0, ++clock_};
        }
    }
    // Waiting happens outside the lock, so that other files can be decoded meanwhile.
    if (pending.valid()) return pending.get();

    std::shared_ptr<const PCMBuffer> buffer;
    try {
        buffer = std::make_shared<const PCMBuffer>(
            PCMSampleReader::readMonoFloat(url, sampleRate, {}, std::move(stop)));
    } catch (...) {
        {
            const std::lock_guard lock(mutex_);
            entries_.erase(key);
        }
        promise.set_exception(std::current_exception());
        throw;
    }
    promise.set_value(buffer);
    const std::lock_guard lock(mutex_);
    if (const auto found = entries_.find(key); found != entries_.end()) {
        found->second.bytes = buffer->samples.size() * sizeof(float);
        bytes_ += found->second.bytes;
        evictLocked(key);
    }
    return buffer;
}

void PCMCache::evictLocked(const Key& keep) {
    while (bytes_ > maxBytes_) {
        auto oldest = entries_.end();
        for (auto it = entries_.begin(); it != entries_.end(); ++it) {
            if (it->first == keep || it->second.bytes == 0) continue;
            if (oldest == entries_.end() || it->second.lastUse < oldest->second.lastUse) oldest = it;
        }
        if (oldest == entries_.end()) return;
        bytes_ -= oldest->second.bytes;
        entries_.erase(oldest);
    }
}

void PCMCache::clear() {
    const std::lock_guard lock(mutex_);
    // Decodes under way finish for their callers; their entries go with the rest.
    entries_.clear();
    bytes_ = 0;
}

std::size_t PCMCache::bytes() const {
    const std::lock_guard lock(mutex_);
    return bytes_;
}

}  // namespace morvane::engine
