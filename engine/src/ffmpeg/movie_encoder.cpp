#include "ffmpeg/movie_encoder.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

extern "C" {
#include <libavutil/display.h>
}

#include "ffmpeg/decoded_picture.hpp"
#include "ffmpeg/ffmpeg_error.hpp"
#include "ffmpeg/media_input.hpp"
#include "ffmpeg/picture_converter.hpp"

namespace morvane::engine::ffmpeg {
namespace {

// Sound is encoded this far ahead of the picture, so the muxer interleaves without holding much back.
constexpr double kAudioLeadSeconds = 0.5;

void setOption(AVCodecContext& context, const char* key, const std::string& value) {
    checkExport(av_opt_set(context.priv_data, key, value.c_str(), 0), "Could not set up the video encoder");
}

// The picture track: program frames in, packets out.
class VideoTrackEncoder {
  public:
    VideoTrackEncoder(MovieMuxer& muxer, const ExportEncoderSettings& settings, PixelSize size,
                      RationalTime frameDuration)
        : muxer_(muxer), packet_(makePacket()) {
        const char* name = settings.codec == ExportVideoCodec::hevc        ? "libx265"
                           : settings.codec == ExportVideoCodec::proRes422 ? "prores_ks"
                                                                           : "libx264";
        const AVCodec* codec = avcodec_find_encoder_by_name(name);
        if (codec == nullptr)
            throw exportError(fmt::format("No {} encoder", name), AVERROR_ENCODER_NOT_FOUND);
        encoder_.reset(avcodec_alloc_context3(codec));
        if (!encoder_) throw std::bad_alloc();
        AVCodecContext& c = *encoder_;
        c.width = size.width;
        c.height = size.height;
        c.pix_fmt =
            settings.codec == ExportVideoCodec::proRes422 ? AV_PIX_FMT_YUV422P10LE : AV_PIX_FMT_YUV420P;
        c.sample_aspect_ratio = {1, 1};
        av_reduce(&c.time_base.num, &c.time_base.den, frameDuration.value, frameDuration.timescale,
                  INT32_MAX);
        c.framerate = {c.time_base.den, c.time_base.num};
        c.color_primaries = AVCOL_PRI_BT709;
        c.color_trc = AVCOL_TRC_BT709;
        c.colorspace = AVCOL_SPC_BT709;
        c.color_range = AVCOL_RANGE_MPEG;
        c.thread_count = 0;
        if ((muxer.context().oformat->flags & AVFMT_GLOBALHEADER) != 0)
            c.flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        switch (settings.codec) {
            case ExportVideoCodec::proRes422:
                setOption(c, "profile", "standard");
                setOption(c, "vendor", "apl0");
                break;
            case ExportVideoCodec::hevc:
                setOption(c, "preset", std::string(settings.speed));
                setOption(c, "crf", std::to_string(settings.quality));
                // x265 prints its own banner and statistics on stderr unless told not to.
                setOption(c, "x265-params", "log-level=error");
                c.codec_tag = MKTAG('h', 'v', 'c', '1');  // the tag players on every platform accept
                break;
            default:
                setOption(c, "preset", std::string(settings.speed));
                setOption(c, "crf", std::to_string(settings.quality));
                break;
        }
        checkExport(avcodec_open2(encoder_.get(), codec, nullptr), "Could not open the video encoder");
        stream_ = &muxer.addStream();
        checkExport(avcodec_parameters_from_context(stream_->codecpar, encoder_.get()),
                    "Could not open the video encoder");
        stream_->time_base = c.time_base;
        stream_->avg_frame_rate = c.framerate;
    }

    // Encodes `picture`, made for this encoder by `EncoderPictures`, as frame `pts`.
    void encode(FramePtr picture, std::int64_t pts) {
        picture->pts = pts;
        picture->pict_type = AV_PICTURE_TYPE_NONE;
        send(picture.get());
    }

    [[nodiscard]] AVPixelFormat format() const noexcept { return encoder_->pix_fmt; }
    [[nodiscard]] PixelSize size() const noexcept { return {encoder_->width, encoder_->height}; }

