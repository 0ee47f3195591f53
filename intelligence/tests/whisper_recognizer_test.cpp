// No whisper model weights exist on the machines that build Morvane, so these tests run the recogniser
// against a stand-in for whisper.cpp's command-line program: a small shell script, written by each test,
// that takes the real program's arguments and answers with output of the same shape (progress lines on
// stderr, the full JSON file), or fails, or hangs, as the test asks.

#include "morvane/intelligence/transcription/whisper_recognizer.hpp"

#include <gtest/gtest.h>

#include <fstream>
#include <thread>

#include "morvane/engine/support/files.hpp"
#include "morvane/testing/scoped_environment.hpp"
#include "morvane/testing/synthetic_media.hpp"
#include "morvane/testing/temp_dir.hpp"

using namespace morvane;
using namespace morvane::intelligence;
namespace fs = std::filesystem;
namespace mt = morvane::testing;

namespace {

// What whisper.cpp writes with -ojf, trimmed to what is read: two spoken segments around one of silence.
// Token texts are written as the program writes them: only quotes and backslashes escaped, so the bytes
// of "ü", split across two tokens, arrive raw and unpaired.
const std::string kOutput =
    "{\n"
    "\t\"systeminfo\": \"AVX = 1 | NEON = 0\",\n"
    "\t\"params\": {\"model\": \"ggml-base.bin\", \"language\": \"de\", \"translate\": false},\n"
    "\t\"result\": {\"language\": \"de\"},\n"
    "\t\"transcription\": [\n"
    "\t\t{\"offsets\": {\"from\": 0, \"to\": 2000}, \"text\": \" Hallo, \\\"Welt\\\" äh.\",\n"
    "\t\t \"tokens\": [\n"
    "\t\t\t{\"text\": \"[_BEG_]\", \"offsets\": {\"from\": 0, \"to\": 0}, \"id\": 50364, \"p\": 0.99},\n"
    "\t\t\t{\"text\": \" Hallo\", \"offsets\": {\"from\": 0, \"to\": 420}, \"id\": 1, \"p\": 0.9},\n"
    "\t\t\t{\"text\": \",\", \"offsets\": {\"from\": 420, \"to\": 500}, \"id\": 2, \"p\": 0.7},\n"
    "\t\t\t{\"text\": \" \\\"\", \"offsets\": {\"from\": 600, \"to\": 640}, \"id\": 3, \"p\": 0.5},\n"
    "\t\t\t{\"text\": \"Welt\\\"\", \"offsets\": {\"from\": 640, \"to\": 1000}, \"id\": 4, \"p\": 0.9},\n"
    "\t\t\t{\"text\": \" äh.\", \"offsets\": {\"from\": 1100, \"to\": 1400}, \"id\": 5, \"p\": 0.4},\n"
    "\t\t\t{\"text\": \"[_TT_100]\", \"offsets\": {\"from\": 2000, \"to\": 2000}, \"id\": 50464, \"p\": "
    "0.8}\n"
    "\t\t]},\n"
    "\t\t{\"offsets\": {\"from\": 2000, \"to\": 4000}, \"text\": \" [BLANK_AUDIO]\",\n"
    "\t\t \"tokens\": [\n"
    "\t\t\t{\"text\": \" [\", \"offsets\": {\"from\": 2000, \"to\": 2100}, \"id\": 6, \"p\": 0.9},\n"
    "\t\t\t{\"text\": \"BLANK_AUDIO\", \"offsets\": {\"from\": 2100, \"to\": 3900}, \"id\": 7, \"p\": 0.9},\n"
    "\t\t\t{\"text\": \"]\", \"offsets\": {\"from\": 3900, \"to\": 4000}, \"id\": 8, \"p\": 0.9}\n"
    "\t\t]},\n"
    "\t\t{\"offsets\": {\"from\": 4000, \"to\": 5000}, \"text\": \" Grüße\",\n"
    "\t\t \"tokens\": [\n"
    "\t\t\t{\"text\": \" Gr\xc3\", \"offsets\": {\"from\": 4000, \"to\": 4300}, \"id\": 9, \"p\": 0.6},\n"
    "\t\t\t{\"text\": \"\xbc\xc3\x9f"
    "e\", \"offsets\": {\"from\": 4300, \"to\": 4800}, \"id\": 10, \"p\": 0.8}\n"
    "\t\t]}\n"
    "\t]\n"
    "}\n";

RecognizedRun run(std::string text, double start, double end, double confidence) {
    return {std::move(text), engine::SecondsRange{start, end}, confidence, {}};
}

// A stand-in program in `dir`: records its arguments in "args", keeps a copy of the audio it was given as
// "seen.wav", then does `body` ("$out" is the output stem the recogniser asked for).
fs::path standIn(const mt::TempDir& dir, const std::string& body) {
    const fs::path program =
        dir.write("whisper-cli",
                  "#!/bin/sh\n"
                  "printf '%s\\n' \"$@\" > '" +
                      (dir.path() / "args").string() +
                      "'\n"
                      "while [ $# -gt 0 ]; do\n"
                      "  case \"$1\" in -of) out=\"$2\"; shift;; -f) wav=\"$2\"; shift;; esac; shift\n"
                      "done\n"
                      "cp \"$wav\" '" +
                      (dir.path() / "seen.wav").string() + "'\n" + body + "\n");
    fs::permissions(program, fs::perms::owner_all);
    return program;
}

std::vector<std::string> lines(const fs::path& file) {
    std::vector<std::string> out;
    std::ifstream in(file);
    for (std::string line; std::getline(in, line);)
        out.push_back(line);
    return out;
}

struct Workspace {
    mt::TempDir dir;
    fs::path model = dir.write("ggml-base.bin", "weights");
    fs::path wav = mt::writeWav(dir.path() / "talk.wav", mt::tone(220, 0.3, 1.25, 16000), 1, 16000);
};

std::vector<RecognitionResult> recognize(WhisperRecognizer& recognizer, const fs::path& wav,
                                         std::string_view locale, const ProgressCallback& progress = {},
                                         std::stop_token stop = {}) {
    engine::PCMStream audio(wav, recognizer.sampleRate());
    recognizer.ensureModel(locale);
    return recognizer.recognize(audio, locale, progress, stop);
}

}  // namespace

