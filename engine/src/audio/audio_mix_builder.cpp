#include "morvane/engine/audio/audio_mix_builder.hpp"

#include <algorithm>
#include <cmath>

namespace morvane::engine::AudioMixBuilder {
namespace {

constexpr double kNone = 0.0001;  // level and time differences below this count as none

RationalTime at(double seconds) {
    return RationalTime::fromSeconds(seconds, RationalTime::workingTimescale);
}

std::vector<ProgramClip> sortedByStart(std::span<const ProgramClip> clips) {
    std::vector<ProgramClip> sorted(clips.begin(), clips.end());
    std::stable_sort(sorted.begin(), sorted.end(), [](const ProgramClip& a, const ProgramClip& b) {
        return a.timelineStart < b.timelineStart;
    });
    return sorted;
}

struct ProgramRange {
    double start = 0.0;
    double end = 0.0;
};

ProgramRange programRange(const ProgramClip& clip) {
    const double start = clip.timelineStart.seconds();
    return {start, start + clip.duration().seconds()};
}

// Whether `b` carries on the sound of `a` with no cut: the same source, from where `a` stopped, right
// after it, at its speed.
bool continues(const ProgramClip& a, const ProgramClip& b) {
    return a.sourceID == b.sourceID && std::abs(a.end.seconds() - b.start.seconds()) < kNone &&
           std::abs(programRange(a).end - programRange(b).start) < kNone &&
           std::abs(a.playbackRate - b.playbackRate) < kNone;
}

// A ramp from the level in force at `from` to `level`, so that the envelope never jumps.
void rampTo(AudioMixInputParameters& p, float level, double from, double to) {
    if (to - from < kNone) {
        p.setVolume(level, at(from));
        return;
    }
    p.setVolumeRamp(p.volume(from), level, {at(from), at(to)});
}

// Up from silence at the start of a clip and back down at its end, over `edge` seconds.
void edgeEnvelope(AudioMixInputParameters& p, const ProgramRange& r, float level, double edge) {
    const double ramp = std::min(edge, (r.end - r.start) / 2.0);
    if (ramp < kNone) {
        p.setVolume(level, at(r.start));
        return;
    }
    p.setVolumeRamp(0.0f, level, {at(r.start), at(r.start + ramp)});
    p.setVolumeRamp(level, 0.0f, {at(r.end - ramp), at(r.end)});
}

}  // namespace

float clipLevel(const ProgramClip& clip) noexcept {
    if (!clip.audioGain) return 1.0f;
    const double gain = *clip.audioGain;
    return std::isfinite(gain) ? static_cast<float>(std::max(gain, 0.0)) : 1.0f;
}

std::vector<TimeSpan> mergedSpeechSpans(std::vector<TimeSpan> spans) {
    std::erase_if(spans, [](const TimeSpan& s) { return !(s.start < s.end); });
    std::stable_sort(spans.begin(), spans.end(),
                     [](const TimeSpan& a, const TimeSpan& b) { return a.start < b.start; });
    std::vector<TimeSpan> merged;
    for (const auto& span : spans) {
        if (!merged.empty() && span.start <= merged.back().end) {
            merged.back().end = std::max(merged.back().end, span.end);
        } else {
            merged.push_back(span);
        }
    }
    return merged;
}

void applyPrimaryEnvelope(AudioMixInputParameters& p, std::span<const ProgramClip> clips,
                          RationalTime frameDuration, const AudioFinishingOptions& options) {
    const auto sorted = sortedByStart(clips);
    const double rampLength = std::max(options.crossfadeFrames, 0) * std::max(frameDuration.seconds(), 0.0);
    const auto level = [&](const ProgramClip& c) { return clipLevel(c) * options.primaryLoudnessGain; };
    for (std::size_t i = 0; i < sorted.size(); ++i) {
        const ProgramClip& clip = sorted[i];
        const ProgramRange r = programRange(clip);
        const double ramp = std::min(rampLength, (r.end - r.start) / 2.0);
        const float l = level(clip);
        if (i > 0 && continues(sorted[i - 1], clip)) {
            if (std::abs(level(sorted[i - 1]) - l) >= kNone) rampTo(p, l, r.start, r.start + ramp);
        } else if (ramp >= kNone) {
            p.setVolumeRamp(0.0f, l, {at(r.start), at(r.start + ramp)});
        } else {
            p.setVolume(l, at(r.start));
        }
        const bool cutAfter = i + 1 == sorted.size() || !continues(clip, sorted[i + 1]);
        if (cutAfter && ramp >= kNone) p.setVolumeRamp(l, 0.0f, {at(r.end - ramp), at(r.end)});
    }
}

void applyOverlayEnvelope(AudioMixInputParameters& p, std::span<const ProgramClip> clips) {
    for (const auto& clip : sortedByStart(clips))
        edgeEnvelope(p, programRange(clip), clipLevel(clip), edgeRampSeconds);
}

void applyMusicEnvelope(AudioMixInputParameters& p, const ProgramClip& clip,
                        const AudioFinishingOptions& options) {
    const ProgramRange r = programRange(clip);
    if (r.end - r.start < kNone) return;
    const float level = clipLevel(clip);
    const float ducked = level * options.musicDuckLevel;
    const double duckRamp = std::max(options.duckRampSeconds, 0.0);
    const double edge = std::min(edgeRampSeconds, (r.end - r.start) / 2.0);

    // Speech spans closer than two ramps apart duck as one: the music would not get back up between them.
    std::vector<ProgramRange> ducks;
    for (const auto& span : mergedSpeechSpans(options.speechSpans)) {
        const ProgramRange s{span.start.seconds(), span.end.seconds()};
        if (s.end <= r.start || s.start >= r.end) continue;
        if (!ducks.empty() && s.start - duckRamp <= ducks.back().end + duckRamp) {
            ducks.back().end = std::max(ducks.back().end, s.end);
        } else {
            ducks.push_back(s);
        }
    }
    const bool speechAtStart = !ducks.empty() && ducks.front().start - duckRamp <= r.start + edge;
    p.setVolumeRamp(0.0f, speechAtStart ? ducked : level, {at(r.start), at(r.start + edge)});
    for (const auto& duck : ducks) {
        const double downFrom = std::max(duck.start - duckRamp, r.start + edge);
        if (duck.start > r.start + edge) rampTo(p, ducked, downFrom, duck.start);
        if (duck.end < r.end - edge) rampTo(p, level, duck.end, std::min(duck.end + duckRamp, r.end - edge));
    }
    rampTo(p, 0.0f, r.end - edge, r.end);
}

std::optional<AudioMix> build(std::span<const ProgramClip> primaryClips,
                              std::optional<std::int32_t> primaryTrack,
                              std::span<const ProgramClip> overlayClips,
                              std::optional<std::int32_t> overlayTrack,
                              std::span<const ProgramClip> musicClips,
                              std::span<const std::int32_t> musicTracks, RationalTime frameDuration,
                              const AudioFinishingOptions& options) {
    AudioMix mix;
    if (!primaryClips.empty() && primaryTrack) {
        AudioMixInputParameters p{.trackID = *primaryTrack};
        applyPrimaryEnvelope(p, primaryClips, frameDuration, options);
        mix.inputParameters.push_back(std::move(p));
    }
    if (!overlayClips.empty() && overlayTrack) {
        AudioMixInputParameters p{.trackID = *overlayTrack};
        applyOverlayEnvelope(p, overlayClips);
        mix.inputParameters.push_back(std::move(p));
    }
    for (std::size_t i = 0; i < musicClips.size() && i < musicTracks.size(); ++i) {
        auto it = std::find_if(mix.inputParameters.begin(), mix.inputParameters.end(),
                               [&](const auto& p) { return p.trackID == musicTracks[i]; });
        if (it == mix.inputParameters.end()) {
            mix.inputParameters.push_back({.trackID = musicTracks[i]});
            it = mix.inputParameters.end() - 1;
        }
        applyMusicEnvelope(*it, musicClips[i], options);
    }
    if (mix.inputParameters.empty()) return std::nullopt;
    return mix;
}

}  // namespace morvane::engine::AudioMixBuilder
