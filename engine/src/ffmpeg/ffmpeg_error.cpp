#include "ffmpeg/ffmpeg_error.hpp"

#include <fmt/core.h>

extern "C" {
#include <libavutil/error.h>
}

namespace morvane::engine::ffmpeg {

std::string errorText(int code) {
    char buffer[AV_ERROR_MAX_STRING_SIZE] = {};
    if (av_strerror(code, buffer, sizeof buffer) < 0) return fmt::format("FFmpeg error {}", code);
    return buffer;
}

EngineError readerError(std::string_view context, int code) {
    return EngineError::readerFailed(fmt::format("{}: {}", context, errorText(code)));
}

EngineError exportError(std::string_view context, int code) {
    return EngineError::exportFailed(fmt::format("{}: {}", context, errorText(code)));
}

}  // namespace morvane::engine::ffmpeg
