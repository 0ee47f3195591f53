#include "morvane/engine/support/preferences_store.hpp"
#include "morvane/intelligence/transcription/pocketsphinx_recognizer.hpp"
#include "morvane/intelligence/transcription/speech_recognizer_transcription_provider.hpp"
#include "morvane/intelligence/transcription/whisper_recognizer.hpp"

namespace morvane::intelligence {
namespace {

constexpr std::string_view kEngineKey = "morvane.transcriptionEngine";
constexpr std::string_view kWhisperExecutableKey = "morvane.whisperExecutable";
constexpr std::string_view kWhisperModelKey = "morvane.whisperModelPath";

std::filesystem::path chosenPath(const std::optional<std::filesystem::path>& chosen,
                                 const PreferencesStore& preferences, std::string_view key) {
    if (chosen) return *chosen;
    return preferences.string(key).value_or(std::string());
}

}  // namespace

TranscriptionEngine transcriptionEngine(const PreferencesStore& preferences) {
    return kTranscriptionEngineNames.parse(preferences.string(kEngineKey).value_or(std::string()))
        .value_or(TranscriptionEngine::pocketsphinx);
}

std::unique_ptr<TranscriptionProvider> makeTranscriptionProvider(const PreferencesStore& preferences,
                                                                 const TranscriptionEngineChoice& choice) {
    std::unique_ptr<SpeechRecognizer> recognizer;
    switch (choice.engine.value_or(transcriptionEngine(preferences))) {
        case TranscriptionEngine::pocketsphinx:
            recognizer = std::make_unique<PocketSphinxRecognizer>();
            break;
        case TranscriptionEngine::whisper:
            recognizer = std::make_unique<WhisperRecognizer>(WhisperOptions{
                .executable = chosenPath(choice.whisperExecutable, preferences, kWhisperExecutableKey),
                .modelPath = chosenPath(choice.whisperModelPath, preferences, kWhisperModelKey)});
            break;
    }
    return std::make_unique<SpeechRecognizerTranscriptionProvider>(std::move(recognizer));
}

}  // namespace morvane::intelligence
