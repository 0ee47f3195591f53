#pragma once

/// The speech recogniser behind transcription: audio in, final results out. Each result is one utterance
/// whose text is a sequence of runs, each run carrying the time range of its audio and a confidence.
///
///     PocketSphinxRecognizer recognizer;
///     recognizer.ensureModel("en-US");                        // or "Speech assets unavailable for ..."
///     engine::PCMStream audio("talk.mp4", recognizer.sampleRate());
///     for (const RecognitionResult& utterance : recognizer.recognize(audio, "en-US", onProgress, stop))
///         for (const RecognizedRun& run : utterance.runs) use(run.text, run.audioTimeRange);

#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "morvane/engine/audio/pcm_sample_reader.hpp"
#include "morvane/engine/support/cancellation.hpp"
#include "morvane/intelligence/intelligence_error.hpp"

namespace morvane::intelligence {

/// A stretch of a result's text with what the recogniser knows of it. A run usually holds one word and
/// the blank before it; a run with several words shares its time range among them.
struct RecognizedRun {
    std::string text;                                    ///< as recognised, spacing included
    std::optional<engine::SecondsRange> audioTimeRange;  ///< seconds in the media; none: not placed in time
    std::optional<double> confidence;                    ///< 0 to 1
    std::vector<std::string> alternatives;               ///< other readings of this stretch, best first

    friend bool operator==(const RecognizedRun&, const RecognizedRun&) = default;
};

/// One final result: an utterance.
struct RecognitionResult {
    std::vector<RecognizedRun> runs;        ///< the text, run by run
    std::optional<double> confidence;       ///< of the whole result; runs without their own take it
    std::vector<std::string> alternatives;  ///< the texts of other transcriptions of the whole utterance

    /// The runs' texts joined as they stand.
    [[nodiscard]] std::string text() const;

    friend bool operator==(const RecognitionResult&, const RecognitionResult&) = default;
};

/// Recognises speech in audio. Implementations run synchronously on the caller's (worker) thread and
/// share nothing between calls.
class SpeechRecognizer {
  public:
    virtual ~SpeechRecognizer() = default;

    /// The locale identifiers this recogniser can transcribe ("en-US").
    [[nodiscard]] virtual std::vector<std::string> supportedLocales() const = 0;

    /// The rate, in samples a second, at which `recognize` wants its audio.
    [[nodiscard]] virtual int sampleRate() const = 0;

    /// Checks that what recognising `locale` needs (a model, a program) is installed. Throws
    /// `IntelligenceError::decodeFailed` with "Speech assets unavailable for " + the locale, followed by a
    /// hint of what to install.
    virtual void ensureModel(std::string_view locale) = 0;

    /// The final results for `audio` (mono, at `sampleRate()`, read to its end), in time order. Progress is
    /// the share of the audio recognised. Throws `IntelligenceError::decodeFailed` when recognition
    /// fails, what reading `audio` throws, and `OperationCancelled` on a stop; nothing is returned then.
    [[nodiscard]] virtual std::vector<RecognitionResult> recognize(engine::PCMStream& audio,
                                                                   std::string_view locale,
                                                                   const ProgressCallback& progress,
                                                                   std::stop_token stop) = 0;
};

/// The failure of a missing model or program: `decodeFailed` with "Speech assets unavailable for " +
/// `locale` + ". " + `hint`.
[[nodiscard]] IntelligenceError speechAssetsUnavailable(std::string_view locale, std::string_view hint);

}  // namespace morvane::intelligence
