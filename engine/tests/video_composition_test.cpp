#include "morvane/engine/render/video_composition_builder.hpp"

#include <gtest/gtest.h>

#include <numbers>

namespace morvane::engine {
namespace {

RationalTime s(double seconds) {
    return RationalTime::fromSeconds(seconds, RationalTime::workingTimescale);
}

TEST(MorvaneCompositorLayer, easesItsPlacementAcrossTheRangeBySmoothstep) {
    MorvaneCompositorLayer layer;
    layer.transformStart = AffineTransform::translation(0, 0);
    layer.transformEnd = AffineTransform::scale(3, 3).concatenating(AffineTransform::translation(100, 40));
    const TimeSpan range{s(10), s(14)};
    struct Case {
        double time;
        double factor;
    };
    for (const Case& c :
         std::vector<Case>{{10, 0.0}, {11, 0.15625}, {12, 0.5}, {14, 1.0}, {20, 1.0}, {5, 0.0}}) {
        const AffineTransform t = layer.transform(s(c.time), range);
        EXPECT_NEAR(t.tx, 100 * c.factor, 1e-9) << c.time;
        EXPECT_NEAR(t.a, 1 + 2 * c.factor, 1e-9) << c.time;
    }
    EXPECT_TRUE(layer.needsTweening());
    layer.transformEnd = layer.transformStart;
    layer.transformEnd.tx += 1e-7;
    EXPECT_FALSE(layer.needsTweening());
    EXPECT_EQ(layer.transform(s(12), {s(12), s(12)}), layer.transformStart);  // a range with no length
}

// A primary clip at the output size, a webcam overlay from 4 to 9 s, a zoom from 2 to 3 s.
struct Fixture {
    VideoCompositionBuilder::TrackContext primary{.track = 1};
    std::vector<VideoCompositionBuilder::TrackContext> overlays{{.track = 3}};
    EditPlanTransitionTable transitions;
    std::vector<LayoutRegion> regions;

    Fixture() {
        ProgramClip main{.type = "keep", .sourceID = "talk", .trackID = "primary"};
        main.start = s(0);
        main.end = s(12);
        main.timelineStart = s(0);
        main.zoomRegions = std::vector<ClipZoomRegion>{{s(2), s(3), {0.25, 0.25, 0.5, 0.5}}};
        primary.clips = {main};
        primary.naturalSizes["talk"] = {1280, 720};
        ProgramClip cam{.type = "clip", .sourceID = "cam", .trackID = "overlay"};
        cam.start = s(0);
        cam.end = s(5);
        cam.timelineStart = s(4);
        cam.slotID = "webcam";
        overlays[0].clips = {cam};
        overlays[0].naturalSizes["cam"] = {640, 480};
        transitions.emplace(s(11), EditPlanTransition{"crossfade", "1/1"});
    }

    std::vector<MorvaneCompositionInstruction> instructions() const {
        return VideoCompositionBuilder::makeInstructions({.duration = s(12),
                                                          .renderSize = {1280, 720},
                                                          .primary = &primary,
                                                          .overlays = overlays,
                                                          .transitions = &transitions,
                                                          .layoutRegions = regions});
    }
};

TEST(VideoCompositionBuilder, cutsTheProgramWhereAnythingChangesAndPassesPlainRangesThrough) {
    const auto instructions = Fixture().instructions();
    struct Expected {
        double start;
        double end;
        std::size_t layers;
        bool passthrough;
    };
    const std::vector<Expected> expected{{0, 2, 1, true},      {2, 3, 1, false},   {3, 4, 1, true},
                                         {4, 9, 2, false},     {9, 10.5, 1, true}, {10.5, 11, 1, false},
                                         {11, 11.5, 1, false}, {11.5, 12, 1, true}};
    ASSERT_EQ(instructions.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        const auto& in = instructions[i];
        EXPECT_NEAR(in.timeRange.start.seconds(), expected[i].start, 1e-9) << i;
        EXPECT_NEAR(in.timeRange.end.seconds(), expected[i].end, 1e-9) << i;
        EXPECT_EQ(in.layers.size(), expected[i].layers) << i;
        EXPECT_EQ(in.passthroughTrackID != MorvaneCompositionInstruction::invalidTrackID,
                  expected[i].passthrough)
            << i;
    }
    // The zoom doubles the picture about the source's centre.
    const auto& zoom = instructions[1].layers[0].transformStart;
    EXPECT_NEAR(zoom.a, 2.0, 1e-9);
    EXPECT_NEAR(zoom.tx, -640.0, 1e-9);
    // The webcam fills its corner (0.66, 0.05, 0.3 x 0.3), centre-cropped from 4:3, above the primary.
    const auto& cam = instructions[3].layers[1];
    EXPECT_TRUE(cam.isOverlay);
    EXPECT_NEAR(cam.clipRect->x, 0.66 * 1280, 1e-9);
    EXPECT_NEAR(cam.transformStart.a, 0.3 * 1280 / 640.0, 1e-9);
    EXPECT_NEAR(cam.slotCornerRadius, 0.08, 1e-12);
    // The transition dips the primary out to its time and back in after it.
    EXPECT_FLOAT_EQ(instructions[5].layers[0].opacity, 1.0f);
    EXPECT_FLOAT_EQ(instructions[5].layers[0].opacityEnd, 0.0f);
    EXPECT_FLOAT_EQ(instructions[6].layers[0].opacity, 0.0f);
    EXPECT_FLOAT_EQ(instructions[6].layers[0].opacityEnd, 1.0f);
}

TEST(VideoCompositionBuilder, needsScalingOnlyForSourcesOfAnotherSizeOnceUpright) {
    Fixture f;
    f.overlays.clear();
    EXPECT_FALSE(VideoCompositionBuilder::sourcesNeedScaling(f.primary, f.overlays, {1280, 720}));
    EXPECT_TRUE(VideoCompositionBuilder::sourcesNeedScaling(f.primary, f.overlays, {1920, 1080}));
    // A portrait phone recording stored 1280 x 720 and turned a quarter shows 720 x 1280.
    f.primary.preferredTransforms["talk"] =
        AffineTransform::rotation(std::numbers::pi / 2).concatenating(AffineTransform::translation(720, 0));
    EXPECT_FALSE(VideoCompositionBuilder::sourcesNeedScaling(f.primary, f.overlays, {720, 1280}));
}

}  // namespace
}  // namespace morvane::engine
