#include "morvane/engine/audio/audio_render_io.hpp"

#include <fmt/core.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <limits>
#include <random>

#include "ffmpeg/movie_writer.hpp"
#include "morvane/engine/engine_error.hpp"

namespace morvane::engine::AudioRenderIO {
namespace {

constexpr const char* kWriteFailure = "Could not write processed audio.";
constexpr const char* kCompositionFailure = "Could not build a composition for the processed audio.";

std::string cleanedBasename(std::string_view basename) {
    std::string out;
    for (const char c : basename) {
        const auto byte = static_cast<unsigned char>(c);
        const bool unsafe =
            byte < 0x20 || byte == 0x7f || c == '/' || c == '\\' || c == ':' || c == ' ' || c == '\t';
        out += unsafe ? '_' : c;
    }
    // Leading dots would hide the file; surrounding underscores are what blanks left behind.
    const auto first = out.find_first_not_of("._");
    if (first == std::string::npos) return "audio";
    const auto last = out.find_last_not_of('_');
    return out.substr(first, last - first + 1);
}

template <class T>
void put(std::ofstream& out, T value) {
    static_assert(std::endian::native == std::endian::little, "WAV is written little-endian");
    out.write(reinterpret_cast<const char*>(&value), sizeof value);
}

}  // namespace

std::filesystem::path outputURL(const std::filesystem::path& directory, std::string_view basename,
                                std::string_view suffix, std::string_view extension) {
    std::random_device entropy;
    const std::uint32_t random = entropy();
    return directory / fmt::format("{}{}_{:08x}{}", cleanedBasename(basename), suffix, random, extension);
}

void writeWAV(std::span<const float> samples, double sampleRate, const std::filesystem::path& to) {
    // WAVE_FORMAT_IEEE_FLOAT needs a fact chunk; sizes are 32-bit.
    constexpr std::uint64_t kHeaderBytes = 4 + (8 + 18) + (8 + 4) + 8;
    const std::uint64_t dataBytes = samples.size() * sizeof(float);
    const auto rate = static_cast<std::int64_t>(std::llround(sampleRate));
    if (dataBytes + kHeaderBytes > std::numeric_limits<std::uint32_t>::max() || rate < 1 ||
        rate > std::numeric_limits<std::int32_t>::max() / 4) {
        throw EngineError::exportFailed(kWriteFailure);
    }
    std::ofstream out(to, std::ios::binary | std::ios::trunc);
    if (!out) throw EngineError::exportFailed(kWriteFailure);
    out.write("RIFF", 4);
    put<std::uint32_t>(out, static_cast<std::uint32_t>(kHeaderBytes + dataBytes));
    out.write("WAVE", 4);
    out.write("fmt ", 4);
    put<std::uint32_t>(out, 18);
    put<std::uint16_t>(out, 3);  // IEEE float
    put<std::uint16_t>(out, 1);  // mono
    put<std::uint32_t>(out, static_cast<std::uint32_t>(rate));
    put<std::uint32_t>(out, static_cast<std::uint32_t>(rate * 4));
    put<std::uint16_t>(out, 4);   // block align
    put<std::uint16_t>(out, 32);  // bits a sample
    put<std::uint16_t>(out, 0);   // no extension
    out.write("fact", 4);
    put<std::uint32_t>(out, 4);
    put<std::uint32_t>(out, static_cast<std::uint32_t>(samples.size()));
    out.write("data", 4);
    put<std::uint32_t>(out, static_cast<std::uint32_t>(dataBytes));
    out.write(reinterpret_cast<const char*>(samples.data()), static_cast<std::streamsize>(dataBytes));
    out.flush();
    if (!out) {
        out.close();
        std::error_code ignored;
        std::filesystem::remove(to, ignored);
        throw EngineError::exportFailed(kWriteFailure);
    }
}

void exportMovie(const std::filesystem::path& source, const std::filesystem::path& to,
                 const ProgressCallback& progress, std::stop_token stop) {
    ffmpeg::MovieRequest request{.videoFrom = source, .audioFrom = source};
    // A source may lack one of the two; export what it has.
    for (;;) {
        try {
            ffmpeg::writeMovie(request, to, progress, stop);
            return;
        } catch (const EngineError& e) {
            if (e.kind() == EngineError::Kind::noVideoTrack && request.videoFrom) {
                request.videoFrom.reset();
            } else if (e.kind() == EngineError::Kind::noAudioTrack && request.audioFrom) {
                request.audioFrom.reset();
            } else {
                throw;
            }
            if (!request.videoFrom && !request.audioFrom)
                throw EngineError::exportFailed("No compatible export preset.");
        }
    }
}

void remux(const std::filesystem::path& videoFrom, const std::filesystem::path& audioFrom,
           const std::filesystem::path& to, std::span<const SecondsRange> videoRanges,
           const ProgressCallback& progress, std::stop_token stop) {
    try {
        ffmpeg::writeMovie({.videoFrom = videoFrom, .audioFrom = audioFrom, .videoRanges = videoRanges}, to,
                           progress, std::move(stop));
    } catch (const EngineError& e) {
        switch (e.kind()) {
            case EngineError::Kind::noVideoTrack:
            case EngineError::Kind::noAudioTrack:
            case EngineError::Kind::readerFailed:
                throw EngineError::exportFailed(kCompositionFailure);
            default:
                throw;
        }
    }
}

}  // namespace morvane::engine::AudioRenderIO
