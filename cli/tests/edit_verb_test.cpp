// The main job from the terminal, `morvane edit`, on the bundled sample: a movie of the
// kept program's length with captions FFmpeg reads back, kept as a project; and the mistakes that must
// stop it before anything is written.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "morvane/engine/support/files.hpp"
#include "morvane/engine/support/json.hpp"
#include "morvane/testing/process.hpp"
#include "morvane/testing/temp_dir.hpp"
#include "own_user_folders.hpp"

namespace morvane {
namespace {

namespace fs = std::filesystem;
using testing::runMorvane;
using testing::runProcess;

double seconds(const Json& time) {
    return time["value"].get<double>() / time["timescale"].get<double>();
}

class MorvaneEdit : public testing::OwnUserFoldersTest {
  protected:
    static fs::path sample() { return testing::sourceDir() / "samples" / "talk.mp4"; }
};

using MorvaneEditMedia = MorvaneEdit;

TEST_F(MorvaneEditMedia, cleanUpMakesAMovieOfTheKeptLengthWithCaptionsAndAProject) {
    ASSERT_TRUE(fs::exists(sample())) << "the build makes " << sample();
    const fs::path out = dir.path() / "cut";
    fs::create_directories(out);
    const fs::path movie = out / "talk-cut.mp4";
    const fs::path captions = out / "talk-cut.srt";
    // The smallest canvas keeps the encode short.
    const auto result =
        runMorvane({"edit", sample().string(), "--command", "cleanUp", "-o", movie.string(), "--project",
                    (out / "Talk.morvane").string(), "--preset", "youtube_480", "--json"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const Json summary = parseJson(result.out, "summary");
    EXPECT_EQ(summary["captions"], captions.string());
    EXPECT_GT(summary["words"].get<int>(), 80);
    EXPECT_GT(summary["segmentsDropped"].get<int>(), 0);
    EXPECT_GT(summary["secondsSaved"].get<double>(), 5.0);

    // The movie is as long as the storyline the project kept, within a frame, and shorter than the sample.
    const auto shown = runMorvane({"timeline", "show", (out / "Talk.morvane").string(), "--json"});
    ASSERT_EQ(shown.exitCode, 0) << shown.err;
    const Json timeline = parseJson(shown.out, "timeline");
    double kept = 0.0;
    for (const auto& track : timeline["tracks"]) {
        if (track["id"] != "source") continue;
        // An accepted cut is one clip of many source ranges.
        for (const auto& clip : track["clips"]) {
            if (!clip.contains("assemblyRanges")) {
                kept += seconds(clip["sourceOut"]) - seconds(clip["sourceIn"]);
                continue;
            }
            for (const auto& range : clip["assemblyRanges"])
                kept += seconds(range["sourceOut"]) - seconds(range["sourceIn"]);
        }
    }
    const auto probe = runProcess({"/usr/bin/ffprobe", "-v", "error", "-show_entries", "format=duration",
                                   "-of", "csv=p=0", movie.string()});
    ASSERT_EQ(probe.exitCode, 0) << probe.err;
    const double duration = std::stod(probe.out);
    EXPECT_NEAR(duration, kept, 1.0 / 25.0);
    EXPECT_LT(duration, 55.0);
    EXPECT_GT(duration, 20.0);

    // The captions are the cut's words, and FFmpeg reads them.
    const std::string srt = readWholeFile(captions);
    EXPECT_EQ(srt.rfind("1\n00:00:00,", 0), 0u) << srt;
    const auto read =
        runProcess({"/usr/bin/ffmpeg", "-v", "error", "-i", captions.string(), "-f", "webvtt", "-"});
    ASSERT_EQ(read.exitCode, 0) << read.err;
    EXPECT_NE(read.out.find("-->"), std::string::npos);
    EXPECT_NEAR(summary["durationSeconds"].get<double>(), duration, 1e-3);
}

TEST_F(MorvaneEdit, mistakesStopTheJobBeforeAnythingIsWritten) {
    const fs::path notes = dir.write("notes.mp4", "not a movie");
    const fs::path out = dir.path() / "cut.mp4";
    struct Case {
        std::vector<std::string> args;
        int exitCode;
        std::string err;
    };
    const Case cases[] = {
        {{"edit", notes.string(), "--command", "cleanUp", "-o", out.string()}, 1, "import: "},
        {{"edit", notes.string(), "--command", "cleanUp", "-o", notes.string()}, 2, "must not overwrite"},
        {{"edit", notes.string(), "--command", "makeItPop", "-o", out.string()}, 2, "unknown command id"},
        {{"edit", notes.string(), "-o", out.string()}, 2, "--command or --instruction"},
    };
    for (const auto& c : cases) {
        const auto result = runMorvane(c.args);
        EXPECT_EQ(result.exitCode, c.exitCode) << c.err;
        EXPECT_NE(result.err.find(c.err), std::string::npos) << result.err;
        EXPECT_FALSE(fs::exists(out));
    }
    EXPECT_EQ(readWholeFile(notes), "not a movie");
}

}  // namespace
}  // namespace morvane
