#include "morvane/intelligence/cleanup/segment_audio_meter.hpp"

#include <algorithm>
#include <cmath>

#include "segment_level_stream.hpp"

namespace morvane::intelligence {
namespace {

// A sample index of a non-negative time, held far below the 64-bit limit for absurd times.
std::int64_t sampleIndex(double product) {
    constexpr double kLimit = 4.0e18;
    return product >= kLimit ? static_cast<std::int64_t>(kLimit) : static_cast<std::int64_t>(product);
}

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

std::optional<SampleRange> sampleRange(const TranscriptSegment& segment, double rate) {
    const double a = std::max(segment.start.seconds(), 0.0);
    const double b = std::max(segment.end.seconds(), a);
    if (!(a < b)) return std::nullopt;
    return SampleRange{sampleIndex(a * rate), sampleIndex(b * rate)};
}

LevelAccumulator::LevelAccumulator(double rate)
    : hop_(std::max<std::int64_t>(static_cast<std::int64_t>(rate * 0.05), 1)),
      shortest_(static_cast<std::int64_t>(rate * 0.1)) {}

void LevelAccumulator::add(std::span<const float> samples) {
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

void LevelAccumulator::closeWindow() {
    windows_.push_back(std::sqrt(window_ / static_cast<double>(fill_)));
    window_ = 0.0;
    fill_ = 0;
}

SegmentAudioLevel LevelAccumulator::finish() {
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

SegmentLevelStream::SegmentLevelStream(std::span<const TranscriptSegment> segments, double rate)
    : accumulators_(segments.size(), LevelAccumulator(rate)) {
    for (std::size_t i = 0; i < segments.size(); ++i) {
        if (const auto range = sampleRange(segments[i], rate); range && range->lo < range->hi) {
            pending_.push_back({i, *range});
            lastSample_ = std::max(lastSample_, range->hi);
        }
    }
    // Segments are nearly in time order; sorted by first sample, one forward pass serves them all with only
    // the few that overlap the current block active at once.
    std::stable_sort(pending_.begin(), pending_.end(),
                     [](const Pending& a, const Pending& b) { return a.range.lo < b.range.lo; });
}

void SegmentLevelStream::process(std::span<const float> block) {
    const std::int64_t blockEnd = position_ + static_cast<std::int64_t>(block.size());
    while (next_ < pending_.size() && pending_[next_].range.lo < blockEnd)
        active_.push_back(next_++);
    for (std::size_t p : active_) {
        const SampleRange& range = pending_[p].range;
        const std::int64_t from = std::max(range.lo, position_);
        const std::int64_t to = std::min(range.hi, blockEnd);
        if (from < to) {
            accumulators_[pending_[p].index].add(block.subspan(static_cast<std::size_t>(from - position_),
                                                               static_cast<std::size_t>(to - from)));
        }
    }
    std::erase_if(active_, [&](std::size_t p) { return pending_[p].range.hi <= blockEnd; });
    position_ = blockEnd;
}

std::vector<SegmentAudioLevel> SegmentLevelStream::finish() {
    std::vector<SegmentAudioLevel> levels;
    levels.reserve(accumulators_.size());
    for (auto& accumulator : accumulators_)
        levels.push_back(accumulator.finish());
    return levels;
}

namespace SegmentAudioMeter {

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
    SegmentLevelStream levels(segments, sampleRate);
    engine::PCMStream stream(mediaURL, sampleRate, std::move(stop));
    // Reading stops after the last segment's samples.
    StreamProgress share(progress, std::min(stream.expectedSamples(), levels.lastSample()));
    while (share.position() < levels.lastSample()) {
        const auto block = stream.read();
        if (block.empty()) break;
        levels.process(block);
        share.advance(block.size());
    }
    share.finish();
    return levels.finish();
}

}  // namespace SegmentAudioMeter
}  // namespace morvane::intelligence
