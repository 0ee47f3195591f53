// morvane probe as users run it.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "morvane/engine/support/json.hpp"
#include "morvane/testing/process.hpp"
#include "morvane/testing/synthetic_media.hpp"
#include "morvane/testing/temp_dir.hpp"

namespace morvane {
namespace {

using namespace morvane::testing;

TEST(MorvaneProbeVerb, reportsTracksTimingAndFrameDuration) {
    const TempDir dir;
    const auto wav = writeWav(dir.path() / "tone.wav", tone(440, 0.5, 1.0, 48000), 1, 48000);
    const auto movie = makeMovie(dir.path() / "talk.mov", 1.0, wav);

    auto result = runMorvane({"probe", movie.string(), "--json"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const Json report = parseJson(result.out, "stdout");
    EXPECT_EQ(report["video"]["naturalSize"], "320x240");
    EXPECT_EQ(report["audio"]["kind"], "audio");
    EXPECT_EQ(report["vfr"]["isLikelyVFR"], false);
    EXPECT_EQ(report["frameDuration"], "1/25");

    result = runMorvane({"probe", movie.string()});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.out.find("Frame duration: 1/25\n"), std::string::npos) << result.out;

    result = runMorvane({"probe", (dir.path() / "missing.mp4").string()});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.err.find("Missing file: "), std::string::npos) << result.err;
}

}  // namespace
}  // namespace morvane
