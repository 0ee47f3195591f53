#include "morvane/engine/audio/pcm_sample_reader.hpp"

#include <algorithm>
#include <cmath>

#include "audio/progress_throttle.hpp"
#include "ffmpeg/mono_float_decoder.hpp"

namespace morvane::engine {

struct PCMStream::State {
    State(const std::filesystem::path& url, int rate, std::stop_token stop, std::string_view startFailure)
        : decoder(url, rate, std::move(stop), startFailure) {}

    ffmpeg::MonoFloatDecoder decoder;
    std::int64_t startSample = 0;
    std::optional<std::int64_t> endSample;
    std::int64_t read = 0;
    bool touched = false;  // the decoder has moved, so a new range must seek even to 0
    bool done = false;
};

PCMStream::PCMStream(const std::filesystem::path& url, int sampleRate, std::stop_token stop,
                     std::string_view startFailure)
    : state_(std::make_unique<State>(url, sampleRate, std::move(stop), startFailure)) {}

PCMStream::~PCMStream() = default;
PCMStream::PCMStream(PCMStream&&) noexcept = default;
PCMStream& PCMStream::operator=(PCMStream&&) noexcept = default;

void PCMStream::setRange(double startSeconds, std::optional<double> maxSeconds) {
    State& s = *state_;
    const double start = std::isfinite(startSeconds) ? std::max(startSeconds, 0.0) : 0.0;
    const int rate = s.decoder.sampleRate();
    if (start > 0.0 || s.touched) s.decoder.seek(start);
    s.touched = true;
    s.startSample = std::llround(start * rate);
    s.endSample.reset();
    if (maxSeconds) s.endSample = s.startSample + std::llround(std::max(*maxSeconds, 0.0) * rate);
    s.read = 0;
    s.done = false;
}

std::span<const float> PCMStream::read() {
    State& s = *state_;
    s.touched = true;
    while (!s.done) {
        const auto block = s.decoder.next();
        if (block.samples.empty()) break;
        const auto n = static_cast<std::int64_t>(block.samples.size());
        const std::int64_t lo = std::clamp<std::int64_t>(s.startSample - block.firstSample, 0, n);
        std::int64_t hi = n;
        if (s.endSample) hi = std::clamp<std::int64_t>(*s.endSample - block.firstSample, 0, n);
        if (s.endSample && block.firstSample + n >= *s.endSample) s.done = true;
        if (hi <= lo) continue;
        s.read += hi - lo;
        return block.samples.subspan(static_cast<std::size_t>(lo), static_cast<std::size_t>(hi - lo));
    }
    s.done = true;
    return {};
}

int PCMStream::sampleRate() const noexcept {
    return state_->decoder.sampleRate();
}

double PCMStream::durationSeconds() const noexcept {
    return state_->decoder.durationSeconds();
}

std::int64_t PCMStream::samplesRead() const noexcept {
    return state_->read;
}

std::int64_t PCMStream::expectedSamples() const noexcept {
    const State& s = *state_;
    const auto total = std::llround(s.decoder.durationSeconds() * s.decoder.sampleRate());
    const std::int64_t toEnd = std::max<std::int64_t>(total - s.startSample, 0);
    if (s.endSample) return std::min(*s.endSample - s.startSample, total > 0 ? toEnd : *s.endSample);
    return toEnd;
}

namespace PCMSampleReader {
namespace {

// Reserving the expected length avoids doubling an hour-long vector; the bound keeps a lying header
// from reserving gigabytes up front.
constexpr std::int64_t kMaxReserveSamples = std::int64_t{48000} * 60 * 60 * 3;

void appendStream(PCMStream& stream, std::vector<float>& out, ProgressThrottle& progress,
                  std::int64_t doneBefore, std::int64_t total) {
    for (auto block = stream.read(); !block.empty(); block = stream.read()) {
        out.insert(out.end(), block.begin(), block.end());
        if (total > 0) progress.report(static_cast<double>(doneBefore + stream.samplesRead()) / total);
    }
}

PCMBuffer finish(std::vector<float> samples, int sampleRate) {
    PCMBuffer buffer{std::move(samples), static_cast<double>(sampleRate), 0.0};
    buffer.durationSeconds = static_cast<double>(buffer.samples.size()) / sampleRate;
    return buffer;
}

}  // namespace

PCMBuffer readMonoFloat(const std::filesystem::path& url, int sampleRate, const PCMReadOptions& options,
                        std::stop_token stop) {
    PCMStream stream(url, sampleRate, std::move(stop));
    if (options.startSeconds > 0.0 || options.maxSeconds)
        stream.setRange(options.startSeconds, options.maxSeconds);
    std::vector<float> samples;
    const std::int64_t expected = stream.expectedSamples();
    samples.reserve(static_cast<std::size_t>(std::clamp<std::int64_t>(expected, 0, kMaxReserveSamples)));
    ProgressThrottle progress(options.progress);
    appendStream(stream, samples, progress, 0, expected);
    progress.finish();
    return finish(std::move(samples), sampleRate);
}

PCMBuffer readConcatenated(const std::filesystem::path& url, int sampleRate,
                           std::span<const SecondsRange> ranges, const ProgressCallback& progress,
                           std::stop_token stop) {
    PCMStream stream(url, sampleRate, std::move(stop));
    double totalSeconds = 0.0;
    for (const auto& range : ranges)
        totalSeconds += std::max(range.upper - range.lower, 0.0);
    const auto total = std::llround(totalSeconds * sampleRate);
    std::vector<float> samples;
    samples.reserve(static_cast<std::size_t>(std::clamp<std::int64_t>(total, 0, kMaxReserveSamples)));
    ProgressThrottle throttle(progress);
    std::int64_t done = 0;
    for (const auto& range : ranges) {
        if (!(range.upper > range.lower)) continue;
        stream.setRange(range.lower, range.upper - range.lower);
        appendStream(stream, samples, throttle, done, total);
        done += stream.samplesRead();
    }
    throttle.finish();
    return finish(std::move(samples), sampleRate);
}

}  // namespace PCMSampleReader
}  // namespace morvane::engine
