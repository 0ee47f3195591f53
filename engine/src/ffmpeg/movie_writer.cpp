#include "ffmpeg/movie_writer.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <vector>

#include "ffmpeg/ffmpeg_error.hpp"
#include "ffmpeg/ffmpeg_ptr.hpp"
#include "ffmpeg/media_input.hpp"
#include "ffmpeg/mono_resampler.hpp"
#include "ffmpeg/movie_output.hpp"
#include "morvane/engine/engine_error.hpp"
#include "morvane/engine/support/files.hpp"

namespace morvane::engine::ffmpeg {
namespace {

constexpr double kForever = std::numeric_limits<double>::infinity();
constexpr std::int64_t kAudioBitRate = 192000;

[[noreturn]] void fail(std::string_view what, int code) {
    throw exportError(what, code);
}

void check(int code, std::string_view what) {
    if (code < 0) fail(what, code);
}

double streamStartSeconds(const AVStream& stream) {
    return stream.start_time == AV_NOPTS_VALUE
               ? 0.0
               : static_cast<double>(stream.start_time) * av_q2d(stream.time_base);
}

// One output stream fed from one input file. step() moves one input packet through (or, at the end, the
// encoder's tail) and returns false once everything is written; `written` is the output time reached.
class Track {
  public:
    virtual ~Track() = default;
    virtual bool step() = 0;
    double written = 0.0;

  protected:
    Track(const std::filesystem::path& path, AVMediaType type, AVFormatContext& output,
          const std::stop_token& stop)
        : input_(openInput(path, &stop)), output_(output) {
        index_ = firstStream(*input_, type);
        if (index_ < 0) {
            if (type == AVMEDIA_TYPE_VIDEO) throw EngineError::noVideoTrack();
            throw EngineError::noAudioTrack();
        }
        for (unsigned i = 0; i < input_->nb_streams; ++i) {
            if (static_cast<int>(i) != index_) input_->streams[i]->discard = AVDISCARD_ALL;
        }
        stream_ = input_->streams[index_];
        out_ = avformat_new_stream(&output, nullptr);
        if (out_ == nullptr) throw std::bad_alloc();
    }

    // The next packet of the stream, or false at the end of the file.
    bool readPacket(AVPacket* packet) {
        for (;;) {
            const int rc = av_read_frame(input_.get(), packet);
            if (rc == AVERROR_EOF) return false;
            check(rc, "Could not read the source");
            if (packet->stream_index == index_) return true;
            av_packet_unref(packet);
        }
    }

    void write(AVPacket* packet) {
        packet->stream_index = out_->index;
        packet->pos = -1;
        check(av_interleaved_write_frame(&output_, packet), "Could not write the movie");
    }

    InputFormatPtr input_;
    AVFormatContext& output_;
    int index_ = -1;
    AVStream* stream_ = nullptr;
    AVStream* out_ = nullptr;
};

// Packets as they are, shifted so that the stream starts at 0.
class CopyTrack final : public Track {
  public:
    CopyTrack(const std::filesystem::path& path, AVMediaType type, AVFormatContext& output,
              const std::stop_token& stop)
        : Track(path, type, output, stop), packet_(makePacket()) {
        check(avcodec_parameters_copy(out_->codecpar, stream_->codecpar), "Could not copy a stream");
        out_->codecpar->codec_tag = 0;
        out_->time_base = stream_->time_base;
        start_ = stream_->start_time == AV_NOPTS_VALUE ? 0 : stream_->start_time;
    }

    bool step() override {
        if (!readPacket(packet_.get())) return false;
        const PacketUnref unref(packet_.get());
        if (packet_->pts != AV_NOPTS_VALUE) packet_->pts -= start_;
        if (packet_->dts != AV_NOPTS_VALUE) packet_->dts -= start_;
        const std::int64_t at = packet_->dts != AV_NOPTS_VALUE ? packet_->dts : packet_->pts;
        if (at != AV_NOPTS_VALUE) written = static_cast<double>(at) * av_q2d(stream_->time_base);
        av_packet_rescale_ts(packet_.get(), stream_->time_base, out_->time_base);
        write(packet_.get());
        return true;
    }

