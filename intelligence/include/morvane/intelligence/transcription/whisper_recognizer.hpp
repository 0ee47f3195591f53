#pragma once

/// Speech recognition in 31 languages through a whisper.cpp command-line program that the user installed,
/// with a ggml model file of their choice. The audio goes to the program as a 16 kHz WAV in a temporary
/// folder; its full JSON output (token times and probabilities) comes back as one result per segment,
/// whose runs are the words the tokens spell.
///
///     WhisperRecognizer recognizer({.modelPath = "/home/me/.local/share/Morvane/models/ggml-small.bin"});
///     recognizer.ensureModel("de-DE");     // the program on PATH, the model present and multilingual
///     SpeechRecognizerTranscriptionProvider provider(std::make_unique<WhisperRecognizer>(recognizer));
///
/// Without a program named, the usual names are looked up on PATH ("whisper-cli", "whisper-cpp",
/// "whisper.cpp"); without a model named, the first ggml model (by name) of the models folder is taken.

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "morvane/intelligence/transcription/speech_recognizer.hpp"

namespace morvane::intelligence {

/// Which program and model whisper runs with; empty fields are looked for.
struct WhisperOptions {
    std::filesystem::path executable;  ///< a path, or a name looked up on PATH
    std::filesystem::path modelPath;   ///< a ggml model file
    int threads = 0;                   ///< for the program's computation; 0: one per core
};

class WhisperRecognizer final : public SpeechRecognizer {
  public:
    explicit WhisperRecognizer(WhisperOptions options = {});

    /// The program names looked up on PATH, in order.
    [[nodiscard]] static const std::vector<std::string>& programNames();
    /// Where models are looked for when none is named: $XDG_DATA_HOME/Morvane/models.
    [[nodiscard]] static std::filesystem::path defaultModelFolder();
    /// whisper's language code for a locale: the language subtag, lower case ("pt-BR" is "pt"), with
    /// Norwegian Bokmål as "no".
    [[nodiscard]] static std::string languageCode(std::string_view locale);
    /// The results of whisper.cpp's full JSON output ("-ojf"): one per segment with words, tokens joined
    /// into words at blanks (at every token for `locale`s written without blanks), special tokens and
    /// bracketed annotations such as "[BLANK_AUDIO]" left out, a word's confidence the mean of its tokens'
    /// probabilities. Bytes of a character split across tokens are joined again. Throws
    /// `IntelligenceError::decodeFailed` for output that isn't of that shape.
    [[nodiscard]] static std::vector<RecognitionResult> parseOutput(std::string_view json,
                                                                    std::string_view locale);

    /// The fixed list of 31 languages.
    [[nodiscard]] std::vector<std::string> supportedLocales() const override;
    /// 16000.
    [[nodiscard]] int sampleRate() const override;
    /// Fails when the program or the model can't be found, or the model knows English only and `locale`
    /// isn't English.
    void ensureModel(std::string_view locale) override;
    /// Throws `decodeFailed` with the program's own reason when it fails or writes no output.
    [[nodiscard]] std::vector<RecognitionResult> recognize(engine::PCMStream& audio, std::string_view locale,
                                                           const ProgressCallback& progress,
                                                           std::stop_token stop) override;

  private:
    struct Resolved {
        std::filesystem::path program;
        std::filesystem::path model;
    };
    [[nodiscard]] Resolved resolve(std::string_view locale) const;

    WhisperOptions options_;
};

}  // namespace morvane::intelligence
