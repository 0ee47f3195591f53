#include <gtest/gtest.h>

#include <functional>

#include "morvane/engine/support/preferences_store.hpp"
#include "morvane/intelligence/transcription/speech_recognizer_transcription_provider.hpp"
#include "morvane/testing/printers.hpp"
#include "morvane/testing/synthetic_media.hpp"
#include "morvane/testing/temp_dir.hpp"

using namespace morvane;
using namespace morvane::intelligence;
using morvane::engine::RationalTime;
using morvane::engine::SecondsRange;
namespace mt = morvane::testing;

namespace {

using Provider = SpeechRecognizerTranscriptionProvider;

RationalTime at600(std::int64_t value) {
    return {value, 600};
}

RecognizedRun run(std::string text, double start, double end, std::optional<double> confidence = std::nullopt,
                  std::vector<std::string> alternatives = {}) {
    return {std::move(text), SecondsRange{start, end}, confidence, std::move(alternatives)};
}

// Stands for a recogniser: reads the audio to its end as a real one does, then answers what it was told.
class ScriptedRecognizer : public SpeechRecognizer {
  public:
    std::vector<RecognitionResult> results;
    std::optional<std::string> missingAssetsHint;
    std::string ensuredLocale;

    [[nodiscard]] std::vector<std::string> supportedLocales() const override { return {"en-US"}; }
    [[nodiscard]] int sampleRate() const override { return 16000; }
    void ensureModel(std::string_view locale) override {
        ensuredLocale = locale;
        if (missingAssetsHint) throw speechAssetsUnavailable(locale, *missingAssetsHint);
    }
    std::vector<RecognitionResult> recognize(engine::PCMStream& audio, std::string_view,
                                             const ProgressCallback&, std::stop_token) override {
        while (!audio.read().empty()) {
        }
        return results;
    }
};

struct Recording {
    mt::TempDir dir;
    std::filesystem::path wav =
        mt::writeWav(dir.path() / "talk.wav", mt::tone(220, 0.3, 1.5, 16000), 1, 16000);
};

}  // namespace

TEST(SpeechRecognizerTranscriptionProvider, extractsWordsFromRuns) {
    struct Case {
        const char* name;
        std::vector<RecognizedRun> runs;
        int startingID;
        std::optional<double> resultConfidence;
        std::vector<std::string> alternatives;
        std::vector<TranscriptWord> expected;
    };
    const Case cases[] = {
        {"pieces share the range by characters; the last ends exactly at the end",
         {run("ab cdef", 0.0, 3.0)},
         0,
         std::nullopt,
         {},
         {{0, "ab", at600(0), at600(600), std::nullopt, {}},
          {1, "cdef", at600(600), at600(1800), std::nullopt, {}}}},
        {"characters are what people see, not bytes (e + combining accent is one)",
         {run("e\u0301 bc", 0.0, 3.0)},
         0,
         std::nullopt,
         {},
         {{0, "e\u0301", at600(0), at600(600), std::nullopt, {}},
          {1, "bc", at600(600), at600(1800), std::nullopt, {}}}},
        {"blank runs and runs without a time give nothing; ids run on from the start given",
         {run("  ", 0.0, 1.0), {" lost", std::nullopt, 0.9, {}}, run(" kept", 1.0, 1.5)},
         7,
         std::nullopt,
         {},
         {{7, "kept", at600(600), at600(900), std::nullopt, {}}}},
        {"confidences are clamped; a run without one takes the result's",
         {run(" a", 0.0, 0.5, 1.7), run(" b", 0.5, 1.0, -0.2), run(" c", 1.0, 1.5)},
         0,
         0.8,
         {},
         {{0, "a", at600(0), at600(300), 1.0, {}},
          {1, "b", at600(300), at600(600), 0.0, {}},
          {2, "c", at600(600), at600(900), 0.8, {}}}},
        {"every word carries the result's other readings, then its run's own",
         {run(" hello", 0.0, 0.5, 0.6, {"yellow"})},
         0,
         std::nullopt,
         {"hello there", "yellow there"},
         {{0, "hello", at600(0), at600(300), 0.6, {"hello there", "yellow there", "yellow"}}}},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(Provider::extractWords(c.runs, c.startingID, c.resultConfidence, c.alternatives),
                  c.expected)
            << c.name;
    }
}