    void finish() { send(nullptr); }

  private:
    void send(const AVFrame* frame) {
        encodeFrame(
            *encoder_, frame, *packet_, *stream_, [this](AVPacket& p) { muxer_.write(p, *stream_); },
            "Could not encode the picture");
    }

    MovieMuxer& muxer_;
    CodecContextPtr encoder_;
    AVStream* stream_ = nullptr;
    PacketPtr packet_;
};

// Program frames as pictures an encoder takes: a source picture it can take as it is, by reference;
// anything else converted to its format and size, into a buffer no picture still waiting for the encoder
// holds.
class EncoderPictures {
  public:
    EncoderPictures(AVPixelFormat format, PixelSize size) : format_(format), size_(size) {}

    FramePtr picture(const VideoFrame& frame) {
        FramePtr out = makeFrame();
        if (frame.isPassthrough() && PictureConverter::isEncodable(*frame.picture()->frame, format_, size_)) {
            checkExport(av_frame_ref(out.get(), frame.picture()->frame.get()),
                        "Could not encode the picture");
            return out;
        }
        AVFrame& buffer = freeBuffer();
        if (frame.isPassthrough()) {
            converter_.toVideo(*frame.picture()->frame, buffer);
        } else if (frame.image() != nullptr) {
            converter_.toVideo(*frame.image(), buffer);
        }
        checkExport(av_frame_ref(out.get(), &buffer), "Could not encode the picture");
        return out;
    }

  private:
    // A buffer is free again once the encoder has let go of the last picture made in it.
    AVFrame& freeBuffer() {
        for (auto& buffer : buffers_) {
            if (av_frame_is_writable(buffer.get()) != 0) return *buffer;
        }
        FramePtr buffer = makeFrame();
        buffer->format = format_;
        buffer->width = size_.width;
        buffer->height = size_.height;
        checkExport(av_frame_get_buffer(buffer.get(), 0), "Could not encode the picture");
        buffers_.push_back(std::move(buffer));
        return *buffers_.back();
    }

    AVPixelFormat format_;
    PixelSize size_;
    PictureConverter converter_;
    std::vector<FramePtr> buffers_;
};

// Pictures made by `make` for frames 0 to count - 1 on a thread of their own, at most `kFramesAhead`
// ahead of the encoder, which takes them in order with `next`: decoding and compositing the coming frames
// overlaps encoding this one. A failure in `make` (a stop included) reaches `next` after the pictures made
// before it. Going away stops the thread and waits for it.
class PicturesAhead {
  public:
    using Make = std::function<FramePtr(std::int64_t)>;

    PicturesAhead(std::int64_t count, Make make, std::stop_token stop)
        : make_(std::move(make)),
          worker_([this, count, stop = std::move(stop)](const std::stop_token& abandoned) {
              run(count, stop, abandoned);
          }) {}

    FramePtr next() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return !ready_.empty() || ended_; });
        if (ready_.empty()) {
            if (failure_) std::rethrow_exception(failure_);
            throw EngineError::exportFailed("Could not encode the picture: no more frames");
        }
        FramePtr picture = std::move(ready_.front());
        ready_.pop_front();
        changed_.notify_all();
        return picture;
    }

  private:
    static constexpr std::size_t kFramesAhead = 4;

    void run(std::int64_t count, const std::stop_token& stop, const std::stop_token& abandoned) {
        std::exception_ptr failure;
        try {
            for (std::int64_t k = 0; k < count; ++k) {
                throwIfStopRequested(stop);
                FramePtr picture = make_(k);
                std::unique_lock lock(mutex_);
                if (!changed_.wait(lock, abandoned, [this] { return ready_.size() < kFramesAhead; })) break;
                ready_.push_back(std::move(picture));
                changed_.notify_all();
            }
        } catch (...) {
            failure = std::current_exception();
        }
        const std::lock_guard lock(mutex_);
        failure_ = failure;
        ended_ = true;
        changed_.notify_all();
    }

    Make make_;
    std::mutex mutex_;
    std::condition_variable_any changed_;
    std::deque<FramePtr> ready_;
    std::exception_ptr failure_;
    bool ended_ = false;
    std::jthread worker_;  // last: it starts once the rest is made, and is joined before the rest goes
};

