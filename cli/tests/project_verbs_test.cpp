// `morvane project` and `morvane cut` on a project bundle, as a user runs them.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "morvane/engine/plan/edit_plan_coding.hpp"
#include "morvane/engine/support/files.hpp"
#include "morvane/testing/process.hpp"
#include "morvane/testing/synthetic_media.hpp"
#include "morvane/testing/temp_dir.hpp"
#include "own_user_folders.hpp"

namespace morvane {
namespace {

namespace fs = std::filesystem;
using testing::runMorvane;

class MorvaneProjectVerbs : public testing::OwnUserFoldersTest {
  protected:
    Json info(const fs::path& bundle) {
        const auto result = runMorvane({"project", "info", bundle.string(), "--json"});
        EXPECT_EQ(result.exitCode, 0) << result.err;
        return parseJson(result.out, "info");
    }
};

TEST_F(MorvaneProjectVerbs, newImportAndInfoLeaveTheOriginalsAsTheyWere) {
    const fs::path movie = testing::makeMovie(
        dir.path() / "talk.mp4", 3.0,
        testing::writeWav(dir.path() / "talk.wav", testing::tone(220, 0.5, 3.0, 48000), 1, 48000));
    const fs::path voice =
        testing::writeWav(dir.path() / "voice.wav", testing::tone(330, 0.5, 2.0, 48000), 1, 48000);
    const std::string movieBytes = readWholeFile(movie);
    const std::string voiceBytes = readWholeFile(voice);

    auto result = runMorvane({"project", "new", (dir.path() / "Demo").string()});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const fs::path bundle = dir.path() / "Demo.morvane";
    EXPECT_EQ(result.out, "Created " + bundle.string() + "\n");
    result = runMorvane({"project", "new", bundle.string()});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, "morvane: A project already exists at " + bundle.string() + "\n");

    const fs::path notes = dir.write("notes.txt", "not media");
    result =
        runMorvane({"project", "import", bundle.string(), movie.string(), notes.string(), voice.string()});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.out.find("[system] Primary media: talk.mp4 (00:03).\n"), std::string::npos)
        << result.out;
    EXPECT_NE(result.out.find("[system] Media bin: voice.wav (00:02).\n"), std::string::npos) << result.out;
    EXPECT_EQ(result.err, "morvane: Import failed: Unsupported media type.\n");

    const Json project = info(bundle);
    EXPECT_EQ(project["name"], "Demo");
    ASSERT_EQ(project["mediaBin"].size(), 2u);
    EXPECT_EQ(project["mediaBin"][0]["id"], "src1");
    EXPECT_EQ(project["mediaBin"][0]["kind"], "primary");
    EXPECT_EQ(project["mediaBin"][0]["urlPath"], "Media/talk.mp4");
    EXPECT_EQ(project["mediaBin"][0]["online"], true);
    EXPECT_EQ(project["mediaBin"][1]["kind"], "audio");
    EXPECT_EQ(project["mediaBin"][1]["urlPath"], "Media/voice.wav");
    EXPECT_EQ(project["timelineClips"]["source"], 1);
    EXPECT_EQ(readWholeFile(bundle / "Media" / "talk.mp4"), movieBytes);
    EXPECT_EQ(readWholeFile(movie), movieBytes);
    EXPECT_EQ(readWholeFile(voice), voiceBytes);

    // The project is remembered as a recent one; the failure is in the launch log.
    const Json preferences =
        parseJson(readWholeFile(dir.path() / "config" / "morvane" / "preferences.json"), "prefs");
    EXPECT_EQ(preferences["morvane.recentProjects"], Json::array({bundle.string()}));
    const std::string log = readWholeFile(dir.path() / "data" / "Morvane" / "launch.log");
    EXPECT_NE(log.find("Z Import failed: Unsupported media type.\n"), std::string::npos) << log;

    // A moved copy shows as offline.
    fs::rename(bundle / "Media" / "voice.wav", dir.path() / "voice-moved.wav");
    EXPECT_EQ(info(bundle)["mediaBin"][1]["online"], false);
    EXPECT_NE(runMorvane({"project", "info", bundle.string()}).out.find("OFFLINE"), std::string::npos);
    EXPECT_EQ(info(bundle)["status"], "1 media file(s) need relinking.");
}

TEST_F(MorvaneProjectVerbs, damagedOrNewerProjectsAreRefusedWithTheReason) {
    const fs::path bundle = dir.path() / "Old.morvane";
    ASSERT_EQ(runMorvane({"project", "new", bundle.string()}).exitCode, 0);
    struct Case {
        const char* manifest;
        const char* message;
    } cases[] = {
        {R"({"name": "Old", "version": 7})",
         "morvane: This project requires a newer version of Morvane (format v7).\n"},
        {R"({"name": "Old", "timeline": {"tracks": 3}})",
         "morvane: project.json: /timeline/frameDuration: required key is missing\n"},
        {R"({"name": "Ol)", "morvane: project.json: not valid JSON: "},
    };
    for (const auto& c : cases) {
        writeFileAtomically(bundle / "project.json", c.manifest);
        const auto result = runMorvane({"project", "info", bundle.string()});
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_TRUE(result.err.starts_with(c.message)) << result.err;
        EXPECT_EQ(readWholeFile(bundle / "project.json"), c.manifest);
    }
    const auto result = runMorvane({"project", "info", dir.path().string()});
    EXPECT_EQ(result.err, "morvane: Not a Morvane project: " + dir.path().filename().string() + "\n");
}

