#pragma once

// Writes an MP4 from the video of one file and the audio of another (or the same), copying each stream
// where MP4 can hold it as it is and re-encoding it otherwise (H.264 video, AAC audio). Video can be cut to
// a list of ranges, joined in the given order; cutting re-encodes, since copied video can only start on a
// key frame.

#include <filesystem>
#include <optional>
#include <span>
#include <stop_token>

#include "morvane/engine/audio/pcm_sample_reader.hpp"
#include "morvane/engine/support/cancellation.hpp"

namespace morvane::engine::ffmpeg {

struct MovieRequest {
    std::optional<std::filesystem::path> videoFrom;  ///< the first video stream of this file
    std::optional<std::filesystem::path> audioFrom;  ///< the first audio stream of this file
    std::span<const SecondsRange> videoRanges;       ///< empty: the whole video
};

/// Writes `request` to `to` as MPEG-4. On any failure or a stop nothing is left at `to`.
/// Throws `EngineError::missingFile`, `noVideoTrack`/`noAudioTrack` (a named file lacks its stream),
/// `exportFailed` with FFmpeg's reason, `OperationCancelled`.
void writeMovie(const MovieRequest& request, const std::filesystem::path& to,
                const ProgressCallback& progress, std::stop_token stop);

}  // namespace morvane::engine::ffmpeg
