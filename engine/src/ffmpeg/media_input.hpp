#pragma once

// Opening a media file for reading: the checks every reader of the engine starts with.

#include <filesystem>
#include <stop_token>

#include "ffmpeg/ffmpeg_ptr.hpp"

namespace morvane::engine::ffmpeg {

/// Opens `path` and reads its stream information. `stop`, when given, must outlive the demuxer: a
/// requested stop interrupts blocking reads.
/// Throws `EngineError::missingFile` when nothing is at `path`, `readerFailed` with FFmpeg's reason when
/// it is not media FFmpeg can open.
[[nodiscard]] InputFormatPtr openInput(const std::filesystem::path& path, const std::stop_token* stop);

/// The index of the first stream of `type`, or -1.
[[nodiscard]] int firstStream(const AVFormatContext& format, AVMediaType type) noexcept;

/// The container's duration in seconds, else the longest stream's; 0 when neither is known.
[[nodiscard]] double durationSeconds(const AVFormatContext& format) noexcept;

}  // namespace morvane::engine::ffmpeg
