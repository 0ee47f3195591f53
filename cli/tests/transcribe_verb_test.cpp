// morvane transcribe as users run it. The whisper engine runs against a stand-in for whisper.cpp's
// program (a shell script written here): no whisper model weights exist on the machines that build Morvane.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "morvane/engine/support/files.hpp"
#include "morvane/engine/support/json.hpp"
#include "morvane/intelligence/models/transcript.hpp"
#include "morvane/testing/process.hpp"
#include "morvane/testing/synthetic_media.hpp"
#include "morvane/testing/temp_dir.hpp"

namespace morvane {
namespace {

using namespace morvane::testing;
namespace fs = std::filesystem;

// whisper.cpp's full JSON output for one short segment.
constexpr const char* kWhisperOutput =
    R"({"transcription": [{"offsets": {"from": 0, "to": 1500}, "text": " Hallo, äh, Welt.", "tokens": [
        {"text": " Hallo", "offsets": {"from": 100, "to": 500}, "p": 0.9},
        {"text": ",", "offsets": {"from": 500, "to": 520}, "p": 0.8},
        {"text": " äh", "offsets": {"from": 600, "to": 900}, "p": 0.5},
        {"text": ",", "offsets": {"from": 900, "to": 920}, "p": 0.8},
        {"text": " Welt", "offsets": {"from": 1000, "to": 1400}, "p": 0.9},
        {"text": ".", "offsets": {"from": 1400, "to": 1450}, "p": 0.9}]}]})";

// A folder with preferences that choose whisper, a stand-in program doing `body`, and a model file.
struct WhisperSetup {
    TempDir dir;
    fs::path program;
    explicit WhisperSetup(const std::string& body) {
        dir.write("out.json", kWhisperOutput);
        program = dir.write("whisper-cli",
                            "#!/bin/sh\n"
                            "printf '%s\\n' \"$@\" > '" +
                                (dir.path() / "args").string() +
                                "'\n"
                                "while [ $# -gt 0 ]; do case \"$1\" in -of) out=\"$2\"; shift;; esac; "
                                "shift; done\n" +
                                body + "\n");
        fs::permissions(program, fs::perms::owner_all);
        const fs::path model = dir.write("ggml-base.bin", "weights");
        fs::create_directories(dir.path() / "config" / "morvane");
        dir.write("config/morvane/preferences.json",
                  dumpJson(Json{{"morvane.transcriptionEngine", "whisper"},
                                {"morvane.whisperExecutable", program.string()},
                                {"morvane.whisperModelPath", model.string()}}));
    }
    [[nodiscard]] ProcessResult run(const std::vector<std::string>& args,
                                    const std::string& timeout = "") const {
        std::vector<std::string> argv{"/usr/bin/env", "XDG_CONFIG_HOME=" + (dir.path() / "config").string()};
        if (!timeout.empty())
            argv.insert(argv.end(), {"/usr/bin/timeout", "--preserve-status", "-s", "INT", timeout});
        argv.push_back((binaryDir() / "bin" / "morvane").string());
        argv.insert(argv.end(), args.begin(), args.end());
        return runProcess(argv);
    }
};

intelligence::TranscriptDocument readTranscript(const fs::path& file) {
    const Json json = parseJson(readWholeFile(file), file.string());
    return JsonReader(json, file.string()).get<intelligence::TranscriptDocument>();
}

TEST(MorvaneTranscribeVerb, writesTheTranscriptOfSpeech) {
    const TempDir dir;
    const fs::path speech = speak(dir.path() / "hello.wav", "Hello and welcome back to the channel.");
    const fs::path out = dir.path() / "hello.transcript.json";

    const auto result = runMorvane({"transcribe", speech.string(), "-o", out.string()});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const auto transcript = readTranscript(out);
    EXPECT_EQ(transcript.locale, "en-US");
    EXPECT_GE(transcript.words.size(), 4u);
    EXPECT_NE(result.out.find(transcript.fullText + "\n"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("Written to " + out.string()), std::string::npos) << result.out;

    const auto json = runMorvane({"transcribe", speech.string(), "--json"});
    ASSERT_EQ(json.exitCode, 0) << json.err;
    EXPECT_EQ(JsonReader(parseJson(json.out, "stdout"), "stdout").get<intelligence::TranscriptDocument>(),
              transcript);
}

TEST(MorvaneTranscribeVerb, runsTheWhisperProgramTheUserChose) {
    const WhisperSetup whisper("cp \"$(dirname \"$0\")/out.json\" \"$out.json\"");
    const fs::path audio = writeWav(whisper.dir.path() / "talk.wav", tone(220, 0.3, 1.5, 16000), 1, 16000);
    const fs::path out = whisper.dir.path() / "talk.transcript.json";

    const auto result = whisper.run({"transcribe", audio.string(), "--locale", "de-DE", "-o", out.string()});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const auto transcript = readTranscript(out);
    EXPECT_EQ(transcript.fullText, "Hallo, äh, Welt.");
    ASSERT_EQ(transcript.words.size(), 3u);
    EXPECT_EQ(transcript.words[1].text, "äh,");
    EXPECT_EQ(transcript.locale, "de-DE");
    EXPECT_NE(readWholeFile(whisper.dir.path() / "args").find("\n-l\nde\n"), std::string::npos);

    // The engine named on the command line wins over the preferences: pocketsphinx knows no German.
    const auto refused =
        whisper.run({"transcribe", audio.string(), "--locale", "de-DE", "--engine", "pocketsphinx"});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_NE(refused.err.find("morvane: Speech assets unavailable for de-DE."), std::string::npos)
        << refused.err;
}

TEST(MorvaneTranscribeVerb, ctrlCStopsTheRecogniserAndWritesNothing) {
    const WhisperSetup whisper("sleep 30");
    const fs::path audio = writeWav(whisper.dir.path() / "talk.wav", tone(220, 0.3, 1.5, 16000), 1, 16000);
    const fs::path out = whisper.dir.path() / "talk.transcript.json";
    const auto result = whisper.run({"transcribe", audio.string(), "-o", out.string()}, "1.5");
    EXPECT_EQ(result.exitCode, 130) << result.err;
    EXPECT_NE(result.err.find("morvane: Cancelled\n"), std::string::npos) << result.err;
    EXPECT_FALSE(fs::exists(out));
}

TEST(MorvaneTranscribeVerb, failsWithTheReason) {
    const TempDir dir;
    const fs::path silent = writeWav(dir.path() / "silent.wav", silence(2.0, 16000), 1, 16000);
    const fs::path out = dir.path() / "out.json";
    struct Case {
        std::vector<std::string> args;
        int exitCode;
        std::string message;
    };
    const Case cases[] = {
        {{"transcribe", (dir.path() / "gone.mp4").string()}, 1, "morvane: Couldn’t find that media file ("},
        {{"transcribe", silent.string(), "-o", out.string()},
         1,
         "morvane: No speech could be analyzed in this audio — the track may be silent or empty.\n"},
        {{"transcribe", silent.string(), "--engine", "dictaphone"}, 2, "--engine: dictaphone not in"},
    };
    for (const Case& c : cases) {
        const auto result = runMorvane(c.args);
        EXPECT_EQ(result.exitCode, c.exitCode) << c.message;
        EXPECT_NE(result.err.find(c.message), std::string::npos) << result.err;
        EXPECT_TRUE(result.out.empty()) << result.out;
    }
    EXPECT_FALSE(fs::exists(out));
}

}  // namespace
}  // namespace morvane
