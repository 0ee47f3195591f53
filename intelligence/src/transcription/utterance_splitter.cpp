#include "morvane/intelligence/transcription/utterance_splitter.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace morvane::intelligence {
namespace {

// The scanner widens each pause by this much on both sides; the splitter takes it off again.
constexpr double kPausePadding = 0.05;
constexpr double kFrameSeconds = 0.01;
constexpr double kWindowSeconds = 0.02;

double meanSquare(std::span<const float> samples) {
    double sum = 0.0;
    for (const float s : samples)
        sum += static_cast<double>(s) * s;
    return samples.empty() ? 0.0 : sum / static_cast<double>(samples.size());
}

}  // namespace

UtteranceSplitter::UtteranceSplitter(int sampleRate, const Options& options)
    : sampleRate_(sampleRate), options_(options), threshold_(std::pow(10.0f, options.thresholdDB / 20.0f)) {}

engine::SilenceDetectionOptions UtteranceSplitter::pauseDetection() const {
    return {.thresholdDB = options_.thresholdDB,
            .windowSeconds = kWindowSeconds,
            .minSilenceSeconds = options_.minPauseSeconds + 2 * kPausePadding,
            .paddingSeconds = kPausePadding};
}

std::int64_t UtteranceSplitter::bufferEnd() const {
    return bufferStart_ + static_cast<std::int64_t>(buffer_.size());
}

std::int64_t UtteranceSplitter::toSample(double seconds) const {
    return std::llround(seconds * sampleRate_);
}

void UtteranceSplitter::process(std::span<const float> samples,
                                const std::vector<engine::SilenceSpan>& pauses, const Emit& emit) {
    buffer_.insert(buffer_.end(), samples.begin(), samples.end());
    handlePauses(pauses, false, emit);
    forceCuts(emit);
}

void UtteranceSplitter::finish(const std::vector<engine::SilenceSpan>& pauses, const Emit& emit) {
    handlePauses(pauses, true, emit);
    forceCuts(emit);
    if (bufferEnd() > regionStart_) cut(bufferEnd(), bufferEnd(), emit);
}

void UtteranceSplitter::handlePauses(const std::vector<engine::SilenceSpan>& pauses, bool atEnd,
                                     const Emit& emit) {
    for (; pausesHandled_ < pauses.size(); ++pausesHandled_) {
        const engine::SilenceSpan& pause = pauses[pausesHandled_];
        const double onset = pause.startSeconds > 0.0 ? pause.startSeconds + kPausePadding : 0.0;
        double offset = pause.endSeconds - kPausePadding;
        // The pauses may be found from a copy of the stream that runs a little ahead of this one.
        const double buffered = static_cast<double>(bufferEnd()) / sampleRate_;
        if (offset > buffered && !atEnd) break;
        offset = std::min(offset, buffered);
        if (offset - onset < options_.minPauseSeconds) continue;
        const double middle = (onset + offset) / 2;
        const std::int64_t end = toSample(std::min(onset + options_.marginSeconds, middle));
        const std::int64_t nextStart = toSample(std::max(offset - options_.marginSeconds, middle));
        if (end > regionStart_) {
            cut(end, nextStart, emit);
        } else if (nextStart > regionStart_) {
            cut(regionStart_, nextStart, emit);  // nothing spoken since the last cut: move on
        }
    }
}

void UtteranceSplitter::forceCuts(const Emit& emit) {
    const std::int64_t maxSamples = toSample(options_.maxSeconds);
    const std::int64_t frame = std::max<std::int64_t>(toSample(kFrameSeconds), 1);
    while (bufferEnd() - regionStart_ > maxSamples) {
        const std::int64_t searchEnd = regionStart_ + maxSamples;
        std::int64_t at = std::max(regionStart_ + frame, searchEnd - toSample(options_.searchSeconds));
        std::int64_t quietest = searchEnd;
        double lowest = std::numeric_limits<double>::infinity();
        for (; at + frame <= searchEnd; at += frame) {
            const double energy = meanSquare(std::span<const float>(buffer_).subspan(
                static_cast<std::size_t>(at - bufferStart_), static_cast<std::size_t>(frame)));
            if (energy < lowest) {
                lowest = energy;
                quietest = at + frame / 2;
            }
        }
        cut(quietest, quietest, emit);
    }
}

void UtteranceSplitter::cut(std::int64_t end, std::int64_t nextStart, const Emit& emit) {
    const auto first = static_cast<std::size_t>(regionStart_ - bufferStart_);
    const auto last = static_cast<std::size_t>(std::min(end, bufferEnd()) - bufferStart_);
    const std::span<const float> region = std::span<const float>(buffer_).subspan(first, last - first);
    const auto window = static_cast<std::size_t>(std::max<std::int64_t>(toSample(kWindowSeconds), 1));
    bool sound = false;
    for (std::size_t at = 0; at < region.size() && !sound; at += window)
        sound = std::sqrt(meanSquare(region.subspan(at, std::min(window, region.size() - at)))) >= threshold_;
    if (sound) {
        Utterance utterance{
            .index = nextIndex_++, .firstSample = regionStart_, .coveredSamples = end - emittedEnd_};
        emittedEnd_ = end;
        utterance.samples.reserve(region.size());
        for (const float s : region)
            utterance.samples.push_back(
                static_cast<std::int16_t>(std::lround(std::clamp(s, -1.0f, 1.0f) * 32767.0f)));
        emit(std::move(utterance));
    }
    regionStart_ = std::max(regionStart_, std::min(nextStart, bufferEnd()));
    buffer_.erase(buffer_.begin(), buffer_.begin() + (regionStart_ - bufferStart_));
    bufferStart_ = regionStart_;
}

}  // namespace morvane::intelligence