TEST_F(MorvaneProjectVerbs, cutOnAProjectKeepsWhatCutOnTheRecordingKeepsAndSavesIt) {
    const fs::path recording = dir.path() / "talk.wav";
    const auto made = testing::runProcess({"/usr/bin/ffmpeg", "-loglevel", "error", "-y", "-f", "lavfi", "-i",
                                           "sine=frequency=220:duration=41", "-ac", "1", recording.string()});
    ASSERT_EQ(made.exitCode, 0) << made.err;
    const std::string recordingBytes = readWholeFile(recording);
    const std::string transcriptPath = (testing::sourceDir() / "samples" / "script.transcript.json").string();

    // The recording and its transcript as a project: imported, then transcribed as a recognizer would.
    const fs::path bundle = dir.path() / "Talk.morvane";
    ASSERT_EQ(runMorvane({"project", "new", bundle.string()}).exitCode, 0);
    ASSERT_EQ(runMorvane({"project", "import", bundle.string(), recording.string()}).exitCode, 0);
    const auto segmented = runMorvane(
        {"segment", transcriptPath, "--media", (bundle / "Media" / "talk.wav").string(), "--json"});
    ASSERT_EQ(segmented.exitCode, 0) << segmented.err;
    Json manifest = parseJson(readWholeFile(bundle / "project.json"), "project.json");
    manifest["transcript"] = parseJson(readWholeFile(transcriptPath), "transcript");
    manifest["segments"] = parseJson(segmented.out, "segments")["segments"];
    manifest["transcriptSourceID"] = "src1";
    writeFileAtomically(bundle / "project.json", dumpJson(manifest));

    const fs::path filePlan = dir.path() / "file.json";
    const fs::path projectPlan = dir.path() / "project.json";
    auto result = runMorvane({"cut", recording.string(), "--transcript", transcriptPath, "--command",
                              "cleanUp", "--accept", "--plan-out", filePlan.string()});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    result = runMorvane(
        {"cut", bundle.string(), "--command", "cleanUp", "--accept", "--plan-out", projectPlan.string()});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.out.find("Status: Cut accepted — Storyline updated."), std::string::npos) << result.out;

    // The same cut, from a copy in the bundle.
    auto plan = engine::EditPlanCoding::decode(readWholeFile(projectPlan), "project.json");
    const auto expected = engine::EditPlanCoding::decode(readWholeFile(filePlan), "file.json");
    ASSERT_EQ(plan.sources.size(), 1u);
    EXPECT_EQ(plan.sources[0].url, fileURL(bundle / "Media" / "talk.wav"));
    plan.sources[0].url = expected.sources[0].url;
    EXPECT_EQ(plan, expected);

    // Saved into the bundle: the accepted cut, its checkpoint and the chat reopen with it.
    const Json project = info(bundle);
    EXPECT_EQ(project["checkpoints"].size(), 1u);
    EXPECT_GE(project["chatMessages"].get<int>(), 3);
    EXPECT_EQ(project["timelineClips"]["program"], 0);
    EXPECT_EQ(readWholeFile(recording), recordingBytes);

    result = runMorvane({"cut", bundle.string(), "--transcript", transcriptPath, "--command", "cleanUp"});
    EXPECT_EQ(result.exitCode, 2);  // a project keeps its own transcript
}

TEST_F(MorvaneProjectVerbs, transcribingAnEmptyProjectOrAnUnknownSourceIsRefused) {
    const fs::path bundle = dir.path() / "Quiet.morvane";
    ASSERT_EQ(runMorvane({"project", "new", bundle.string()}).exitCode, 0);
    auto result = runMorvane({"project", "transcribe", bundle.string()});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, "morvane: Import media first.\n");
    result = runMorvane({"project", "transcribe", bundle.string(), "--source", "src4"});
    EXPECT_EQ(result.exitCode, 2);
}

// pocketsphinx over flite speech: slow, hence a suite of its own labelled media.
using MorvaneProjectVerbsMedia = MorvaneProjectVerbs;

TEST_F(MorvaneProjectVerbsMedia, transcribeRecognisesTheSpeechAndKeepsItInTheBundle) {
    const fs::path speech = testing::speak(dir.path() / "speech.wav",
                                           "Today we look at the export settings. Then we render the movie.");
    const fs::path movie = testing::makeMovie(dir.path() / "talk.mp4", 5.0, speech);
    const fs::path bundle = dir.path() / "Talk.morvane";
    ASSERT_EQ(runMorvane({"project", "new", bundle.string()}).exitCode, 0);
    ASSERT_EQ(runMorvane({"project", "import", bundle.string(), movie.string()}).exitCode, 0);

    const auto result = runMorvane({"project", "transcribe", bundle.string(), "--locale", "en-US"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const Json project = info(bundle);
    EXPECT_EQ(project["transcriptSourceID"], "src1");
    EXPECT_GE(project["words"].get<int>(), 8) << result.out;
    EXPECT_GE(project["segments"].get<int>(), 1);

    // The words come back with the project, in the language asked for.
    const Json document = parseJson(readWholeFile(bundle / "project.json"), "project.json");
    EXPECT_NE(document.dump().find("\"en-US\""), std::string::npos);
}

}  // namespace
}  // namespace morvane
