#include "ffmpeg/container_facts.hpp"

#include <fmt/core.h>

extern "C" {
#include <libavutil/pixdesc.h>
}

#include "ffmpeg/ffmpeg_error.hpp"
#include "ffmpeg/media_input.hpp"
#include "morvane/engine/support/cancellation.hpp"

namespace morvane::engine::ffmpeg {
namespace {

std::optional<std::string> timecodeTag(const AVDictionary* metadata) {
    if (const AVDictionaryEntry* entry = av_dict_get(metadata, "timecode", nullptr, 0))
        return std::string(entry->value);
    return std::nullopt;
}

// The starting timecode may sit on the picture track, on a timecode ("tmcd") data track or on the file.
std::optional<std::string> findTimecode(const AVFormatContext& format, const AVStream& video) {
    if (auto own = timecodeTag(video.metadata)) return own;
    for (unsigned i = 0; i < format.nb_streams; ++i) {
        if (format.streams[i]->codecpar->codec_type != AVMEDIA_TYPE_DATA) continue;
        if (auto data = timecodeTag(format.streams[i]->metadata)) return data;
    }
    return timecodeTag(format.metadata);
}

std::vector<std::string> codecDescriptions(const AVCodecParameters& codec) {
    std::vector<std::string> out;
    const char* profile = avcodec_profile_name(codec.codec_id, codec.profile);
    out.push_back(profile != nullptr ? fmt::format("{} ({})", avcodec_get_name(codec.codec_id), profile)
                                     : std::string(avcodec_get_name(codec.codec_id)));
    if (codec.codec_type == AVMEDIA_TYPE_VIDEO) {
        out.push_back(fmt::format("{}x{}", codec.width, codec.height));
        if (const char* pixels = av_get_pix_fmt_name(static_cast<AVPixelFormat>(codec.format)))
            out.emplace_back(pixels);
    } else {
        out.push_back(fmt::format("{} Hz", codec.sample_rate));
        char layout[64] = {};
        if (av_channel_layout_describe(&codec.ch_layout, layout, sizeof layout) > 0) out.emplace_back(layout);
    }
    return out;
}

std::optional<RationalTime> streamDuration(const AVStream& stream) {
    if (stream.duration == AV_NOPTS_VALUE || stream.duration <= 0) return std::nullopt;
    return RationalTime{stream.duration * stream.time_base.num, stream.time_base.den};
}

}  // namespace

ContainerFacts readContainerFacts(const std::filesystem::path& path, std::stop_token stop) {
    const InputFormatPtr format = openInput(path, &stop);
    ContainerFacts facts;

    const int video = firstStream(*format, AVMEDIA_TYPE_VIDEO);
    const int audio = firstStream(*format, AVMEDIA_TYPE_AUDIO);
    for (const int index : {video, audio}) {
        if (index < 0) continue;
        const AVStream& stream = *format->streams[index];
        StreamFacts summary{.descriptions = codecDescriptions(*stream.codecpar),
                            .width = stream.codecpar->width,
                            .height = stream.codecpar->height};
        if (auto length = streamDuration(stream); length && (!facts.duration || *facts.duration < *length))
            facts.duration = length;
        if (index == video) {
            if (stream.avg_frame_rate.num > 0 && stream.avg_frame_rate.den > 0)
                summary.averageFrameRate = av_q2d(stream.avg_frame_rate);
            summary.timecode = findTimecode(*format, stream);
            facts.rotationDegrees = displayRotationDegrees(stream);
            facts.video = std::move(summary);
        } else {
            facts.audio = std::move(summary);
        }
    }
    if (!facts.duration && format->duration != AV_NOPTS_VALUE && format->duration > 0)
        facts.duration = RationalTime{format->duration, AV_TIME_BASE};
    if (video < 0) return facts;

    // Only the picture track's packets are wanted; the demuxer skips the others' payloads.
    for (unsigned i = 0; i < format->nb_streams; ++i)
        if (static_cast<int>(i) != video) format->streams[i]->discard = AVDISCARD_ALL;
    const AVRational base = format->streams[video]->time_base;
    const PacketPtr packet = makePacket();
    for (;;) {
        throwIfStopRequested(stop);
        const int rc = av_read_frame(format.get(), packet.get());
        if (rc == AVERROR_EOF) break;
        if (rc < 0) {
            throwIfStopRequested(stop);
            throw readerError(fmt::format("Could not read the picture track of {}", path.filename().string()),
                              rc);
        }
        const PacketUnref unref(packet.get());
        if (packet->stream_index != video) continue;
        const std::int64_t stamp = packet->pts != AV_NOPTS_VALUE ? packet->pts : packet->dts;
        if (stamp == AV_NOPTS_VALUE) continue;
        facts.videoPresentationTimes.push_back(RationalTime{stamp * base.num, base.den});
    }
    return facts;
}

}  // namespace morvane::engine::ffmpeg
