#pragma once

/// Integrated programme loudness after ITU-R BS.1770 with the gating of EBU R128, on one mono channel.
///
///     std::optional<double> lufs = LoudnessAnalyzer::measureIntegratedLUFS("talk.mp4");
///     auto m = LoudnessAnalyzer::analyze("talk.mp4", LoudnessTarget::youtube);
///     if (m) applyGainDB(m->gainDB);   // target − measured
///
/// Samples are K-weighted, cut into 400 ms blocks every 100 ms, and each block's loudness is
/// 10·log10(mean square) − 0.691. Blocks at or below −70 are dropped (absolute gate); the ungated level is
/// 10·log10(mean of 10^(l/10)) − 0.691; blocks at or below that level − 10 are dropped (relative gate); the
/// result is the same power mean over the rest, − 0.691. The offset thus counts twice, and results lie
/// 0.691 LU below BS.1770's: the targets and gains of the whole system were set with this definition.
/// Less than one block of audio is measured ungated, with the offset once. Silence measures −∞; callers
/// treat a non-finite value as no measurement.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <stop_token>
#include <vector>

#include "morvane/engine/audio/k_weighting_filter.hpp"
#include "morvane/engine/audio/pcm_sample_reader.hpp"
#include "morvane/engine/export/loudness_target.hpp"

namespace morvane::engine {

/// A measured loudness and the gain that brings it to a target.
struct LoudnessMeasurement {
    double integratedLUFS = 0.0;  ///< measured value
    double targetLUFS = 0.0;      ///< the target's value
    double gainDB = 0.0;          ///< targetLUFS − integratedLUFS

    friend bool operator==(const LoudnessMeasurement&, const LoudnessMeasurement&) = default;
};

/// Integrated loudness of a stream given block by block, in constant memory but for one number per
/// 100 ms of audio.
class LoudnessMeter {
  public:
    /// `sampleRate` sets the block (round(rate · 0.4)) and hop (round(rate · 0.1)) lengths, each at least 1.
    explicit LoudnessMeter(double sampleRate);

    /// The next samples, in order.
    void process(std::span<const float> samples);

    /// The integrated loudness of everything so far, in LUFS; −∞ when nothing is measurable.
    [[nodiscard]] double integratedLUFS() const;

    /// Samples measured so far.
    [[nodiscard]] std::int64_t sampleCount() const noexcept { return count_; }

    /// The gated power mean of block loudnesses (each already 10·log10(ms) − 0.691), with the offset
    /// again; −∞ when no block passes the gates.
    [[nodiscard]] static double gatedLoudness(std::span<const double> blockLUFS);

  private:
    void addWeighted(std::span<const float> weighted);
    void closeBlock();

    KWeightingFilter filter_;
    std::size_t blockLength_;
    std::size_t hop_;
    std::vector<float> ring_;  // the last blockLength_ weighted samples
    std::size_t ringAt_ = 0;
    std::int64_t count_ = 0;
    std::int64_t nextBlockEnd_;
    double totalSquares_ = 0.0;  // of every weighted sample, for audio shorter than a block
    std::vector<double> blockLUFS_;
    std::vector<float> scratch_;
};

namespace LoudnessAnalyzer {

/// The integrated loudness of `buffer`; nothing when its rate isn't positive or it holds no samples.
[[nodiscard]] std::optional<double> measureIntegratedLUFS(const PCMBuffer& buffer);

/// The integrated loudness of the first audio track of `url`, read at 48000 Hz from the start for at most
/// `maxSeconds`; nothing when the track holds no samples. Throws as `PCMSampleReader::readMonoFloat`.
[[nodiscard]] std::optional<double> measureIntegratedLUFS(const std::filesystem::path& url,
                                                          std::optional<double> maxSeconds = std::nullopt,
                                                          const ProgressCallback& progress = {},
                                                          std::stop_token stop = {});

/// The correction that brings `url` to `target`, measured on its first `sampleSeconds` (all of it when
/// absent). Nothing for `LoudnessTarget::none` and when the measure isn't finite (silence, no samples).
[[nodiscard]] std::optional<LoudnessMeasurement> analyze(const std::filesystem::path& url,
                                                         LoudnessTarget target,
                                                         std::optional<double> sampleSeconds = std::nullopt,
                                                         std::stop_token stop = {});

/// The record for an already known loudness; nothing for `LoudnessTarget::none`.
[[nodiscard]] std::optional<LoudnessMeasurement> correctiveMeasurement(double measuredLUFS,
                                                                       LoudnessTarget target);

}  // namespace LoudnessAnalyzer

}  // namespace morvane::engine