  private:
    PacketPtr packet_;
    std::int64_t start_ = 0;
};

// Decoding and encoding shared by the two re-encoding tracks.
class EncodeTrack : public Track {
  protected:
    EncodeTrack(const std::filesystem::path& path, AVMediaType type, AVFormatContext& output,
                const std::stop_token& stop)
        : Track(path, type, output, stop), packet_(makePacket()), frame_(makeFrame()) {
        const AVCodec* decoder = avcodec_find_decoder(stream_->codecpar->codec_id);
        if (decoder == nullptr) fail("No decoder for the source", AVERROR_DECODER_NOT_FOUND);
        decoder_.reset(avcodec_alloc_context3(decoder));
        if (!decoder_) throw std::bad_alloc();
        check(avcodec_parameters_to_context(decoder_.get(), stream_->codecpar), "Could not read the source");
        decoder_->pkt_timebase = stream_->time_base;
        decoder_->thread_count = 0;
        check(avcodec_open2(decoder_.get(), decoder, nullptr), "Could not decode the source");
    }

    void openEncoder(const AVCodec* codec, AVDictionary** options) {
        if ((output_.oformat->flags & AVFMT_GLOBALHEADER) != 0)
            encoder_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        check(avcodec_open2(encoder_.get(), codec, options), "Could not open the encoder");
        check(avcodec_parameters_from_context(out_->codecpar, encoder_.get()), "Could not open the encoder");
        out_->time_base = encoder_->time_base;
    }

    // Encodes `frame` (nullptr: the end) and writes what comes out.
    void encode(const AVFrame* frame) {
        encodeFrame(
            *encoder_, frame, *packet_, *out_, [this](AVPacket& p) { write(&p); }, "Could not encode");
    }

    // Feeds the next packet (or the end) to the decoder; false once the decoder has been told the end.
    bool feedDecoder() {
        if (decoderDrained_) return false;
        if (!readPacket(packet_.get())) {
            avcodec_send_packet(decoder_.get(), nullptr);
            decoderDrained_ = true;
            return true;
        }
        const PacketUnref unref(packet_.get());
        const int rc = avcodec_send_packet(decoder_.get(), packet_.get());
        // A damaged packet is skipped as a player would; the frames around it still count.
        if (rc < 0 && rc != AVERROR(EAGAIN) && rc != AVERROR_INVALIDDATA)
            fail("Could not decode the source", rc);
        return true;
    }

    PacketPtr packet_;
    FramePtr frame_;
    CodecContextPtr decoder_;
    CodecContextPtr encoder_;
    bool decoderDrained_ = false;
};

// H.264 from any video, cut to ranges of source seconds laid end to end.
class VideoEncodeTrack final : public EncodeTrack {
  public:
    VideoEncodeTrack(const std::filesystem::path& path, std::span<const SecondsRange> ranges,
                     AVFormatContext& output, const std::stop_token& stop)
        : EncodeTrack(path, AVMEDIA_TYPE_VIDEO, output, stop), scaled_(makeFrame()) {
        ranges_.assign(ranges.begin(), ranges.end());
        if (ranges_.empty()) ranges_.push_back({0.0, kForever});
        start_ = streamStartSeconds(*stream_);

        const AVCodec* codec = avcodec_find_encoder_by_name("libx264");
        if (codec == nullptr) codec = avcodec_find_encoder(AV_CODEC_ID_H264);
        if (codec == nullptr) fail("No H.264 encoder", AVERROR_ENCODER_NOT_FOUND);
        encoder_.reset(avcodec_alloc_context3(codec));
        if (!encoder_) throw std::bad_alloc();
        // 4:2:0 needs even dimensions.
        encoder_->width = decoder_->width & ~1;
        encoder_->height = decoder_->height & ~1;
        encoder_->pix_fmt = AV_PIX_FMT_YUV420P;
        encoder_->sample_aspect_ratio = decoder_->sample_aspect_ratio;
        AVRational rate = av_guess_frame_rate(input_.get(), stream_, nullptr);
        if (rate.num <= 0 || rate.den <= 0) rate = {30, 1};
        encoder_->framerate = rate;
        encoder_->time_base = stream_->time_base;
        AVDictionary* options = nullptr;
        av_dict_set(&options, "preset", "fast", 0);
        av_dict_set(&options, "crf", "18", 0);
        try {
            openEncoder(codec, &options);
        } catch (...) {
            av_dict_free(&options);
            throw;
        }
        av_dict_free(&options);
        out_->avg_frame_rate = rate;
    }

