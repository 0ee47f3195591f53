#include "morvane/intelligence/transcription/speech_recognizer_transcription_provider.hpp"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "morvane/engine/engine_error.hpp"
#include "morvane/engine/support/text.hpp"
#include "morvane/intelligence/intelligence_error.hpp"
#include "morvane/intelligence/support/text.hpp"

namespace morvane::intelligence {
namespace {

constexpr std::string_view kNoAudioTrack =
    "This file has no audio track to transcribe (common for silent screen recordings). Import a clip with "
    "speech, or add a separate audio source.";
constexpr std::string_view kNoSpeech =
    "No speech could be analyzed in this audio — the track may be silent or empty.";
constexpr double kMinimumWordSeconds = 0.01;

RationalTime at600(double seconds) {
    return RationalTime::fromSeconds(seconds, RationalTime::secondsTimescale);
}

IntelligenceError fromEngineError(const engine::EngineError& error, const std::filesystem::path& media) {
    using Kind = engine::EngineError::Kind;
    switch (error.kind()) {
        case Kind::missingFile:
            return IntelligenceError::missingFile(media.string());
        case Kind::noAudioTrack:
            return IntelligenceError::decodeFailed(std::string(kNoAudioTrack));
        default:
            return IntelligenceError::decodeFailed(error.what());
    }
}

}  // namespace

std::string RecognitionResult::text() const {
    std::string joined;
    for (const RecognizedRun& run : runs)
        joined += run.text;
    return joined;
}

IntelligenceError speechAssetsUnavailable(std::string_view locale, std::string_view hint) {
    std::string message = "Speech assets unavailable for " + std::string(locale);
    if (!hint.empty()) message += ". " + std::string(hint);
    return IntelligenceError::decodeFailed(std::move(message));
}

SpeechRecognizerTranscriptionProvider::SpeechRecognizerTranscriptionProvider(
    std::unique_ptr<SpeechRecognizer> recognizer)
    : recognizer_(std::move(recognizer)) {}

std::vector<std::string> SpeechRecognizerTranscriptionProvider::supportedLocales() const {
    return recognizer_->supportedLocales();
}

TranscriptDocument SpeechRecognizerTranscriptionProvider::transcribe(const std::filesystem::path& media,
                                                                     const TranscriptionOptions& options,
                                                                     const ProgressCallback& progress,
                                                                     std::stop_token stop) {
    std::error_code error;
    if (!std::filesystem::exists(media, error)) throw IntelligenceError::missingFile(media.string());

    std::vector<RecognitionResult> results;
    double durationSeconds = 0.0;
    try {
        // Opening the audio first: a file without sound says so before any model is looked for.
        engine::PCMStream audio(media, recognizer_->sampleRate(), stop);
        recognizer_->ensureModel(options.locale);
        results = recognizer_->recognize(audio, options.locale, progress, stop);
        durationSeconds = static_cast<double>(audio.samplesRead()) / recognizer_->sampleRate();
    } catch (const engine::EngineError& e) {
        throw fromEngineError(e, media);
    }
    if (results.empty()) throw IntelligenceError::decodeFailed(std::string(kNoSpeech));

    std::string fullText;
    std::vector<TranscriptWord> words;
    for (const RecognitionResult& result : results) {
        fullText += result.text();
        auto extracted =
            extractWords(result.runs, static_cast<int>(words.size()), result.confidence, result.alternatives);
        words.insert(words.end(), std::make_move_iterator(extracted.begin()),
                     std::make_move_iterator(extracted.end()));
    }
    // The joined text's runs are the results' runs, so extracting from them again could find nothing more.
    if (words.empty()) throw IntelligenceError::emptyTranscript();
    normalizeWordTimings(words);

    TranscriptDocument document{.sourceURL = std::filesystem::absolute(media, error).string(),
                                .locale = options.locale,
                                .durationSeconds = durationSeconds,
                                .words = std::move(words),
                                .fullText = std::move(fullText)};
    document.disfluencyHits = TranscriptDocument::disfluencyHitsFor(document.words);
    return document;
}

std::vector<TranscriptWord> SpeechRecognizerTranscriptionProvider::extractWords(
    const std::vector<RecognizedRun>& runs, int startingID, std::optional<double> resultConfidence,
    const std::vector<std::string>& alternatives) {
    std::vector<TranscriptWord> words;
    int nextID = startingID;
    for (const RecognizedRun& run : runs) {
        const std::vector<std::string_view> pieces = splitAtWhitespace(run.text);
        if (pieces.empty() || !run.audioTimeRange) continue;
        const double start = run.audioTimeRange->lower;
        const double end = run.audioTimeRange->upper;
        std::optional<double> confidence = resultConfidence;
        if (run.confidence) confidence = std::clamp(*run.confidence, 0.0, 1.0);
        std::vector<std::string> wordAlternatives = alternatives;
        wordAlternatives.insert(wordAlternatives.end(), run.alternatives.begin(), run.alternatives.end());

        std::vector<std::size_t> counts;
        std::size_t total = 0;
        for (std::string_view piece : pieces) {
            counts.push_back(characterCount(piece));
            total += counts.back();
        }
        std::size_t before = 0;
        for (std::size_t i = 0; i < pieces.size(); ++i) {
            const auto startAt = [&](std::size_t characters) {
                return start + (end - start) * (static_cast<double>(characters) / static_cast<double>(total));
            };
            const double pieceStart = startAt(before);
            before += counts[i];
            const double pieceEnd = i + 1 == pieces.size() ? end : startAt(before);
            words.push_back({.id = nextID++,
                             .text = std::string(pieces[i]),
                             .start = at600(pieceStart),
                             .end = at600(pieceEnd),
                             .confidence = confidence,
                             .alternatives = wordAlternatives});
        }
    }
    return words;
}

void SpeechRecognizerTranscriptionProvider::normalizeWordTimings(std::vector<TranscriptWord>& words) {
    double last = 0.0;
    for (TranscriptWord& word : words) {
        const double start = std::max(word.start.seconds(), last);
        const double end = std::max(word.end.seconds(), start + kMinimumWordSeconds);
        last = end;
        word.start = at600(start);
        word.end = at600(end);
    }
}

}  // namespace morvane::intelligence
