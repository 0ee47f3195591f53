#pragma once

/// US English speech recognition in this process, with pocketsphinx and the model of Debian's
/// pocketsphinx-en-us package. The audio is cut at its pauses into utterances, which are decoded on
/// several threads at once (one decoder each); each utterance is one final result whose runs are its words
/// with their times, posterior probabilities and the other words the decoder weighed at that place.
///
///     auto provider = SpeechRecognizerTranscriptionProvider(std::make_unique<PocketSphinxRecognizer>());
///     auto transcript = provider.transcribe("talk.mp4", {.locale = "en-US"}, onProgress, stop);
///
/// The language model weighs words by how often they are written, so a hesitation is easily heard as a
/// short word ("am", "and", "a"). The sound tells it apart: a single syllable held long, alone between
/// pauses. Such a word is written "um" or "uh", the word it sounded like kept as its first alternative, so
/// that the fillers stay in the transcript for the cleanup rules to find.

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "morvane/intelligence/transcription/speech_recognizer.hpp"

namespace morvane::intelligence {

/// How pocketsphinx runs.
struct PocketSphinxOptions {
    /// The folder holding "en-us/" (acoustic model, language model, dictionary): pocketsphinx's own
    /// model folder unless set.
    std::filesystem::path modelDirectory;
    int threads = 0;  ///< decoders at once; 0: one per core, at most four
    /// Speech without a pause is cut at its quietest point past this. An utterance is decoded in one go:
    /// this also bounds how long a stop waits.
    double maxUtteranceSeconds = 15.0;
    bool markHesitations = true;  ///< write hesitations heard as words as "um" and "uh"
};

class PocketSphinxRecognizer final : public SpeechRecognizer {
  public:
    explicit PocketSphinxRecognizer(PocketSphinxOptions options = {});

    /// pocketsphinx's own model folder, as its installation states it.
    [[nodiscard]] static std::filesystem::path defaultModelDirectory();

    /// A word as the decoder heard it, with what tells a hesitation from a word.
    struct HeardWord {
        std::string text;          ///< as written ("am")
        std::string phones;        ///< the pronunciation the decoder matched ("AE M")
        double seconds = 0.0;      ///< how long it lasts
        double pauseBefore = 0.0;  ///< silence before it; infinite at the start of an utterance
        double pauseAfter = 0.0;   ///< silence after it; infinite at the end of an utterance
    };

    /// "um" or "uh" when `word` is a hesitation heard as a word: one syllable of at most three sounds,
    /// with at least 0.25 s of silence on each side, held 0.5 s or more, or held 0.25 s or more and rated
    /// below the hesitation by `saidAlone` (a language model's log probability of a whole utterance of
    /// one word); never a word that means something said on its own ("yes", "wait", "one", "what"...).
    /// "um" when a nasal follows the vowel. Nothing otherwise.
    [[nodiscard]] static std::optional<std::string> hesitation(
        const HeardWord& word, const std::function<double(std::string_view)>& saidAlone);

    /// "en-US".
    [[nodiscard]] std::vector<std::string> supportedLocales() const override;
    /// 16000.
    [[nodiscard]] int sampleRate() const override;
    /// Fails for any language but US English, and when the model's files are missing.
    void ensureModel(std::string_view locale) override;
    [[nodiscard]] std::vector<RecognitionResult> recognize(engine::PCMStream& audio, std::string_view locale,
                                                           const ProgressCallback& progress,
                                                           std::stop_token stop) override;

  private:
    PocketSphinxOptions options_;
};

}  // namespace morvane::intelligence
