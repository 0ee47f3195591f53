// `morvane timeline` on a project bundle: each edit saved back, a refused or mistyped one changing nothing.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "morvane/engine/support/files.hpp"
#include "morvane/engine/support/json.hpp"
#include "morvane/testing/process.hpp"
#include "morvane/testing/synthetic_media.hpp"
#include "morvane/testing/temp_dir.hpp"
#include "own_user_folders.hpp"

namespace morvane {
namespace {

namespace fs = std::filesystem;
using testing::runMorvane;

// A time of the timeline's JSON, {"value", "timescale"}, in seconds.
double seconds(const Json& time) {
    return time["value"].get<double>() / time["timescale"].get<double>();
}

struct Span {
    double start, end, sourceIn, sourceOut;
};

class MorvaneTimelineVerb : public testing::OwnUserFoldersTest {
  protected:
    fs::path bundle;

    void SetUp() override {
        OwnUserFoldersTest::SetUp();
        const fs::path movie = testing::makeMovie(
            dir.path() / "talk.mp4", 10.0,
            testing::writeWav(dir.path() / "talk.wav", testing::tone(220, 0.5, 10.0, 48000), 1, 48000));
        bundle = dir.path() / "Edit.morvane";
        ASSERT_EQ(runMorvane({"project", "new", bundle.string()}).exitCode, 0);
        const auto imported = runMorvane({"project", "import", bundle.string(), movie.string()});
        ASSERT_EQ(imported.exitCode, 0) << imported.err;
    }

    Json timeline() {
        const auto result = runMorvane({"timeline", "show", bundle.string(), "--json"});
        EXPECT_EQ(result.exitCode, 0) << result.err;
        return parseJson(result.out, "timeline");
    }

    // The storyline's clips as program and source seconds, with their ids.
    std::vector<Span> storyline(std::vector<std::string>* ids = nullptr) {
        std::vector<Span> spans;
        const Json document = timeline();
        for (const auto& track : document["tracks"]) {
            if (track["id"] != "source") continue;
            for (const auto& clip : track["clips"]) {
                const double start = seconds(clip["timelineStart"]);
                const double in = seconds(clip["sourceIn"]);
                const double out = seconds(clip["sourceOut"]);
                const double rate = clip.contains("playbackRate") ? clip["playbackRate"].get<double>() : 1.0;
                spans.push_back({start, start + (out - in) / rate, in, out});
                if (ids) ids->push_back(clip["id"]);
            }
        }
        return spans;
    }

    testing::ProcessResult edit(std::vector<std::string> args) {
        args.insert(args.begin() + 2, bundle.string());
        return runMorvane(args);
    }
};

void expectSpans(const std::vector<Span>& actual, const std::vector<Span>& expected) {
    ASSERT_EQ(actual.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_NEAR(actual[i].start, expected[i].start, 0.002) << "clip " << i;
        EXPECT_NEAR(actual[i].end, expected[i].end, 0.002) << "clip " << i;
        EXPECT_NEAR(actual[i].sourceIn, expected[i].sourceIn, 0.002) << "clip " << i;
        EXPECT_NEAR(actual[i].sourceOut, expected[i].sourceOut, 0.002) << "clip " << i;
    }
}

TEST_F(MorvaneTimelineVerb, editsAreSavedBackAndTheStorylineClosesUp) {
    ASSERT_EQ(edit({"timeline", "split", "--at", "3"}).exitCode, 0);
    ASSERT_EQ(edit({"timeline", "split", "--at", "7200/1000s"}).exitCode, 0);  // an exact time
    expectSpans(storyline(), {{0, 3, 0, 3}, {3, 7.2, 3, 7.2}, {7.2, 10, 7.2, 10}});

    // The middle clip by a start of its id; the storyline closes the gap.
    std::vector<std::string> ids;
    storyline(&ids);
    const auto deleted = edit({"timeline", "delete", "--clip", ids[1].substr(0, 6)});
    ASSERT_EQ(deleted.exitCode, 0) << deleted.err;
    expectSpans(storyline(), {{0, 3, 0, 3}, {3, 5.8, 7.2, 10}});

    ASSERT_EQ(edit({"timeline", "speed", "--at", "1", "--rate", "2"}).exitCode, 0);
    expectSpans(storyline(), {{0, 1.5, 0, 3}, {1.5, 4.3, 7.2, 10}});
    ASSERT_EQ(edit({"timeline", "trim", "--at", "2", "--edge", "end", "--to", "4"}).exitCode, 0);
    expectSpans(storyline(), {{0, 1.5, 0, 3}, {1.5, 4, 7.2, 9.7}});

    ASSERT_EQ(edit({"timeline", "move", "--at", "0.5", "--to", "4"}).exitCode, 0);
    expectSpans(storyline(), {{0, 2.5, 7.2, 9.7}, {2.5, 4, 0, 3}});

    ASSERT_EQ(edit({"timeline", "gain", "--at", "0.5", "--gain", "-6dB"}).exitCode, 0);
    const Json document = timeline();
    for (const auto& track : document["tracks"]) {
        if (track["id"] == "source") {
            EXPECT_NEAR(track["clips"][0]["audioGain"].get<double>(), 0.501, 0.001);
        }
    }
}

TEST_F(MorvaneTimelineVerb, refusedAndMistypedEditsLeaveTheBundleAsItWas) {
    const std::string before = readWholeFile(bundle / "project.json");
    struct Case {
        std::vector<std::string> args;
        int exitCode;
        std::string err;
    };
    const Case cases[] = {
        {{"timeline", "split", "--at", "5/0s"}, 2, "\"5/0s\" is not a time"},
        {{"timeline", "split", "--at", "-1"}, 2, "\"-1\" is not a time"},
        {{"timeline", "split", "--at", "12"}, 2, "no clip on the source track at 12.000 s"},
        {{"timeline", "split", "--clip", "nope", "--time", "2"}, 2, "no clip \"nope\" in the project"},
        {{"timeline", "gain", "--at", "1", "--gain", "loud"}, 2, "\"loud\" is not a gain"},
        // Too near the clip's start for a split: the editor refuses it.
        {{"timeline", "split", "--at", "0.1"}, 1, "Split Clip was refused"},
        {{"timeline", "trim", "--at", "1", "--edge", "middle", "--to", "2"}, 2, "--edge"},
    };
    for (const auto& c : cases) {
        const auto result = edit(c.args);
        EXPECT_EQ(result.exitCode, c.exitCode) << c.args[1] << " " << c.args.back();
        EXPECT_NE(result.err.find(c.err), std::string::npos) << result.err;
    }
    EXPECT_EQ(readWholeFile(bundle / "project.json"), before);
}

}  // namespace
}  // namespace morvane
