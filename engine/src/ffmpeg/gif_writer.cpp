#include "ffmpeg/gif_writer.hpp"

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
}

#include <fmt/core.h>

#include "ffmpeg/ffmpeg_error.hpp"
#include "ffmpeg/movie_output.hpp"

namespace morvane::engine::ffmpeg {
namespace {

// The palette generator's picture: one colour per pixel of a 16×16 square.
constexpr int kPaletteSide = 16;
constexpr const char* kFailure = "Could not write the GIF";

struct InOutDeleter {
    void operator()(AVFilterInOut* list) const noexcept { avfilter_inout_free(&list); }
};
using InOutPtr = std::unique_ptr<AVFilterInOut, InOutDeleter>;

AVFilterContext* addSource(AVFilterGraph& graph, const char* name, PixelSize size, AVPixelFormat format) {
    AVFilterContext* source = nullptr;
    const std::string args = fmt::format("video_size={}x{}:pix_fmt={}:time_base=1/100:pixel_aspect=1/1",
                                         size.width, size.height, static_cast<int>(format));
    checkExport(avfilter_graph_create_filter(&source, avfilter_get_by_name("buffer"), name, args.c_str(),
                                             nullptr, &graph),
                kFailure);
    return source;
}

// Links `sources` (named as the description's open inputs) through `description` into a new sink.
AVFilterContext* connect(AVFilterGraph& graph,
                         std::initializer_list<std::pair<const char*, AVFilterContext*>> sources,
                         const char* description) {
    AVFilterContext* sink = nullptr;
    checkExport(avfilter_graph_create_filter(&sink, avfilter_get_by_name("buffersink"), "out", nullptr,
                                             nullptr, &graph),
                kFailure);
    AVFilterInOut* outputs = nullptr;
    for (auto it = std::rbegin(sources); it != std::rend(sources); ++it) {
        AVFilterInOut* entry = avfilter_inout_alloc();
        if (entry == nullptr) {
            avfilter_inout_free(&outputs);
            throw std::bad_alloc();
        }
        entry->name = av_strdup(it->first);
        entry->filter_ctx = it->second;
        entry->pad_idx = 0;
        entry->next = outputs;
        outputs = entry;
    }
    InOutPtr outputsOwner(outputs);
    InOutPtr inputsOwner(avfilter_inout_alloc());
    if (!inputsOwner) throw std::bad_alloc();
    inputsOwner->name = av_strdup("out");
    inputsOwner->filter_ctx = sink;
    inputsOwner->pad_idx = 0;
    inputsOwner->next = nullptr;
    AVFilterInOut* inputs = inputsOwner.release();
    outputs = outputsOwner.release();
    const int parsed = avfilter_graph_parse_ptr(&graph, description, &inputs, &outputs, nullptr);
    avfilter_inout_free(&inputs);
    avfilter_inout_free(&outputs);
    checkExport(parsed, kFailure);
    checkExport(avfilter_graph_config(&graph, nullptr), kFailure);
    return sink;
}

FilterGraphPtr newGraph() {
    FilterGraphPtr graph(avfilter_graph_alloc());
    if (!graph) throw std::bad_alloc();
    // The pictures are small and one comes at a time: threads would only add start-up cost.
    graph->nb_threads = 1;
    return graph;
}

}  // namespace

void FilterGraphDeleter::operator()(AVFilterGraph* graph) const noexcept {
    avfilter_graph_free(&graph);
}

GifPaletteBuilder::GifPaletteBuilder(PixelSize size) : graph_(newGraph()) {
    source_ = addSource(*graph_, "in", size, AV_PIX_FMT_RGB24);
    // The generator counts every distinct colour it sees, which for gradients and noise runs to millions
    // (hundreds of megabytes). Counting at 6 bits a channel, each value moved to the middle of its step so
    // that the palette's averages stay true, bounds that at 262,144 colours and leaves a palette of 256
    // looking the same.
    sink_ = connect(*graph_, {{"in", source_}},
                    "[in]lutrgb=r='bitor(bitand(val,252),2)':g='bitor(bitand(val,252),2)'"
                    ":b='bitor(bitand(val,252),2)',palettegen=max_colors=256:stats_mode=full[out]");
}

void GifPaletteBuilder::add(AVFrame& picture) {
    // Counted now: a picture merely queued would wait, whole, for the end of the pass.
    checkExport(
        av_buffersrc_add_frame_flags(source_, &picture, AV_BUFFERSRC_FLAG_KEEP_REF | AV_BUFFERSRC_FLAG_PUSH),
        kFailure);
}

FramePtr GifPaletteBuilder::finish() {
    checkExport(av_buffersrc_add_frame(source_, nullptr), kFailure);
    FramePtr palette = makeFrame();
    checkExport(av_buffersink_get_frame(sink_, palette.get()), "Could not make the GIF's palette");
    return palette;
}

struct GifWriter::State {
    FilterGraphPtr graph = newGraph();
    AVFilterContext* source = nullptr;
    AVFilterContext* sink = nullptr;
    MovieMuxer muxer;
    AVStream* stream = nullptr;
    CodecContextPtr encoder;
    FramePtr mapped = makeFrame();
    PacketPtr packet = makePacket();
    std::int64_t next = 0;  // the number of the next picture

