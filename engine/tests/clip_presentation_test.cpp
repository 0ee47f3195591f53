#include <gtest/gtest.h>

#include <cstdio>
#include <nlohmann/json.hpp>

#include "morvane/engine/presentation/clip_matte.hpp"
#include "morvane/engine/presentation/clip_presentation_style.hpp"
#include "morvane/engine/presentation/clip_zoom_region.hpp"
#include "morvane/engine/presentation/cursor_style.hpp"
#include "record_json.hpp"

namespace morvane::engine {
namespace {

using testing::compactJson;
using testing::decodeFailure;
using testing::decodeJson;
using testing::expectRoundTrip;

const BackgroundColor kRed{1.0, 0.0, 0.0, 1.0};
const BackgroundColor kNavy{0.1, 0.12, 0.18, 1.0};

TEST(ClipPresentationStyle, identityNeedsNoInsetNoCornersNoShadowBlurAndNoBackground) {
    const ClipPresentationStyle bare{.padding = 0.00005};
    struct Case {
        const char* name;
        ClipPresentationStyle style;
        bool identity;
    } cases[] = {
        {"padding below the threshold", bare, true},
        {"everything at the threshold",
         {.padding = 0.0001, .cornerRadius = 0.0001, .shadowRadius = 0.0001},
         true},
        {"opacity and offsets alone draw nothing",
         {.shadowOpacity = 1.0, .shadowOffsetX = 5.0, .shadowOffsetY = 9.0},
         true},
        {"padding above", {.padding = 0.00011}, false},
        {"rounded corners", {.cornerRadius = 0.01}, false},
        {"a shadow", {.shadowRadius = 0.5}, false},
        {"a transparent black plate", {.background = ClipBackgroundFill::solid({0, 0, 0, 0})}, false},
        {"a blurred backdrop", {.background = ClipBackgroundFill::blurSource()}, false},
        {"the screen-recording default", ClipPresentationStyle::demoDefault(), false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.style.isIdentity(), c.identity) << c.name;
}

TEST(ClipPresentationStyle, jsonIsSnakeCaseAndOmitsAbsentAspect) {
    const auto style = ClipPresentationStyle{.padding = 0.5, .background = ClipBackgroundFill::none()};
    EXPECT_EQ(compactJson(style),
              R"({"padding":0.5,"corner_radius":0.0,"shadow_radius":0.0,"shadow_opacity":0.0,)"
              R"("shadow_offset_x":0.0,"shadow_offset_y":0.0,"background":{"none":{}}})");
    expectRoundTrip(ClipPresentationStyle::demoDefault());
    expectRoundTrip(ClipPresentationStyle{.outputAspectWidth = 16.0, .outputAspectHeight = 9.0});

    // A width without a height is kept as written; it does nothing until both are there.
    const auto lopsided = decodeJson<ClipPresentationStyle>(
        R"({"padding":0,"corner_radius":0,"shadow_radius":0,"shadow_opacity":0,"shadow_offset_x":0,)"
        R"("shadow_offset_y":0,"background":{"none":{}},"output_aspect_width":4})");
    EXPECT_EQ(lopsided.outputAspectWidth, 4.0);
    EXPECT_FALSE(lopsided.outputAspectHeight.has_value());

    EXPECT_EQ(decodeFailure<ClipPresentationStyle>(R"({"padding":0})"),
              "/corner_radius: required key is missing");
}

TEST(ClipBackgroundFill, everyCaseIsASingleKeyObject) {
    struct Case {
        ClipBackgroundFill fill;
        ClipBackgroundFill::Case kind;
        const char* json;
    } cases[] = {
        {ClipBackgroundFill::none(), ClipBackgroundFill::Case::none, R"({"none":{}})"},
        {ClipBackgroundFill::solid(kRed), ClipBackgroundFill::Case::solid,
         R"({"solid":{"_0":{"red":1.0,"green":0.0,"blue":0.0,"alpha":1.0}}})"},
        {ClipBackgroundFill::gradient(kRed, {0, 0, 1, 0.5}), ClipBackgroundFill::Case::gradient,
         R"({"gradient":{"top":{"red":1.0,"green":0.0,"blue":0.0,"alpha":1.0},)"
         R"("bottom":{"red":0.0,"green":0.0,"blue":1.0,"alpha":0.5}}})"},
        {ClipBackgroundFill::image("src4"), ClipBackgroundFill::Case::image,
         R"({"image":{"sourceID":"src4"}})"},
        {ClipBackgroundFill::blurSource(), ClipBackgroundFill::Case::blurSource, R"({"blurSource":{}})"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.fill.kind(), c.kind) << c.json;
        EXPECT_EQ(compactJson(c.fill), c.json);
        EXPECT_EQ(decodeJson<ClipBackgroundFill>(c.json), c.fill) << c.json;
    }
}

TEST(ClipBackgroundFill, refusesAnyNumberOfCasesButOne) {
    const std::string invalid = "/: Invalid number of keys found, expected one.";
    struct Case {
        const char* json;
        std::string failure;
    } cases[] = {
        {R"({"none":{},"solid":{}})", invalid},
        {R"({})", invalid},
        {R"({"sparkle":{}})", invalid},
        {R"({"solid":{}})", "/solid/_0: required key is missing"},
        {R"({"none":1})", "/none: expected an object, found an integer"},
        {R"({"none":null})", "/none: required value is null"},
        {R"("none")", "/: expected an object, found a string"},
        {R"({"image":{"source_id":"src1"}})", "/image/sourceID: required key is missing"},
        // A key that names no case is ignored, as unknown keys are everywhere in a plan.
        {R"({"none":{},"sparkle":3})", "(no failure)"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(decodeFailure<ClipBackgroundFill>(c.json), c.failure) << c.json;
}

TEST(ClipMatteFill, casesLabelsFingerprintsAndJson) {
    struct Case {
        ClipMatteFill fill;
        const char* label;
        const char* fingerprint;
        const char* json;
    } cases[] = {
        {ClipMatteFill::solid({0.5, 0.25, 0.125, 1.0}), "Solid color", "solid:0.500,0.250,0.125,1.000",
         R"({"solid":{"_0":{"red":0.5,"green":0.25,"blue":0.125,"alpha":1.0}}})"},
        {ClipMatteFill::gradient(kRed, kNavy), "Gradient",
         "gradient:1.000,0.000,0.000,1.000|0.100,0.120,0.180,1.000", nullptr},
        {ClipMatteFill::image("src2"), "Image", "image:src2", R"({"image":{"sourceID":"src2"}})"},
        {ClipMatteFill::timeline(), "Over clip below", "timeline", R"({"timeline":{}})"},
        {ClipMatteFill::original(), "Keep scene", "original", R"({"original":{}})"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.fill.inspectorLabel(), c.label);
        EXPECT_EQ(c.fill.previewFingerprint(), c.fingerprint);
        if (c.json != nullptr) {
            EXPECT_EQ(compactJson(c.fill), c.json);
        }
        expectRoundTrip(c.fill);
    }
    EXPECT_EQ(decodeFailure<ClipMatteFill>(R"({"timeline":{},"original":{}})"),
              "/: Invalid number of keys found, expected one.");
    // "none" is a background, not a matte fill.
    EXPECT_EQ(decodeFailure<ClipMatteFill>(R"({"none":{}})"),
              "/: Invalid number of keys found, expected one.");
}

TEST(BackgroundColor, fingerprintRoundsLikePrintfWhateverTheLocale) {
    // printf in the C locale is the reference; the fingerprint must not depend on the process's locale.
    const double values[] = {0.0, 1.0, 0.1235, 0.0005, 0.9995, 0.33333333, -0.0004, 2.5, 0.12345678};
    for (double v : values) {
        char expected[64];
        std::snprintf(expected, sizeof expected, "%.3f,%.3f,%.3f,%.3f", v, 1.0 - v, v * 0.5, 1.0);
        EXPECT_EQ((BackgroundColor{v, 1.0 - v, v * 0.5, 1.0}.previewFingerprint()), expected) << v;
    }
}

TEST(ClipMatte, constructorsAndJson) {
    const auto chroma = ClipMatte::chroma({0, 1, 0, 1}, 0.4, 0.08, ClipMatteFill::timeline());
    EXPECT_EQ(chroma.kind, ClipMatteKind::chroma);
    EXPECT_EQ(chroma.chromaKey, (BackgroundColor{0, 1, 0, 1}));
    EXPECT_EQ(chroma.chromaSimilarity, 0.4);
    EXPECT_EQ(chroma.chromaSmoothness, 0.08);
    EXPECT_FALSE(chroma.objectSeedX || chroma.objectSeedY || chroma.matteAssetID);

    const auto person = ClipMatte::person(ClipMatteFill::image("src9"));
    EXPECT_EQ(person, (ClipMatte{.kind = ClipMatteKind::person, .fill = ClipMatteFill::image("src9")}));
    EXPECT_EQ(compactJson(person),
              R"({"kind":"person","fill":{"image":{"sourceID":"src9"}},"chroma_similarity":0.0,)"
              R"("chroma_smoothness":0.0})");

    auto object = ClipMatte{.kind = ClipMatteKind::object, .fill = ClipMatteFill::original()};
    object.objectSeedX = 0.25;
    object.objectSeedY = 0.75;
    object.matteAssetID = "mask-1";
    for (const auto& matte : {chroma, person, object})
        expectRoundTrip(matte);

    EXPECT_EQ(decodeFailure<ClipMatte>(R"({"kind":"alpha","fill":{"timeline":{}},"chroma_similarity":0,)"
                                       R"("chroma_smoothness":0})"),
              R"(/kind: expected one of "chroma", "person", "object", found "alpha")");
    EXPECT_EQ(decodeFailure<ClipMatte>(R"({"kind":"person","fill":{"timeline":{}},"chroma_similarity":0})"),
              "/chroma_smoothness: required key is missing");
}

TEST(CursorStyle, defaultsAndEveryKeyRequired) {
    const CursorStyle standard;
    EXPECT_EQ(compactJson(standard),
              R"({"visible":true,"size":1.0,"smoothing":0.35,"motion_blur":0.25,"click_bounce":0.18,)"
              R"("sway":0.08,"loop_mode":false})");
    expectRoundTrip(CursorStyle{.isVisible = false, .size = 2.0, .loopMode = true});
    EXPECT_EQ(decodeFailure<CursorStyle>(R"({"visible":true,"size":1,"smoothing":0.3,"motion_blur":0,)"
                                         R"("click_bounce":0,"sway":0})"),
              "/loop_mode: required key is missing");
    EXPECT_EQ(decodeFailure<CursorStyle>(R"({"visible":1})"),
              "/visible: expected a boolean, found an integer");
}

TEST(ClipZoomRegion, storesTimesAsRecordsAndIsAKeyframe) {
    const ClipZoomRegion region{{1001, 30000}, {3, 1}, {0.1, 0.2, 0.5, 0.5}};
    EXPECT_EQ(
        compactJson(region),
        R"({"timeline_start":{"value":1001,"timescale":30000},"timeline_end":{"value":3,"timescale":1},)"
        R"("source_rect":{"x":0.1,"y":0.2,"width":0.5,"height":0.5}})");
    expectRoundTrip(region);
    EXPECT_EQ(region.asKeyframe(), (ReframeKeyframe{{1001, 30000}, {3, 1}, {0.1, 0.2, 0.5, 0.5}}));
    EXPECT_EQ(ClipZoomRegion::fromKeyframe(region.asKeyframe()), region);
}

}  // namespace
}  // namespace morvane::engine