TEST(WhisperRecognizer, readsWordsFromTheFullJsonOutput) {
    const std::vector<RecognitionResult> expected{
        {{run("Hallo,", 0.0, 0.5, 0.8), run(" \"Welt\"", 0.6, 1.0, 0.7), run(" äh.", 1.1, 1.4, 0.4)}, {}, {}},
        {{run(" Grüße", 4.0, 4.8, 0.7)}, {}, {}},
    };
    const auto results = WhisperRecognizer::parseOutput(kOutput, "de-DE");
    ASSERT_EQ(results.size(), expected.size());
    for (std::size_t i = 0; i < results.size(); ++i) {
        ASSERT_EQ(results[i].runs.size(), expected[i].runs.size()) << "segment " << i;
        for (std::size_t j = 0; j < results[i].runs.size(); ++j) {
            const RecognizedRun& got = results[i].runs[j];
            const RecognizedRun& want = expected[i].runs[j];
            EXPECT_EQ(got.text, want.text);
            EXPECT_EQ(got.audioTimeRange, want.audioTimeRange) << want.text;
            EXPECT_NEAR(*got.confidence, *want.confidence, 1e-9) << want.text;
        }
    }
}

TEST(WhisperRecognizer, makesEachTokenAWordWhereWordsHaveNoBlanksBetweenThem) {
    // "こんにちは" as whisper.cpp may cut it: the last character's three bytes over two tokens.
    const std::string output =
        "{\"transcription\": [{\"offsets\": {\"from\": 0, \"to\": 900}, \"tokens\": [\n"
        "{\"text\": \"こん\", \"offsets\": {\"from\": 0, \"to\": 300}, \"p\": 0.9},\n"
        "{\"text\": \"にち\", \"offsets\": {\"from\": 300, \"to\": 600}, \"p\": 0.9},\n"
        "{\"text\": \"\xe3\x81\", \"offsets\": {\"from\": 600, \"to\": 700}, \"p\": 0.9},\n"
        "{\"text\": \"\xaf\", \"offsets\": {\"from\": 700, \"to\": 900}, \"p\": 0.9}]}]}";
    const auto results = WhisperRecognizer::parseOutput(output, "ja-JP");
    ASSERT_EQ(results.size(), 1u);
    std::vector<std::string> words;
    for (const RecognizedRun& r : results[0].runs)
        words.push_back(r.text);
    EXPECT_EQ(words, (std::vector<std::string>{"こん", "にち", "は"}));
    EXPECT_EQ(results[0].runs[2].audioTimeRange, (engine::SecondsRange{0.6, 0.9}));
}