    State(const std::filesystem::path& file, bool loop)
        // The loop count lives in the file's header: 0 repeats forever; -1 writes none, so players play once.
        : muxer(file, "gif", {{"loop", loop ? "0" : "-1"}}) {}

    void write(AVPacket& p) {
        if (p.duration == 0) p.duration = av_rescale_q(1, encoder->time_base, stream->time_base);
        muxer.write(p, *stream);
    }

    void encode(const AVFrame* frame) {
        encodeFrame(
            *encoder, frame, *packet, *stream, [this](AVPacket& p) { write(p); }, kFailure);
    }

    // Encodes whatever the mapping filter has ready.
    void drain() {
        for (;;) {
            const int rc = av_buffersink_get_frame(sink, mapped.get());
            if (rc == AVERROR(EAGAIN) || rc == AVERROR_EOF) return;
            checkExport(rc, kFailure);
            const FrameUnref unref(mapped.get());
            mapped->pts = next++;
            encode(mapped.get());
        }
    }
};

GifWriter::GifWriter(const std::filesystem::path& file, PixelSize size, int framesPerSecond, bool loop,
                     const AVFrame& palette)
    : state_(std::make_unique<State>(file, loop)) {
    State& s = *state_;
    s.source = addSource(*s.graph, "in", size, AV_PIX_FMT_RGB24);
    AVFilterContext* paletteSource = addSource(*s.graph, "palette", {kPaletteSide, kPaletteSide},
                                               static_cast<AVPixelFormat>(palette.format));
    s.sink = connect(*s.graph, {{"in", s.source}, {"palette", paletteSource}},
                     "[in][palette]paletteuse=dither=sierra2_4a[out]");
    // The one palette, then the end of that input: the filter keeps using it for every picture.
    checkExport(av_buffersrc_add_frame_flags(paletteSource, const_cast<AVFrame*>(&palette),
                                             AV_BUFFERSRC_FLAG_KEEP_REF),
                kFailure);
    checkExport(av_buffersrc_add_frame(paletteSource, nullptr), kFailure);

    const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_GIF);
    if (codec == nullptr) throw exportError("No GIF encoder", AVERROR_ENCODER_NOT_FOUND);
    s.encoder.reset(avcodec_alloc_context3(codec));
    if (!s.encoder) throw std::bad_alloc();
    s.encoder->width = size.width;
    s.encoder->height = size.height;
    s.encoder->pix_fmt = AV_PIX_FMT_PAL8;
    s.encoder->time_base = {1, framesPerSecond};
    checkExport(avcodec_open2(s.encoder.get(), codec, nullptr), "Could not open the GIF encoder");
    s.stream = &s.muxer.addStream();
    checkExport(avcodec_parameters_from_context(s.stream->codecpar, s.encoder.get()),
                "Could not open the GIF encoder");
    s.stream->time_base = s.encoder->time_base;
    s.muxer.open();
}

GifWriter::~GifWriter() = default;

void GifWriter::add(AVFrame& picture) {
    State& s = *state_;
    checkExport(av_buffersrc_add_frame_flags(s.source, &picture, AV_BUFFERSRC_FLAG_KEEP_REF), kFailure);
    s.drain();
}

void GifWriter::finish() {
    State& s = *state_;
    checkExport(av_buffersrc_add_frame(s.source, nullptr), kFailure);
    s.drain();
    s.encode(nullptr);
    s.muxer.finish();
}

}  // namespace morvane::engine::ffmpeg