TEST(SpeechRecognizerTranscriptionProvider, normalizesWordTimingsIntoASequence) {
    struct Case {
        const char* name;
        std::vector<std::pair<double, double>> words;                 // start, end in seconds
        std::vector<std::pair<std::int64_t, std::int64_t>> expected;  // on timescale 600
    };
    const Case cases[] = {
        {"overlapping words come out back to back", {{1.0, 2.0}, {1.5, 2.5}}, {{600, 1200}, {1200, 1500}}},
        {"a word of no length lasts 0.01 s, 6/600 once rounded", {{1.0, 1.0}}, {{600, 606}}},
        {"a word that runs backwards starts where the last ended",
         {{1.0, 2.0}, {0.5, 0.8}},
         {{600, 1200}, {1200, 1206}}},
        {"times round to the nearest 1/600 s", {{0.1234, 0.2001}}, {{74, 120}}},
        {"nothing starts before 0", {{-0.2, 0.3}}, {{0, 180}}},
    };
    for (const Case& c : cases) {
        std::vector<TranscriptWord> words;
        for (const auto& [start, end] : c.words) {
            words.push_back({static_cast<int>(words.size()),
                             "w",
                             RationalTime::fromSeconds(start, 60000),
                             RationalTime::fromSeconds(end, 60000),
                             std::nullopt,
                             {}});
        }
        Provider::normalizeWordTimings(words);
        ASSERT_EQ(words.size(), c.expected.size()) << c.name;
        for (std::size_t i = 0; i < words.size(); ++i) {
            EXPECT_EQ(words[i].start, at600(c.expected[i].first)) << c.name << ", word " << i;
            EXPECT_EQ(words[i].end, at600(c.expected[i].second)) << c.name << ", word " << i;
        }
    }
}

TEST(SpeechRecognizerTranscriptionProvider, joinsUtterancesIntoOneTranscript) {
    const Recording recording;
    auto recognizer = std::make_unique<ScriptedRecognizer>();
    recognizer->results = {
        {{run("Um,", 0.1, 0.4, 0.9), run(" so", 0.4, 0.6, 0.7)}, std::nullopt, {}},
        {{run(" we", 0.5, 0.9), run(" like", 0.9, 1.2)}, 0.5, {"we liked"}},
    };
    ScriptedRecognizer& scripted = *recognizer;
    Provider provider(std::move(recognizer));

    const TranscriptDocument transcript = provider.transcribe(recording.wav, {.locale = "en-US"});
    EXPECT_EQ(scripted.ensuredLocale, "en-US");
    EXPECT_EQ(transcript.sourceURL, std::filesystem::absolute(recording.wav).string());
    EXPECT_EQ(transcript.locale, "en-US");
    EXPECT_DOUBLE_EQ(transcript.durationSeconds, 1.5);  // the samples read, not a container's estimate
    EXPECT_EQ(transcript.fullText, "Um, so we like");
    ASSERT_EQ(transcript.words.size(), 4u);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(transcript.words[static_cast<std::size_t>(i)].id, i);
    // The second utterance's first word started inside the first's last word: it now follows it.
    EXPECT_EQ(transcript.words[2].start, at600(360));
    EXPECT_EQ(transcript.words[2].confidence, 0.5);
    EXPECT_EQ(transcript.words[2].alternatives, std::vector<std::string>{"we liked"});
    const std::vector<TranscriptDocument::DisfluencyHit> hits{{"um", 0, "Um,"}, {"like", 3, "like"}};
    EXPECT_EQ(transcript.disfluencyHits, hits);
}

