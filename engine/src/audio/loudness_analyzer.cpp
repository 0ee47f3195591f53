#include "morvane/engine/audio/loudness_analyzer.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include "audio/stream_pass.hpp"
#include "audio/sum_of_squares.hpp"

namespace morvane::engine {
namespace {

constexpr double kOffset = 0.691;
constexpr double kAbsoluteGate = -70.0;
constexpr double kRelativeGate = 10.0;
constexpr double kMinusInfinity = -std::numeric_limits<double>::infinity();

std::size_t samplesFor(double sampleRate, double seconds) {
    return static_cast<std::size_t>(std::max(std::llround(sampleRate * seconds), 1LL));
}

// 10·log10 of the mean power of the blocks whose loudness passes `keep`, minus the offset; NaN when none do.
template <class Keep>
double powerMean(std::span<const double> blockLUFS, Keep keep) {
    double sum = 0.0;
    std::size_t n = 0;
    for (const double l : blockLUFS) {
        if (!keep(l)) continue;
        sum += std::pow(10.0, l / 10.0);
        ++n;
    }
    if (n == 0) return std::numeric_limits<double>::quiet_NaN();
    return 10.0 * std::log10(sum / static_cast<double>(n)) - kOffset;
}

}  // namespace

LoudnessMeter::LoudnessMeter(double sampleRate)
    : blockLength_(samplesFor(sampleRate, 0.4)),
      hop_(samplesFor(sampleRate, 0.1)),
      ring_(blockLength_, 0.0f),
      nextBlockEnd_(static_cast<std::int64_t>(blockLength_)) {}

void LoudnessMeter::process(std::span<const float> samples) {
    // Weighted in pieces, so that measuring a buffer in memory never copies all of it.
    constexpr std::size_t kPiece = 65536;
    while (!samples.empty()) {
        const std::size_t n = std::min(kPiece, samples.size());
        scratch_.assign(samples.begin(), samples.begin() + static_cast<std::ptrdiff_t>(n));
        samples = samples.subspan(n);
        filter_.process(scratch_);
        addWeighted(scratch_);
    }
}

void LoudnessMeter::addWeighted(std::span<const float> weighted) {
    totalSquares_ += sumOfSquares(weighted);
    while (!weighted.empty()) {
        // Fill the ring up to the end of the next block, wrapping as needed.
        const auto take = static_cast<std::size_t>(
            std::min<std::int64_t>(nextBlockEnd_ - count_, static_cast<std::int64_t>(weighted.size())));
        std::size_t copied = 0;
        while (copied < take) {
            const std::size_t run = std::min(take - copied, blockLength_ - ringAt_);
            std::copy_n(weighted.begin() + static_cast<std::ptrdiff_t>(copied), run,
                        ring_.begin() + static_cast<std::ptrdiff_t>(ringAt_));
            ringAt_ = (ringAt_ + run) % blockLength_;
            copied += run;
        }
        count_ += static_cast<std::int64_t>(take);
        weighted = weighted.subspan(take);
        if (count_ == nextBlockEnd_) closeBlock();
    }
}

void LoudnessMeter::closeBlock() {
    const double meanSquare = sumOfSquares(ring_) / static_cast<double>(blockLength_);
    if (meanSquare > 0.0) blockLUFS_.push_back(10.0 * std::log10(meanSquare) - kOffset);
    nextBlockEnd_ += static_cast<std::int64_t>(hop_);
}

double LoudnessMeter::integratedLUFS() const {
    if (count_ < static_cast<std::int64_t>(blockLength_)) {
        if (count_ == 0) return kMinusInfinity;
        const double meanSquare = totalSquares_ / static_cast<double>(count_);
        return meanSquare > 0.0 ? 10.0 * std::log10(meanSquare) - kOffset : kMinusInfinity;
    }
    return gatedLoudness(blockLUFS_);
}

double LoudnessMeter::gatedLoudness(std::span<const double> blockLUFS) {
    const auto aboveAbsolute = [](double l) { return l > kAbsoluteGate; };
    const double ungated = powerMean(blockLUFS, aboveAbsolute);
    if (std::isnan(ungated)) return kMinusInfinity;
    const double relativeGate = ungated - kRelativeGate;
    const double gated = powerMean(blockLUFS, [&](double l) { return aboveAbsolute(l) && l > relativeGate; });
    return std::isnan(gated) ? kMinusInfinity : gated;
}

namespace LoudnessAnalyzer {

std::optional<double> measureIntegratedLUFS(const PCMBuffer& buffer) {
    if (!(buffer.sampleRate > 0.0) || buffer.samples.empty()) return std::nullopt;
    LoudnessMeter meter(buffer.sampleRate);
    meter.process(buffer.samples);
    return meter.integratedLUFS();
}

std::optional<double> measureIntegratedLUFS(const std::filesystem::path& url,
                                            std::optional<double> maxSeconds,
                                            const ProgressCallback& progress, std::stop_token stop) {
    constexpr int kRate = 48000;
    PCMStream stream(url, kRate, std::move(stop));
    if (maxSeconds) stream.setRange(0.0, maxSeconds);
    LoudnessMeter meter(kRate);
    forEachBlock(stream, progress, [&](std::span<const float> block) { meter.process(block); });
    if (meter.sampleCount() == 0) return std::nullopt;
    return meter.integratedLUFS();
}

std::optional<LoudnessMeasurement> analyze(const std::filesystem::path& url, LoudnessTarget target,
                                           std::optional<double> sampleSeconds, std::stop_token stop) {
    if (target == LoudnessTarget::none) return std::nullopt;
    const auto measured = measureIntegratedLUFS(url, sampleSeconds, {}, std::move(stop));
    if (!measured || !std::isfinite(*measured)) return std::nullopt;
    return correctiveMeasurement(*measured, target);
}

std::optional<LoudnessMeasurement> correctiveMeasurement(double measuredLUFS, LoudnessTarget target) {
    const auto targetLUFS = integratedLUFS(target);
    if (!targetLUFS) return std::nullopt;
    return LoudnessMeasurement{measuredLUFS, *targetLUFS, *targetLUFS - measuredLUFS};
}

}  // namespace LoudnessAnalyzer
}  // namespace morvane::engine
