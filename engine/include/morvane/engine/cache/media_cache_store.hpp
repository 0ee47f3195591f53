#pragma once

/// What Morvane derives from a media file and keeps (waveform peaks, playback proxies) lives outside any
/// project, in one folder per file version under $XDG_CACHE_HOME/Morvane/MediaCache, so every project that
/// uses the file shares it.
///
///     if (auto key = MediaCacheStore::fingerprint("/videos/talk.mov")) {
///         auto folder = MediaCacheStore::directory(*key);    // created when missing
///         MediaCacheStore::markUsed(*key);                    // keeps it from eviction a while longer
///     }
///     MediaCacheStore::evictIfNeeded(MediaCacheStore::launchBudgetBytes);

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace morvane::engine::MediaCacheStore {

/// What the cache may hold at launch before its least recently used folders go: 10 GiB.
inline constexpr std::uintmax_t launchBudgetBytes = 10'737'418'240;

/// The cache's root folder: `cacheDirectory()` / "MediaCache".
[[nodiscard]] std::filesystem::path root();

/// The lower-case hexadecimal SHA-256 of "<standardized absolute path>|<size>|<modification time in whole
/// seconds since 1970>". Touching, moving or rewriting the file thus gives a new key. Nothing when the
/// file doesn't exist or its size or time can't be read.
[[nodiscard]] std::optional<std::string> fingerprint(const std::filesystem::path& file);

/// The folder of `fingerprint`, created when missing. Throws `std::filesystem::filesystem_error`.
std::filesystem::path directory(const std::string& fingerprint);

/// Sets the modification time of `fingerprint`'s folder to now; eviction goes by it. Failures are ignored.
void markUsed(const std::string& fingerprint) noexcept;

/// Removes the least recently used fingerprint folders (by modification time, oldest first) while the
/// space they take on disk (allocated blocks, not file lengths) is above `budgetBytes`. A folder that
/// can't be removed is skipped. Returns how many folders were removed. Never throws.
std::size_t evictIfNeeded(std::uintmax_t budgetBytes) noexcept;

}  // namespace morvane::engine::MediaCacheStore
