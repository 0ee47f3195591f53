#include "ffmpeg/movie_output.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include "ffmpeg/ffmpeg_error.hpp"

namespace morvane::engine::ffmpeg {
namespace {

constexpr std::int64_t kAacBitRate = 192000;
constexpr int kPcmFrameSamples = 1024;

}  // namespace

MovieMuxer::MovieMuxer(const std::filesystem::path& file, ExportFileType type)
    // The index at the front: the movie plays before it has fully loaded.
    : MovieMuxer(file, type == ExportFileType::quickTimeMovie ? "mov" : "mp4", {{"movflags", "+faststart"}}) {
}

MovieMuxer::MovieMuxer(const std::filesystem::path& file, const char* format,
                       std::vector<std::pair<std::string, std::string>> headerOptions)
    : file_(file), headerOptions_(std::move(headerOptions)) {
    AVFormatContext* raw = nullptr;
    checkExport(avformat_alloc_output_context2(&raw, nullptr, format, file.c_str()),
                "Could not create the movie");
    output_.reset(raw);
}

AVStream& MovieMuxer::addStream() {
    AVStream* stream = avformat_new_stream(output_.get(), nullptr);
    if (stream == nullptr) throw std::bad_alloc();
    return *stream;
}

void MovieMuxer::open() {
    checkExport(avio_open(&output_->pb, file_.c_str(), AVIO_FLAG_WRITE), "Could not create the movie");
    AVDictionary* options = nullptr;
    for (const auto& [key, value] : headerOptions_)
        av_dict_set(&options, key.c_str(), value.c_str(), 0);
    const int header = avformat_write_header(output_.get(), &options);
    av_dict_free(&options);
    checkExport(header, "Could not write the movie");
}

void MovieMuxer::write(AVPacket& packet, const AVStream& stream) {
    packet.stream_index = stream.index;
    packet.pos = -1;
    checkExport(av_interleaved_write_frame(output_.get(), &packet), "Could not write the movie");
}

void MovieMuxer::finish() {
    checkExport(av_write_trailer(output_.get()), "Could not finish the movie");
    // Closing flushes the last buffered bytes: a full disk may only show here.
    checkExport(avio_closep(&output_->pb), "Could not finish the movie");
}

AudioTrackEncoder::AudioTrackEncoder(MovieMuxer& muxer, ProgramAudio audio, bool pcm)
    : muxer_(muxer), audio_(audio), frame_(makeFrame()), packet_(makePacket()) {
    const AVCodec* codec = avcodec_find_encoder(pcm ? AV_CODEC_ID_PCM_S16LE : AV_CODEC_ID_AAC);
    if (codec == nullptr) throw exportError("No audio encoder", AVERROR_ENCODER_NOT_FOUND);
    encoder_.reset(avcodec_alloc_context3(codec));
    if (!encoder_) throw std::bad_alloc();
    encoder_->sample_fmt = pcm ? AV_SAMPLE_FMT_S16 : AV_SAMPLE_FMT_FLTP;
    encoder_->sample_rate = audio.sampleRate;
    av_channel_layout_default(&encoder_->ch_layout, 1);
    if (!pcm) encoder_->bit_rate = kAacBitRate;
    encoder_->time_base = {1, audio.sampleRate};
    if ((muxer.context().oformat->flags & AVFMT_GLOBALHEADER) != 0)
        encoder_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    checkExport(avcodec_open2(encoder_.get(), codec, nullptr), "Could not open the audio encoder");
    stream_ = &muxer.addStream();
    checkExport(avcodec_parameters_from_context(stream_->codecpar, encoder_.get()),
                "Could not open the audio encoder");
    stream_->time_base = encoder_->time_base;
}

void encodeFrame(AVCodecContext& encoder, const AVFrame* frame, AVPacket& packet, const AVStream& stream,
                 const std::function<void(AVPacket&)>& write, std::string_view failure) {
    checkExport(avcodec_send_frame(&encoder, frame), failure);
    for (;;) {
        const int rc = avcodec_receive_packet(&encoder, &packet);
        if (rc == AVERROR(EAGAIN) || rc == AVERROR_EOF) return;
        checkExport(rc, failure);
        const PacketUnref unref(&packet);
        av_packet_rescale_ts(&packet, encoder.time_base, stream.time_base);
        write(packet);
    }
}

void AudioTrackEncoder::fill(std::size_t count) {
    if (waitingAt_ > 0) {
        waiting_.erase(waiting_.begin(), waiting_.begin() + static_cast<std::ptrdiff_t>(waitingAt_));
        waitingAt_ = 0;
    }
    while (!ended_ && waiting_.size() < count) {
        const auto block = audio_.read();
        if (block.empty()) {
            ended_ = true;
        } else {
            waiting_.insert(waiting_.end(), block.begin(), block.end());
        }
    }
}

void AudioTrackEncoder::encodeUntil(double seconds) {
    const double samples = seconds * audio_.sampleRate;
    encodeTo(samples > 0.0 ? std::llround(std::min(samples, 9.0e18)) : 0);
}

void AudioTrackEncoder::encodeTo(std::int64_t target) {
    const int chunk = encoder_->frame_size > 0 ? encoder_->frame_size : kPcmFrameSamples;
    while (next_ < target) {
        if (waiting_.size() - waitingAt_ < static_cast<std::size_t>(chunk))
            fill(static_cast<std::size_t>(chunk));
        const auto count = static_cast<int>(std::min<std::size_t>(chunk, waiting_.size() - waitingAt_));
        // Only the very last frame may be short, and it goes only once the target reaches the end.
        if (count == 0 || (count < chunk && next_ + count > target)) return;
        av_frame_unref(frame_.get());
        frame_->format = encoder_->sample_fmt;
        frame_->sample_rate = encoder_->sample_rate;
        checkExport(av_channel_layout_copy(&frame_->ch_layout, &encoder_->ch_layout),
                    "Could not encode the sound");
        frame_->nb_samples = count;
        checkExport(av_frame_get_buffer(frame_.get(), 0), "Could not encode the sound");
        const float* in = waiting_.data() + waitingAt_;
        if (encoder_->sample_fmt == AV_SAMPLE_FMT_S16) {
            auto* out = reinterpret_cast<std::int16_t*>(frame_->data[0]);
            for (int i = 0; i < count; ++i)
                out[i] = static_cast<std::int16_t>(std::lround(std::clamp(in[i], -1.0f, 1.0f) * 32767.0f));
        } else {
            std::copy(in, in + count, reinterpret_cast<float*>(frame_->data[0]));
        }
        frame_->pts = next_;
        next_ += count;
        waitingAt_ += static_cast<std::size_t>(count);
        send(frame_.get());
    }
}

void AudioTrackEncoder::finish() {
    encodeTo(std::numeric_limits<std::int64_t>::max());
    send(nullptr);
}

}  // namespace morvane::engine::ffmpeg