TEST(SpeechRecognizerTranscriptionProvider, failsWithTextsThePersonCanActOn) {
    struct Case {
        const char* name;
        std::function<std::filesystem::path(const mt::TempDir&)> media;
        std::function<void(ScriptedRecognizer&)> script;
        IntelligenceError::Kind kind;
        std::string text;  // the start of what() for a reader's reason, else all of it
        bool soft;
    };
    const auto wav = [](const mt::TempDir& dir) {
        return mt::writeWav(dir.path() / "talk.wav", mt::tone(220, 0.3, 0.5, 16000), 1, 16000);
    };
    const Case cases[] = {
        {"a missing file", [](const mt::TempDir& dir) { return dir.path() / "gone.mp4"; },
         [](ScriptedRecognizer&) {}, IntelligenceError::Kind::missingFile, "Couldn’t find that media file (",
         false},
        {"a file that isn't media",
         [](const mt::TempDir& dir) { return dir.write("notes.mp4", "these are not the samples you seek"); },
         [](ScriptedRecognizer&) {}, IntelligenceError::Kind::decodeFailed, "Media reader failed: ", false},
        {"nothing recognised", wav, [](ScriptedRecognizer&) {}, IntelligenceError::Kind::decodeFailed,
         "No speech could be analyzed in this audio — the track may be silent or empty.", true},
        {"results without a word", wav,
         [](ScriptedRecognizer& r) {
             r.results = {{{run("   ", 0.0, 0.4)}, std::nullopt, {}}};
         },
         IntelligenceError::Kind::emptyTranscript,
         "No speech was found to transcribe. You can still edit on the timeline.", true},
        {"no model for the language", wav,
         [](ScriptedRecognizer& r) { r.missingAssetsHint = "Install the model."; },
         IntelligenceError::Kind::decodeFailed, "Speech assets unavailable for en-US. Install the model.",
         false},
    };
    for (const Case& c : cases) {
        const mt::TempDir dir;
        auto recognizer = std::make_unique<ScriptedRecognizer>();
        c.script(*recognizer);
        Provider provider(std::move(recognizer));
        try {
            (void)provider.transcribe(c.media(dir), {.locale = "en-US"});
            ADD_FAILURE() << c.name << ": no failure";
        } catch (const IntelligenceError& e) {
            EXPECT_EQ(e.kind(), c.kind) << c.name;
            EXPECT_TRUE(std::string(e.what()).starts_with(c.text)) << c.name << ": " << e.what();
            EXPECT_EQ(e.isSoftTranscriptionFailure(), c.soft) << c.name;
        }
    }
}

TEST(SpeechRecognizerTranscriptionProviderMedia, aVideoWithoutSoundFailsSoftlyBeforeAnyModelIsLookedFor) {
    const mt::TempDir dir;
    const auto movie = mt::makeMovie(dir.path() / "screen.mp4", 1.0);
    auto recognizer = std::make_unique<ScriptedRecognizer>();
    const ScriptedRecognizer& scripted = *recognizer;
    Provider provider(std::move(recognizer));
    try {
        (void)provider.transcribe(movie, {.locale = "en-US"});
        FAIL() << "no failure";
    } catch (const IntelligenceError& e) {
        EXPECT_EQ(
            std::string(e.what()),
            "This file has no audio track to transcribe (common for silent screen recordings). Import a "
            "clip with speech, or add a separate audio source.");
        EXPECT_TRUE(e.isSoftTranscriptionFailure());
    }
    EXPECT_TRUE(scripted.ensuredLocale.empty());
}

TEST(TranscriptionEngine, comesFromThePreferencesUnlessChosen) {
    const mt::TempDir dir;
    PreferencesStore preferences(dir.path() / "preferences.json");
    EXPECT_EQ(transcriptionEngine(preferences), TranscriptionEngine::pocketsphinx);
    EXPECT_EQ(makeTranscriptionProvider(preferences)->supportedLocales(), std::vector<std::string>{"en-US"});

    preferences.set("morvane.transcriptionEngine", "whisper");
    EXPECT_EQ(transcriptionEngine(preferences), TranscriptionEngine::whisper);
    EXPECT_EQ(makeTranscriptionProvider(preferences)->supportedLocales().size(), 31u);
    EXPECT_EQ(makeTranscriptionProvider(preferences, {.engine = TranscriptionEngine::pocketsphinx})
                  ->supportedLocales()
                  .size(),
              1u);

    preferences.set("morvane.transcriptionEngine", "dictaphone");  // unknown: the default
    EXPECT_EQ(transcriptionEngine(preferences), TranscriptionEngine::pocketsphinx);
}
