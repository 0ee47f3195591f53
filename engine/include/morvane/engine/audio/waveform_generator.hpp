#pragma once

/// The envelope a timeline draws for a clip's sound: the lowest and highest sample of each bin, scaled so
/// that quiet recordings fill the lane and a single click doesn't flatten it.
///
///     WaveformEnvelope envelope = WaveformGenerator::generate("talk.mp4", std::nullopt,
///                                                             [](double share) { bar.set(share); });
///     envelope.mins.size();   // 120 bins a second of source, at least 1024, at most 65536
///
/// Generation streams the audio at 44100 Hz and keeps two floats a bin, so an hour-long recording costs no
/// more memory than its bins.

#include <cstddef>
#include <filesystem>
#include <optional>
#include <span>
#include <stop_token>
#include <vector>

#include "morvane/engine/support/cancellation.hpp"
#include "morvane/engine/support/json.hpp"

namespace morvane::engine {

/// Per-bin extremes of a source's samples, normalised to -1…1.
struct WaveformEnvelope {
    std::vector<float> mins;       ///< lowest sample of each bin
    std::vector<float> maxs;       ///< highest sample of each bin
    double durationSeconds = 0.0;  ///< length of the source

    friend bool operator==(const WaveformEnvelope&, const WaveformEnvelope&) = default;
};

/// Sorts a stream of samples into bins of `samplesPerBin` samples each (a fraction is allowed) and keeps
/// each bin's extremes. Samples past the last bin count in it.
class WaveformBinner {
  public:
    WaveformBinner(std::size_t bins, double samplesPerBin);

    /// The next samples, in order.
    void process(std::span<const float> samples) noexcept;

    /// The raw (not yet normalised) envelope. A bin that saw no sample holds 0, as does a non-finite extreme.
    [[nodiscard]] WaveformEnvelope finish(double durationSeconds) &&;

  private:
    std::vector<float> mins_;
    std::vector<float> maxs_;
    double samplesPerBin_;
    std::size_t bin_ = 0;
    std::int64_t sample_ = 0;
    std::int64_t binEnd_ = 0;  // first sample index of the next bin
};

namespace WaveformGenerator {

/// The rate envelopes are computed at.
inline constexpr int sampleRate = 44100;

/// `targetBins` when it is given and positive; otherwise 120 bins a second of `durationSeconds`, truncated,
/// held to 1024…65536.
[[nodiscard]] std::size_t binCount(double durationSeconds, std::optional<int> targetBins);

/// Scales every value by the inverse of the 99th percentile of all absolute values (by 999.99994 when that
/// percentile is 0.001 or less) and clamps the results to -1…1.
void normalizeSigned(WaveformEnvelope& envelope);

/// The normalised envelope of the first audio track of `url`. A source without audio or without a positive
/// duration gives an empty envelope. Progress is the share of samples read, reported in steps of more than
/// 0.02 and capped at 0.99 until 1.0 at the end. Throws `EngineError::missingFile`, `readerFailed` ("Failed
/// to start PCM reader" when the audio can't be decoded, or FFmpeg's reason) and `OperationCancelled`.
[[nodiscard]] WaveformEnvelope generate(const std::filesystem::path& url,
                                        std::optional<int> targetBins = std::nullopt,
                                        const ProgressCallback& progress = {}, std::stop_token stop = {});

}  // namespace WaveformGenerator

/// {"mins": [...], "maxs": [...], "durationSeconds": 12.5}; floats written in their shortest form.
void to_json(Json& json, const WaveformEnvelope& envelope);
void fromJson(const JsonReader& reader, WaveformEnvelope& envelope);

}  // namespace morvane::engine
