#include "morvane/engine/composition/composition_builder.hpp"

#include <gtest/gtest.h>

#include "morvane/engine/engine_error.hpp"
#include "morvane/testing/temp_dir.hpp"

namespace morvane::engine {
namespace {

ProgramClip clipAt(double start, double length, double rate = 1.0) {
    ProgramClip clip{.type = "clip", .sourceID = "s", .trackID = "overlay"};
    clip.start = RationalTime::zero;
    clip.end = RationalTime::fromSeconds(length, 60000);
    clip.timelineStart = RationalTime::fromSeconds(start, 60000);
    clip.playbackRate = rate;
    return clip;
}

std::vector<std::vector<double>> laneStarts(const std::vector<std::vector<ProgramClip>>& lanes) {
    std::vector<std::vector<double>> out;
    for (const auto& lane : lanes) {
        out.emplace_back();
        for (const auto& clip : lane)
            out.back().push_back(clip.timelineStart.seconds());
    }
    return out;
}

TEST(CompositionBuilder, packsOverlappingClipsIntoTheFirstLaneThatHasEnded) {
    struct Case {
        std::string label;
        std::vector<ProgramClip> clips;
        std::vector<std::vector<double>> lanes;
    };
    const std::vector<Case> cases{
        {"0–2, 1–3, 2–4: the third shares the first lane",
         {clipAt(0, 2), clipAt(1, 2), clipAt(2, 2)},
         {{0, 2}, {1}}},
        {"within 0.001 s of the lane's end", {clipAt(0, 2), clipAt(1.9995, 1)}, {{0, 1.9995}}},
        {"just past that", {clipAt(0, 2), clipAt(1.998, 1)}, {{0}, {1.998}}},
        {"sorted by start first", {clipAt(5, 1), clipAt(0, 1)}, {{0, 5}}},
        {"speed shortens a clip", {clipAt(0, 4, 2.0), clipAt(2, 1)}, {{0, 2}}},
        {"no clips", {}, {}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(laneStarts(CompositionBuilder::packNonOverlappingLanes(c.clips)), c.lanes) << c.label;
}

TEST(CompositionBuilder, auxiliaryDurationIsTheLatestEndAtSpeed) {
    EXPECT_EQ(CompositionBuilder::auxiliaryTimelineDuration({}), 0.0);
    const std::vector<ProgramClip> clips{clipAt(1, 2), clipAt(0, 8, 2.0), clipAt(2, 1, 1.00005)};
    EXPECT_DOUBLE_EQ(CompositionBuilder::auxiliaryTimelineDuration(clips), 4.0);
}

TEST(CompositionBuilder, resolvesFileURLsAndUsesAnOverrideOnlyWhileItsFileExists) {
    const morvane::testing::TempDir dir;
    const auto proxy = dir.write("proxy.mp4", "x");
    const EditPlanSource source{.id = "src1", .url = "file:///home/me/My%20Talk.mov"};
    EXPECT_EQ(CompositionBuilder::resolvedURL(source, {}), "/home/me/My Talk.mov");
    EXPECT_EQ(CompositionBuilder::resolvedURL(source, {{"src1", proxy.string()}}), proxy.string());
    EXPECT_EQ(CompositionBuilder::resolvedURL(source, {{"src1", (dir.path() / "gone.mp4").string()}}),
              "/home/me/My Talk.mov");
    EXPECT_EQ(CompositionBuilder::resolvedURL(source, {{"src2", proxy.string()}}), "/home/me/My Talk.mov");
    EXPECT_EQ(CompositionBuilder::resolvedURL({.id = "p", .url = "/plain/path.mov"}, {}), "/plain/path.mov");
}

TEST(CompositionBuilder, failsWithTheUsersTextForAMissingSourceAndForNothingToPlace) {
    EditPlan plan;
    plan.timeline.frameDuration = "1/30";
    plan.operations = {{.type = "keep", .sourceID = "src9", .start = "0/1", .end = "2/1"}};
    const auto failure = [](const EditPlan& p) -> std::string {
        try {
            static_cast<void>(CompositionBuilder::build(p, AudioFinishingOptions::preview()));
        } catch (const EngineError& e) {
            return e.what();
        }
        return "(no failure)";
    };
    EXPECT_EQ(failure(plan), "Decode failed: Clip references missing source src9");
    plan.operations = {{.type = "text", .sourceID = "t", .start = "0/1", .end = "2/1", .trackID = "captions"},
                       {.type = "transition", .sourceID = "x", .start = "0/1", .end = "0/1"}};
    EXPECT_EQ(failure(plan), "Decode failed: Edit plan has no timeline clips");
    plan.operations = {{.type = "keep", .sourceID = "src1", .start = "zero", .end = "2/1"}};
    EXPECT_EQ(failure(plan), "Invalid rational time: zero");
}

TEST(CompositionBuilder, leavesImagesOutOfOverlaysOnlyWhenAskedTo) {
    const EditPlanSource logo{.id = "logo", .url = "/media/logo.PNG"};
    const EditPlanSource cam{.id = "cam", .url = "/media/cam.mov"};
    const std::map<std::string, const EditPlanSource*> sources{{"logo", &logo}, {"cam", &cam}};
    std::vector<ProgramClip> clips{clipAt(0, 1), clipAt(0, 1), clipAt(0, 1), clipAt(0, 1)};
    clips[0].sourceID = "logo";
    clips[1].sourceID = "cam";
    clips[2].sourceID = "cam";
    clips[2].type = "text";
    clips[3].trackID = "primary";
    EXPECT_EQ(CompositionBuilder::overlayVideoClips(clips, sources, true).size(), 2u);
    EXPECT_EQ(CompositionBuilder::overlayVideoClips(clips, sources, false).size(), 1u);
    EXPECT_EQ(CompositionBuilder::overlayVideoClips(clips, {}, false).size(), 2u);
    EXPECT_EQ(CompositionBuilder::solidPlateKey({0.1, 0.12345, 1.0, 0.5}), "0.100-0.123-1.000");
}

}  // namespace
}  // namespace morvane::engine
