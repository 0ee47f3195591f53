#pragma once

/// Transcription over a speech recogniser: reads a media file's audio, recognises it, and turns the
/// recogniser's utterances into one word-timed transcript. Which recogniser runs is the user's choice,
/// kept in the preferences ("morvane.transcriptionEngine": "pocketsphinx", the default, or "whisper").
///
///     PreferencesStore prefs;
///     auto provider = makeTranscriptionProvider(prefs);
///     TranscriptDocument transcript = provider->transcribe("talk.mp4", {.locale = "en-US"}, onProgress,
///     stop);

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "morvane/engine/support/enum_table.hpp"
#include "morvane/intelligence/transcription/speech_recognizer.hpp"
#include "morvane/intelligence/transcription/transcription_provider.hpp"

namespace morvane::intelligence {

/// Transcribes with a `SpeechRecognizer`.
class SpeechRecognizerTranscriptionProvider : public TranscriptionProvider {
  public:
    explicit SpeechRecognizerTranscriptionProvider(std::unique_ptr<SpeechRecognizer> recognizer);

    /// The transcript of the first audio track of `media`, as `TranscriptionProvider::transcribe` says.
    /// A file that isn't media fails with `decodeFailed` and the reader's reason.
    [[nodiscard]] TranscriptDocument transcribe(const std::filesystem::path& media,
                                                const TranscriptionOptions& options,
                                                const ProgressCallback& progress = {},
                                                std::stop_token stop = {}) override;

    /// The recogniser's locales.
    [[nodiscard]] std::vector<std::string> supportedLocales() const override;

    /// The words of `runs`, ids from `startingID` on. Runs without a time range, or with nothing but
    /// white space, give none. A run's pieces between white space are its words; several pieces share the
    /// run's range in proportion to their character counts, the last ending exactly at the range's end.
    /// Confidences are clamped to 0..1; a run without one takes `resultConfidence`. Every word carries
    /// `alternatives`, then the run's own. Times are on timescale 600.
    [[nodiscard]] static std::vector<TranscriptWord> extractWords(
        const std::vector<RecognizedRun>& runs, int startingID, std::optional<double> resultConfidence,
        const std::vector<std::string>& alternatives);

    /// Words in order made to follow one another: each starts no earlier than the previous one ends and
    /// lasts at least 0.01 s, both times then rounded to the nearest 1/600 s.
    static void normalizeWordTimings(std::vector<TranscriptWord>& words);

  private:
    std::unique_ptr<SpeechRecognizer> recognizer_;
};

/// The recognisers a transcription can run on.
enum class TranscriptionEngine { pocketsphinx, whisper };
inline constexpr auto kTranscriptionEngineNames = makeEnumTable<TranscriptionEngine>({
    {TranscriptionEngine::pocketsphinx, "pocketsphinx"},
    {TranscriptionEngine::whisper, "whisper"},
});

/// What the user chose to transcribe with; each field overrides the preferences when set.
struct TranscriptionEngineChoice {
    std::optional<TranscriptionEngine> engine;
    std::optional<std::filesystem::path> whisperExecutable;
    std::optional<std::filesystem::path> whisperModelPath;
};

/// The engine stored as "morvane.transcriptionEngine"; pocketsphinx when unset or unknown.
[[nodiscard]] TranscriptionEngine transcriptionEngine(const PreferencesStore& preferences);

/// The provider the user chose: the engine of `choice` or of the preferences, whisper with the program
/// and model of "morvane.whisperExecutable" and "morvane.whisperModelPath" (or `choice`'s). Nothing is
/// checked here: a missing program or model is reported when a transcription starts.
[[nodiscard]] std::unique_ptr<TranscriptionProvider> makeTranscriptionProvider(
    const PreferencesStore& preferences, const TranscriptionEngineChoice& choice = {});

}  // namespace morvane::intelligence
