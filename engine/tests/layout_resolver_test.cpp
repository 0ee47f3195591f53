#include "morvane/engine/layout/layout_resolver.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "morvane/engine/engine_error.hpp"
#include "record_json.hpp"

namespace morvane::engine {
namespace {

RationalTime seconds(double s) {
    return RationalTime::fromSeconds(s, 600);
}

TEST(LayoutPresets, lookups) {
    std::vector<std::string> ids;
    for (const auto& layout : LayoutPresets::catalog())
        ids.push_back(layout.id);
    EXPECT_EQ(ids, (std::vector<std::string>{"full_frame", "pip", "split", "stacked", "title_card"}));
    // The stacked halves overlap by a tenth of the height on purpose.
    const auto& stacked = *LayoutPresets::definition("stacked");
    EXPECT_GT(stacked.slots[0].rect.y + stacked.slots[0].rect.height, stacked.slots[1].rect.y);
    testing::expectRoundTrip(*LayoutPresets::definition("pip"));
    EXPECT_EQ(LayoutPresets::definition("stacked")->name, "Stacked Vertical");
    EXPECT_EQ(LayoutPresets::definition("grid"), nullptr);
    EXPECT_EQ(LayoutPresets::canonicalSlot("bottom")->rect, (EditPlanRect{0.0, 0.45, 1.0, 0.55}));
    EXPECT_EQ(LayoutPresets::canonicalSlot("main"), &LayoutPresets::catalog()[0].slots[0]);
    EXPECT_EQ(LayoutPresets::canonicalSlot("sidebar"), nullptr);
    const auto& titleCard = *LayoutPresets::definition("title_card");
    EXPECT_EQ(titleCard.slot("main")->zIndex, 1);
    EXPECT_EQ(titleCard.slot(std::nullopt), nullptr);
    EXPECT_EQ(titleCard.slot("webcam"), nullptr);
}

EditPlanOperation layoutOperation(std::string label, std::string start, std::string end,
                                  std::optional<std::string> timelineStart = std::nullopt) {
    return {.type = "layout",
            .sourceID = "layout",
            .start = start,
            .end = end,
            .timelineStart = timelineStart,
            .label = label};
}

TEST(LayoutResolver, regionsComeFromLayoutOperations) {
    EditPlan plan;
    plan.operations = {
        layoutOperation("split", "0/1", "5/1"),
        {.type = "keep", .sourceID = "src1", .start = "bad", .end = "also bad"},   // not read here
        layoutOperation("pip", "99/1", "12/1", "8/1"),                             // timeline_start wins
        layoutOperation("stacked", "20/1", "20/1"),                                // empty: skipped
        {.type = "layout", .sourceID = "layout", .start = "30/1", .end = "31/1"},  // no label
    };
    EXPECT_EQ(LayoutResolver::regions(plan), (std::vector<LayoutRegion>{
                                                 {"split", {0, 1}, {5, 1}},
                                                 {"pip", {8, 1}, {12, 1}},
                                                 {"", {30, 1}, {31, 1}},
                                             }));
    testing::expectRoundTrip(LayoutRegion{"pip", {8, 1}, {12, 1}});

    plan.operations.push_back(layoutOperation("split", "1/1", "2.5s"));
    try {
        (void)LayoutResolver::regions(plan);
        ADD_FAILURE() << "a bad time must fail";
    } catch (const EngineError& e) {
        EXPECT_STREQ(e.what(), "Invalid rational time: 2.5s");
    }
}

TEST(LayoutResolver, activeLayoutIsTheFirstRegionHoldingTheTime) {
    const std::vector<LayoutRegion> regions{
        {"split", {0, 1}, {5, 1}},
        {"pip", {4, 1}, {8, 1}},
        {"grid", {10, 1}, {12, 1}},
    };
    struct Case {
        RationalTime time;
        const char* layout;
    } cases[] = {
        {{0, 1}, "split"},       {{4, 1}, "split"},       {{5, 1}, "pip"},
        {{8, 1}, "full_frame"},  {{11, 1}, "full_frame"},  // not in the catalogue
        {{-1, 1}, "full_frame"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(LayoutResolver::activeLayout(c.time, regions).id, c.layout) << c.time.formatted();
    EXPECT_EQ(LayoutResolver::activeLayout({3, 1}, {}).id, "full_frame");
}

TEST(LayoutResolver, usableDestinations) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    struct Case {
        EditPlanRect rect;
        bool usable;
    } cases[] = {
        {{0.0, 0.0, 1.0, 1.0}, true},      {{0.5, 0.5, 0.002, 0.5}, false},
        {{0.5, 0.5, 0.0021, 0.5}, true},   {{0.5, 0.5, 0.5, 0.002}, false},
        {{-0.01, 0.0, 1.0, 1.0}, true},    {{-0.011, 0.0, 0.5, 0.5}, false},
        {{0.0, 0.0, 1.01, 1.0}, true},     {{0.0, 0.0, 1.0, 1.011}, false},
        {{-0.2, 0.0, 0.8, 1.0}, false},     // a fifth off the canvas
        {{-0.01, 0.2, 0.05, 0.05}, false},  // within the edge allowance, yet a fifth of it off
        {{-0.005, 0.2, 0.05, 0.05}, true},  // a tenth off: enough of it stays
        {{nan, 0.0, 1.0, 1.0}, false},     {{0.0, 0.0, nan, 1.0}, false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(LayoutResolver::isUsableDestination(c.rect), c.usable)
            << c.rect.x << "," << c.rect.y << " " << c.rect.width << "x" << c.rect.height;
    }
}

TEST(LayoutResolver, clampedCutsOverhangs) {
    struct Case {
        EditPlanRect rect;
        EditPlanRect clamped;
    } cases[] = {
        {{0.1, 0.1, 0.5, 0.5}, {0.1, 0.1, 0.5, 0.5}},   {{-0.25, 0.0, 0.5, 1.0}, {0.0, 0.0, 0.25, 1.0}},
        {{0.0, -0.5, 1.0, 1.0}, {0.0, 0.0, 1.0, 0.5}},  {{0.75, 0.5, 0.5, 0.75}, {0.75, 0.5, 0.25, 0.5}},
        {{-0.5, -0.5, 2.0, 2.0}, {0.0, 0.0, 1.0, 1.0}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(LayoutResolver::clamped(c.rect), c.clamped);
}

TEST(LayoutResolver, destinationsFromTheClipOrItsSlot) {
    const auto& layout = [](const char* id) -> const LayoutDefinition& {
        return *LayoutPresets::definition(id);
    };
    const EditPlanRect pipWebcam{0.66, 0.05, 0.3, 0.3};
    const LayoutDefinition empty{"empty", "Empty", {}};
    struct Case {
        const char* name;
        std::optional<EditPlanRect> explicitRect;
        std::optional<std::string> slotID;
        const LayoutDefinition& layout;
        std::optional<EditPlanRect> destination;
    } cases[] = {
        {"a usable rect of its own, clamped", EditPlanRect{0.5, 0.5, 0.505, 0.5}, "webcam", layout("split"),
         EditPlanRect{0.5, 0.5, 0.5, 0.5}},
        {"an unusable one falls back to the slot", EditPlanRect{0.5, 0.5, 0.001, 0.5}, "right",
         layout("split"), EditPlanRect{0.5, 0.0, 0.5, 1.0}},
        {"a webcam keeps its corner in a layout without one", std::nullopt, "webcam", layout("split"),
         pipWebcam},
        {"and in picture in picture", std::nullopt, "webcam", layout("pip"), pipWebcam},
        {"any slot is found through the catalogue", std::nullopt, "bottom", layout("full_frame"),
         EditPlanRect{0.0, 0.45, 1.0, 0.55}},
        {"a slot known nowhere", std::nullopt, "sidebar", layout("pip"), std::nullopt},
        {"main over a background", std::nullopt, "main", layout("title_card"),
         EditPlanRect{0.1, 0.15, 0.8, 0.7}},
        {"no slot means main", std::nullopt, std::nullopt, layout("title_card"),
         EditPlanRect{0.1, 0.15, 0.8, 0.7}},
        {"a layout without main gives its first slot", std::nullopt, "main", layout("split"),
         EditPlanRect{0.0, 0.0, 0.5, 1.0}},
        {"a layout without slots gives nothing", std::nullopt, std::nullopt, empty, std::nullopt},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(LayoutResolver::effectiveDestinationRect(c.explicitRect, c.slotID, c.layout), c.destination)
            << c.name;
        ProgramClip clip{.slotID = c.slotID};
        if (c.explicitRect) clip.transform = EditPlanTransform{.destinationRect = c.explicitRect};
        EXPECT_EQ(LayoutResolver::destinationRect(clip, c.layout), c.destination) << c.name;
    }
}

const EditPlanRect kSquareA{0.0, 0.0, 0.5, 0.5};
const EditPlanRect kSquareB{0.5, 0.5, 0.25, 0.25};

ProgramClip clipWithKeyframes(std::vector<ReframeKeyframe> keyframes) {
    return {.type = "clip", .sourceID = "src1", .reframeKeyframes = std::move(keyframes)};
}

TEST(LayoutResolver, cropEasesBetweenKeyframes) {
    // Given out of order: they are sorted by start first.
    const auto clip =
        clipWithKeyframes({{seconds(4), seconds(5), kSquareB}, {seconds(1), seconds(2), kSquareA}});
    const auto between = [](double factor) {
        const auto mix = [factor](double a, double b) { return a + (b - a) * factor; };
        return EditPlanRect{mix(0.0, 0.5), mix(0.0, 0.5), mix(0.5, 0.25), mix(0.5, 0.25)};
    };
    struct Case {
        double time;
        std::optional<EditPlanRect> rect;
    } cases[] = {
        {0.5, std::nullopt}, {1.0, kSquareA},         {1.5, kSquareA},
        {2.0, kSquareA},     {2.5, between(0.15625)},  // a quarter through the gap, smoothstep
        {3.0, between(0.5)}, {4.0, kSquareB},         {4.9, kSquareB},
        {5.0, std::nullopt}, {9.0, std::nullopt},
    };
    for (const auto& c : cases) {
        const auto rect = LayoutResolver::interpolatedSourceRect(clip, seconds(c.time), 1.0);
        ASSERT_EQ(rect.has_value(), c.rect.has_value()) << c.time;
        if (!c.rect) continue;
        EXPECT_NEAR(rect->x, c.rect->x, 1e-12) << c.time;
        EXPECT_NEAR(rect->y, c.rect->y, 1e-12) << c.time;
        EXPECT_NEAR(rect->width, c.rect->width, 1e-12) << c.time;
        EXPECT_NEAR(rect->height, c.rect->height, 1e-12) << c.time;
    }
    EXPECT_FALSE(LayoutResolver::interpolatedSourceRect(clipWithKeyframes({}), seconds(1), 1.0));
    EXPECT_FALSE(LayoutResolver::interpolatedSourceRect(ProgramClip{}, seconds(1), 1.0));
}

TEST(LayoutResolver, cropNeverDistortsThePicture) {
    // A wide crop easing into a tall one, shown at a destination twice as wide as the source's shape.
    const auto clip = clipWithKeyframes(
        {{seconds(0), seconds(1), {0.0, 0.0, 1.0, 0.25}}, {seconds(3), seconds(4), {0.2, 0.1, 0.3, 0.8}}});
    for (int step = 0; step < 40; ++step) {
        const auto rect = LayoutResolver::interpolatedSourceRect(clip, seconds(step * 0.1), 2.0);
        ASSERT_TRUE(rect.has_value()) << step;
        EXPECT_NEAR(rect->width / rect->height, 2.0, 1e-9) << step;
        EXPECT_GE(rect->x, 0.0);
        EXPECT_GE(rect->y, 0.0);
        EXPECT_LE(rect->x + rect->width, 1.0 + 1e-12);
        EXPECT_LE(rect->y + rect->height, 1.0 + 1e-12);
    }
    // Narrowed about its centre: 1.0 x 0.25 at aspect 2 becomes 0.5 x 0.25, centred.
    EXPECT_EQ(LayoutResolver::interpolatedSourceRect(clip, seconds(0.5), 2.0),
              (EditPlanRect{0.25, 0.0, 0.5, 0.25}));
    // Without a usable aspect the rect is left as it is.
    EXPECT_EQ(LayoutResolver::interpolatedSourceRect(clip, seconds(0.5), 0.0),
              (EditPlanRect{0.0, 0.0, 1.0, 0.25}));
}

TEST(LayoutResolver, zoomRegionsReplaceKeyframes) {
    auto clip = clipWithKeyframes({{seconds(0), seconds(10), kSquareA}});
    clip.zoomRegions = std::vector<ClipZoomRegion>{{seconds(2), seconds(3), kSquareB}};
    EXPECT_EQ(LayoutResolver::interpolatedSourceRect(clip, seconds(2.5), 1.0), kSquareB);
    EXPECT_EQ(LayoutResolver::interpolatedSourceRect(clip, seconds(1.0), 1.0), std::nullopt);
    clip.zoomRegions = std::vector<ClipZoomRegion>{};  // an empty list hands back to the keyframes
    EXPECT_EQ(LayoutResolver::interpolatedSourceRect(clip, seconds(1.0), 1.0), kSquareA);
}

TEST(LayoutResolver, resolvedTransformCombinesCropAndDestination) {
    const std::vector<LayoutRegion> regions{{"split", seconds(5), seconds(10)}};
    auto clip = clipWithKeyframes({{seconds(0), seconds(20), kSquareA}});

    // Without layout operations everything is full frame; in "split" a clip without a slot takes the first.
    EXPECT_EQ(LayoutResolver::resolvedTransform(clip, seconds(1), {}, 1.0),
              (EditPlanTransform{kSquareA, EditPlanRect{0.0, 0.0, 1.0, 1.0}}));
    EXPECT_EQ(LayoutResolver::resolvedTransform(clip, seconds(6), regions, 1.0),
              (EditPlanTransform{kSquareA, EditPlanRect{0.0, 0.0, 0.5, 1.0}}));

    // The clip's own crop wins over its keyframes; its slot is sought where the layout lacks it.
    clip.transform = EditPlanTransform{.sourceRect = kSquareB};
    clip.slotID = "right";
    EXPECT_EQ(LayoutResolver::resolvedTransform(clip, seconds(1), regions, 1.0),
              (EditPlanTransform{kSquareB, EditPlanRect{0.5, 0.0, 0.5, 1.0}}));
}

}  // namespace
}  // namespace morvane::engine
