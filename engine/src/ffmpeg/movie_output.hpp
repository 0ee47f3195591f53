#pragma once

// The movie file an export writes, and its sound track: a muxer that interleaves what it is given, and an
// encoder for the program's mixed sound that is fed as the picture advances.

#include <filesystem>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ffmpeg/ffmpeg_ptr.hpp"
#include "morvane/engine/export/mp4_exporter.hpp"

namespace morvane::engine::ffmpeg {

/// The mixed program sound: mono samples at `sampleRate`, handed over in order by `read` (empty at the
/// end), so that a long program is never held whole.
struct ProgramAudio {
    std::function<std::span<const float>()> read;
    int sampleRate = 48000;
};

/// An MPEG-4 or QuickTime file being written. Streams are added, then `open` writes the header; `finish`
/// writes the index (at the front, so the movie plays before it has fully loaded) and closes the file.
/// Every failure throws `EngineError::exportFailed` with FFmpeg's or the file system's reason.
class MovieMuxer {
  public:
    MovieMuxer(const std::filesystem::path& file, ExportFileType type);
    /// A file of FFmpeg's muxer `format` ("gif"...), given `headerOptions` as it opens.
    MovieMuxer(const std::filesystem::path& file, const char* format,
               std::vector<std::pair<std::string, std::string>> headerOptions);

    /// A new stream; its parameters are filled in by the caller before `open`.
    AVStream& addStream();
    void open();
    /// Writes `packet` (in `stream`'s time base) interleaved with the other streams.
    void write(AVPacket& packet, const AVStream& stream);
    void finish();

    [[nodiscard]] AVFormatContext& context() noexcept { return *output_; }

  private:
    std::filesystem::path file_;
    std::vector<std::pair<std::string, std::string>> headerOptions_;
    OutputFormatPtr output_;
};

/// Sends `frame` to `encoder` (nullptr: the end) and hands each packet that comes out, in `stream`'s time
/// base, to `write`. Throws `EngineError::exportFailed` beginning with `failure`.
void encodeFrame(AVCodecContext& encoder, const AVFrame* frame, AVPacket& packet, const AVStream& stream,
                 const std::function<void(AVPacket&)>& write, std::string_view failure);

/// The sound track of an export: AAC, or 16-bit PCM for ProRes movies, mono.
class AudioTrackEncoder {
  public:
    AudioTrackEncoder(MovieMuxer& muxer, ProgramAudio audio, bool pcm);

    /// Encodes and writes the sound up to `seconds` from the start.
    void encodeUntil(double seconds);
    /// Encodes the rest and drains the encoder.
    void finish();

  private:
    void send(const AVFrame* frame) {
        encodeFrame(
            *encoder_, frame, *packet_, *stream_, [this](AVPacket& p) { muxer_.write(p, *stream_); },
            "Could not encode the sound");
    }

    MovieMuxer& muxer_;
    ProgramAudio audio_;
    AVStream* stream_ = nullptr;
    CodecContextPtr encoder_;
    FramePtr frame_;
    PacketPtr packet_;
    // Encodes whole frames up to sample `target`, and the short last one once `target` reaches the end.
    void encodeTo(std::int64_t target);
    // Pulls from the program sound until `count` samples wait or it has ended.
    void fill(std::size_t count);

    std::vector<float> waiting_;  // read, not yet encoded
    std::size_t waitingAt_ = 0;   // the first of `waiting_` not yet encoded
    bool ended_ = false;          // the program sound is all read
    std::int64_t next_ = 0;       // the first sample not yet encoded
};

}  // namespace morvane::engine::ffmpeg
