#include "morvane/engine/cache/waveform_disk_cache.hpp"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <sstream>

#include "morvane/engine/cache/media_cache_store.hpp"
#include "morvane/engine/support/files.hpp"

namespace morvane::engine::WaveformDiskCache {

namespace {

constexpr std::string_view kMagic = "MRWF";
constexpr std::size_t kHeaderBytes = 16;

// Little-endian on any host: the file moves between machines with the cache folder.
template <typename Unsigned>
void putLittleEndian(std::string& out, Unsigned value) {
    for (std::size_t i = 0; i < sizeof(Unsigned); ++i)
        out.push_back(static_cast<char>((value >> (8 * i)) & 0xFFu));
}

template <typename Unsigned>
Unsigned getLittleEndian(std::string_view bytes, std::size_t at) {
    Unsigned value = 0;
    for (std::size_t i = 0; i < sizeof(Unsigned); ++i)
        value |= static_cast<Unsigned>(static_cast<unsigned char>(bytes[at + i])) << (8 * i);
    return value;
}

}  // namespace

std::string encode(const WaveformEnvelope& envelope) {
    const std::size_t count = std::min(envelope.mins.size(), envelope.maxs.size());
    std::string out;
    out.reserve(kHeaderBytes + 8 * count);
    out += kMagic;
    putLittleEndian(out, static_cast<std::uint32_t>(count));
    putLittleEndian(out, std::bit_cast<std::uint64_t>(envelope.durationSeconds));
    for (const auto* values : {&envelope.mins, &envelope.maxs}) {
        for (std::size_t i = 0; i < count; ++i)
            putLittleEndian(out, std::bit_cast<std::uint32_t>((*values)[i]));
    }
    return out;
}

std::optional<WaveformEnvelope> decode(std::string_view bytes) {
    if (bytes.size() < kHeaderBytes || bytes.substr(0, 4) != kMagic) return std::nullopt;
    const auto count = std::bit_cast<std::int32_t>(getLittleEndian<std::uint32_t>(bytes, 4));
    if (count < 0) return std::nullopt;
    const auto bins = static_cast<std::size_t>(count);
    if (bytes.size() < kHeaderBytes + 8 * bins) return std::nullopt;
    WaveformEnvelope envelope;
    envelope.durationSeconds = std::bit_cast<double>(getLittleEndian<std::uint64_t>(bytes, 8));
    envelope.mins.resize(bins);
    envelope.maxs.resize(bins);
    for (std::size_t i = 0; i < bins; ++i) {
        envelope.mins[i] = std::bit_cast<float>(getLittleEndian<std::uint32_t>(bytes, kHeaderBytes + 4 * i));
        envelope.maxs[i] =
            std::bit_cast<float>(getLittleEndian<std::uint32_t>(bytes, kHeaderBytes + 4 * (bins + i)));
    }
    return envelope;
}

void save(const WaveformEnvelope& envelope, const std::string& fingerprint) {
    writeFileAtomically(MediaCacheStore::directory(fingerprint) / fileName, encode(envelope));
}

std::optional<WaveformEnvelope> load(const std::string& fingerprint) noexcept {
    try {
        const auto file = MediaCacheStore::root() / fingerprint / fileName;
        std::error_code error;
        if (!std::filesystem::is_regular_file(file, error)) return std::nullopt;
        return decode(readWholeFile(file));
    } catch (...) {
        return std::nullopt;  // unreadable counts as absent: the waveform is made again
    }
}

}  // namespace morvane::engine::WaveformDiskCache
