#pragma once

/// Decoded audio shared by everything that reads the same file at the same rate, so that a file is
/// decoded once per run rather than once per rule.
///
///     PCMCache cache;                                                  // one per job or per session
///     std::shared_ptr<const PCMBuffer> pcm = cache.monoFloat("talk.mp4", 48000);
///     auto again = cache.monoFloat("talk.mp4", 48000);                 // the same samples, not decoded
///     again
///
/// An entry is reused while the file keeps its size and modification time. Past `maxBytes` the least
/// recently used entries are dropped from the cache; callers that still hold one keep it alive. Two
/// threads asking for the same file at once share one decode. Thread-safe.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <stop_token>
#include <string>
#include <tuple>

#include "morvane/engine/audio/pcm_sample_reader.hpp"

namespace morvane::engine {

/// Whole decoded tracks keyed by file, size, modification time and rate.
class PCMCache {
  public:
    /// Half a gigabyte holds about 45 minutes of mono audio at 48 kHz.
    static constexpr std::size_t defaultMaxBytes = std::size_t{512} << 20;

    /// A cache that keeps at most about `maxBytes` of samples.
    explicit PCMCache(std::size_t maxBytes = defaultMaxBytes) : maxBytes_(maxBytes) {}

    /// The whole first audio track of `url` at `sampleRate`, as `PCMSampleReader::readMonoFloat` reads it,
    /// decoded on the first request. Throws as `readMonoFloat` does; a failed or cancelled decode is not
    /// kept, and callers waiting on it receive the same error.
    [[nodiscard]] std::shared_ptr<const PCMBuffer> monoFloat(const std::filesystem::path& url, int sampleRate,
                                                             std::stop_token stop = {});

    /// Drops every entry.
    void clear();

    /// The bytes of samples the cache holds now.
    [[nodiscard]] std::size_t bytes() const;

  private:
    using Key = std::tuple<std::string, int, std::uintmax_t, std::int64_t>;  // path, rate, size, mtime
    struct Entry {
        std::shared_future<std::shared_ptr<const PCMBuffer>> value;
        std::size_t bytes = 0;  // 0 while decoding
        std::uint64_t lastUse = 0;
    };

    void evictLocked(const Key& keep);

    std::size_t maxBytes_;
    mutable std::mutex mutex_;
    std::map<Key, Entry> entries_;
    std::size_t bytes_ = 0;
    std::uint64_t clock_ = 0;
};

}  // namespace morvane::engine