TEST(WhisperRecognizer, failsOnOutputOfAnotherShape) {
    for (const char* output :
         {"not json at all", "{\"result\": {}}", "{\"transcription\": [{\"tokens\": 3}]}"}) {
        try {
            (void)WhisperRecognizer::parseOutput(output, "en-US");
            ADD_FAILURE() << output;
        } catch (const IntelligenceError& e) {
            EXPECT_EQ(e.kind(), IntelligenceError::Kind::decodeFailed);
            EXPECT_TRUE(
                std::string(e.what()).starts_with("The whisper.cpp program's output could not be read: "))
                << e.what();
        }
    }
}

TEST(WhisperRecognizer, speaksWhispersLanguageCodes) {
    const std::pair<const char*, const char*> cases[] = {
        {"en-US", "en"}, {"pt-BR", "pt"}, {"zh-TW", "zh"}, {"nb-NO", "no"}, {"he-IL", "he"}, {"fr_CA", "fr"},
    };
    for (const auto& [locale, code] : cases)
        EXPECT_EQ(WhisperRecognizer::languageCode(locale), code) << locale;
}

TEST(WhisperRecognizer, findsItsProgramAndModelOrSaysWhatToInstall) {
    const mt::TempDir dir;
    const fs::path program = standIn(dir, "exit 0");
    const fs::path multilingual = dir.write("ggml-base.bin", "weights");
    const fs::path english = dir.write("ggml-base.en.bin", "weights");
    const fs::path emptyFolder = dir.path() / "empty";
    fs::create_directories(emptyFolder / "Morvane" / "models");
    mt::ScopedEnvironment environment;
    environment.set("XDG_DATA_HOME", emptyFolder.c_str());
    environment.set("PATH", emptyFolder.c_str());

    struct Case {
        const char* name;
        WhisperOptions options;
        const char* locale;
        std::string failure;  // what what() holds; empty: no failure
    };
    const Case cases[] = {
        {"program and model named", {program, multilingual}, "fr-FR", ""},
        {"an English model for English", {program, english}, "en-GB", ""},
        {"an English model for French",
         {program, english},
         "fr-FR",
         "Speech assets unavailable for fr-FR. The whisper model ggml-base.en.bin knows English only."},
        {"a program that isn't there",
         {dir.path() / "nowhere" / "whisper-cli", multilingual},
         "de-DE",
         "Speech assets unavailable for de-DE. The whisper.cpp program "},
        {"no program on PATH",
         {"", multilingual},
         "de-DE",
         "Speech assets unavailable for de-DE. Install whisper.cpp's command-line program (whisper-cli)"},
        {"a model that isn't there",
         {program, dir.path() / "ggml-large.bin"},
         "it-IT",
         "Speech assets unavailable for it-IT. The whisper model "},
        {"no model in the models folder",
         {program, ""},
         "it-IT",
         "Speech assets unavailable for it-IT. Put a ggml whisper model file"},
    };
    for (const Case& c : cases) {
        WhisperRecognizer recognizer(c.options);
        try {
            recognizer.ensureModel(c.locale);
            EXPECT_TRUE(c.failure.empty()) << c.name << ": no failure";
        } catch (const IntelligenceError& e) {
            EXPECT_EQ(e.kind(), IntelligenceError::Kind::decodeFailed) << c.name;
            EXPECT_FALSE(c.failure.empty()) << c.name << ": " << e.what();
            EXPECT_NE(std::string(e.what()).find(c.failure), std::string::npos) << c.name << ": " << e.what();
        }
    }
}

TEST(WhisperRecognizer, looksForTheProgramOnThePathAndAModelThatKnowsTheLanguage) {
    const mt::TempDir dir;
    const fs::path program = standIn(dir, "cp '" + dir.path().string() + "/out.json' \"$out.json\"");
    mt::TempDir data;
    fs::create_directories(data.path() / "Morvane" / "models");
    data.write("Morvane/models/ggml-base.en.bin", "weights");  // first by name, but English only
    data.write("Morvane/models/ggml-small.bin", "weights");
    dir.write("out.json", kOutput);
    mt::ScopedEnvironment environment;
    environment.set("XDG_DATA_HOME", data.path().c_str());
    environment.set("PATH", (dir.path().string() + ":/usr/bin:/bin").c_str());

    WhisperRecognizer recognizer;
    const fs::path wav = mt::writeWav(dir.path() / "talk.wav", mt::tone(220, 0.3, 0.5, 16000), 1, 16000);
    EXPECT_EQ(recognize(recognizer, wav, "de-DE").size(), 2u);
    const auto args = lines(dir.path() / "args");
    const auto after = [&](const char* flag) {
        const auto at = std::find(args.begin(), args.end(), flag);
        return at != args.end() && at + 1 != args.end() ? *(at + 1) : std::string();
    };
    EXPECT_EQ(after("-m"), (data.path() / "Morvane" / "models" / "ggml-small.bin").string());
    EXPECT_EQ(after("-l"), "de");
    EXPECT_NE(std::find(args.begin(), args.end(), "-ojf"), args.end());
}

