#pragma once

/// Cuts a stream of speech into utterances at its pauses, so that a recogniser decodes pieces of a
/// sensible length (several at once, if it likes), holding no more audio than one utterance.
///
///     UtteranceSplitter splitter(16000, {});
///     engine::SilenceScanner pauses(splitter.pauseDetection());   // fed the same audio at 44.1 kHz
///     for (auto block = stream.read(); !block.empty(); block = stream.read())
///         splitter.process(block, pauses.closedSpans(), decode);
///     splitter.finish(pauses.finish(), decode);
///
/// An utterance runs from a little before its speech to a little after it: `marginSeconds` of the pause
/// on either side, at most half the pause. Speech that runs past `maxSeconds` without a pause is cut at
/// its quietest 10 ms within the last `searchSeconds`. Stretches with no 20 ms window at or above the
/// silence threshold are never handed out.

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "morvane/engine/silence/silence_detector.hpp"

namespace morvane::intelligence {

/// A piece of the stream to recognise as one.
struct Utterance {
    int index = 0;                      ///< from 0, in stream order
    std::int64_t firstSample = 0;       ///< position of `samples[0]` in the stream
    std::int64_t coveredSamples = 0;    ///< the stream this accounts for, the pause before it included
    std::vector<std::int16_t> samples;  ///< 16-bit, at the splitter's rate

    friend bool operator==(const Utterance&, const Utterance&) = default;
};

/// Finds utterances in a stream, given its pauses.
class UtteranceSplitter {
  public:
    /// Where and how the stream is cut.
    struct Options {
        double minPauseSeconds = 0.3;  ///< shorter pauses don't split
        double marginSeconds = 0.2;    ///< of pause kept on each side of the speech
        double maxSeconds = 20.0;      ///< longest utterance
        double searchSeconds = 4.0;    ///< how far back from `maxSeconds` a forced cut looks for quiet
        float thresholdDB = -40.0f;    ///< silence is below this level
    };
    /// Receives each utterance as soon as it is complete.
    using Emit = std::function<void(Utterance&&)>;

    /// A splitter for a stream of `sampleRate` samples a second.
    UtteranceSplitter(int sampleRate, const Options& options);

    /// What the scanner that finds the stream's pauses must be set to.
    [[nodiscard]] engine::SilenceDetectionOptions pauseDetection() const;

    /// The next samples, and the pauses found so far (those already used are skipped).
    void process(std::span<const float> samples, const std::vector<engine::SilenceSpan>& pauses,
                 const Emit& emit);

    /// The end of the stream, with all its pauses.
    void finish(const std::vector<engine::SilenceSpan>& pauses, const Emit& emit);

  private:
    void handlePauses(const std::vector<engine::SilenceSpan>& pauses, bool atEnd, const Emit& emit);
    void forceCuts(const Emit& emit);
    // Emits [regionStart_, end) when it holds sound, then starts the next region at `nextStart`.
    void cut(std::int64_t end, std::int64_t nextStart, const Emit& emit);
    [[nodiscard]] std::int64_t bufferEnd() const;
    [[nodiscard]] std::int64_t toSample(double seconds) const;

    int sampleRate_;
    Options options_;
    float threshold_;            // linear
    std::vector<float> buffer_;  // the stream from bufferStart_ on
    std::int64_t bufferStart_ = 0;
    std::int64_t regionStart_ = 0;  // where the next utterance begins
    std::int64_t emittedEnd_ = 0;   // end of the last utterance handed out
    std::size_t pausesHandled_ = 0;
    int nextIndex_ = 0;
};

}  // namespace morvane::intelligence
