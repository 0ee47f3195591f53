#include "morvane/engine/composition/audio_mix_stream.hpp"

#include <rubberband/RubberBandStretcher.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <string>
#include <vector>

#include "morvane/engine/audio/audio_mix.hpp"
#include "morvane/engine/audio/pcm_sample_reader.hpp"

namespace morvane::engine {
namespace {

constexpr std::size_t kStretchBlock = 4096;

// Stretches `input` to exactly `outputCount` samples keeping its pitch (Rubber Band's phase vocoder, in
// its streaming mode so a long clip is never held twice).
void stretchKeepingPitch(std::span<const float> input, std::size_t outputCount, int sampleRate,
                         std::vector<float>& out) {
    out.clear();
    if (input.empty() || outputCount == 0) {
        out.assign(outputCount, 0.0f);
        return;
    }
    using RubberBand::RubberBandStretcher;
    RubberBandStretcher stretcher(static_cast<std::size_t>(sampleRate), 1,
                                  RubberBandStretcher::OptionProcessRealTime |
                                      RubberBandStretcher::OptionThreadingNever |
                                      RubberBandStretcher::OptionEngineFaster,
                                  static_cast<double>(outputCount) / static_cast<double>(input.size()));
    stretcher.setMaxProcessSize(kStretchBlock);
    std::size_t skip = stretcher.getStartDelay();
    std::vector<float> block(kStretchBlock, 0.0f);
    const auto collect = [&] {
        for (int available = stretcher.available(); available > 0; available = stretcher.available()) {
            const auto n = std::min<std::size_t>(static_cast<std::size_t>(available), block.size());
            float* channels[1] = {block.data()};
            const std::size_t got = stretcher.retrieve(channels, n);
            std::size_t from = std::min(skip, got);
            skip -= from;
            out.insert(out.end(), block.begin() + static_cast<std::ptrdiff_t>(from),
                       block.begin() + static_cast<std::ptrdiff_t>(got));
        }
    };
    // Silence ahead of the input lets the stretcher start at full strength on the first sample.
    for (std::size_t pad = stretcher.getPreferredStartPad(); pad > 0;) {
        const std::size_t n = std::min(pad, kStretchBlock);
        std::fill(block.begin(), block.begin() + static_cast<std::ptrdiff_t>(n), 0.0f);
        const float* channels[1] = {block.data()};
        stretcher.process(channels, n, false);
        pad -= n;
        collect();
    }
    for (std::size_t at = 0; at < input.size(); at += kStretchBlock) {
        const std::size_t n = std::min(kStretchBlock, input.size() - at);
        const float* channels[1] = {input.data() + at};
        stretcher.process(channels, n, at + n == input.size());
        collect();
    }
    while (out.size() < outputCount && stretcher.available() >= 0) {
        if (stretcher.available() == 0) break;
        collect();
    }
    out.resize(outputCount, 0.0f);
}

// Plays `input` faster or slower as tape would: read at fractional positions, linearly interpolated.
void stretchVarispeed(std::span<const float> input, std::size_t outputCount, std::vector<float>& out) {
    out.assign(outputCount, 0.0f);
    if (input.empty()) return;
    const double step = static_cast<double>(input.size()) / static_cast<double>(outputCount);
    for (std::size_t i = 0; i < outputCount; ++i) {
        const double at = i * step;
        const auto k = static_cast<std::size_t>(at);
        const double f = at - static_cast<double>(k);
        const float a = input[std::min(k, input.size() - 1)];
        const float b = input[std::min(k + 1, input.size() - 1)];
        out[i] = static_cast<float>(a + (b - a) * f);
    }
}

// One segment of one track, placed on the output: samples `first` up to `last` of the range.
struct MixItem {
    const CompositionSegment* segment = nullptr;
    const AudioMixInputParameters* envelope = nullptr;  // none: full level
    bool keepPitch = true;
    std::int64_t first = 0;
    std::int64_t last = 0;
    double sourceFrom = 0.0;    // seconds into the source
    double sourceLength = 0.0;  // seconds of source the segment plays
};

// A segment that is sounding: its reader (unscaled) or its whole stretched sound (scaled).
struct SoundingItem {
    std::size_t item = 0;  // index into the items, which is also the order of summing
    std::unique_ptr<PCMStream> stream;
    std::span<const float> unread;  // of the stream's last block
    bool exhausted = false;
    std::vector<float> stretched;
};

}  // namespace

struct AudioMixStream::State {
    std::stop_token stop;
    int rate = 48000;
    double rangeStart = 0.0;
    std::int64_t total = 0;
    std::size_t blockSamples = AudioMixStream::defaultBlockSamples;
    std::int64_t position = 0;
    std::vector<MixItem> items;
    std::vector<std::size_t> byFirst;    // item indices by their first sample
    std::size_t nextToStart = 0;         // into byFirst
    std::vector<SoundingItem> sounding;  // in item order
    std::map<std::string, std::vector<std::unique_ptr<PCMStream>>> idleReaders;  // by source path
    std::vector<float> block;
    std::vector<float> source;

