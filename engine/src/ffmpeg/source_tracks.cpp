#include "ffmpeg/source_tracks.hpp"

#include <cmath>
#include <cstring>

extern "C" {
#include <libavutil/display.h>
}

#include "ffmpeg/media_input.hpp"

namespace morvane::engine::ffmpeg {
namespace {

double streamSeconds(const AVFormatContext& format, const AVStream& stream) {
    if (stream.duration != AV_NOPTS_VALUE && stream.duration > 0)
        return static_cast<double>(stream.duration) * av_q2d(stream.time_base);
    return durationSeconds(format);
}

}  // namespace

SourceTracks probeSourceTracks(const std::filesystem::path& path) {
    const InputFormatPtr format = openInput(path, nullptr);
    SourceTracks out;
    if (const int video = firstStream(*format, AVMEDIA_TYPE_VIDEO); video >= 0) {
        const AVStream& stream = *format->streams[video];
        out.hasVideo = true;
        out.width = stream.codecpar->width;
        out.height = stream.codecpar->height;
        const char* demuxer = format->iformat->name;
        out.isStill =
            (std::strstr(demuxer, "image2") != nullptr || std::strstr(demuxer, "_pipe") != nullptr) &&
            stream.nb_frames <= 1;
        out.videoSeconds = out.isStill ? 0.0 : streamSeconds(*format, stream);
        if (const auto* matrix = reinterpret_cast<const std::int32_t*>(
                av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, nullptr))) {
            // FFmpeg states the turn counter-clockwise; a picture shown upright turns the other way.
            const double degrees = -av_display_rotation_get(matrix);
            if (std::isfinite(degrees))
                out.rotationDegrees = std::fmod(std::round(degrees / 90.0) * 90.0 + 360.0, 360.0);
        }
    }
    if (const int audio = firstStream(*format, AVMEDIA_TYPE_AUDIO); audio >= 0) {
        out.hasAudio = true;
        out.audioSeconds = streamSeconds(*format, *format->streams[audio]);
    }
    return out;
}

}  // namespace morvane::engine::ffmpeg
