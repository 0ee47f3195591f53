#include "ffmpeg/mono_float_decoder.hpp"

#include <fmt/core.h>

#include <cmath>
#include <cstdio>

#include "ffmpeg/ffmpeg_error.hpp"
#include "ffmpeg/media_input.hpp"
#include "morvane/engine/support/cancellation.hpp"

namespace morvane::engine::ffmpeg {
namespace {

// Isolated damaged packets are skipped, as players do; this many in a row means the stream is broken.
constexpr int kMaxConsecutiveDecodeErrors = 16;

// Codecs pad or trim a frame or two; a track that stops further than this before its stated length was
// cut short.
constexpr double kTruncationToleranceSeconds = 0.5;

// "01:02:03.250000000", the per-track duration tag that Matroska muxers write; -1 when absent or unreadable.
double parseDurationTag(const char* text) {
    int hours = 0;
    int minutes = 0;
    double seconds = 0.0;
    if (text == nullptr || std::sscanf(text, "%d:%d:%lf", &hours, &minutes, &seconds) != 3) return -1.0;
    return hours * 3600.0 + minutes * 60.0 + seconds;
}

}  // namespace

MonoFloatDecoder::MonoFloatDecoder(const std::filesystem::path& path, std::stop_token stop,
                                   std::string_view startFailure)
    : stop_(std::move(stop)), name_(path.filename().string()) {
    format_ = openInput(path, &stop_);
    stream_ = firstStream(*format_, AVMEDIA_TYPE_AUDIO);
    if (stream_ < 0) throw EngineError::noAudioTrack();
    duration_ = ffmpeg::durationSeconds(*format_);
    // Demuxers skip the payload of discarded streams, which is most of a video file.
    for (unsigned i = 0; i < format_->nb_streams; ++i) {
        if (static_cast<int>(i) != stream_) format_->streams[i]->discard = AVDISCARD_ALL;
    }

    const AVStream* stream = format_->streams[stream_];
    codec_ = openDecoder(*stream, startFailure);
    packet_ = makePacket();
    frame_ = makeFrame();
    rate_ = std::max(codec_->sample_rate, 0);
}

MonoFloatDecoder::~MonoFloatDecoder() {
    av_channel_layout_uninit(&resamplerLayout_);
}

MonoFloatDecoder::Block MonoFloatDecoder::next() {
    out_.clear();
    while (out_.empty() && !finished_) {
        const int received = avcodec_receive_frame(codec_.get(), frame_.get());
        if (received == 0) {
            const FrameUnref unref(frame_.get());
            consecutiveErrors_ = 0;
            convert(*frame_);
            continue;
        }
        if (received == AVERROR_EOF) {
            if (resampler_) flushResampler();
            finished_ = true;
            if (!producedAny_ && out_.empty() && lastError_ != 0)
                throw readerError(fmt::format("Could not decode the audio of {}", name_), lastError_);
            checkComplete();
            continue;
        }
        if (received != AVERROR(EAGAIN)) {
            noteDecodeError(received);
            continue;
        }
        const int fed = feedDecoder(*format_, stream_, *codec_, *packet_, stop_, name_);
        if (fed == 0) draining_ = true;
        if (fed < 0) noteDecodeError(fed);
    }
    const std::int64_t first = position_ - static_cast<std::int64_t>(out_.size());
    return {out_, first, rate_};
}

double MonoFloatDecoder::declaredTrackSeconds() const {
    const AVStream* stream = format_->streams[stream_];
    if (stream->duration != AV_NOPTS_VALUE && stream->duration > 0)
        return static_cast<double>(stream->duration) * av_q2d(stream->time_base);
    if (const AVDictionaryEntry* tag = av_dict_get(stream->metadata, "DURATION", nullptr, 0); tag != nullptr)
        return parseDurationTag(tag->value);
    // With no other stream, the container's length is the track's, unless it is a guess from the bitrate.
    if (format_->nb_streams == 1 && format_->duration_estimation_method != AVFMT_DURATION_FROM_BITRATE)
        return duration_;
    return -1.0;
}

void MonoFloatDecoder::checkComplete() const {
    // Demuxers end a file that stops mid-way as if it were complete; only its stated length tells.
    const double declared = declaredTrackSeconds();
    const double reached = rate_ > 0 ? static_cast<double>(position_) / rate_ : 0.0;
    if (declared > 0.0 && reached < declared - kTruncationToleranceSeconds) {
        throw readerError(
            fmt::format("{} ends at {:.2f} s of its {:.2f} s, cut short", name_, reached, declared),
            AVERROR_EOF);
    }
}

void MonoFloatDecoder::noteDecodeError(int code) {
    lastError_ = code;
    if (++consecutiveErrors_ >= kMaxConsecutiveDecodeErrors)
        throw readerError(fmt::format("Could not decode the audio of {}", name_), code);
}

void MonoFloatDecoder::seek(double seconds) {
    const AVStream* stream = format_->streams[stream_];
    const std::int64_t start = stream->start_time == AV_NOPTS_VALUE ? 0 : stream->start_time;
    const std::int64_t target =
        start + static_cast<std::int64_t>(std::floor(seconds / av_q2d(stream->time_base)));
    if (const int rc = avformat_seek_file(format_.get(), stream_, INT64_MIN, target, target, 0); rc < 0)
        throw readerError(fmt::format("Could not seek in {}", name_), rc);
    // A fresh decoder, not a flushed one: flushing leaves some of the old state (AAC keeps part of it), so
    // what came out after a seek would depend on how far decoding had run ahead before it.
    codec_ = openDecoder(*format_->streams[stream_], fmt::format("Could not seek in {}", name_));
    resampler_.reset();
    out_.clear();
    draining_ = false;
    finished_ = false;
    positionKnown_ = false;
    position_ = std::llround(seconds * rate_);
}

void MonoFloatDecoder::configureResampler(const AVFrame& frame) {
    if (resampler_ && frame.format == resamplerFormat_ && frame.sample_rate == resamplerRate_ &&
        av_channel_layout_compare(&frame.ch_layout, &resamplerLayout_) == 0) {
        return;
    }
    if (resampler_) flushResampler();  // the tail of the old format still belongs to the track
    if (rate_ > 0 && frame.sample_rate != rate_) {
        // The track changed its rate: count on at the new one.
        position_ = av_rescale(position_, frame.sample_rate, rate_);
    }
    // Only the sample format and the channels change here; the rate stays the track's.

    AVChannelLayout input{};
    if (frame.ch_layout.order == AV_CHANNEL_ORDER_UNSPEC || frame.ch_layout.nb_channels < 1) {
        av_channel_layout_default(&input, std::max(frame.ch_layout.nb_channels, 1));
    } else if (av_channel_layout_copy(&input, &frame.ch_layout) < 0) {
        throw std::bad_alloc();
    }
    AVChannelLayout mono = AV_CHANNEL_LAYOUT_MONO;
    SwrContext* raw = nullptr;
    int rc = swr_alloc_set_opts2(&raw, &mono, AV_SAMPLE_FMT_FLT, frame.sample_rate, &input,
                                 static_cast<AVSampleFormat>(frame.format), frame.sample_rate, 0, nullptr);
    ResamplerPtr resampler(raw);
    const int channels = input.nb_channels;
    av_channel_layout_uninit(&input);
    if (rc < 0) throw readerError(fmt::format("Could not convert the audio of {}", name_), rc);
    const std::vector<double> average(static_cast<std::size_t>(channels), 1.0 / channels);
    if (rc = swr_set_matrix(resampler.get(), average.data(), channels); rc < 0)
        throw readerError(fmt::format("Could not mix the audio of {}", name_), rc);
    if (rc = swr_init(resampler.get()); rc < 0)
        throw readerError(fmt::format("Could not convert the audio of {}", name_), rc);

    resampler_ = std::move(resampler);
    resamplerFormat_ = frame.format;
    resamplerRate_ = frame.sample_rate;
    rate_ = frame.sample_rate;
    av_channel_layout_uninit(&resamplerLayout_);
    if (av_channel_layout_copy(&resamplerLayout_, &frame.ch_layout) < 0) throw std::bad_alloc();
}

void MonoFloatDecoder::convert(const AVFrame& frame) {
    configureResampler(frame);
    if (!positionKnown_) {
        // After a seek the decoder resumes where the demuxer landed; the frame's time says where.
        const AVStream* stream = format_->streams[stream_];
        const std::int64_t start = stream->start_time == AV_NOPTS_VALUE ? 0 : stream->start_time;
        if (frame.best_effort_timestamp != AV_NOPTS_VALUE) {
            const double seconds =
                static_cast<double>(frame.best_effort_timestamp - start) * av_q2d(stream->time_base);
            position_ = std::llround(seconds * rate_);
        }
        positionKnown_ = true;
    }
    const int capacity = swr_get_out_samples(resampler_.get(), frame.nb_samples);
    if (capacity <= 0) return;
    const std::size_t old = out_.size();
    out_.resize(old + static_cast<std::size_t>(capacity));
    auto* destination = reinterpret_cast<std::uint8_t*>(out_.data() + old);
    const int converted =
        swr_convert(resampler_.get(), &destination, capacity,
                    const_cast<const std::uint8_t**>(frame.extended_data), frame.nb_samples);
    if (converted < 0) throw readerError(fmt::format("Could not convert the audio of {}", name_), converted);
    out_.resize(old + static_cast<std::size_t>(converted));
    position_ += converted;
    if (converted > 0) producedAny_ = true;
}

void MonoFloatDecoder::flushResampler() {
    const int capacity = swr_get_out_samples(resampler_.get(), 0);
    if (capacity > 0) {
        const std::size_t old = out_.size();
        out_.resize(old + static_cast<std::size_t>(capacity));
        auto* destination = reinterpret_cast<std::uint8_t*>(out_.data() + old);
        const int flushed = swr_convert(resampler_.get(), &destination, capacity, nullptr, 0);
        out_.resize(old + static_cast<std::size_t>(std::max(flushed, 0)));
        position_ += std::max(flushed, 0);
    }
    resampler_.reset();
}

}  // namespace morvane::engine::ffmpeg
