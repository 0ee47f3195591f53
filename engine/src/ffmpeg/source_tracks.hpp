#pragma once

// What a composition needs to know of a source before placing it: which tracks it has, how long they
// are, and the picture's size and turn.

#include <filesystem>

namespace morvane::engine::ffmpeg {

struct SourceTracks {
    bool hasVideo = false;
    bool hasAudio = false;
    bool isStill = false;  // a single picture (PNG, JPEG...): it has no length of its own
    int width = 0;         // of the picture as stored
    int height = 0;
    double rotationDegrees = 0.0;  // clockwise turn that shows the picture upright: 0, 90, 180, 270
    double videoSeconds = 0.0;     // 0 when unknown
    double audioSeconds = 0.0;
};

/// Opens `path` and reads its streams. Throws `EngineError::missingFile` and `readerFailed`.
[[nodiscard]] SourceTracks probeSourceTracks(const std::filesystem::path& path);

}  // namespace morvane::engine::ffmpeg
