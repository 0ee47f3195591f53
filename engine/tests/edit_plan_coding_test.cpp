#include "morvane/engine/plan/edit_plan_coding.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <nlohmann/json.hpp>

#include "record_json.hpp"

namespace morvane::engine {
namespace {

// A plan that sets every field of every record at least once.
EditPlan richPlan() {
    EditPlan plan;
    plan.timeline = {"1001/30000", "1080x1920", "display_p3"};
    plan.sources = {
        {"src1", "media/talk.mov", "1001/30000", false, std::nullopt},
        {"src2", "/abs/screen.mov", "1/60", true,
         CursorTrack{{{0.0, 0.5, 0.5, {}}, {0.016, 0.52, 0.49, {CursorButtons::primary}}}, 1920, 1080}},
    };
    EditPlanTextPayload caption{.content = "Hello there"};
    caption.backgroundAlpha = 0.6;
    caption.fontSize = 64.0;
    caption.captionWords = std::vector<EditPlanCaptionWord>{{"Hello", "0/1", "1/2"}, {"there", "1/2", "1/1"}};
    plan.operations = {
        {.type = "keep",
         .sourceID = "src1",
         .start = "0/30000",
         .end = "90090/30000",
         .origin = EditPlanOrigin{"instruction", std::vector<std::int64_t>{3, 4, 5000000000}},
         .confidence = 0.93,
         .reason = "strong opening"},
        {.type = "clip",
         .sourceID = "src2",
         .start = "600/600",
         .end = "3000/600",
         .timelineStart = "0/1",
         .trackID = "overlay",
         .label = "Screen",
         .audioGain = 0.5,
         .playbackRate = 1.5,
         .transform = EditPlanTransform{EditPlanRect{0.1, 0.1, 0.8, 0.8}, EditPlanRect{0.66, 0.05, 0.3, 0.3}},
         .slotID = "webcam",
         .reframeKeyframes = std::vector<ReframeKeyframe>{{{0, 1}, {1, 1}, {0, 0, 0.5, 0.5}}},
         .matte =
             ClipMatte::chroma({0, 1, 0, 1}, 0.4, 0.1, ClipMatteFill::gradient({1, 1, 1, 1}, {0, 0, 0, 1})),
         .presentationStyle = ClipPresentationStyle::demoDefault(),
         .cursorStyle = CursorStyle{.sway = 0.2},
         .cursorTrackID = "src2",
         .zoomRegions = std::vector<ClipZoomRegion>{{{1, 2}, {3, 2}, {0.25, 0.25, 0.5, 0.5}}}},
        {.type = "text", .sourceID = "title", .start = "0/1", .end = "2/1", .text = caption},
        {.type = "transition",
         .sourceID = "src1",
         .start = "3/1",
         .end = "3/1",
         .transition = EditPlanTransition{"crossfade", "1/2"}},
        {.type = "layout", .sourceID = "layout", .start = "0/1", .end = "5/1", .label = "pip"},
        {.type = "sparkle", .sourceID = "src1", .start = "?", .end = "?"},
    };
    return plan;
}

// Every object in `json`, in the order the text has it, has its keys in byte order.
void expectSortedKeys(const Json& json, const std::string& path = "") {
    if (json.is_object()) {
        std::string previous;
        bool first = true;
        for (const auto& item : json.items()) {
            EXPECT_TRUE(first || previous < item.key())
                << path << ": " << previous << " before " << item.key();
            previous = item.key();
            first = false;
            expectSortedKeys(item.value(), path + "/" + item.key());
        }
    } else if (json.is_array()) {
        for (std::size_t i = 0; i < json.size(); ++i)
            expectSortedKeys(json[i], path + "/" + std::to_string(i));
    }
}

std::string decodeFailure(std::string_view text) {
    try {
        (void)EditPlanCoding::decode(text, "plan.json");
    } catch (const JsonDecodeError& e) {
        return e.what();
    }
    return "(no failure)";
}

TEST(EditPlanCoding, roundTripsEveryRecordToTheSameBytes) {
    const EditPlan plan = richPlan();
    const std::string bytes = EditPlanCoding::encode(plan);
    EXPECT_EQ(EditPlanCoding::decode(bytes), plan);
    EXPECT_EQ(EditPlanCoding::encode(plan), bytes);
    EXPECT_EQ(EditPlanCoding::encode(EditPlanCoding::decode(bytes)), bytes);
    expectSortedKeys(parseJson(bytes, "encoded"));
    // The transform alone keeps camel case among snake-case neighbours.
    EXPECT_NE(bytes.find(R"("destinationRect": {)"), std::string::npos);
    EXPECT_NE(bytes.find(R"("sourceRect": {)"), std::string::npos);
    EXPECT_NE(bytes.find(R"("slot_id": "webcam")"), std::string::npos);

    // Each record of the plan round-trips on its own as well.
    const auto& clip = plan.operations[1];
    testing::expectRoundTrip(*clip.transform);
    testing::expectRoundTrip(*clip.matte);
    testing::expectRoundTrip(*plan.operations[2].text);
    testing::expectRoundTrip(*plan.operations[0].origin);
    testing::expectRoundTrip(*plan.operations[3].transition);
    testing::expectRoundTrip(*plan.sources[1].cursorTrack);
    testing::expectRoundTrip(plan.timeline);
}

TEST(EditPlanCoding, writesPrettySortedJson) {
    EditPlan plan;
    plan.timeline.frameDuration = "1/30";
    plan.sources = {{"src1", "a.mov", "1/30", false, std::nullopt}};
    plan.operations = {
        {.type = "keep", .sourceID = "src1", .start = "0/1", .end = "1/1", .playbackRate = 2.0}};
    EXPECT_EQ(EditPlanCoding::encode(plan), R"({
  "operations": [
    {
      "end": "1/1",
      "playback_rate": 2.0,
      "source_id": "src1",
      "start": "0/1",
      "type": "keep"
    }
  ],
  "sources": [
    {
      "frame_duration": "1/30",
      "id": "src1",
      "url": "a.mov",
      "vfr": false
    }
  ],
  "timeline": {
    "frame_duration": "1/30"
  },
  "version": "0.3"
})");
}

TEST(EditPlanCoding, refusesWhatJsonCannotHold) {
    auto plan = richPlan();
    plan.operations[1].playbackRate = std::numeric_limits<double>::quiet_NaN();
    try {
        (void)EditPlanCoding::encode(plan);
        ADD_FAILURE() << "NaN must not be written";
    } catch (const EditPlanEncodeError& e) {
        EXPECT_STREQ(e.what(), "/operations/1/playback_rate: cannot write a number that is not finite");
    }
    plan = richPlan();
    plan.operations[0].reason = std::string("caf\xe9");
    EXPECT_THROW((void)EditPlanCoding::encode(plan), EditPlanEncodeError);
}

TEST(EditPlanCoding, aTextPayloadMayBeOneKey) {
    const auto plan = EditPlanCoding::decode(
        R"({"version":"0.3","timeline":{"frame_duration":"1/30"},"sources":[],
            "operations":[{"type":"text","source_id":"t","start":"0/1","end":"1/1","text":{"content":"Hi"}}]})");
    const EditPlanTextPayload& text = *plan.operations[0].text;
    EXPECT_EQ(text, EditPlanTextPayload{.content = "Hi"});
    EXPECT_EQ(text.fontSize, 48.0);
    EXPECT_EQ(text.fontName, "Helvetica-Bold");
    EXPECT_EQ((std::array{text.textRed, text.textGreen, text.textBlue, text.textAlpha}),
              (std::array{1.0, 1.0, 1.0, 1.0}));
    EXPECT_EQ(text.horizontalAlign, "center");
    EXPECT_EQ(text.verticalPosition, "center");
    EXPECT_EQ(text.margin, 24.0);
    EXPECT_EQ(text.preset, "title");
    EXPECT_EQ((std::array{text.highlightRed, text.highlightGreen, text.highlightBlue, text.highlightAlpha}),
              (std::array{1.0, 0.85, 0.2, 1.0}));
    EXPECT_FALSE(text.backgroundRed || text.captionWords);
}

