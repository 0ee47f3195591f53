#pragma once

// The level and steadiness of segments, measured from samples given in order, block by block: by one
// segment's accumulator over its own samples, or for a whole document over a stream of the track.

#include <algorithm>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "morvane/intelligence/cleanup/segment_audio_meter.hpp"

namespace morvane::intelligence {

// A segment's samples [lo, hi) before they are cut at the end of the audio; none when its times give no
// range (end not after start, or not numbers).
struct SampleRange {
    std::int64_t lo = 0;
    std::int64_t hi = 0;
};

[[nodiscard]] std::optional<SampleRange> sampleRange(const TranscriptSegment& segment, double rate);

// Both measures of one range, fed in sample order in pieces of any size: the sums come out the same
// however the range is split, so a stream and a buffer agree to the last bit.
class LevelAccumulator {
  public:
    explicit LevelAccumulator(double rate);
    void add(std::span<const float> samples);
    [[nodiscard]] SegmentAudioLevel finish();

  private:
    void closeWindow();

    std::int64_t hop_;
    std::int64_t shortest_;
    double sum_ = 0.0;
    double window_ = 0.0;
    std::int64_t fill_ = 0;
    std::int64_t count_ = 0;
    std::vector<double> windows_;
};

// Every segment of a document measured in one forward pass over the track.
class SegmentLevelStream {
  public:
    SegmentLevelStream(std::span<const TranscriptSegment> segments, double rate);

    // The samples past this index concern no segment.
    [[nodiscard]] std::int64_t lastSample() const noexcept { return lastSample_; }

    // The next samples of the track, in order.
    void process(std::span<const float> block);

    [[nodiscard]] std::vector<SegmentAudioLevel> finish();

  private:
    struct Pending {
        std::size_t index = 0;
        SampleRange range;
    };
    std::vector<Pending> pending_;  // by first sample
    std::vector<LevelAccumulator> accumulators_;
    std::vector<std::size_t> active_;
    std::size_t next_ = 0;
    std::int64_t position_ = 0;
    std::int64_t lastSample_ = 0;
};

// The share of a stream read, reported every half percent and once at the end.
class StreamProgress {
  public:
    StreamProgress(const ProgressCallback& progress, std::int64_t expectedSamples)
        : progress_(progress), expected_(expectedSamples) {}

    void advance(std::size_t samples) {
        position_ += static_cast<std::int64_t>(samples);
        if (!progress_ || expected_ <= 0) return;
        const double share = std::min(static_cast<double>(position_) / static_cast<double>(expected_), 1.0);
        if (share - reported_ < 0.005) return;
        reported_ = share;
        progress_(share);
    }

    void finish() {
        if (progress_) progress_(1.0);
    }

    [[nodiscard]] std::int64_t position() const noexcept { return position_; }

  private:
    const ProgressCallback& progress_;
    std::int64_t expected_;
    std::int64_t position_ = 0;
    double reported_ = 0.0;
};

}  // namespace morvane::intelligence
