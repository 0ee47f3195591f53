#pragma once

// One mapping from FFmpeg's error codes to the engine's errors, carrying FFmpeg's own reason.

#include <string>
#include <string_view>

#include "morvane/engine/engine_error.hpp"

namespace morvane::engine::ffmpeg {

/// FFmpeg's description of `code` ("Invalid data found when processing input"), from av_strerror.
[[nodiscard]] std::string errorText(int code);

/// `EngineError::readerFailed` with "<context>: <FFmpeg's reason>".
[[nodiscard]] EngineError readerError(std::string_view context, int code);

/// `EngineError::exportFailed` with "<context>: <FFmpeg's reason>".
[[nodiscard]] EngineError exportError(std::string_view context, int code);

/// Throws `exportError(context, code)` when `code` is an FFmpeg failure (below 0).
inline void checkExport(int code, std::string_view context) {
    if (code < 0) throw exportError(context, code);
}

}  // namespace morvane::engine::ffmpeg
