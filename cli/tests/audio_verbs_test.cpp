// The audio verbs as users run them: silences, loudness, waveform.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "morvane/engine/support/json.hpp"
#include "morvane/testing/process.hpp"
#include "morvane/testing/synthetic_media.hpp"
#include "morvane/testing/temp_dir.hpp"

namespace morvane {
namespace {

using namespace morvane::testing;

Json jsonOf(const ProcessResult& result) {
    return parseJson(result.out, "stdout");
}

TEST(MorvaneAudioVerbs, silencesListsThePausesOfAFile) {
    const TempDir dir;
    const auto wav =
        writeWav(dir.path() / "gaps.wav",
                 concat({tone(440, 0.5, 1.0, 44100), silence(0.5, 44100), tone(440, 0.5, 1.0, 44100),
                         silence(0.1, 44100), tone(440, 0.5, 1.0, 44100)}),
                 1, 44100);
    auto result = runMorvane({"silences", wav.string(), "--json"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    Json spans = jsonOf(result);
    ASSERT_EQ(spans.size(), 2u);
    EXPECT_EQ(spans[0]["start"], "57000/60000s");
    EXPECT_EQ(spans[0]["end"], "93000/60000s");
    EXPECT_DOUBLE_EQ(spans[1]["startSeconds"].get<double>(), 2.45);

    // A longer minimum drops the short pause; a threshold above the tone's level makes everything silent.
    result = runMorvane({"silences", wav.string(), "--json", "--min", "0.3"});
    EXPECT_EQ(jsonOf(result).size(), 1u);
    result = runMorvane({"silences", wav.string(), "--json", "--threshold-db", "0"});
    ASSERT_EQ(jsonOf(result).size(), 1u);
    EXPECT_EQ(jsonOf(result)[0]["start"], "0/60000s");

    result = runMorvane({"silences", wav.string()});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.out.find("     0.950 -      1.550  (0.600 s)\n"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("2 pauses\n"), std::string::npos) << result.out;
}

TEST(MorvaneAudioVerbs, loudnessAndWaveformDescribeTheAudio) {
    const TempDir dir;
    const auto toneWav = writeWav(dir.path() / "tone.wav", tone(997, 0.1, 3.0, 48000), 1, 48000);
    auto result = runMorvane({"loudness", toneWav.string(), "--json"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NEAR(jsonOf(result)["integratedLUFS"].get<double>(), -23.70, 0.03);
    result = runMorvane({"loudness", toneWav.string()});
    EXPECT_EQ(result.out, "Integrated loudness: -23.70 LUFS\n");

    const auto quiet = writeWav(dir.path() / "quiet.wav", silence(1.0, 48000), 1, 48000);
    result = runMorvane({"loudness", quiet.string(), "--json"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_TRUE(jsonOf(result)["integratedLUFS"].is_null());

    result = runMorvane({"waveform", toneWav.string(), "--bins", "8", "--json"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const Json envelope = jsonOf(result);
    EXPECT_EQ(envelope["mins"].size(), 8u);
    EXPECT_EQ(envelope["maxs"].size(), 8u);
    EXPECT_DOUBLE_EQ(envelope["durationSeconds"].get<double>(), 3.0);
    result = runMorvane({"waveform", toneWav.string()});
    EXPECT_EQ(result.out, "1024 bins over 3.00 s\n");
    EXPECT_EQ(runMorvane({"waveform", toneWav.string(), "--bins", "0"}).exitCode, 2);
}

TEST(MorvaneAudioVerbs, badInputsFailWithTheEngineMessage) {
    const TempDir dir;
    const auto movie = makeMovie(dir.path() / "mute.mp4", 1.0);
    const auto notes = dir.write("notes.mp4", "not a movie");
    struct Case {
        std::vector<std::string> args;
        std::string message;
    } cases[] = {
        {{"silences", (dir.path() / "gone.mp4").string()},
         "morvane: Missing file: " + (dir.path() / "gone.mp4").string()},
        {{"loudness", movie.string()}, "morvane: Asset has no audio track"},
        {{"silences", notes.string()}, "morvane: Media reader failed: Could not open notes.mp4: "},
    };
    for (const auto& c : cases) {
        const auto result = runMorvane(c.args);
        EXPECT_EQ(result.exitCode, 1) << c.args[0];
        EXPECT_TRUE(result.err.starts_with(c.message)) << result.err;
        EXPECT_TRUE(result.out.empty()) << result.out;
    }
}

TEST(MorvaneAudioVerbs, ctrlCStopsALongRunCleanlyWithTheBarShown) {
    const TempDir dir;
    // Five hours of silence: seconds of work on any machine, and no time to make.
    const auto longFile = writeLongSilentWav(dir.path() / "long.wav", 5 * 3600.0);
    // Ctrl-C arrives once the bar is on screen, however slow the machine is today (up to half a minute).
    const std::string script =
        "MORVANE_PROGRESS=always \"$0\" silences \"$1\" 2>\"$2\" & pid=$!; "
        "for i in $(seq 600); do grep -q 'silences \\[' \"$2\" && break; sleep 0.05; done; "
        "kill -INT $pid; wait $pid; rc=$?; cat \"$2\" >&2; exit $rc";
    const auto result = runProcess({"/bin/bash", "-c", script, (binaryDir() / "bin" / "morvane").string(),
                                    longFile.string(), (dir.path() / "err.txt").string()});
    EXPECT_EQ(result.exitCode, 130) << result.err;
    EXPECT_NE(result.err.find("silences ["), std::string::npos) << result.err;
    EXPECT_NE(result.err.find("morvane: Cancelled\n"), std::string::npos) << result.err;
    EXPECT_TRUE(result.out.empty());
}

}  // namespace
}  // namespace morvane
