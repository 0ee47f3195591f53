#pragma once

// What the demuxer says of a file, read without decoding: the probe builds its report from this.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "morvane/engine/time/rational_time.hpp"

namespace morvane::engine::ffmpeg {

struct StreamFacts {
    std::vector<std::string>
        descriptions;  // codec and profile, then size and pixel format or rate and layout
    int width = 0;
    int height = 0;
    std::optional<double> averageFrameRate;  // frames over the stream's length, when the demuxer knows it
    std::optional<std::string> timecode;
};

struct ContainerFacts {
    std::optional<RationalTime> duration;  // the longest stream's, else the container's; none when unknown
    std::optional<StreamFacts> video;
    std::optional<StreamFacts> audio;
    double rotationDegrees = 0;
    std::vector<RationalTime> videoPresentationTimes;  // every packet of the first picture track, as stored
};

/// Demuxes `path` once, reading the packets of its first picture track only. Throws
/// `EngineError::missingFile`, `readerFailed` with FFmpeg's reason, and `OperationCancelled`.
[[nodiscard]] ContainerFacts readContainerFacts(const std::filesystem::path& path, std::stop_token stop);

}  // namespace morvane::engine::ffmpeg
