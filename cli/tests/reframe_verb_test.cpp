// `morvane reframe` prints the crops that follow a recording's subject; `morvane shorts --reframe` goes
// with an export.

#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "morvane/engine/render/video_frame.hpp"
#include "morvane/testing/process.hpp"
#include "morvane/testing/synthetic_media.hpp"
#include "morvane/testing/temp_dir.hpp"

namespace morvane {
namespace {

namespace fs = std::filesystem;
using testing::runMorvane;

TEST(MorvaneReframeMedia, printsCropsThatFollowTheSubject) {
    const testing::TempDir dir;
    const auto movie = testing::makeMovingSquareMovie(dir.path() / "square.mp4", 2.0);
    const auto result = runMorvane({"reframe", movie.string(), "--json"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const Json out = parseJson(result.out, "stdout");
    EXPECT_EQ(out["renderSize"], "1080x1920");
    const Json& keyframes = out["keyframes"];
    ASSERT_EQ(keyframes.size(), 4u);  // every 0.5 s of 2 s
    EXPECT_EQ(keyframes[0]["sourceRect"]["x"].get<double>(), 0.0);
    EXPECT_GT(keyframes[3]["sourceRect"]["x"].get<double>(), keyframes[1]["sourceRect"]["x"].get<double>());

    const auto text = runMorvane({"reframe", movie.string(), "--interval", "1"});
    ASSERT_EQ(text.exitCode, 0) << text.err;
    EXPECT_NE(text.out.find("    1.00     2.00"), std::string::npos) << text.out;

    struct Case {
        std::vector<std::string> args;
        int exitCode;
        std::string says;
    } failures[] = {
        {{"reframe", movie.string(), "--size", "wide"}, 2, "WIDTHxHEIGHT"},
        {{"reframe", movie.string(), "--interval", "0"}, 2, "--interval"},
        {{"reframe", (dir.path() / "none.mp4").string()}, 2, "none.mp4"},
    };
    for (const auto& c : failures) {
        const auto run = runMorvane(c.args);
        EXPECT_EQ(run.exitCode, c.exitCode) << c.says;
        EXPECT_NE(run.err.find(c.says), std::string::npos) << run.err;
    }
    const auto still = dir.path() / "still.png";
    engine::writePNG(engine::RGBAImage::filled({64, 36}, {90, 90, 90, 255}), still);
    const auto refused = runMorvane({"reframe", still.string()});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_NE(refused.err.find("Auto-reframe needs a video clip, not a still image."), std::string::npos)
        << refused.err;
}

TEST(MorvaneShorts, reframingIsAskedOfAnExport) {
    // The export itself is the short project's (ProjectPipeline's tests render one): rendering a whole
    // passage of the sample here would take minutes under the sanitizers.
    const std::string sample = (testing::sourceDir() / "samples" / "talk.mp4").string();
    const std::string transcript = (testing::sourceDir() / "samples" / "script.transcript.json").string();
    const auto refused = runMorvane({"shorts", sample, "--transcript", transcript, "--reframe"});
    EXPECT_EQ(refused.exitCode, 2);
    EXPECT_NE(refused.err.find("--export"), std::string::npos) << refused.err;
}

}  // namespace
}  // namespace morvane
