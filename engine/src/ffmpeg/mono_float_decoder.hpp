#pragma once

// The first audio track of a media file, decoded to mono 32-bit float at the track's own rate. Rate
// conversion is a separate stage (MonoResampler), so that it can run on another thread than decoding.
//
//     MonoFloatDecoder decoder(path, stop, "Failed to start PCM reader");
//     for (auto block = decoder.next(); !block.samples.empty(); block = decoder.next())
//         consume(block.samples);   // block.firstSample: where it lies in the track, at block.sampleRate
//
// The downmix is the plain average of the channels, (L+R)/2 for stereo, set explicitly on swresample:
// FFmpeg's default mix keeps more level (3 dB for stereo) and would move every threshold measured in dB.

#include <cstdint>
#include <filesystem>
#include <span>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "ffmpeg/ffmpeg_ptr.hpp"

namespace morvane::engine::ffmpeg {

class MonoFloatDecoder {
  public:
    /// Opens the first audio track of `path`. Throws `EngineError::missingFile`, `noAudioTrack`, and
    /// `readerFailed` with FFmpeg's reason when the file can't be opened, or with `startFailure` and the
    /// reason when its audio can't be decoded.
    MonoFloatDecoder(const std::filesystem::path& path, std::stop_token stop, std::string_view startFailure);
    ~MonoFloatDecoder();
    MonoFloatDecoder(const MonoFloatDecoder&) = delete;
    MonoFloatDecoder& operator=(const MonoFloatDecoder&) = delete;

    struct Block {
        std::span<const float> samples;  ///< valid until the next call
        std::int64_t firstSample = 0;    ///< index of samples[0] in the track, at `sampleRate`
        int sampleRate = 0;              ///< the track's rate (which a few streams change midway)
    };

    /// The next decoded samples; empty at the end of the track. Throws `readerFailed` with FFmpeg's
    /// reason when the file can't be read on, `OperationCancelled` when the stop token asks.
    Block next();

    /// Moves to `seconds` from the start of the track. The following blocks may begin a little before it
    /// (decoders resume at packet boundaries); their `firstSample` says where.
    void seek(double seconds);

    /// The track's rate as its header states it; 0 when it doesn't.
    [[nodiscard]] int sampleRate() const noexcept { return rate_; }
    /// The file's duration in seconds; 0 when the container doesn't say.
    [[nodiscard]] double durationSeconds() const noexcept { return duration_; }

  private:
    void convert(const AVFrame& frame);
    void flushResampler();
    void configureResampler(const AVFrame& frame);
    void noteDecodeError(int code);
    void checkComplete() const;
    [[nodiscard]] double declaredTrackSeconds() const;

    std::stop_token stop_;  // before format_: the demuxer's interrupt callback points at it
    std::string name_;
    int rate_ = 0;  // of the samples produced: the rate of the last decoded frame
    InputFormatPtr format_;
    int stream_ = -1;
    double duration_ = 0.0;
    CodecContextPtr codec_;
    PacketPtr packet_;
    FramePtr frame_;

    ResamplerPtr resampler_;
    int resamplerFormat_ = -1;
    int resamplerRate_ = 0;
    AVChannelLayout resamplerLayout_{};

    std::vector<float> out_;
    std::int64_t position_ = 0;    // output sample index of the next sample produced
    bool positionKnown_ = true;    // false right after a seek, until a frame says where it landed
    std::int64_t seekTarget_ = 0;  // output sample index asked for by the last seek
    bool draining_ = false;        // the demuxer is done; the decoder is being emptied
    bool finished_ = false;
    int consecutiveErrors_ = 0;
    int lastError_ = 0;
    bool producedAny_ = false;
};

}  // namespace morvane::engine::ffmpeg
