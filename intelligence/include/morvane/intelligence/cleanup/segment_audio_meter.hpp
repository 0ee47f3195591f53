#pragma once

/// How loud each segment is and how steady its voice, measured on mono audio at 48 kHz: the filler rule
/// reads a quiet segment's filler as more likely, the retake rule prefers the steadier take.
///
///     PCMBuffer pcm = PCMSampleReader::readMonoFloat("talk.mp4", SegmentAudioMeter::sampleRate);
///     std::optional<double> rms = SegmentAudioMeter::rms(segment, pcm);     // none when it has no samples
///     auto levels = SegmentAudioMeter::measure(segments.segments, "talk.mp4"); // streamed, same values
///
/// A segment covers the samples from trunc(max(start, 0) x rate) to trunc(max(end, start) x rate), cut at
/// the end of the audio. Its RMS sums squares in double precision, in sample order. Its stability is
/// 1 - 40 x the population variance of the RMS of consecutive 0.05 s windows from its first sample (the
/// last window may be shorter), held within 0...1; 0.5 when the segment has at most 0.1 s of samples or
/// fewer than two windows.

#include <filesystem>
#include <optional>
#include <span>
#include <stop_token>
#include <vector>

#include "morvane/engine/audio/pcm_sample_reader.hpp"
#include "morvane/engine/support/cancellation.hpp"
#include "morvane/intelligence/models/transcript.hpp"

namespace morvane::intelligence {

/// The level and steadiness of one segment's audio.
struct SegmentAudioLevel {
    std::optional<double> rms;  ///< root mean square of its samples; none when it has none
    double stability = 0.5;     ///< 0 (unsteady) to 1 (level); 0.5 when too short to tell

    friend bool operator==(const SegmentAudioLevel&, const SegmentAudioLevel&) = default;
};

namespace SegmentAudioMeter {

/// The rate the rules read audio at.
inline constexpr int sampleRate = 48000;

/// The RMS of `segment`'s samples in `pcm`; none when the segment holds no samples.
[[nodiscard]] std::optional<double> rms(const TranscriptSegment& segment, const engine::PCMBuffer& pcm);

/// How level `segment`'s voice is in `pcm`, 0 to 1; 0.5 when it is too short to tell.
[[nodiscard]] double stability(const TranscriptSegment& segment, const engine::PCMBuffer& pcm);

/// Both measures of every segment, in the given order.
[[nodiscard]] std::vector<SegmentAudioLevel> measure(std::span<const TranscriptSegment> segments,
                                                     const engine::PCMBuffer& pcm);

/// The same measures from the first audio track of `mediaURL`, read once at 48 kHz as a stream: the
/// values are those of `measure` over `PCMSampleReader::readMonoFloat(mediaURL, 48000)`, without holding
/// the track in memory. Reading stops after the last segment. Throws as `PCMStream` does.
[[nodiscard]] std::vector<SegmentAudioLevel> measure(std::span<const TranscriptSegment> segments,
                                                     const std::filesystem::path& mediaURL,
                                                     const ProgressCallback& progress = {},
                                                     std::stop_token stop = {});

}  // namespace SegmentAudioMeter

}  // namespace morvane::intelligence