    bool step() override {
        if (range_ == ranges_.size()) {
            if (finished_) return false;
            encode(nullptr);
            finished_ = true;
            return false;
        }
        if (needSeek_) seekToRange();
        const int received = avcodec_receive_frame(decoder_.get(), frame_.get());
        if (received == 0) {
            const FrameUnref unref(frame_.get());
            take(*frame_);
            return true;
        }
        if (received == AVERROR_EOF) {
            nextRange();
            return true;
        }
        if (received != AVERROR(EAGAIN)) fail("Could not decode the source", received);
        feedDecoder();
        return true;
    }

  private:
    void seekToRange() {
        needSeek_ = false;
        const SecondsRange& range = ranges_[range_];
        if (range_ == 0 && range.lower <= 0.0) return;
        const auto target = static_cast<std::int64_t>(
            std::floor((start_ + std::max(range.lower, 0.0)) / av_q2d(stream_->time_base)));
        check(avformat_seek_file(input_.get(), index_, INT64_MIN, target, target, 0),
              "Could not seek in the source");
        avcodec_flush_buffers(decoder_.get());
        decoderDrained_ = false;
    }

    void nextRange() {
        const SecondsRange& range = ranges_[range_];
        if (std::isfinite(range.upper)) offset_ += std::max(range.upper - range.lower, 0.0);
        ++range_;
        needSeek_ = true;
    }

    void take(const AVFrame& frame) {
        const SecondsRange& range = ranges_[range_];
        const std::int64_t ts =
            frame.best_effort_timestamp != AV_NOPTS_VALUE ? frame.best_effort_timestamp : frame.pts;
        const double t = ts == AV_NOPTS_VALUE ? lastSource_
                                              : static_cast<double>(ts) * av_q2d(stream_->time_base) - start_;
        lastSource_ = t;
        if (t < range.lower) return;
        if (t >= range.upper) {
            nextRange();
            return;
        }
        const double at = offset_ + (t - range.lower);
        auto pts = std::llround(at / av_q2d(encoder_->time_base));
        if (lastPts_ != AV_NOPTS_VALUE && pts <= lastPts_) pts = lastPts_ + 1;
        lastPts_ = pts;
        AVFrame* picture = convert(frame);
        picture->pts = pts;
        encode(picture);
        written = at;
    }

    AVFrame* convert(const AVFrame& frame) {
        if (frame.format == AV_PIX_FMT_YUV420P && frame.width == encoder_->width &&
            frame.height == encoder_->height) {
            scaled_.reset(av_frame_clone(&frame));
            if (!scaled_) throw std::bad_alloc();
            scaled_->pict_type = AV_PICTURE_TYPE_NONE;
            return scaled_.get();
        }
        scaler_.reset(sws_getCachedContext(
            scaler_.release(), frame.width, frame.height, static_cast<AVPixelFormat>(frame.format),
            encoder_->width, encoder_->height, AV_PIX_FMT_YUV420P, SWS_BICUBIC, nullptr, nullptr, nullptr));
        if (!scaler_) fail("Could not convert the picture", AVERROR(EINVAL));
        scaled_ = makeFrame();
        scaled_->format = AV_PIX_FMT_YUV420P;
        scaled_->width = encoder_->width;
        scaled_->height = encoder_->height;
        check(av_frame_get_buffer(scaled_.get(), 0), "Could not convert the picture");
        sws_scale(scaler_.get(), frame.data, frame.linesize, 0, frame.height, scaled_->data,
                  scaled_->linesize);
        return scaled_.get();
    }

    std::vector<SecondsRange> ranges_;
    std::size_t range_ = 0;
    bool needSeek_ = true;
    bool finished_ = false;
    double start_ = 0.0;
    double offset_ = 0.0;  // output seconds of the ranges already done
    double lastSource_ = 0.0;
    std::int64_t lastPts_ = AV_NOPTS_VALUE;
    FramePtr scaled_;
    ScalerPtr scaler_;
};

// AAC from any audio, whole.
class AudioEncodeTrack final : public EncodeTrack {
  public:
    AudioEncodeTrack(const std::filesystem::path& path, AVFormatContext& output, const std::stop_token& stop)
        : EncodeTrack(path, AVMEDIA_TYPE_AUDIO, output, stop), chunk_(makeFrame()) {
        const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_AAC);
        if (codec == nullptr) fail("No AAC encoder", AVERROR_ENCODER_NOT_FOUND);
        encoder_.reset(avcodec_alloc_context3(codec));
        if (!encoder_) throw std::bad_alloc();
        encoder_->sample_fmt = AV_SAMPLE_FMT_FLTP;
        encoder_->sample_rate = supportedRate(codec, decoder_->sample_rate);
        const int channels = std::clamp(decoder_->ch_layout.nb_channels, 1, 2);
        av_channel_layout_default(&encoder_->ch_layout, channels);
        encoder_->bit_rate = kAudioBitRate;
        encoder_->time_base = {1, encoder_->sample_rate};
        openEncoder(codec, nullptr);
        fifo_.reset(
            av_audio_fifo_alloc(encoder_->sample_fmt, channels, std::max(encoder_->frame_size, 1024)));
        if (!fifo_) throw std::bad_alloc();
    }