std::int64_t framesIn(TimeSpan range, RationalTime frameDuration) {
    const FrameRate rate{frameDuration};
    const RationalTime length = range.duration();
    std::int64_t count = rate.frameIndex(length);
    if (rate.timeForFrame(count) < length) ++count;
    return std::max<std::int64_t>(count, 0);
}

// ---- Copying ------------------------------------------------------------------------------------------

// A run of one recording's video to copy: source seconds [sourceStart, sourceEnd) placed at programStart.
struct CopyPiece {
    std::string path;
    double sourceStart = 0.0;
    double sourceEnd = 0.0;
    double programStart = 0.0;
};

struct PacketInfo {
    std::int64_t pts = 0;
    std::int64_t dts = 0;
    bool key = false;
};

// One recording's video stream as a copy sees it: its packets in decode order.
struct CopySource {
    InputFormatPtr input;
    int stream = -1;
    std::vector<PacketInfo> packets;
    std::int64_t startTicks = 0;       // the stream's first time: source second 0
    std::int64_t frameTicks = 1;       // one frame, for the tolerance of cut points
    std::int64_t endTicks = 0;         // the end of the last picture
    bool reorders = false;             // whether decode order differs from display order anywhere
    std::size_t next = 0;              // the index of the next packet a read gives; npos after the scan
    PacketPtr pending = makePacket();  // a packet read ahead and put back
    bool hasPending = false;
};

// A piece resolved to packets: [first, last) in decode order, shifted by `offset` ticks.
struct CopyPlan {
    CopySource* source = nullptr;
    std::size_t first = 0;
    std::size_t last = 0;
    std::int64_t startTicks = 0;  // pictures before this are dropped (leading pictures of an open GOP)
    std::int64_t offset = 0;
};

constexpr std::size_t kUnknownPosition = static_cast<std::size_t>(-1);
// Going forward by more packets than this seeks instead of reading through.
constexpr std::size_t kReadThroughPackets = 2000;

// The pieces of the one picture track, or nothing when anything in it is not a plain, unscaled recording.
std::optional<std::vector<CopyPiece>> copyPieces(const Composition& composition, TimeSpan range) {
    const CompositionTrack* picture = nullptr;
    for (const auto* track : composition.tracksWithMediaType(CompositionMediaType::video)) {
        if (track->segments.empty()) continue;
        if (picture != nullptr) return std::nullopt;  // another layer of picture
        picture = track;
    }
    if (picture == nullptr) return std::nullopt;
    std::vector<CopyPiece> pieces;
    for (const auto& segment : picture->segments) {
        const RationalTime from = std::max(segment.target.start, range.start);
        const RationalTime to = std::min(segment.target.end, range.end);
        if (!(from < to)) continue;
        if (segment.source.kind != CompositionSource::Kind::media || segment.isScaled()) return std::nullopt;
        const double sourceStart = segment.sourceTime(from).seconds();
        pieces.push_back({segment.source.path, sourceStart, sourceStart + to.subtracting(from).seconds(),
                          from.subtracting(range.start).seconds()});
    }
    // What the track leaves uncovered inside the range would have to be drawn.
    double covered = 0.0;
    for (const auto& piece : pieces)
        covered += piece.sourceEnd - piece.sourceStart;
    if (pieces.empty() || std::abs(covered - range.duration().seconds()) > 1e-3) return std::nullopt;
    return pieces;
}

