#pragma once

/// A waveform envelope kept on disk as "peaks.bin" in its file's cache folder, so a source's waveform is
/// decoded once per file version, not once per project or per launch.
///
/// The file, little-endian: "MRWF", the bin count (int32, at least 0), the duration in seconds (float64),
/// then every bin's minimum (float32), then every bin's maximum (float32).
///
///     WaveformDiskCache::save(envelope, key);                   // key: MediaCacheStore::fingerprint
///     std::optional<WaveformEnvelope> kept = WaveformDiskCache::load(key);

#include <optional>
#include <string>
#include <string_view>

#include "morvane/engine/audio/waveform_generator.hpp"

namespace morvane::engine::WaveformDiskCache {

/// The file's name in a fingerprint folder.
inline constexpr std::string_view fileName = "peaks.bin";

/// The bytes of `envelope`. Bins past the shorter of `mins` and `maxs` are left out.
[[nodiscard]] std::string encode(const WaveformEnvelope& envelope);

/// The envelope in `bytes`; nothing when they are shorter than 16 bytes, don't start with "MRWF", give a
/// negative count, or are too short for the count.
[[nodiscard]] std::optional<WaveformEnvelope> decode(std::string_view bytes);

/// Writes `envelope` atomically to `fingerprint`'s "peaks.bin". Throws `std::filesystem::filesystem_error`.
void save(const WaveformEnvelope& envelope, const std::string& fingerprint);

/// The envelope kept for `fingerprint`; nothing when there is none or the file is unreadable or damaged.
[[nodiscard]] std::optional<WaveformEnvelope> load(const std::string& fingerprint) noexcept;

}  // namespace morvane::engine::WaveformDiskCache