    bool step() override {
        if (finished_) return false;
        const int received = avcodec_receive_frame(decoder_.get(), frame_.get());
        if (received == 0) {
            const FrameUnref unref(frame_.get());
            resample(frame_.get());
            drainFifo(false);
            return true;
        }
        if (received == AVERROR_EOF) {
            if (resampler_) resample(nullptr);
            drainFifo(true);
            encode(nullptr);
            finished_ = true;
            return false;
        }
        if (received != AVERROR(EAGAIN)) fail("Could not decode the source", received);
        feedDecoder();
        return true;
    }

  private:
    static int supportedRate(const AVCodec* codec, int wanted) {
        if (codec->supported_samplerates == nullptr) return wanted > 0 ? wanted : 48000;
        for (const int* rate = codec->supported_samplerates; *rate != 0; ++rate) {
            if (*rate == wanted) return wanted;
        }
        return 48000;
    }

    void resample(const AVFrame* frame) {
        if (!resampler_) {
            AVChannelLayout input{};
            if (frame->ch_layout.order == AV_CHANNEL_ORDER_UNSPEC)
                av_channel_layout_default(&input, frame->ch_layout.nb_channels);
            else
                check(av_channel_layout_copy(&input, &frame->ch_layout), "Could not convert the audio");
            SwrContext* raw = nullptr;
            const int rc = swr_alloc_set_opts2(
                &raw, &encoder_->ch_layout, encoder_->sample_fmt, encoder_->sample_rate, &input,
                static_cast<AVSampleFormat>(frame->format), frame->sample_rate, 0, nullptr);
            av_channel_layout_uninit(&input);
            resampler_.reset(raw);
            check(rc, "Could not convert the audio");
            setHighQualityResampling(resampler_.get());
            check(swr_init(resampler_.get()), "Could not convert the audio");
        }
        const int inCount = frame != nullptr ? frame->nb_samples : 0;
        const int capacity = swr_get_out_samples(resampler_.get(), inCount);
        if (capacity <= 0) return;
        buffer_ = makeFrame();
        buffer_->format = encoder_->sample_fmt;
        buffer_->sample_rate = encoder_->sample_rate;
        check(av_channel_layout_copy(&buffer_->ch_layout, &encoder_->ch_layout),
              "Could not convert the audio");
        buffer_->nb_samples = capacity;
        check(av_frame_get_buffer(buffer_.get(), 0), "Could not convert the audio");
        const int produced = swr_convert(
            resampler_.get(), buffer_->data, capacity,
            frame != nullptr ? const_cast<const std::uint8_t**>(frame->extended_data) : nullptr, inCount);
        check(produced, "Could not convert the audio");
        if (produced > 0)
            check(av_audio_fifo_write(fifo_.get(), reinterpret_cast<void**>(buffer_->data), produced),
                  "Could not convert the audio");
    }

    void drainFifo(bool all) {
        const int size = encoder_->frame_size > 0 ? encoder_->frame_size : 1024;
        while (av_audio_fifo_size(fifo_.get()) >= size || (all && av_audio_fifo_size(fifo_.get()) > 0)) {
            const int count = std::min(size, av_audio_fifo_size(fifo_.get()));
            av_frame_unref(chunk_.get());
            chunk_->format = encoder_->sample_fmt;
            chunk_->sample_rate = encoder_->sample_rate;
            check(av_channel_layout_copy(&chunk_->ch_layout, &encoder_->ch_layout), "Could not encode");
            chunk_->nb_samples = count;
            check(av_frame_get_buffer(chunk_.get(), 0), "Could not encode");
            check(av_audio_fifo_read(fifo_.get(), reinterpret_cast<void**>(chunk_->data), count),
                  "Could not encode");
            chunk_->pts = samples_;
            samples_ += count;
            encode(chunk_.get());
            written = static_cast<double>(samples_) / encoder_->sample_rate;
        }
    }

