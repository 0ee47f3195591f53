#include "morvane/engine/audio/pcm_sample_reader.hpp"

#include <algorithm>
#include <cmath>

#include <fmt/core.h>

#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <thread>

#include "audio/progress_throttle.hpp"
#include "ffmpeg/mono_float_decoder.hpp"
#include "ffmpeg/mono_resampler.hpp"
#include "morvane/engine/engine_error.hpp"
#include "morvane/engine/support/fatal.hpp"

namespace morvane::engine {

// Decoding and everything after it (rate conversion, then the caller's analysis) run on two threads: on a
// long file each takes about as long as the other, so the pipeline nearly halves the wall time. The
// decoder thread fills a short queue of chunks at the track's own rate; read() converts and trims them.
struct PCMStream::State {
    struct Chunk {
        std::vector<float> samples;
        std::int64_t firstSample = 0;  // at `rate`
        int rate = 0;
        bool end = false;          // the track is done
        std::exception_ptr error;  // the decoder failed (or was cancelled) here
    };
    // Large chunks keep thread hand-overs rare (each one may cost a context switch); their buffers are
    // recycled so that the pipeline allocates nothing once it runs.
    static constexpr std::size_t kChunkSamples = 65536;
    static constexpr std::size_t kQueueChunks = 4;

    // A second rate converted from the same chunks, numbered and trimmed to the track's start as `read`
    // numbers and trims the first, so that its consumer sees what a stream at its rate would read.
    struct Tap {
        Tap(int rate, std::function<void(std::span<const float>)> consumer)
            : resampler(rate), outputRate(rate), consume(std::move(consumer)) {}

        void feed(const Chunk& chunk) {
            converted.clear();
            std::span<const float> block;
            if (chunk.end) {
                resampler.flush(converted);
                block = converted;
            } else {
                if (!positionKnown) {
                    nextOutput = av_rescale(chunk.firstSample, outputRate, chunk.rate);
                    positionKnown = true;
                } else if (chunk.rate != lastRate) {
                    resampler.flush(converted);
                }
                lastRate = chunk.rate;
                if (chunk.rate == outputRate && converted.empty()) {
                    block = chunk.samples;
                } else {
                    resampler.convert(chunk.samples, chunk.rate, converted);
                    block = converted;
                }
            }
            const std::int64_t first = nextOutput;
            const auto n = static_cast<std::int64_t>(block.size());
            nextOutput += n;
            const auto skip = static_cast<std::size_t>(std::clamp<std::int64_t>(-first, 0, n));
            if (skip < block.size()) consume(block.subspan(skip));
        }

        ffmpeg::MonoResampler resampler;
        int outputRate;
        std::function<void(std::span<const float>)> consume;
        std::vector<float> converted;
        std::int64_t nextOutput = 0;
        bool positionKnown = false;
        int lastRate = 0;
    };

    State(const std::filesystem::path& url, int rate, std::stop_token stop, std::string_view startFailure)
        : decoder(url, stop, startFailure), resampler(rate), outputRate(rate), stop_(std::move(stop)) {}
    ~State() { stopDecoding(); }

    void startDecoding() {
        halt = false;
        decoding = std::thread([this] { decodeLoop(); });
    }

    void stopDecoding() {
        if (!decoding.joinable()) return;
        {
            const std::lock_guard lock(mutex);
            halt = true;
        }
        changed.notify_all();
        decoding.join();
        queue.clear();
    }

