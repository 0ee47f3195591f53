#include "morvane/intelligence/cleanup/segment_audio_meter.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace morvane::intelligence::SegmentAudioMeter {
namespace {

// A sample index of a non-negative time, held far below the 64-bit limit for absurd times.
std::int64_t sampleIndex(double product) {
    constexpr double kLimit = 4.0e18;
    return product >= kLimit ? static_cast<std::int64_t>(kLimit) : static_cast<std::int64_t>(product);
}

// The segment's samples [lo, hi) before they are cut at the end of the audio; none when its times give no
// range (end not after start, or not numbers).
struct SampleRange {
    std::int64_t lo = 0;
    std::int64_t hi = 0;
};

std::optional<SampleRange> sampleRange(const TranscriptSegment& segment, double rate) {
    const double a = std::max(segment.start.seconds(), 0.0);
    const double b = std::max(segment.end.seconds(), a);
    if (!(a < b)) return std::nullopt;
    return SampleRange{sampleIndex(a * rate), sampleIndex(b * rate)};
}

// Both measures of one range, fed in sample order in pieces of any size: the sums come out the same
// however the range is split, so a stream and a buffer agree to the last bit.
class LevelAccumulator {
  public:
    explicit LevelAccumulator(double rate)
        : hop_(std::max<std::int64_t>(static_cast<std::int64_t>(rate * 0.05), 1)),
          shortest_(static_cast<std::int64_t>(rate * 0.1)) {}

    void add(std::span<const float> samples) {
        while (!samples.empty()) {
            const auto take = static_cast<std::size_t>(
                std::min<std::int64_t>(hop_ - fill_, static_cast<std::int64_t>(samples.size())));
            for (std::size_t i = 0; i < take; ++i) {
                const double square = static_cast<double>(samples[i]) * static_cast<double>(samples[i]);
                sum_ += square;
                window_ += square;
            }
            fill_ += static_cast<std::int64_t>(take);
            count_ += static_cast<std::int64_t>(take);
            samples = samples.subspan(take);
            if (fill_ == hop_) closeWindow();
        }
    }

    SegmentAudioLevel finish() {
        SegmentAudioLevel level;
        if (count_ > 0) level.rms = std::sqrt(sum_ / static_cast<double>(count_));
        if (fill_ > 0) closeWindow();
        if (count_ <= shortest_ || windows_.size() < 2) return level;
        double mean = 0.0;
        for (double w : windows_)
            mean += w;
        mean /= static_cast<double>(windows_.size());
        double variance = 0.0;
        for (double w : windows_)
            variance += (w - mean) * (w - mean);
        variance /= static_cast<double>(windows_.size());
        level.stability = std::clamp(1.0 - 40.0 * variance, 0.0, 1.0);
        return level;
    }

  private:
    void closeWindow() {
        windows_.push_back(std::sqrt(window_ / static_cast<double>(fill_)));
        window_ = 0.0;
        fill_ = 0;
    }

    std::int64_t hop_;
    std::int64_t shortest_;
    double sum_ = 0.0;
    double window_ = 0.0;
    std::int64_t fill_ = 0;
    std::int64_t count_ = 0;
    std::vector<double> windows_;
};

SegmentAudioLevel measureOne(const TranscriptSegment& segment, const engine::PCMBuffer& pcm) {
    LevelAccumulator accumulator(pcm.sampleRate);
    if (const auto range = sampleRange(segment, pcm.sampleRate)) {
        const auto count = static_cast<std::int64_t>(pcm.samples.size());
        const std::int64_t hi = std::min(range->hi, count);
        if (range->lo < hi) {
            accumulator.add(
                std::span(pcm.samples)
                    .subspan(static_cast<std::size_t>(range->lo), static_cast<std::size_t>(hi - range->lo)));
        }
    }
    return accumulator.finish();
}

}  // namespace

std::optional<double> rms(const TranscriptSegment& segment, const engine::PCMBuffer& pcm) {
    return measureOne(segment, pcm).rms;
}

double stability(const TranscriptSegment& segment, const engine::PCMBuffer& pcm) {
    return measureOne(segment, pcm).stability;
}

std::vector<SegmentAudioLevel> measure(std::span<const TranscriptSegment> segments,
                                       const engine::PCMBuffer& pcm) {
    std::vector<SegmentAudioLevel> levels;
    levels.reserve(segments.size());
    for (const auto& segment : segments)
        levels.push_back(measureOne(segment, pcm));
    return levels;
}

std::vector<SegmentAudioLevel> measure(std::span<const TranscriptSegment> segments,
                                       const std::filesystem::path& mediaURL,
                                       const ProgressCallback& progress, std::stop_token stop) {
    struct Pending {
        std::size_t index = 0;
        SampleRange range;
    };
    constexpr double rate = sampleRate;
    std::vector<Pending> pending;
    std::int64_t lastSample = 0;
    for (std::size_t i = 0; i < segments.size(); ++i) {
        if (const auto range = sampleRange(segments[i], rate); range && range->lo < range->hi) {
            pending.push_back({i, *range});
            lastSample = std::max(lastSample, range->hi);
        }
    }
    // Segments are nearly in time order; sorting by first sample lets one forward pass serve them all,
    // with only the few that overlap the current block active at once.
    std::stable_sort(pending.begin(), pending.end(),
                     [](const Pending& a, const Pending& b) { return a.range.lo < b.range.lo; });
    std::vector<LevelAccumulator> accumulators(segments.size(), LevelAccumulator(rate));

    engine::PCMStream stream(mediaURL, sampleRate, std::move(stop));
    const std::int64_t expected = std::min(stream.expectedSamples(), lastSample);
    double reported = 0.0;
    std::vector<std::size_t> active;
    std::size_t next = 0;
    std::int64_t position = 0;
    while (position < lastSample) {
        const auto block = stream.read();
        if (block.empty()) break;
        const std::int64_t blockEnd = position + static_cast<std::int64_t>(block.size());
        while (next < pending.size() && pending[next].range.lo < blockEnd)
            active.push_back(next++);
        for (std::size_t p : active) {
            const SampleRange& range = pending[p].range;
            const std::int64_t from = std::max(range.lo, position);
            const std::int64_t to = std::min(range.hi, blockEnd);
            if (from < to) {
                accumulators[pending[p].index].add(block.subspan(static_cast<std::size_t>(from - position),
                                                                 static_cast<std::size_t>(to - from)));
            }
        }
        std::erase_if(active, [&](std::size_t p) { return pending[p].range.hi <= blockEnd; });
        position = blockEnd;
        if (progress && expected > 0) {
            const double share = std::min(static_cast<double>(position) / static_cast<double>(expected), 1.0);
            if (share - reported >= 0.005) {
                reported = share;
                progress(share);
            }
        }
    }
    if (progress) progress(1.0);

    std::vector<SegmentAudioLevel> levels;
    levels.reserve(segments.size());
    for (auto& accumulator : accumulators)
        levels.push_back(accumulator.finish());
    return levels;
}

}  // namespace morvane::intelligence::SegmentAudioMeter