    // Opens item `index`: a reader of its source (an idle one when there is one), or its stretched sound.
    SoundingItem start(std::size_t index) {
        const MixItem& item = items[index];
        const std::string& path = item.segment->source.path;
        SoundingItem started{.item = index};
        auto& idle = idleReaders[path];
        if (idle.empty()) {
            started.stream = std::make_unique<PCMStream>(path, rate, stop);
        } else {
            started.stream = std::move(idle.back());
            idle.pop_back();
        }
        started.stream->setRange(item.sourceFrom, item.sourceLength);
        if (item.segment->isScaled()) {
            source.clear();
            for (auto b = started.stream->read(); !b.empty(); b = started.stream->read())
                source.insert(source.end(), b.begin(), b.end());
            const auto count = static_cast<std::size_t>(item.last - item.first);
            if (item.keepPitch) {
                stretchKeepingPitch(source, count, rate, started.stretched);
            } else {
                stretchVarispeed(source, count, started.stretched);
            }
            release(started);
        }
        return started;
    }

    void release(SoundingItem& done) {
        if (!done.stream) return;
        idleReaders[items[done.item].segment->source.path].push_back(std::move(done.stream));
        done.unread = {};
    }

    // Adds item `s`'s samples for output samples `from` up to `to` into `out` (which begins at `from`).
    void addInto(SoundingItem& s, std::int64_t from, std::int64_t to, float* out) {
        const MixItem& item = items[s.item];
        const auto gainAt = [&](std::int64_t sample) {
            return item.envelope != nullptr
                       ? item.envelope->volume(rangeStart + static_cast<double>(sample) / rate)
                       : 1.0f;
        };
        if (!s.stream) {
            // Stretched: whatever the stretch didn't fill stays silent.
            const auto end =
                std::min<std::int64_t>(to, item.first + static_cast<std::int64_t>(s.stretched.size()));
            for (std::int64_t j = from; j < end; ++j)
                out[j - from] += s.stretched[static_cast<std::size_t>(j - item.first)] * gainAt(j);
            return;
        }
        std::int64_t j = from;
        while (j < to && !s.exhausted) {
            if (s.unread.empty()) {
                s.unread = s.stream->read();
                if (s.unread.empty()) {
                    s.exhausted = true;  // a source shorter than its segment ends in silence
                    break;
                }
            }
            const auto n = std::min<std::size_t>(s.unread.size(), static_cast<std::size_t>(to - j));
            for (std::size_t i = 0; i < n; ++i, ++j)
                out[j - from] += s.unread[i] * gainAt(j);
            s.unread = s.unread.subspan(n);
        }
    }
};

AudioMixStream::AudioMixStream(const CompositionBuildResult& build, const AudioRenderOptions& options,
                               std::stop_token stop, std::size_t blockSamples)
    : state_(std::make_unique<State>()) {
    State& s = *state_;
    s.stop = std::move(stop);
    s.rate = std::max(options.sampleRate, 1);
    s.blockSamples = std::max<std::size_t>(blockSamples, 1);
    const TimeSpan range = options.range.value_or(TimeSpan{RationalTime::zero, build.composition.duration()});
    s.rangeStart = range.start.seconds();
    s.total = std::max<std::int64_t>(std::llround(range.duration().seconds() * s.rate), 0);
    for (const auto* track : build.composition.tracksWithMediaType(CompositionMediaType::audio)) {
        const AudioMixInputParameters* envelope =
            build.audioMix ? build.audioMix->parameters(track->trackID) : nullptr;
        const bool keepPitch =
            envelope == nullptr || envelope->audioTimePitchAlgorithm == AudioTimePitchAlgorithm::spectral;
        for (const auto& segment : track->segments) {
            if (segment.source.kind != CompositionSource::Kind::media) continue;
            const double from = std::max(segment.target.start.seconds(), s.rangeStart);
            const double to = std::min(segment.target.end.seconds(), range.end.seconds());
            if (!(to > from)) continue;
            const auto first = static_cast<std::int64_t>(std::llround((from - s.rangeStart) * s.rate));
            const auto last = std::min<std::int64_t>(std::llround((to - s.rangeStart) * s.rate), s.total);
            if (last <= first) continue;
            const double sourceFrom =
                segment.sourceTime(RationalTime::fromSeconds(from, RationalTime::workingTimescale)).seconds();
            s.items.push_back({.segment = &segment,
                               .envelope = envelope,
                               .keepPitch = keepPitch,
                               .first = first,
                               .last = last,
                               .sourceFrom = sourceFrom,
                               .sourceLength = (to - from) * segment.rate()});
        }
    }
    s.byFirst.resize(s.items.size());
    for (std::size_t i = 0; i < s.items.size(); ++i)
        s.byFirst[i] = i;
    std::stable_sort(s.byFirst.begin(), s.byFirst.end(),
                     [&s](std::size_t a, std::size_t b) { return s.items[a].first < s.items[b].first; });
}

AudioMixStream::~AudioMixStream() = default;
AudioMixStream::AudioMixStream(AudioMixStream&&) noexcept = default;
AudioMixStream& AudioMixStream::operator=(AudioMixStream&&) noexcept = default;

std::span<const float> AudioMixStream::read() {
    State& s = *state_;
    if (s.position >= s.total) return {};
    throwIfStopRequested(s.stop);
    const std::int64_t from = s.position;
    const std::int64_t to = std::min<std::int64_t>(from + static_cast<std::int64_t>(s.blockSamples), s.total);
    s.block.assign(static_cast<std::size_t>(to - from), 0.0f);
    std::vector<std::size_t> starting;
    while (s.nextToStart < s.byFirst.size() && s.items[s.byFirst[s.nextToStart]].first < to)
        starting.push_back(s.byFirst[s.nextToStart++]);
    std::sort(starting.begin(), starting.end());
    // Items are summed, and readers opened and handed on, in item order, as a whole-program mix would: a
    // segment that ends gives its reader to the next segment of its source at once.
    std::vector<SoundingItem> still;
    still.reserve(s.sounding.size() + starting.size());
    auto next = starting.begin();
    for (auto sounding = s.sounding.begin(); sounding != s.sounding.end() || next != starting.end();) {
        SoundingItem item = next != starting.end() && (sounding == s.sounding.end() || *next < sounding->item)
                                ? s.start(*next++)
                                : std::move(*sounding++);
        const MixItem& placed = s.items[item.item];
        const std::int64_t a = std::max(from, placed.first);
        const std::int64_t b = std::min(to, placed.last);
        if (b > a) s.addInto(item, a, b, s.block.data() + (a - from));
        if (placed.last > to) {
            still.push_back(std::move(item));
        } else {
            s.release(item);
        }
    }
    s.sounding = std::move(still);
    s.position = to;
    return s.block;
}

std::int64_t AudioMixStream::totalSamples() const noexcept {
    return state_->total;
}

std::int64_t AudioMixStream::position() const noexcept {
    return state_->position;
}

int AudioMixStream::sampleRate() const noexcept {
    return state_->rate;
}

}  // namespace morvane::engine