    void push(Chunk chunk) {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return halt || queue.size() < kQueueChunks; });
        if (halt) return;
        queue.push_back(std::move(chunk));
        changed.notify_all();
    }

    std::vector<float> recycledBuffer() {
        const std::lock_guard lock(mutex);
        if (spare.empty()) return {};
        std::vector<float> buffer = std::move(spare.back());
        spare.pop_back();
        buffer.clear();
        return buffer;
    }

    void recycle(std::vector<float> buffer) {
        const std::lock_guard lock(mutex);
        if (spare.size() < kQueueChunks + 2) spare.push_back(std::move(buffer));
    }

    bool halted() {
        const std::lock_guard lock(mutex);
        return halt;
    }

    void decodeLoop() {
        try {
            Chunk chunk;
            while (!halted()) {
                const auto block = decoder.next();
                const bool contiguous =
                    chunk.rate == block.sampleRate &&
                    chunk.firstSample + static_cast<std::int64_t>(chunk.samples.size()) == block.firstSample;
                if (!chunk.samples.empty() && (block.samples.empty() || !contiguous)) {
                    push(std::move(chunk));
                    chunk = Chunk{};
                }
                if (block.samples.empty()) {
                    push(Chunk{.end = true});
                    return;
                }
                if (chunk.samples.empty()) {
                    chunk.firstSample = block.firstSample;
                    chunk.rate = block.sampleRate;
                    if (chunk.samples.capacity() == 0) chunk.samples = recycledBuffer();
                    chunk.samples.reserve(kChunkSamples + block.samples.size());
                }
                chunk.samples.insert(chunk.samples.end(), block.samples.begin(), block.samples.end());
                if (chunk.samples.size() >= kChunkSamples) {
                    push(std::move(chunk));
                    chunk = Chunk{};
                }
            }
        } catch (...) {
            push(Chunk{.error = std::current_exception()});
        }
    }

    Chunk pop() {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return !queue.empty(); });
        Chunk chunk = std::move(queue.front());
        queue.pop_front();
        changed.notify_all();
        return chunk;
    }

    // The next converted samples and the index of the first, at the output rate; empty at the end.
    std::span<const float> convertNext(std::int64_t& first) {
        for (;;) {
            if (!decoding.joinable()) startDecoding();
            Chunk chunk = pop();
            if (chunk.error) {
                stopDecoding();
                std::rethrow_exception(chunk.error);
            }
            for (auto& tap : taps)
                tap.feed(chunk);
            converted.clear();
            if (chunk.end) {
                resampler.flush(converted);
                stopDecoding();
                finished = true;
                first = nextOutput;
                nextOutput += static_cast<std::int64_t>(converted.size());
                return converted;
            }
            if (!positionKnown) {
                nextOutput = av_rescale(chunk.firstSample, outputRate, chunk.rate);
                positionKnown = true;
            } else if (chunk.rate != lastRate) {
                resampler.flush(converted);  // the old rate's tail comes first, and the count runs on
            }
            lastRate = chunk.rate;
            if (!current.empty()) recycle(std::move(current));
            first = nextOutput;
            if (chunk.rate == outputRate && converted.empty()) {
                // Already at the rate asked for: hand the chunk out as it is.
                current = std::move(chunk.samples);
                nextOutput += static_cast<std::int64_t>(current.size());
                return current;
            }
            resampler.convert(chunk.samples, chunk.rate, converted);
            recycle(std::move(chunk.samples));
            nextOutput += static_cast<std::int64_t>(converted.size());
            if (!converted.empty()) return converted;
        }
    }

    ffmpeg::MonoFloatDecoder decoder;
    ffmpeg::MonoResampler resampler;
    int outputRate;
    std::stop_token stop_;

    std::thread decoding;
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<Chunk> queue;
    std::vector<std::vector<float>> spare;
    bool halt = false;

    std::vector<float> current;  // the chunk handed out last, when it needed no conversion
    std::vector<Tap> taps;

    std::vector<float> converted;
    std::int64_t nextOutput = 0;
    bool positionKnown = false;
    int lastRate = 0;
    bool finished = false;

    std::int64_t startSample = 0;
    std::optional<std::int64_t> endSample;
    std::int64_t read = 0;
    bool touched = false;  // the decoder has moved, so a new range must seek even to 0
    bool done = false;
};

PCMStream::PCMStream(const std::filesystem::path& url, int sampleRate, std::stop_token stop,
                     std::string_view startFailure) {
    if (sampleRate < 1)
        throw EngineError::readerFailed(fmt::format("{}: sample rate {}", startFailure, sampleRate));
    state_ = std::make_unique<State>(url, sampleRate, std::move(stop), startFailure);
}

PCMStream::~PCMStream() = default;
PCMStream::PCMStream(PCMStream&&) noexcept = default;
PCMStream& PCMStream::operator=(PCMStream&&) noexcept = default;

void PCMStream::setRange(double startSeconds, std::optional<double> maxSeconds) {
    State& s = *state_;
    MORVANE_ASSERT(s.taps.empty(), "a stream with consumers at other rates is read whole");
    const double start = std::isfinite(startSeconds) ? std::max(startSeconds, 0.0) : 0.0;
    s.stopDecoding();
    if (start > 0.0 || s.touched) {
        s.decoder.seek(start);
        s.resampler.reset();
        s.positionKnown = false;
        s.finished = false;
    }
    s.touched = true;
    s.startSample = std::llround(start * s.outputRate);
    s.endSample.reset();
    if (maxSeconds) s.endSample = s.startSample + std::llround(std::max(*maxSeconds, 0.0) * s.outputRate);
    s.read = 0;
    s.done = false;
}

std::span<const float> PCMStream::read() {
    State& s = *state_;
    s.touched = true;
    while (!s.done && !s.finished) {
        throwIfStopRequested(s.stop_);
        std::int64_t first = 0;
        const auto block = s.convertNext(first);
        if (block.empty()) break;
        const auto n = static_cast<std::int64_t>(block.size());
        const std::int64_t lo = std::clamp<std::int64_t>(s.startSample - first, 0, n);
        std::int64_t hi = n;
        if (s.endSample) hi = std::clamp<std::int64_t>(*s.endSample - first, 0, n);
        if (s.endSample && first + n >= *s.endSample) {
            s.done = true;
            s.stopDecoding();  // the range is complete: decode no further
        }
        if (hi <= lo) continue;
        s.read += hi - lo;
        return block.subspan(static_cast<std::size_t>(lo), static_cast<std::size_t>(hi - lo));
    }
    s.done = true;
    return {};
}

void PCMStream::alsoAtRate(int sampleRate, std::function<void(std::span<const float>)> consume) {
    State& s = *state_;
    MORVANE_ASSERT(!s.touched && sampleRate > 0, "other rates are added before the first read");
    s.taps.emplace_back(sampleRate, std::move(consume));
}

int PCMStream::sampleRate() const noexcept {
    return state_->outputRate;
}

double PCMStream::durationSeconds() const noexcept {
    return state_->decoder.durationSeconds();
}

std::int64_t PCMStream::samplesRead() const noexcept {
    return state_->read;
}

std::int64_t PCMStream::expectedSamples() const noexcept {
    const State& s = *state_;
    const auto total = std::llround(s.decoder.durationSeconds() * s.outputRate);
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
