// pocketsphinx on speech made by flite: slow (each decoder loads a large model), so labelled media.

#include "morvane/intelligence/transcription/pocketsphinx_recognizer.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <map>

#include "morvane/intelligence/support/text.hpp"
#include "morvane/intelligence/transcription/speech_recognizer_transcription_provider.hpp"
#include "morvane/testing/scoped_environment.hpp"
#include "morvane/testing/synthetic_media.hpp"
#include "morvane/testing/temp_dir.hpp"

using namespace morvane;
using namespace morvane::intelligence;
namespace fs = std::filesystem;
namespace mt = morvane::testing;

namespace {

constexpr const char* kScript[] = {
    "Welcome back to the channel.",
    "Today we are looking at a quick way to clean up a long recording.",
    "First, drop the file onto the window and wait for the transcript.",
};

// The script's sentences spoken with a pause of `pauseSeconds` after each, as one 16 kHz WAV.
fs::path talk(const mt::TempDir& dir, double pauseSeconds = 0.8, int repeats = 1) {
    std::vector<std::string> parts;
    int n = 0;
    for (int r = 0; r < repeats; ++r) {
        for (const char* sentence : kScript) {
            const fs::path wav = mt::speak(dir.path() / ("s" + std::to_string(n++) + ".wav"), sentence);
            parts.push_back(wav.string());
        }
    }
    std::vector<float> samples;
    for (const std::string& part : parts) {
        engine::PCMBuffer speech = engine::PCMSampleReader::readMonoFloat(part, 16000);
        samples.insert(samples.end(), speech.samples.begin(), speech.samples.end());
        const auto pause = mt::silence(pauseSeconds, 16000);
        samples.insert(samples.end(), pause.begin(), pause.end());
    }
    return mt::writeWav(dir.path() / "talk.wav", samples, 1, 16000, mt::WavEncoding::pcm16);
}

std::vector<std::string> scriptWords() {
    std::vector<std::string> words;
    for (const char* sentence : kScript) {
        for (std::string_view piece : splitAtWhitespace(sentence))
            words.emplace_back(lowercased(trimmingPunctuation(piece)));
    }
    return words;
}

// How many of `expected` come out in order (the longest common subsequence).
std::size_t wordsHeardInOrder(const std::vector<std::string>& expected,
                              const TranscriptDocument& transcript) {
    std::vector<std::string> heard;
    for (const TranscriptWord& word : transcript.words)
        heard.emplace_back(lowercased(trimmingPunctuation(word.text)));
    std::vector<std::vector<std::size_t>> common(expected.size() + 1,
                                                 std::vector<std::size_t>(heard.size() + 1));
    for (std::size_t i = 1; i <= expected.size(); ++i) {
        for (std::size_t j = 1; j <= heard.size(); ++j) {
            common[i][j] = expected[i - 1] == heard[j - 1] ? common[i - 1][j - 1] + 1
                                                           : std::max(common[i - 1][j], common[i][j - 1]);
        }
    }
    return common[expected.size()][heard.size()];
}

TranscriptDocument transcribe(const fs::path& media, PocketSphinxOptions options = {},
                              const ProgressCallback& progress = {}, std::stop_token stop = {}) {
    SpeechRecognizerTranscriptionProvider provider(
        std::make_unique<PocketSphinxRecognizer>(std::move(options)));
    return provider.transcribe(media, {.locale = "en-US"}, progress, stop);
}

// A temporary folder of the test's own, so that what the recogniser leaves there can be counted.
struct PrivateTemporaryFolder {
    mt::TempDir dir;
    fs::path folder = dir.path() / "tmp";
    mt::ScopedEnvironment environment;
    PrivateTemporaryFolder() {
        fs::create_directories(folder);
        environment.set("TMPDIR", folder.c_str());
    }
    [[nodiscard]] bool empty() const { return fs::is_empty(folder); }
};

}  // namespace

TEST(PocketSphinxRecognizerMedia, transcribesSpeechIntoOrderedTimedWords) {
    const mt::TempDir dir;
    const fs::path movie = mt::makeMovie(dir.path() / "talk.mp4", 14.0, talk(dir));  // the talk lasts 12 s
    const PrivateTemporaryFolder temporary;
    std::vector<double> shares;
    const TranscriptDocument transcript =
        transcribe(movie, {}, [&](double share) { shares.push_back(share); });

    // flite is no person, and pocketsphinx no perfect listener; most of the words come through.
    const auto expected = scriptWords();
    EXPECT_GE(wordsHeardInOrder(expected, transcript), expected.size() * 3 / 4) << transcript.fullText;
    EXPECT_EQ(transcript.locale, "en-US");
    EXPECT_GT(transcript.durationSeconds, 11.0);
    double last = 0.0;
    for (std::size_t i = 0; i < transcript.words.size(); ++i) {
        const TranscriptWord& word = transcript.words[i];
        EXPECT_EQ(word.id, static_cast<int>(i));
        EXPECT_EQ(word.start.timescale, 600);
        EXPECT_EQ(word.end.timescale, 600);
        EXPECT_GE(word.start.seconds(), last) << word.text;
        EXPECT_GT(word.end, word.start) << word.text;
        ASSERT_TRUE(word.confidence);
        EXPECT_GE(*word.confidence, 0.0);
        EXPECT_LE(*word.confidence, 1.0);
        EXPECT_EQ(word.text.find_first_of("()[]<>+ "), std::string::npos) << word.text;
        last = word.end.seconds();
    }
    EXPECT_LE(last, transcript.durationSeconds);
    EXPECT_TRUE(transcript.fullText.starts_with(transcript.words.front().text)) << transcript.fullText;
    ASSERT_FALSE(shares.empty());
    EXPECT_TRUE(std::is_sorted(shares.begin(), shares.end()));
    EXPECT_DOUBLE_EQ(shares.back(), 1.0);
    EXPECT_TRUE(temporary.empty());
}