// Opens `path` and reads its video packets' times; nothing when it isn't H.264 shown as stored.
std::unique_ptr<CopySource> scanSource(const std::string& path, const std::stop_token& stop) {
    auto source = std::make_unique<CopySource>();
    source->input = openInput(path, &stop);
    AVFormatContext& input = *source->input;
    source->stream = firstStream(input, AVMEDIA_TYPE_VIDEO);
    if (source->stream < 0) return nullptr;
    const AVStream& stream = *input.streams[source->stream];
    if (stream.codecpar->codec_id != AV_CODEC_ID_H264) return nullptr;
    if (const auto* matrix = reinterpret_cast<const std::int32_t*>(
            av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, nullptr))) {
        const double degrees = av_display_rotation_get(matrix);
        if (std::isfinite(degrees) && std::abs(degrees) > 0.5) return nullptr;
    }
    for (unsigned i = 0; i < input.nb_streams; ++i) {
        if (static_cast<int>(i) != source->stream) input.streams[i]->discard = AVDISCARD_ALL;
    }
    source->startTicks = stream.start_time == AV_NOPTS_VALUE ? 0 : stream.start_time;
    const AVRational rate = stream.avg_frame_rate.num > 0 ? stream.avg_frame_rate : stream.r_frame_rate;
    if (rate.num > 0 && rate.den > 0)
        source->frameTicks = std::max<std::int64_t>(av_rescale_q(1, av_inv_q(rate), stream.time_base), 1);

    PacketPtr packet = makePacket();
    std::int64_t lastPts = AV_NOPTS_VALUE;
    for (;;) {
        throwIfStopRequested(stop);
        const int rc = av_read_frame(&input, packet.get());
        if (rc == AVERROR_EOF) break;
        if (rc < 0) throw readerError(fmt::format("Could not read {}", path), rc);
        const PacketUnref unref(packet.get());
        if (packet->stream_index != source->stream) continue;
        // A copy places packets by their times, and finds them again by their decode times.
        if (packet->pts == AV_NOPTS_VALUE || packet->dts == AV_NOPTS_VALUE) return nullptr;
        if (!source->packets.empty() && packet->dts <= source->packets.back().dts) return nullptr;
        if (lastPts != AV_NOPTS_VALUE && packet->pts < lastPts) source->reorders = true;
        lastPts = packet->pts;
        source->packets.push_back({packet->pts, packet->dts, (packet->flags & AV_PKT_FLAG_KEY) != 0});
        source->endTicks = std::max(
            source->endTicks, packet->pts + (packet->duration > 0 ? packet->duration : source->frameTicks));
    }
    if (source->packets.empty()) return nullptr;
    source->next = kUnknownPosition;  // the scan left the reader at the end
    return source;
}

// Whether two sources' streams can follow one another in one track.
bool sameKind(const CopySource& a, const CopySource& b) {
    const AVStream& x = *a.input->streams[a.stream];
    const AVStream& y = *b.input->streams[b.stream];
    const AVCodecParameters& p = *x.codecpar;
    const AVCodecParameters& q = *y.codecpar;
    return av_cmp_q(x.time_base, y.time_base) == 0 && p.width == q.width && p.height == q.height &&
           p.format == q.format && p.extradata_size == q.extradata_size &&
           (p.extradata_size == 0 || std::equal(p.extradata, p.extradata + p.extradata_size, q.extradata));
}

// The packets of `piece`, or nothing when its cuts don't fall where a copy can start and end.
std::optional<CopyPlan> planPiece(const CopyPiece& piece, CopySource& source) {
    const AVRational base = source.input->streams[source.stream]->time_base;
    const auto ticks = [&](double seconds) { return std::llround(seconds / av_q2d(base)); };
    const std::int64_t tolerance = std::max<std::int64_t>(source.frameTicks / 2, 1);
    const std::int64_t start = source.startTicks + ticks(piece.sourceStart);
    const std::int64_t end = source.startTicks + ticks(piece.sourceEnd);
    const auto& packets = source.packets;
    const auto near = [&](std::int64_t a, std::int64_t b) { return std::abs(a - b) <= tolerance; };

    // A copy starts on a key frame, exactly at the cut.
    std::size_t first = packets.size();
    for (std::size_t i = 0; i < packets.size(); ++i) {
        if (packets[i].key && near(packets[i].pts, start)) {
            first = i;
            break;
        }
    }
    if (first == packets.size()) return std::nullopt;

    std::size_t last = packets.size();
    if (end < source.endTicks - tolerance) {
        // It ends before a key frame at the cut, with no picture shown before the cut decoded after that
        // key frame; or anywhere in a stream without reordering.
        last = first + 1;
        while (last < packets.size() && !(packets[last].key && near(packets[last].pts, end)))
            ++last;
        if (last < packets.size()) {
            for (std::size_t j = last + 1; j < std::min(packets.size(), last + 64); ++j) {
                if (packets[j].pts < end - tolerance) return std::nullopt;
            }
        } else if (!source.reorders) {
            last = first + 1;
            while (last < packets.size() && packets[last].pts < end - tolerance)
                ++last;
        } else {
            return std::nullopt;
        }
    }
    return CopyPlan{.source = &source,
                    .first = first,
                    .last = last,
                    .startTicks = start - tolerance,
                    .offset = ticks(piece.programStart) - packets[first].pts};
}

