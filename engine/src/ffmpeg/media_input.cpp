#include "ffmpeg/media_input.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <mutex>

extern "C" {
#include <libavutil/display.h>
}

#include "ffmpeg/ffmpeg_error.hpp"
#include "morvane/engine/support/cancellation.hpp"

namespace morvane::engine::ffmpeg {
namespace {

int interruptRequested(void* opaque) {
    return static_cast<const std::stop_token*>(opaque)->stop_requested() ? 1 : 0;
}

// Every failure reaches the caller as an error with FFmpeg's reason; its own log lines on stderr would
// only repeat them in a worse place.
void quietFfmpegLog() {
    static std::once_flag once;
    std::call_once(once, [] { av_log_set_level(AV_LOG_FATAL); });
}

}  // namespace

InputFormatPtr openInput(const std::filesystem::path& path, const std::stop_token* stop) {
    std::error_code error;
    if (!std::filesystem::exists(path, error) || std::filesystem::is_directory(path, error))
        throw EngineError::missingFile(path.string());

    quietFfmpegLog();
    if (stop != nullptr) throwIfStopRequested(*stop);
    AVFormatContext* raw = avformat_alloc_context();
    if (raw == nullptr) throw std::bad_alloc();
    if (stop != nullptr) raw->interrupt_callback = {interruptRequested, const_cast<std::stop_token*>(stop)};
    // On failure avformat_open_input frees the context itself.
    if (const int rc = avformat_open_input(&raw, path.c_str(), nullptr, nullptr); rc < 0) {
        if (stop != nullptr) throwIfStopRequested(*stop);
        throw readerError(fmt::format("Could not open {}", path.filename().string()), rc);
    }
    InputFormatPtr format(raw);
    if (const int rc = avformat_find_stream_info(format.get(), nullptr); rc < 0) {
        if (stop != nullptr) throwIfStopRequested(*stop);
        throw readerError(fmt::format("Could not read the streams of {}", path.filename().string()), rc);
    }
    return format;
}

int feedDecoder(AVFormatContext& format, int stream, AVCodecContext& codec, AVPacket& packet,
                const std::stop_token& stop, std::string_view name) {
    throwIfStopRequested(stop);
    const int read = av_read_frame(&format, &packet);
    if (read == AVERROR_EOF) {
        avcodec_send_packet(&codec, nullptr);
        return 0;
    }
    if (read < 0) {
        throwIfStopRequested(stop);
        throw readerError(fmt::format("Could not read {}", name), read);
    }
    const PacketUnref unref(&packet);
    if (packet.stream_index != stream) return 1;
    const int sent = avcodec_send_packet(&codec, &packet);
    return sent < 0 && sent != AVERROR(EAGAIN) ? sent : 1;
}

CodecContextPtr openDecoder(const AVStream& stream, std::string_view failure, int threads) {
    const AVCodec* decoder = avcodec_find_decoder(stream.codecpar->codec_id);
    if (decoder == nullptr) {
        throw EngineError::readerFailed(
            fmt::format("{}: no decoder for {}", failure, avcodec_get_name(stream.codecpar->codec_id)));
    }
    CodecContextPtr codec(avcodec_alloc_context3(decoder));
    if (!codec) throw std::bad_alloc();
    if (const int rc = avcodec_parameters_to_context(codec.get(), stream.codecpar); rc < 0)
        throw readerError(failure, rc);
    codec->pkt_timebase = stream.time_base;
    codec->thread_count = threads;
    if (threads != 1) codec->thread_type = FF_THREAD_FRAME | FF_THREAD_SLICE;
    if (const int rc = avcodec_open2(codec.get(), decoder, nullptr); rc < 0) throw readerError(failure, rc);
    return codec;
}

int firstStream(const AVFormatContext& format, AVMediaType type) noexcept {
    for (unsigned i = 0; i < format.nb_streams; ++i) {
        const AVStream* stream = format.streams[i];
        if (stream->codecpar->codec_type != type) continue;
        // A cover picture inside an audio file is a still image, not a video track.
        if (type == AVMEDIA_TYPE_VIDEO && (stream->disposition & AV_DISPOSITION_ATTACHED_PIC) != 0) continue;
        return static_cast<int>(i);
    }
    return -1;
}

double durationSeconds(const AVFormatContext& format) noexcept {
    if (format.duration != AV_NOPTS_VALUE && format.duration > 0)
        return static_cast<double>(format.duration) / AV_TIME_BASE;
    double longest = 0.0;
    for (unsigned i = 0; i < format.nb_streams; ++i) {
        const AVStream* stream = format.streams[i];
        if (stream->duration != AV_NOPTS_VALUE && stream->duration > 0)
            longest = std::max(longest, static_cast<double>(stream->duration) * av_q2d(stream->time_base));
    }
    return longest;
}

double displayRotationDegrees(const AVStream& stream) noexcept {
    const auto* matrix = reinterpret_cast<const std::int32_t*>(
        av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, nullptr));
    if (matrix == nullptr) return 0.0;
    // FFmpeg states the turn counter-clockwise; a picture shown upright turns the other way.
    const double degrees = -av_display_rotation_get(matrix);
    if (!std::isfinite(degrees)) return 0.0;
    return std::fmod(std::round(degrees / 90.0) * 90.0 + 360.0, 360.0);
}

}  // namespace morvane::engine::ffmpeg