TEST(PocketSphinxRecognizerMedia, decodesTheSameOnOneThreadAsOnSeveral) {
    const mt::TempDir dir;
    const fs::path wav = talk(dir, 0.6);
    EXPECT_EQ(transcribe(wav, {.threads = 1}), transcribe(wav, {.threads = 3}));
}

TEST(PocketSphinxRecognizerMedia, aSilentVideoFailsSoftly) {
    const mt::TempDir dir;
    const fs::path movie =
        mt::makeMovie(dir.path() / "quiet.mp4", 2.0,
                      mt::writeWav(dir.path() / "quiet.wav", mt::silence(2.0, 48000), 1, 48000));
    try {
        (void)transcribe(movie);
        FAIL() << "no failure";
    } catch (const IntelligenceError& e) {
        EXPECT_EQ(std::string(e.what()),
                  "No speech could be analyzed in this audio — the track may be silent or empty.");
        EXPECT_TRUE(e.isSoftTranscriptionFailure());
    }
}

TEST(PocketSphinxRecognizerMedia, aStopMidFileDeliversNothingAndLeavesNothingBehind) {
    const mt::TempDir dir;
    const fs::path wav = talk(dir, 0.5, 4);
    const PrivateTemporaryFolder temporary;
    std::stop_source stop;
    std::vector<double> shares;
    EXPECT_THROW((void)transcribe(
                     wav, {},
                     [&](double share) {
                         shares.push_back(share);
                         if (share > 0.2) stop.request_stop();
                     },
                     stop.get_token()),
                 OperationCancelled);
    ASSERT_FALSE(shares.empty());
    EXPECT_LT(shares.back(), 1.0);  // stopped mid-file, not at the end
    EXPECT_TRUE(temporary.empty());
}

TEST(PocketSphinxRecognizer, takesALoneSyllableHeldLongForAHesitation) {
    // A stand-in language model: how likely each word is as a whole utterance (log10), as the US English
    // model rates them; anything else is rare.
    const std::map<std::string, double, std::less<>> alone{{"um", -3.1},  {"uh", -3.0},  {"am", -3.8},
                                                           {"bad", -3.6}, {"and", -2.2}, {"the", -2.6}};
    const auto saidAlone = [&](std::string_view word) {
        const auto found = alone.find(word);
        return found != alone.end() ? found->second : -9.0;
    };
    constexpr double kAlone = std::numeric_limits<double>::infinity();
    struct Case {
        PocketSphinxRecognizer::HeardWord word;
        std::optional<std::string> expected;
    };
    const Case cases[] = {
        {{"am", "AE M", 0.6, kAlone, kAlone}, "um"},  // a held "um" heard as a word with a nasal
        {{"bad", "B AE D", 0.4, 0.3, 0.5}, "uh"},     // rarer alone than a hesitation
        {{"and", "AE N D", 0.4, kAlone, kAlone}, std::nullopt},       // likelier alone than a hesitation...
        {{"and", "AE N D", 0.6, kAlone, kAlone}, "um"},               // ...but not held that long
        {{"The", "DH AH", 0.4, kAlone, kAlone}, std::nullopt},        // compared lower case
        {{"am", "AE M", 0.2, kAlone, kAlone}, std::nullopt},          // too short to be held
        {{"am", "AE M", 0.6, 0.1, kAlone}, std::nullopt},             // runs on from the word before
        {{"am", "AE M", 0.6, kAlone, 0.2}, std::nullopt},             // runs into the word after
        {{"added", "AE D AH D", 0.6, kAlone, kAlone}, std::nullopt},  // two syllables
        {{"bright", "B R AY T", 0.6, kAlone, kAlone}, std::nullopt},  // too many sounds for a hesitation
        {{"wait", "W EY T", 0.6, kAlone, kAlone}, std::nullopt},      // means something said alone
        {{"uh", "AH", 0.6, kAlone, kAlone}, std::nullopt},            // a filler already
    };
    for (const Case& c : cases) {
        EXPECT_EQ(PocketSphinxRecognizer::hesitation(c.word, saidAlone), c.expected)
            << c.word.text << " " << c.word.seconds << " s";
    }
}

TEST(PocketSphinxRecognizer, knowsUSEnglishOnlyAndSaysWhereTheModelShouldBe) {
    PocketSphinxRecognizer recognizer;
    EXPECT_EQ(recognizer.supportedLocales(), std::vector<std::string>{"en-US"});
    EXPECT_NO_THROW(recognizer.ensureModel("en-US"));
    struct Case {
        PocketSphinxOptions options;
        const char* locale;
        std::string failure;
    };
    const Case cases[] = {
        {{}, "fr-FR", "Speech assets unavailable for fr-FR. The built-in recogniser knows US English only."},
        {{.modelDirectory = "/nonexistent/model"},
         "en-US",
         "Speech assets unavailable for en-US. Install Debian's pocketsphinx-en-us package"},
    };
    for (const Case& c : cases) {
        PocketSphinxRecognizer missing(c.options);
        try {
            missing.ensureModel(c.locale);
            ADD_FAILURE() << c.locale << ": no failure";
        } catch (const IntelligenceError& e) {
            EXPECT_TRUE(std::string(e.what()).starts_with(c.failure)) << e.what();
        }
    }
}
