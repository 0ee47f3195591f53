#pragma once

/// The pauses of a recording, found from its audio alone.
///
///     auto spans = SilenceDetector::detect("talk.mp4", {.thresholdDB = -40, .minSilenceSeconds = 0.15});
///     for (const SilenceSpan& s : spans) fmt::print("{} - {}\n", s.startSeconds, s.endSeconds);
///
/// The audio is read as mono at 44100 Hz and cut into windows of `windowSeconds`; a window is silent when
/// its RMS is strictly below `thresholdDB`. Each run of silent windows is widened by `paddingSeconds` on
/// both sides (the start held at 0, the end free to pass the file's end) and kept when it then lasts at
/// least `minSilenceSeconds`. Overlapping spans are not merged. Detection streams: an hour of audio costs
/// the memory of one decoded block.

#include <filesystem>
#include <span>
#include <stop_token>
#include <vector>

#include "morvane/engine/support/cancellation.hpp"
#include "morvane/engine/support/json.hpp"
#include "morvane/engine/time/rational_time.hpp"

namespace morvane::engine {

/// How pauses are found.
struct SilenceDetectionOptions {
    float thresholdDB = -40.0f;       ///< a window whose RMS is below this level (dBFS) is silent
    double windowSeconds = 0.02;      ///< analysis window
    double minSilenceSeconds = 0.15;  ///< shortest span reported, padding included
    double paddingSeconds = 0.05;     ///< widening of each span on both sides

    friend bool operator==(const SilenceDetectionOptions&, const SilenceDetectionOptions&) = default;
};

/// One pause. `start` and `end` are the seconds truncated to timescale 60000; the seconds fields keep the
/// unrounded values.
struct SilenceSpan {
    RationalTime start;
    RationalTime end;
    double startSeconds = 0.0;
    double endSeconds = 0.0;

    /// The span for `startSeconds` to `endSeconds`, its times truncated (not rounded) to 1/60000 s.
    [[nodiscard]] static SilenceSpan fromSeconds(double startSeconds, double endSeconds);

    friend bool operator==(const SilenceSpan&, const SilenceSpan&) = default;
};

/// Finds pauses in samples given block by block, at 44100 Hz, keeping only the open run and the spans.
///
///     SilenceScanner scanner(options);
///     for (auto block = stream.read(); !block.empty(); block = stream.read()) scanner.process(block);
///     std::vector<SilenceSpan> spans = scanner.finish();
class SilenceScanner {
  public:
    /// The rate every window and time is counted at.
    static constexpr int sampleRate = 44100;

    explicit SilenceScanner(const SilenceDetectionOptions& options = {});

    /// The next samples of the track, in order.
    void process(std::span<const float> samples);

    /// The spans closed so far, in time order: those whose silence has ended. A caller that streams can
    /// act on each pause as soon as speech resumes.
    [[nodiscard]] const std::vector<SilenceSpan>& closedSpans() const noexcept { return spans_; }

    /// Ends the track (its last window may be short) and returns the spans in time order.
    [[nodiscard]] std::vector<SilenceSpan> finish();

  private:
    void closeWindow();
    void endRun(double endSeconds);

    SilenceDetectionOptions options_;
    std::int64_t windowSamples_;
    float threshold_;
    double windowSum_ = 0.0;
    std::int64_t windowFill_ = 0;
    std::int64_t windowIndex_ = 0;
    std::int64_t sampleCount_ = 0;
    std::int64_t runStart_ = -1;  // first window of the open silent run; -1 when none is open
    std::vector<SilenceSpan> spans_;
};

namespace SilenceDetector {

/// The pauses of the first audio track of `url`, in time order. Progress is the share of the track read.
/// Throws `EngineError::missingFile`, `noAudioTrack`, `readerFailed` (with "Failed to start audio reader"
/// when the audio can't be decoded, or FFmpeg's reason), and `OperationCancelled`.
[[nodiscard]] std::vector<SilenceSpan> detect(const std::filesystem::path& url,
                                              const SilenceDetectionOptions& options = {},
                                              const ProgressCallback& progress = {},
                                              std::stop_token stop = {});

/// The pauses of mono samples at 44100 Hz already in memory.
[[nodiscard]] std::vector<SilenceSpan> detect(std::span<const float> samples44100,
                                              const SilenceDetectionOptions& options = {});

}  // namespace SilenceDetector

/// {"start": "123/60000s", "end": "...", "startSeconds": 0.00205, "endSeconds": ...}
void to_json(Json& json, const SilenceSpan& span);
void fromJson(const JsonReader& reader, SilenceSpan& span);
/// {"thresholdDB", "windowSeconds", "minSilenceSeconds", "paddingSeconds"}; a missing key keeps its default.
void to_json(Json& json, const SilenceDetectionOptions& options);
void fromJson(const JsonReader& reader, SilenceDetectionOptions& options);

}  // namespace morvane::engine
