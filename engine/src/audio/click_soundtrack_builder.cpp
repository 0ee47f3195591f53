#include "morvane/engine/audio/click_soundtrack_builder.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <string>
#include <vector>

#include "morvane/engine/engine_error.hpp"
#include "morvane/engine/support/files.hpp"

namespace morvane::engine::ClickSoundtrackBuilder {
namespace {

constexpr double kFrequencyHz = 1180.0;
constexpr double kAmplitude = 0.55;
constexpr std::int64_t kMinimumSamples = sampleRate / 4;

template <class T>
void put(std::string& out, T value) {
    // RIFF is little-endian, as is every machine Morvane builds on.
    out.append(reinterpret_cast<const char*>(&value), sizeof value);
}

}  // namespace

void writeWAV(std::span<const double> clicks, double durationSeconds, const std::filesystem::path& to) {
    const double wanted = std::isfinite(durationSeconds) ? std::trunc(durationSeconds * sampleRate) : 0.0;
    const auto count = std::max(static_cast<std::int64_t>(std::clamp(wanted, 0.0, 4.0e9)), kMinimumSamples);
    std::vector<std::int16_t> samples(static_cast<std::size_t>(count), 0);
    for (const double time : clicks) {
        if (!std::isfinite(time)) continue;
        const double first = std::round(time * sampleRate);
        if (first < 0.0 || first >= static_cast<double>(count)) continue;
        const auto start = static_cast<std::int64_t>(first);
        for (int i = 0; i < clickSamples && start + i < count; ++i) {
            const double s = (1.0 - static_cast<double>(i) / clickSamples) *
                             std::sin(i * 2.0 * std::numbers::pi * kFrequencyHz / sampleRate) * kAmplitude;
            samples[static_cast<std::size_t>(start + i)] =
                static_cast<std::int16_t>(std::clamp(s, -1.0, 1.0) * 32767.0);
        }
    }

    const auto dataBytes = static_cast<std::uint32_t>(samples.size() * 2);
    std::string bytes;
    bytes.reserve(44 + dataBytes);
    bytes += "RIFF";
    put<std::uint32_t>(bytes, 36 + dataBytes);
    bytes += "WAVEfmt ";
    put<std::uint32_t>(bytes, 16);
    put<std::uint16_t>(bytes, 1);  // integer PCM
    put<std::uint16_t>(bytes, 1);  // mono
    put<std::uint32_t>(bytes, sampleRate);
    put<std::uint32_t>(bytes, sampleRate * 2);
    put<std::uint16_t>(bytes, 2);
    put<std::uint16_t>(bytes, 16);
    bytes += "data";
    put<std::uint32_t>(bytes, dataBytes);
    bytes.append(reinterpret_cast<const char*>(samples.data()), dataBytes);
    try {
        writeFileAtomically(to, bytes);
    } catch (const std::filesystem::filesystem_error&) {
        throw EngineError::exportFailed("Could not write processed audio.");
    }
}

}  // namespace morvane::engine::ClickSoundtrackBuilder
