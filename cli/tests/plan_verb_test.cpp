// `morvane plan show` and `morvane plan check` as users run them.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "morvane/engine/support/json.hpp"
#include "morvane/testing/process.hpp"
#include "morvane/testing/temp_dir.hpp"

namespace morvane {
namespace {

using testing::runMorvane;

std::string planWith(const std::string& operations) {
    return R"({"version":"0.3","timeline":{"frame_duration":"1001/30000","render_size":"1080x1920"},
        "sources":[{"id":"src1","url":"media/talk.mov","frame_duration":"1001/30000","vfr":false},
                   {"id":"src2","url":"/abs/screen.mov","frame_duration":"1/60","vfr":true}],
        "operations":[)" +
           operations + "]}";
}

const std::string kOperations =
    R"({"type":"keep","source_id":"src1","start":"10/1","end":"15/1","reason":"the answer"},
       {"type":"keep","source_id":"src1","start":"0/1","end":"3/1","playback_rate":1.5},
       {"type":"clip","source_id":"src2","start":"0/60","end":"300/60","timeline_start":"2/1",
        "track_id":"overlay","slot_id":"webcam","label":"Screen"},
       {"type":"transition","source_id":"src1","start":"2/1","end":"2/1",
        "transition":{"kind":"crossfade","duration":"1/2"}},
       {"type":"layout","source_id":"layout","start":"0/1","end":"5/1","label":"pip"})";

TEST(MorvanePlanCli, showJsonListsClipsPerTrackAndTransitions) {
    const morvane::testing::TempDir dir;
    const auto path = dir.write("cut.json", planWith(kOperations));
    const auto result = runMorvane({"plan", "show", path.string(), "--json"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const Json json = parseJson(result.out, "stdout");
    EXPECT_EQ(json["format"]["width"], 1080);
    EXPECT_EQ(json["format"]["preset"], "custom");
    EXPECT_EQ(json["sources"][0]["url"], "file://" + (dir.path() / "media/talk.mov").string());
    EXPECT_EQ(json["sources"][1]["url"], "/abs/screen.mov");

    const Json& tracks = json["tracks"];
    ASSERT_EQ(tracks.size(), 2u);
    EXPECT_EQ(tracks[0]["track"], "overlay");
    EXPECT_EQ(tracks[0]["clips"][0]["timelineStart"], "2/1");
    EXPECT_EQ(tracks[0]["clips"][0]["slotID"], "webcam");
    const Json& primary = tracks[1]["clips"];
    EXPECT_EQ(tracks[1]["track"], "primary");
    ASSERT_EQ(primary.size(), 2u);
    EXPECT_EQ(primary[0]["start"], "0/1");
    EXPECT_EQ(primary[0]["duration"], "120000/60000");  // 3 s at 1.5x
    EXPECT_EQ(primary[0]["playbackRate"], 1.5);
    EXPECT_EQ(primary[1]["start"], "10/1");
    EXPECT_EQ(primary[1]["timelineStart"], "120000/60000");
    EXPECT_EQ(primary[1]["duration"], "300000/60000");

    EXPECT_EQ(json["transitions"], Json::parse(R"([{"at":"2/1","kind":"crossfade","duration":"1/2"}])"));
    EXPECT_EQ(json["layouts"][0]["layoutID"], "pip");
}

TEST(MorvanePlanCli, showPrintsATablePerTrack) {
    const morvane::testing::TempDir dir;
    const auto path = dir.write("cut.json", planWith(kOperations));
    const auto result = runMorvane({"plan", "show", path.string()});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    for (const char* line :
         {"Track overlay: 1 clip\n", "Track primary: 2 clips\n", "  at 2.000 s (2/1): crossfade, 1/2\n",
          "1.5×", "10.000 – 15.000", "  0.000 – 5.000 s: pip\n"}) {
        EXPECT_NE(result.out.find(line), std::string::npos) << line << "\n" << result.out;
    }
}

TEST(MorvanePlanCli, checkPassesAUsablePlanAndNamesWhereABadOneFails) {
    const morvane::testing::TempDir dir;
    const auto good = dir.write("good.json", planWith(kOperations));
    auto result = runMorvane({"plan", "check", good.string()});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(
        result.out,
        good.string() + ": ok: 5 operations, 3 program clips on 2 tracks, 1 transition, 1 layout region\n");

    struct Case {
        const char* name;
        std::string operations;
        std::string failure;
    } cases[] = {
        {"bad.json",
         R"({"type":"keep","source_id":"src1","start":"0/1","end":"1/1"},
            {"type":"keep","source_id":"src1","start":"1/1","end":"2/1"},
            {"type":"keep","source_id":"src1","start":"2/1","end":"3/1"},
            {"type":"keep","source_id":"src1","start":"3.5","end":"4/1"})",
         "/operations/3/start: Invalid rational time: 3.5"},
        {"missing.json", R"({"type":"keep","source_id":"src1","end":"1/1"})",
         "/operations/0/start: required key is missing"},
        {"wrong.json", R"({"type":"keep","source_id":"src1","start":"0/1","end":"1/1","audio_gain":"loud"})",
         "/operations/0/audio_gain: expected a number, found a string"},
    };
    for (const auto& c : cases) {
        const auto path = dir.write(c.name, planWith(c.operations));
        result = runMorvane({"plan", "check", path.string()});
        EXPECT_EQ(result.exitCode, 1) << c.name;
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "morvane: " + path.string() + ": " + c.failure + "\n");
    }

    result = runMorvane({"plan", "check", (dir.path() / "absent.json").string()});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, "morvane: Missing file: " + (dir.path() / "absent.json").string() + "\n");
    EXPECT_EQ(runMorvane({"plan"}).exitCode, 2);
    EXPECT_EQ(runMorvane({"plan", "check"}).exitCode, 2);
}

}  // namespace
}  // namespace morvane
