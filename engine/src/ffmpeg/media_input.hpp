#pragma once

// Opening a media file for reading: the checks every reader of the engine starts with.

#include <filesystem>
#include <stop_token>
#include <string_view>

#include "ffmpeg/ffmpeg_ptr.hpp"

namespace morvane::engine::ffmpeg {

/// Opens `path` and reads its stream information. `stop`, when given, must outlive the demuxer: a
/// requested stop interrupts blocking reads.
/// Throws `EngineError::missingFile` when nothing is at `path`, `readerFailed` with FFmpeg's reason when
/// it is not media FFmpeg can open.
[[nodiscard]] InputFormatPtr openInput(const std::filesystem::path& path, const std::stop_token* stop);

/// Reads the next packet of the file and, when it belongs to `stream`, sends it to `codec`. Returns 1 when
/// a packet was read (sent, or of another stream), 0 at the end of the file (the decoder was then told to
/// drain), or the decoder's refusal of the packet (negative; EAGAIN counts as sent). Throws
/// `EngineError::readerFailed` naming `name` when the file can't be read on, and `OperationCancelled`.
[[nodiscard]] int feedDecoder(AVFormatContext& format, int stream, AVCodecContext& codec, AVPacket& packet,
                              const std::stop_token& stop, std::string_view name);

/// A decoder for `stream`, opened with `threads` threads (0: as many as suit the machine). Throws
/// `EngineError::readerFailed` beginning with `failure` when FFmpeg has no decoder for it or refuses it.
[[nodiscard]] CodecContextPtr openDecoder(const AVStream& stream, std::string_view failure, int threads = 1);

/// The index of the first stream of `type`, or -1.
[[nodiscard]] int firstStream(const AVFormatContext& format, AVMediaType type) noexcept;

/// The clockwise turn that shows `stream`'s picture upright (0, 90, 180 or 270), from its display matrix.
[[nodiscard]] double displayRotationDegrees(const AVStream& stream) noexcept;

/// The container's duration in seconds, else the longest stream's; 0 when neither is known.
[[nodiscard]] double durationSeconds(const AVFormatContext& format) noexcept;

}  // namespace morvane::engine::ffmpeg
