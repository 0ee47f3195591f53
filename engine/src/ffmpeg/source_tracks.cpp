#include "ffmpeg/source_tracks.hpp"

#include <cstring>

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
        out.rotationDegrees = displayRotationDegrees(stream);
    }
    if (const int audio = firstStream(*format, AVMEDIA_TYPE_AUDIO); audio >= 0) {
        out.hasAudio = true;
        out.audioSeconds = streamSeconds(*format, *format->streams[audio]);
    }
    return out;
}

}  // namespace morvane::engine::ffmpeg