TEST(EditPlanCoding, readsLeniently) {
    // Unknown keys anywhere, null optionals, another version, a transform written in snake case (whose keys
    // are then simply unknown): all read.
    const auto plan = EditPlanCoding::decode(
        R"({"version":"9.1","generator":"elsewhere","timeline":{"frame_duration":"1/30","render_size":null},
            "sources":[{"id":"s","url":"u","vfr":true,"frame_duration":"1/30","codec":"prores"}],
            "operations":[{"type":"clip","source_id":"s","start":"0/1","end":"1/1","label":null,"extra":[1,2],
                           "transform":{"source_rect":{"x":0,"y":0,"width":1,"height":1}}}]})");
    EXPECT_EQ(plan.version, "9.1");
    EXPECT_FALSE(plan.timeline.renderSize.has_value());
    EXPECT_TRUE(plan.sources[0].vfr);
    EXPECT_FALSE(plan.operations[0].label.has_value());
    EXPECT_EQ(plan.operations[0].transform, EditPlanTransform{});
}

TEST(EditPlanCoding, failuresSayWhere) {
    const std::string head =
        R"({"version":"0.3","timeline":{"frame_duration":"1/30"},"sources":[],"operations":[)";
    const std::string keep = R"({"type":"keep","source_id":"s","start":"0/1","end":"1/1"})";
    struct Case {
        std::string json;
        std::string failure;
    } cases[] = {
        {R"({"timeline":{"frame_duration":"1/30"},"sources":[],"operations":[]})",
         "plan.json: /version: required key is missing"},
        {head + keep + "," + keep + "," + keep + R"(,{"type":"keep","source_id":"s","end":"1/1"}]})",
         "plan.json: /operations/3/start: required key is missing"},
        {head + R"({"type":"keep","source_id":"s","start":0,"end":"1/1"}]})",
         "plan.json: /operations/0/start: expected a string, found an integer"},
        {head + R"({"type":"keep","source_id":"s","start":"0/1","end":"1/1","origin":{"kind":"segment",)"
                R"("segment_ids":[1,2.5]}}]})",
         "plan.json: /operations/0/origin/segment_ids/1: expected an integer, found 2.500000"},
        {head + R"({"type":"keep","source_id":"s","start":"0/1","end":"1/1","matte":{"kind":"person",)"
                R"("fill":{"solid":{},"image":{}},"chroma_similarity":0,"chroma_smoothness":0}}]})",
         "plan.json: /operations/0/matte/fill: Invalid number of keys found, expected one."},
        {head + R"({"type":"keep","source_id":"s","start":"0/1","end":"1/1","playback_rate":"fast"}]})",
         "plan.json: /operations/0/playback_rate: expected a number, found a string"},
        {head + R"({"type":"text","source_id":"s","start":"0/1","end":"1/1","text":{"font_size":12}}]})",
         "plan.json: /operations/0/text/content: required key is missing"},
        {R"({"version":"0.3","timeline":{},"sources":[],"operations":[]})",
         "plan.json: /timeline/frame_duration: required key is missing"},
        {R"({"version":"0.3","timeline":{"frame_duration":"1/30"},"sources":{},"operations":[]})",
         "plan.json: /sources: expected an array, found an object"},
        {R"({"version":"0.3","timeline":{"frame_duration":"1/30"},"sources":[{"id":"s","url":"u",)"
         R"("frame_duration":"1/30","vfr":true,"cursor_track":{"samples":[{"seconds":0,"x":0,"y":0,)"
         R"("buttons":256}],"captureWidth":1,"captureHeight":1}}],"operations":[]})",
         "plan.json: /sources/0/cursor_track/samples/0/buttons: expected button bits from 0 to 255"},
        {head + R"({"type":"keep","source_id":"s","start":"0/1","end":"1/1","confidence":1e999}]})",
         "plan.json: not valid JSON: number overflow parsing '1e999'"},
        {"[]", "plan.json: /: expected an object, found an array"},
        {R"({"version":"0.3")",
         "plan.json: not valid JSON: parse error at line 1, column 17: syntax error while "
         "parsing object - unexpected end of input; expected '}'"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(decodeFailure(c.json), c.failure) << c.json;
}

TEST(EditPlanCoding, sourceURLsResolveAgainstThePlansFolder) {
    EditPlan plan = richPlan();
    const std::pair<const char*, const char*> cases[] = {
        {"media/a.mov", "file:///home/me/talk/media/a.mov"},
        {"/abs/b.mov", "/abs/b.mov"},
        {"file:///elsewhere/c.mov", "file:///elsewhere/c.mov"},
        {"https://example.com/d.mov", "file:///home/me/talk/https:/example.com/d.mov"},
        {"../shared/./e.mov", "file:///home/me/shared/e.mov"},
        {"take 2 #1?.mov", "file:///home/me/talk/take%202%20%231%3F.mov"},
        {"caf\xc3\xa9.mov", "file:///home/me/talk/caf%C3%A9.mov"},
        {"C:\\clips\\f.mov", "file:///home/me/talk/C:%5Cclips%5Cf.mov"},
    };
    plan.sources.clear();
    for (const auto& [url, resolved] : cases)
        plan.sources.push_back({"s", url, "1/30", false, std::nullopt});
    const EditPlan resolvedPlan = EditPlanCoding::resolveSourceURLs(plan, "/home/me/talk");
    ASSERT_EQ(resolvedPlan.sources.size(), std::size(cases));
    for (std::size_t i = 0; i < std::size(cases); ++i)
        EXPECT_EQ(resolvedPlan.sources[i].url, cases[i].second) << cases[i].first;
    // Nothing else changes.
    EditPlan withoutURLs = resolvedPlan;
    for (std::size_t i = 0; i < std::size(cases); ++i)
        withoutURLs.sources[i].url = plan.sources[i].url;
    EXPECT_EQ(withoutURLs, plan);
}

}  // namespace
}  // namespace morvane::engine