// Whether the shifted packets keep the strictly rising decode times a muxer needs.
bool decodeTimesRise(const std::vector<CopyPlan>& plans) {
    std::int64_t last = INT64_MIN;
    for (const auto& plan : plans) {
        for (std::size_t i = plan.first; i < plan.last; ++i) {
            const PacketInfo& p = plan.source->packets[i];
            if (p.pts < plan.startTicks) continue;
            const std::int64_t dts = p.dts + plan.offset;
            if (dts <= last) return false;
            last = dts;
        }
    }
    return true;
}

// Thrown when the packets read differ from those scanned: the copy is abandoned for an encode.
struct CopyMismatch {};

// Reads the next packet of the source's video stream; false at the end or on a read error (a copy that
// can't read on is abandoned).
bool readVideoPacket(CopySource& source, AVPacket& packet, const std::stop_token& stop) {
    if (source.hasPending) {
        av_packet_move_ref(&packet, source.pending.get());
        source.hasPending = false;
        return true;
    }
    for (;;) {
        throwIfStopRequested(stop);
        if (av_read_frame(source.input.get(), &packet) < 0) return false;
        if (packet.stream_index == source.stream) return true;
        av_packet_unref(&packet);
    }
}

// Moves the reader so that the packet with index `index` of the scan comes next: reading through when it
// lies a little ahead, else seeking before it and recognising where the reader landed by decode time.
void positionAt(CopySource& source, std::size_t index, AVPacket& packet, const std::stop_token& stop) {
    const bool ahead = source.next != kUnknownPosition && source.next <= index;
    if (!ahead || index - source.next > kReadThroughPackets) {
        const AVStream& stream = *source.input->streams[source.stream];
        // Two seconds early: the demuxer's index may count decode times, which run ahead of display times.
        const std::int64_t target = source.packets[index].dts - av_rescale_q(2, {1, 1}, stream.time_base);
        av_packet_unref(source.pending.get());
        source.hasPending = false;
        if (avformat_seek_file(source.input.get(), source.stream, INT64_MIN, target, target, 0) < 0)
            throw CopyMismatch{};
        if (!readVideoPacket(source, packet, stop)) throw CopyMismatch{};
        const auto landed =
            std::lower_bound(source.packets.begin(), source.packets.end(), packet.dts,
                             [](const PacketInfo& p, std::int64_t dts) { return p.dts < dts; });
        const bool known =
            landed != source.packets.end() && landed->dts == packet.dts && landed->pts == packet.pts;
        source.next = static_cast<std::size_t>(landed - source.packets.begin());
        av_packet_move_ref(source.pending.get(), &packet);
        source.hasPending = true;
        if (!known || source.next > index) throw CopyMismatch{};
    }
    while (source.next < index) {
        if (!readVideoPacket(source, packet, stop)) throw CopyMismatch{};
        const PacketUnref unref(&packet);
        const PacketInfo& expected = source.packets[source.next];
        if (packet.pts != expected.pts || packet.dts != expected.dts) throw CopyMismatch{};
        ++source.next;
    }
}

}  // namespace

