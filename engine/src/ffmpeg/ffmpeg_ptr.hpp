#pragma once

// Owners for every FFmpeg object the engine touches, so that no early return or exception leaks one.
// This header and its neighbours are the only places FFmpeg's headers appear.

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

#include <memory>
#include <new>

namespace morvane::engine::ffmpeg {

struct InputFormatDeleter {
    void operator()(AVFormatContext* context) const noexcept { avformat_close_input(&context); }
};
/// A demuxer opened with avformat_open_input.
using InputFormatPtr = std::unique_ptr<AVFormatContext, InputFormatDeleter>;

struct OutputFormatDeleter {
    void operator()(AVFormatContext* context) const noexcept {
        if (context->pb != nullptr && (context->oformat->flags & AVFMT_NOFILE) == 0)
            avio_closep(&context->pb);
        avformat_free_context(context);
    }
};
/// A muxer from avformat_alloc_output_context2, with the file it opened.
using OutputFormatPtr = std::unique_ptr<AVFormatContext, OutputFormatDeleter>;

struct CodecContextDeleter {
    void operator()(AVCodecContext* context) const noexcept { avcodec_free_context(&context); }
};
using CodecContextPtr = std::unique_ptr<AVCodecContext, CodecContextDeleter>;

struct FrameDeleter {
    void operator()(AVFrame* frame) const noexcept { av_frame_free(&frame); }
};
using FramePtr = std::unique_ptr<AVFrame, FrameDeleter>;

struct PacketDeleter {
    void operator()(AVPacket* packet) const noexcept { av_packet_free(&packet); }
};
using PacketPtr = std::unique_ptr<AVPacket, PacketDeleter>;

struct ResamplerDeleter {
    void operator()(SwrContext* context) const noexcept { swr_free(&context); }
};
using ResamplerPtr = std::unique_ptr<SwrContext, ResamplerDeleter>;

struct ScalerDeleter {
    void operator()(SwsContext* context) const noexcept { sws_freeContext(context); }
};
using ScalerPtr = std::unique_ptr<SwsContext, ScalerDeleter>;

struct FifoDeleter {
    void operator()(AVAudioFifo* fifo) const noexcept { av_audio_fifo_free(fifo); }
};
using AudioFifoPtr = std::unique_ptr<AVAudioFifo, FifoDeleter>;

/// A fresh frame; running out of memory here is reported like any other allocation failure.
inline FramePtr makeFrame() {
    FramePtr frame(av_frame_alloc());
    if (!frame) throw std::bad_alloc();
    return frame;
}

inline PacketPtr makePacket() {
    PacketPtr packet(av_packet_alloc());
    if (!packet) throw std::bad_alloc();
    return packet;
}

/// Unreferences a packet or frame at scope exit, so that one buffer can be reused across a loop.
template <class T, void (*Unref)(T*)>
class ScopedUnref {
  public:
    explicit ScopedUnref(T* object) noexcept : object_(object) {}
    ~ScopedUnref() { Unref(object_); }
    ScopedUnref(const ScopedUnref&) = delete;
    ScopedUnref& operator=(const ScopedUnref&) = delete;

  private:
    T* object_;
};
using PacketUnref = ScopedUnref<AVPacket, av_packet_unref>;
using FrameUnref = ScopedUnref<AVFrame, av_frame_unref>;

}  // namespace morvane::engine::ffmpeg
