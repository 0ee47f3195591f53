#include "ffmpeg/video_decoder.hpp"

#include <fmt/core.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "ffmpeg/ffmpeg_error.hpp"
#include "ffmpeg/media_input.hpp"
#include "morvane/engine/support/cancellation.hpp"

namespace morvane::engine::ffmpeg {
namespace {

// Picture times come from stream ticks and program times from the 60000 grid; they meet within this.
constexpr double kTimeTolerance = 2e-5;
// Isolated damaged packets are skipped, as players do; this many in a row means the stream is broken.
constexpr int kMaxConsecutiveDecodeErrors = 16;
// Seeking flushes the decoder's pipeline of frames in flight; a key frame must lie at least this far
// ahead to make it cheaper than decoding on.
constexpr double kSeekWorthSeconds = 0.25;
// Without an index the key frames are unknown: decoding on is assumed cheaper up to this distance.
constexpr double kBlindDecodeSeconds = 2.0;

bool isImageDemuxer(const AVFormatContext& format) {
    const char* name = format.iformat->name;
    return std::strstr(name, "image2") != nullptr || std::strstr(name, "_pipe") != nullptr;
}

}  // namespace

VideoDecoder::VideoDecoder(const std::filesystem::path& path, std::stop_token stop)
    : stop_(std::move(stop)), name_(path.filename().string()) {
    format_ = openInput(path, &stop_);
    stream_ = firstStream(*format_, AVMEDIA_TYPE_VIDEO);
    if (stream_ < 0) throw EngineError::noVideoTrack();
    for (unsigned i = 0; i < format_->nb_streams; ++i) {
        if (static_cast<int>(i) != stream_) format_->streams[i]->discard = AVDISCARD_ALL;
    }
    const AVStream* stream = format_->streams[stream_];
    timeBase_ = av_q2d(stream->time_base);
    startTime_ = stream->start_time == AV_NOPTS_VALUE ? 0 : stream->start_time;
    still_ = isImageDemuxer(*format_) && stream->nb_frames <= 1;

    // Frame threads pipeline sequential decoding across the cores; a still has nothing to pipeline.
    codec_ = openDecoder(*stream, fmt::format("Could not decode the video of {}", name_), still_ ? 1 : 0);
    packet_ = makePacket();
}

VideoDecoder::~VideoDecoder() = default;

int VideoDecoder::width() const noexcept {
    return format_->streams[stream_]->codecpar->width;
}

int VideoDecoder::height() const noexcept {
    return format_->streams[stream_]->codecpar->height;
}

double VideoDecoder::rotationDegrees() const noexcept {
    return displayRotationDegrees(*format_->streams[stream_]);
}

double VideoDecoder::position() const noexcept {
    return current_ ? current_->seconds : -1.0;
}

double VideoDecoder::pictureSeconds(const AVFrame& frame) const noexcept {
    std::int64_t ts = frame.best_effort_timestamp;
    if (ts == AV_NOPTS_VALUE) ts = frame.pts;
    if (ts == AV_NOPTS_VALUE) return current_ ? current_->seconds : 0.0;
    return static_cast<double>(ts - startTime_) * timeBase_;
}

bool VideoDecoder::decodeNext() {
    while (true) {
        FramePtr frame = makeFrame();
        const int received = avcodec_receive_frame(codec_.get(), frame.get());
        if (received == 0) {
            consecutiveErrors_ = 0;
            const double seconds = pictureSeconds(*frame);
            next_ = std::make_shared<const DecodedPicture>(DecodedPicture{std::move(frame), seconds});
            return true;
        }
        if (received == AVERROR_EOF) {
            ended_ = true;
            return false;
        }
        if (received != AVERROR(EAGAIN)) {
            if (++consecutiveErrors_ >= kMaxConsecutiveDecodeErrors)
                throw readerError(fmt::format("Could not decode the video of {}", name_), received);
            continue;
        }
        const int fed = feedDecoder(*format_, stream_, *codec_, *packet_, stop_, name_);
        if (fed == 0) draining_ = true;
        if (fed < 0 && ++consecutiveErrors_ >= kMaxConsecutiveDecodeErrors)
            throw readerError(fmt::format("Could not decode the video of {}", name_), fed);
    }
}

bool VideoDecoder::reachesWithoutSeeking(double seconds) const noexcept {
    if (still_) return true;
    if (current_ && seconds + kTimeTolerance < current_->seconds) return false;
    const double at = next_ ? next_->seconds : (current_ ? current_->seconds : 0.0);
    if (seconds <= at + kSeekWorthSeconds) return true;
    AVStream* stream = format_->streams[stream_];
    if (avformat_index_get_entries_count(stream) == 0) return seconds - at <= kBlindDecodeSeconds;
    const auto target = startTime_ + static_cast<std::int64_t>(std::floor(seconds / timeBase_));
    const int index = av_index_search_timestamp(stream, target, AVSEEK_FLAG_BACKWARD);
    if (index < 0) return true;
    const AVIndexEntry* entry = avformat_index_get_entry(stream, index);
    if (entry == nullptr) return true;
    const double keyFrame = static_cast<double>(entry->timestamp - startTime_) * timeBase_;
    return keyFrame <= at + kSeekWorthSeconds;
}

void VideoDecoder::seekTo(double seconds) {
    const auto target =
        startTime_ + static_cast<std::int64_t>(std::floor(std::max(seconds, 0.0) / timeBase_));
    int rc = avformat_seek_file(format_.get(), stream_, std::numeric_limits<std::int64_t>::min(), target,
                                target, 0);
    if (rc < 0) rc = av_seek_frame(format_.get(), stream_, target, AVSEEK_FLAG_BACKWARD);
    if (rc < 0) throw readerError(fmt::format("Could not seek in {}", name_), rc);
    avcodec_flush_buffers(codec_.get());
    current_.reset();
    next_.reset();
    draining_ = false;
    ended_ = false;
}

std::shared_ptr<const DecodedPicture> VideoDecoder::pictureAt(double seconds) {
    if (still_ && current_) return current_;
    if (!reachesWithoutSeeking(seconds)) seekTo(seconds);
    if (!current_) {
        if (!next_ && !decodeNext()) {
            throw EngineError::readerFailed(fmt::format("{} has no picture at {:.3f} s", name_, seconds));
        }
        current_ = std::move(next_);
    }
    if (still_) return current_;
    while (true) {
        if (!next_ && !ended_) decodeNext();
        if (!next_ || next_->seconds > seconds + kTimeTolerance) break;
        current_ = std::move(next_);
    }
    return current_;
}

}  // namespace morvane::engine::ffmpeg
