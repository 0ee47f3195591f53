#pragma once

/// Audio of any media file as mono 32-bit float samples at a chosen rate: whole, in ranges, or streamed.
///
///     PCMBuffer all = PCMSampleReader::readMonoFloat("talk.mp4", 48000);
///     PCMBuffer part = PCMSampleReader::readMonoFloat("talk.mp4", 48000, {.startSeconds = 60, .maxSeconds =
///     5}); PCMBuffer kept = PCMSampleReader::readConcatenated("talk.mp4", 48000, {{0.0, 1.5}, {4.0, 9.25}});
///
///     PCMStream stream("talk.mp4", 44100);              // an hour of audio in constant memory
///     for (auto block = stream.read(); !block.empty(); block = stream.read()) meter.process(block);
///
/// The first audio track is read. Channels are mixed to their average ((L+R)/2); the rate is converted
/// with a band-limited high-quality resampler. Every reader throws `EngineError::missingFile` for a path
/// with no file, `noAudioTrack` for media without audio, `readerFailed` with FFmpeg's reason for a file
/// that is not media, or is cut short or damaged beyond reading, and `OperationCancelled` on a stop.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <stop_token>
#include <string_view>
#include <vector>

#include "morvane/engine/support/cancellation.hpp"

namespace morvane::engine {

/// One channel of samples in memory.
struct PCMBuffer {
    std::vector<float> samples;    ///< mono samples
    double sampleRate = 0.0;       ///< samples a second
    double durationSeconds = 0.0;  ///< samples.size() / sampleRate

    friend bool operator==(const PCMBuffer&, const PCMBuffer&) = default;
};

/// A closed range of seconds of a source, `lower` to `upper`.
struct SecondsRange {
    double lower = 0.0;
    double upper = 0.0;

    friend bool operator==(const SecondsRange&, const SecondsRange&) = default;
};

/// Where a read starts and how long it lasts.
struct PCMReadOptions {
    double startSeconds = 0.0;         ///< from the start of the track; negative counts as 0
    std::optional<double> maxSeconds;  ///< absent: to the end of the track
    ProgressCallback progress;         ///< share of the read done, when set
};

/// A forward stream over the audio of one file, one decoded block at a time, for work that must not
/// hold the whole track (silence detection, loudness and waveforms of long recordings).
class PCMStream {
  public:
    /// Opens the first audio track of `url` at `sampleRate` samples a second. Throws as the readers do;
    /// when the audio can't be decoded, `readerFailed` begins with `startFailure`.
    PCMStream(const std::filesystem::path& url, int sampleRate, std::stop_token stop = {},
              std::string_view startFailure = "Failed to start PCM reader");
    ~PCMStream();
    PCMStream(PCMStream&&) noexcept;
    PCMStream& operator=(PCMStream&&) noexcept;

    /// Limits the stream to `maxSeconds` (when given) from `startSeconds`, and moves there. Not for a
    /// stream with `alsoAtRate` consumers.
    void setRange(double startSeconds, std::optional<double> maxSeconds);

    /// Before the first `read`: also converts each decoded block to `sampleRate` and hands it to `consume`
    /// during `read`, exactly the samples, in exactly the blocks, that a stream opened at that rate would
    /// read. Analyses at different rates (silences at 44.1 kHz, levels at 48 kHz) then share one decode.
    /// `consume` sees the whole track only if the stream is read to its end.
    void alsoAtRate(int sampleRate, std::function<void(std::span<const float>)> consume);

    /// The next samples in order; empty once the track or the range is done. The span stays valid until
    /// the next call. Throws `readerFailed` or `OperationCancelled`.
    [[nodiscard]] std::span<const float> read();

    /// The rate samples are delivered at, as asked for.
    [[nodiscard]] int sampleRate() const noexcept;
    /// The file's duration as its container states it, in seconds; 0 when unknown. An estimate: the
    /// samples read are the truth.
    [[nodiscard]] double durationSeconds() const noexcept;
    /// Samples handed out by `read` since the stream was opened or its range set.
    [[nodiscard]] std::int64_t samplesRead() const noexcept;
    /// The number of samples the range should hold, from the container's duration; 0 when unknown.
    [[nodiscard]] std::int64_t expectedSamples() const noexcept;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

namespace PCMSampleReader {

/// The first audio track of `url`, mono, at `sampleRate`, from `options.startSeconds` for
/// `options.maxSeconds` (or to the end). `durationSeconds` is the sample count over the rate.
[[nodiscard]] PCMBuffer readMonoFloat(const std::filesystem::path& url, int sampleRate,
                                      const PCMReadOptions& options = {}, std::stop_token stop = {});

/// Each range of `ranges` read as by `readMonoFloat`, appended in the given order (not sorted, not merged).
/// A range whose upper bound is not above its lower bound adds nothing.
[[nodiscard]] PCMBuffer readConcatenated(const std::filesystem::path& url, int sampleRate,
                                         std::span<const SecondsRange> ranges,
                                         const ProgressCallback& progress = {}, std::stop_token stop = {});

}  // namespace PCMSampleReader

}  // namespace morvane::engine