    ResamplerPtr resampler_;
    AudioFifoPtr fifo_;
    FramePtr buffer_;
    FramePtr chunk_;
    std::int64_t samples_ = 0;
    bool finished_ = false;
};

// Codecs copied as they are: those MP4 players commonly play. FFmpeg's muxer accepts more (Vorbis, Opus,
// FLAC), which many players then refuse; those are re-encoded.
bool copiesIntoMp4(AVCodecID codec) {
    switch (codec) {
        case AV_CODEC_ID_H264:
        case AV_CODEC_ID_HEVC:
        case AV_CODEC_ID_MPEG4:
        case AV_CODEC_ID_AV1:
        case AV_CODEC_ID_AAC:
        case AV_CODEC_ID_MP3:
        case AV_CODEC_ID_ALAC:
        case AV_CODEC_ID_AC3:
        case AV_CODEC_ID_EAC3:
            return true;
        default:
            return false;
    }
}

bool mp4Holds(const AVFormatContext& output, const std::filesystem::path& path, AVMediaType type,
              const std::stop_token& stop) {
    const InputFormatPtr input = openInput(path, &stop);
    const int index = firstStream(*input, type);
    if (index < 0) return false;  // the track's own constructor reports the missing stream
    const AVCodecID codec = input->streams[index]->codecpar->codec_id;
    return copiesIntoMp4(codec) && avformat_query_codec(output.oformat, codec, FF_COMPLIANCE_NORMAL) == 1;
}

double durationOf(const std::filesystem::path& path, const std::stop_token& stop) {
    return durationSeconds(*openInput(path, &stop));
}

void write(const MovieRequest& request, const std::filesystem::path& file, const ProgressCallback& progress,
           const std::stop_token& stop) {
    MovieMuxer muxer(file, ExportFileType::mpeg4);
    AVFormatContext& output = muxer.context();

    std::vector<std::unique_ptr<Track>> tracks;
    double total = 0.0;
    if (request.videoFrom) {
        const auto& path = *request.videoFrom;
        if (request.videoRanges.empty() && mp4Holds(output, path, AVMEDIA_TYPE_VIDEO, stop)) {
            tracks.push_back(std::make_unique<CopyTrack>(path, AVMEDIA_TYPE_VIDEO, output, stop));
        } else {
            tracks.push_back(std::make_unique<VideoEncodeTrack>(path, request.videoRanges, output, stop));
        }
        if (request.videoRanges.empty()) {
            total = durationOf(path, stop);
        } else {
            for (const auto& range : request.videoRanges)
                total += std::max(range.upper - range.lower, 0.0);
        }
    }
    if (request.audioFrom) {
        const auto& path = *request.audioFrom;
        if (mp4Holds(output, path, AVMEDIA_TYPE_AUDIO, stop)) {
            tracks.push_back(std::make_unique<CopyTrack>(path, AVMEDIA_TYPE_AUDIO, output, stop));
        } else {
            tracks.push_back(std::make_unique<AudioEncodeTrack>(path, output, stop));
        }
        if (!request.videoFrom) total = durationOf(path, stop);
    }
    if (tracks.empty()) throw EngineError::exportFailed("No compatible export preset.");

    muxer.open();

    // Always advance the track that is furthest behind, so the muxer interleaves without hoarding packets.
    std::vector<Track*> active;
    for (const auto& track : tracks)
        active.push_back(track.get());
    double reported = 0.0;
    while (!active.empty()) {
        throwIfStopRequested(stop);
        const auto behind =
            std::min_element(active.begin(), active.end(),
                             [](const Track* a, const Track* b) { return a->written < b->written; });
        if (!(*behind)->step()) active.erase(behind);
        if (progress && total > 0.0 && !active.empty()) {
            const double share = std::min((*std::min_element(
                                               active.begin(), active.end(),
                                               [](auto* a, auto* b) {
                                                   return a->written < b->written;
                                               }))->written /
                                              total,
                                          0.99);
            if (share - reported > 0.02) {
                reported = share;
                progress(share);
            }
        }
    }
    muxer.finish();
    if (progress) progress(1.0);
}

}  // namespace

void writeMovie(const MovieRequest& request, const std::filesystem::path& to,
                const ProgressCallback& progress, std::stop_token stop) {
    const auto partial = partialFileBeside(to);
    try {
        write(request, partial, progress, stop);
        std::filesystem::rename(partial, to);
    } catch (...) {
        std::error_code ignored;
        std::filesystem::remove(partial, ignored);
        throw;
    }
}

}  // namespace morvane::engine::ffmpeg