TEST(WhisperRecognizer, handsTheProgram16BitAudioAndReadsItsProgressAndOutput) {
    const Workspace setup;
    const fs::path program = standIn(setup.dir,
                                     "echo 'whisper_print_progress_callback: progress =  50%' >&2\n"
                                     "echo 'whisper_print_progress_callback: progress = 100%' >&2\n"
                                     "cp '" +
                                         setup.dir.path().string() + "/out.json' \"$out.json\"");
    setup.dir.write("out.json", kOutput);
    WhisperRecognizer recognizer({.executable = program, .modelPath = setup.model});
    std::vector<double> shares;
    const auto results =
        recognize(recognizer, setup.wav, "de-DE", [&](double share) { shares.push_back(share); });
    EXPECT_EQ(results.size(), 2u);

    // 1.25 s at 16 kHz, mono, 16-bit: a 44-byte header and 2 bytes a sample.
    const std::string seen = readWholeFile(setup.dir.path() / "seen.wav");
    EXPECT_EQ(seen.size(), 44u + 2u * 20000u);
    EXPECT_EQ(seen.substr(0, 4), "RIFF");
    EXPECT_EQ(seen[34], 16);  // bits a sample
    // The audio and the output lived in a folder of their own, gone now.
    const auto args = lines(setup.dir.path() / "args");
    const auto input = std::find(args.begin(), args.end(), "-f");
    ASSERT_NE(input, args.end());
    EXPECT_FALSE(fs::exists(fs::path(*(input + 1)).parent_path()));

    ASSERT_FALSE(shares.empty());
    EXPECT_NE(std::find_if(shares.begin(), shares.end(), [](double s) { return std::abs(s - 0.525) < 1e-9; }),
              shares.end());
    EXPECT_TRUE(std::is_sorted(shares.begin(), shares.end()));
    EXPECT_DOUBLE_EQ(shares.back(), 1.0);
}

TEST(WhisperRecognizer, saysWhyTheProgramFailedAndStopsItWhenAsked) {
    struct Case {
        const char* name;
        std::string body;
        std::string failure;
    };
    const Case cases[] = {
        {"a failure", "echo 'error: failed to initialize whisper context' >&2; exit 3",
         "The whisper.cpp program failed: error: failed to initialize whisper context"},
        {"no reason given", "exit 10", "The whisper.cpp program failed: exit code 10"},
        {"no output written", "echo 'error: failed to read WAV file' >&2; exit 0",
         "The whisper.cpp program wrote no transcript: error: failed to read WAV file"},
    };
    for (const Case& c : cases) {
        const Workspace setup;
        WhisperRecognizer recognizer({.executable = standIn(setup.dir, c.body), .modelPath = setup.model});
        try {
            (void)recognize(recognizer, setup.wav, "en-US");
            ADD_FAILURE() << c.name << ": no failure";
        } catch (const IntelligenceError& e) {
            EXPECT_EQ(std::string(e.what()), c.failure) << c.name;
        }
    }

    const Workspace setup;
    const fs::path started = setup.dir.path() / "started";
    WhisperRecognizer recognizer(
        {.executable = standIn(setup.dir, "touch '" + started.string() + "'; sleep 30"),
         .modelPath = setup.model});
    std::stop_source stop;
    std::jthread stopper([&] {
        while (!fs::exists(started))
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        stop.request_stop();
    });
    EXPECT_THROW((void)recognize(recognizer, setup.wav, "en-US", {}, stop.get_token()), OperationCancelled);
    const auto args = lines(setup.dir.path() / "args");
    const auto input = std::find(args.begin(), args.end(), "-f");
    ASSERT_NE(input, args.end());
    EXPECT_FALSE(fs::exists(fs::path(*(input + 1)).parent_path()));
}