void encodeMovie(const EncodeRequest& request, const std::filesystem::path& file,
                 const ProgressCallback& progress, const std::stop_token& stop) {
    const RationalTime frameDuration = request.renderer.build().frameDuration;
    MovieMuxer muxer(file, request.settings.fileType);
    VideoTrackEncoder video(muxer, request.settings, request.outputSize, frameDuration);
    std::optional<AudioTrackEncoder> audio;
    if (request.audio) audio.emplace(muxer, *request.audio, request.settings.pcmAudio);
    muxer.open();

    const FrameRate rate{frameDuration};
    const std::int64_t count = framesIn(request.range, frameDuration);
    EncoderPictures pictures(video.format(), video.size());
    PicturesAhead ahead(
        count,
        [&](std::int64_t k) {
            return pictures.picture(request.renderer.frame(request.range.start.adding(rate.timeForFrame(k))));
        },
        stop);
    for (std::int64_t k = 0; k < count; ++k) {
        throwIfStopRequested(stop);
        if (audio) audio->encodeUntil(rate.timeForFrame(k).seconds() + kAudioLeadSeconds);
        video.encode(ahead.next(), k);
        if (progress) progress(static_cast<double>(k + 1) / static_cast<double>(count));
    }
    video.finish();
    if (audio) audio->finish();
    muxer.finish();
}

bool copyMovie(const Composition& composition, TimeSpan range, const std::optional<ProgramAudio>& audio,
               const std::filesystem::path& file, const ProgressCallback& progress,
               const std::stop_token& stop) {
    const auto pieces = copyPieces(composition, range);
    if (!pieces) return false;
    std::map<std::string, std::unique_ptr<CopySource>> sources;
    for (const auto& piece : *pieces) {
        auto& source = sources[piece.path];
        if (!source) source = scanSource(piece.path, stop);
        if (!source || !sameKind(*source, *sources.begin()->second)) return false;
    }
    std::vector<CopyPlan> plans;
    std::size_t total = 0;
    for (const auto& piece : *pieces) {
        auto plan = planPiece(piece, *sources.at(piece.path));
        if (!plan) return false;
        total += plan->last - plan->first;
        plans.push_back(*plan);
    }
    if (!decodeTimesRise(plans)) return false;

    try {
        MovieMuxer muxer(file, ExportFileType::mpeg4);
        const CopySource& model = *plans.front().source;
        const AVStream& in = *model.input->streams[model.stream];
        AVStream& out = muxer.addStream();
        checkExport(avcodec_parameters_copy(out.codecpar, in.codecpar), "Could not copy the video");
        out.codecpar->codec_tag = 0;
        out.time_base = in.time_base;
        out.avg_frame_rate = in.avg_frame_rate;
        std::optional<AudioTrackEncoder> sound;
        if (audio) sound.emplace(muxer, *audio, false);
        muxer.open();

        PacketPtr packet = makePacket();
        std::size_t done = 0;
        for (const auto& plan : plans) {
            CopySource& source = *plan.source;
            positionAt(source, plan.first, *packet, stop);
            for (std::size_t i = plan.first; i < plan.last;) {
                if (!readVideoPacket(source, *packet, stop)) throw CopyMismatch{};
                const PacketUnref unref(packet.get());
                const PacketInfo& expected = source.packets[i];
                if (packet->pts != expected.pts || packet->dts != expected.dts) throw CopyMismatch{};
                source.next = ++i;
                ++done;
                if (packet->pts < plan.startTicks) continue;
                packet->pts += plan.offset;
                packet->dts += plan.offset;
                if (sound)
                    sound->encodeUntil(static_cast<double>(packet->dts) * av_q2d(in.time_base) +
                                       kAudioLeadSeconds);
                av_packet_rescale_ts(packet.get(), in.time_base, out.time_base);
                muxer.write(*packet, out);
                if (progress) progress(static_cast<double>(done) / static_cast<double>(total));
            }
        }
        if (sound) sound->finish();
        muxer.finish();
    } catch (const CopyMismatch&) {
        return false;
    }
    return true;
}

}  // namespace morvane::engine::ffmpeg
