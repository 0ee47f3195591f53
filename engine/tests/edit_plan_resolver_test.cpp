#include "morvane/engine/plan/edit_plan_resolver.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <limits>

#include "morvane/engine/engine_error.hpp"

namespace morvane::engine {
namespace {

EditPlanOperation op(std::string type, std::string source, std::string start, std::string end) {
    return {.type = std::move(type),
            .sourceID = std::move(source),
            .start = std::move(start),
            .end = std::move(end)};
}

EditPlanOperation keep(std::string source, std::string start, std::string end) {
    return op("keep", std::move(source), std::move(start), std::move(end));
}

EditPlanOperation placed(EditPlanOperation operation, std::string timelineStart,
                         std::optional<std::string> track = {}) {
    operation.timelineStart = std::move(timelineStart);
    operation.trackID = std::move(track);
    return operation;
}

EditPlanOperation onTrack(EditPlanOperation operation, std::string track) {
    operation.trackID = std::move(track);
    return operation;
}

EditPlan planOf(std::vector<EditPlanOperation> operations) {
    EditPlan plan;
    plan.timeline.frameDuration = "1/30";
    plan.operations = std::move(operations);
    return plan;
}

// track, source, source start and program start of each clip, as "track src start@position".
std::vector<std::string> layoutOf(const std::vector<ProgramClip>& clips) {
    std::vector<std::string> out;
    for (const auto& clip : clips)
        out.push_back(clip.trackID + " " + clip.sourceID + " " + clip.start.formatted(false) + "@" +
                      std::to_string(clip.timelineStart.seconds()).substr(0, 5));
    return out;
}

using Lines = std::vector<std::string>;

TEST(EditPlanResolver, programClipsLayOutEachTrack) {
    struct Case {
        const char* name;
        std::vector<EditPlanOperation> operations;
        Lines layout;
    } cases[] = {
        {"bare keeps close up in source order, whatever their document order or source",
         {keep("b", "8/1", "10/1"), keep("a", "0/1", "3/1"), keep("a", "4/1", "5/1")},
         {"primary a 0/1@0.000", "primary a 4/1@3.000", "primary b 8/1@4.000"}},
        {"one placed keep stops the whole track's layout",
         {keep("a", "0/1", "3/1"), placed(keep("a", "4/1", "5/1"), "7/1"), keep("a", "6/1", "9/1")},
         {"primary a 0/1@0.000", "primary a 6/1@0.000", "primary a 4/1@7.000"}},
        {"primary and program each lay out, other tracks keep positions, tracks in name order",
         {onTrack(keep("a", "5/1", "6/1"), "text"), onTrack(keep("a", "2/1", "4/1"), "program"),
          keep("a", "3/1", "5/1"), placed(keep("a", "0/1", "1/1"), "9/1", "overlay"),
          placed(keep("a", "0/1", "1/1"), "2/1", "overlay"), onTrack(keep("a", "1/1", "2/1"), "program"),
          onTrack(keep("a", "0/1", "1/1"), "audio"), onTrack(keep("a", "0/1", "1/1"), "layout")},
         {"audio a 0/1@0.000", "layout a 0/1@0.000", "overlay a 0/1@2.000", "overlay a 0/1@9.000",
          "primary a 3/1@0.000", "program a 1/1@0.000", "program a 2/1@1.000", "text a 5/1@0.000"}},
        {"empty and reversed spans drop out; unknown and other types are skipped",
         {keep("a", "2/1", "2/1"), keep("a", "5/1", "4/1"), op("clip", "a", "1/1", "2/1"),
          op("text", "t", "0/1", "1/1"), op("wipe", "a", "0/1", "1/1"), op("transition", "a", "0/1", "1/1"),
          op("layout", "layout", "0/1", "9/1")},
         {"primary t 0/1@0.000", "primary a 1/1@1.000"}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(layoutOf(EditPlanResolver::programClips(planOf(c.operations))), c.layout) << c.name;
}

TEST(EditPlanResolver, playbackRateSetsDurationAndLayout) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    struct Case {
        std::optional<double> rate;
        double storedRate;
        RationalTime duration;
    } cases[] = {
        {2.0, 2.0, {300000, 60000}},         {0.5, 0.5, {1200000, 60000}},
        {0.0, 1.0, {600000, 60000}},         {-1.0, 1.0, {600000, 60000}},
        {nan, 1.0, {600000, 60000}},         {std::nullopt, 1.0, {600000, 60000}},
        {1.00005, 1.00005, {600000, 60000}},  // counts as 1x for length, stored as given
    };
    for (const auto& c : cases) {
        auto first = keep("a", "0/1", "10/1");
        first.playbackRate = c.rate;
        const auto clips = EditPlanResolver::programClips(planOf({first, keep("a", "20/1", "21/1")}));
        ASSERT_EQ(clips.size(), 2u);
        EXPECT_EQ(clips[0].playbackRate, c.storedRate);
        EXPECT_EQ(clips[0].sourceDuration(), (RationalTime{600000, 60000}));
        EXPECT_EQ(clips[0].duration(), c.duration) << c.storedRate;
        EXPECT_EQ(clips[1].timelineStart, c.duration) << "the next clip starts where this one ends";
    }
}

TEST(EditPlanResolver, programClipsCarryTheOperationsFields) {
    auto operation = op("clip", "src2", "1/1", "2/1");
    operation.origin = EditPlanOrigin{"segment", std::vector<std::int64_t>{7, 8}};
    operation.label = "Screen";
    operation.audioGain = 0.25;
    operation.slotID = "webcam";
    operation.text = EditPlanTextPayload{.content = "x"};
    operation.transform = EditPlanTransform{.sourceRect = EditPlanRect{0, 0, 1, 1}};
    operation.matte = ClipMatte::person(ClipMatteFill::timeline());
    operation.transition = EditPlanTransition{"fade", "1/2"};
    operation.presentationStyle = ClipPresentationStyle::demoDefault();
    operation.cursorStyle = CursorStyle{};
    operation.cursorTrackID = "src2";
    operation.reframeKeyframes = std::vector<ReframeKeyframe>{{{0, 1}, {1, 1}, {0, 0, 0.5, 0.5}}};
    operation.reason = "not carried";
    const auto clips = EditPlanResolver::programClips(planOf({operation}));
    ASSERT_EQ(clips.size(), 1u);
    const ProgramClip expected{
        .type = "clip",
        .sourceID = "src2",
        .trackID = "primary",
        .start = {1, 1},
        .end = {2, 1},
        .timelineStart = RationalTime::zero,
        .label = "Screen",
        .originSegmentIDs = std::vector<std::int64_t>{7, 8},
        .audioGain = 0.25,
        .playbackRate = 1.0,
        .text = operation.text,
        .transform = operation.transform,
        .slotID = "webcam",
        .reframeKeyframes = operation.reframeKeyframes,
        .matte = operation.matte,
        .transition = operation.transition,
        .presentationStyle = operation.presentationStyle,
        .cursorStyle = operation.cursorStyle,
        .cursorTrackID = "src2",
    };
    EXPECT_EQ(clips[0], expected);
    EXPECT_EQ(clips[0].resolvedReframeKeyframes(), operation.reframeKeyframes);

    // A user's zoom replaces the automatic reframe.
    auto zoomed = clips[0];
    zoomed.zoomRegions = std::vector<ClipZoomRegion>{{{2, 1}, {3, 1}, {0.5, 0.5, 0.5, 0.5}}};
    EXPECT_EQ(zoomed.resolvedReframeKeyframes(),
              (std::vector<ReframeKeyframe>{{{2, 1}, {3, 1}, {0.5, 0.5, 0.5, 0.5}}}));
}

TEST(EditPlanResolver, keepSpansSortBySourceThenTime) {
    auto reasoned = keep("b", "1/1", "2/1");
    reasoned.reason = "kept for pace";
    const auto spans = EditPlanResolver::keepSpans(planOf({
        keep("b", "5/1", "6/1"), reasoned, op("clip", "a", "0/1", "1/1"), keep("a", "3/1", "9/1"),
        keep("a", "3/1", "4/1"), keep("a", "1/1", "1/1"), keep("a", "2/1", "1/1"), keep("a", "1/2", "7/1"),
        keep("a", "30000/60000", "5/1"),  // the same instant on another timescale orders by its end
    }));
    EXPECT_EQ(spans, (std::vector<KeepSpan>{
                         {"a", {30000, 60000}, {5, 1}, std::nullopt},
                         {"a", {1, 2}, {7, 1}, std::nullopt},
                         {"a", {3, 1}, {4, 1}, std::nullopt},
                         {"a", {3, 1}, {9, 1}, std::nullopt},
                         {"b", {1, 1}, {2, 1}, "kept for pace"},
                         {"b", {5, 1}, {6, 1}, std::nullopt},
                     }));
    EXPECT_TRUE(EditPlanResolver::keepSpans(planOf({op("clip", "a", "0/1", "1/1")})).empty());
}

TEST(EditPlanResolver, transitionsAreKeyedByTheTimeAsWritten) {
    auto at = [](std::string start, std::optional<std::string> timelineStart, std::string kind) {
        auto operation = op("transition", "a", std::move(start), "0/1");
        operation.timelineStart = std::move(timelineStart);
        operation.transition = EditPlanTransition{std::move(kind), "1/2"};
        return operation;
    };
    const auto table = EditPlanResolver::transitions(planOf({
        at("9/1", "1/2", "crossfade"),
        at("3/1", std::nullopt, "dip"),
        at("4/1", "3/1", "wipe"),             // replaces "dip": equal key
        op("transition", "a", "bad", "bad"),  // no transition: skipped unread
        at("1/1", "60000/60000", "fade"),
    }));
    EXPECT_EQ(table.size(), 3u);
    EXPECT_EQ(table.at({1, 2}).kind, "crossfade");
    EXPECT_EQ(table.count({30000, 60000}), 0u);  // keys compare field by field
    EXPECT_EQ(table.at({3, 1}).kind, "wipe");
    EXPECT_EQ(table.at({60000, 60000}).kind, "fade");
    EXPECT_EQ(table.count({1, 1}), 0u);
    EXPECT_EQ(table.begin()->first, (RationalTime{1, 2}));
}

std::string failureOf(const std::function<void()>& resolve) {
    try {
        resolve();
    } catch (const EngineError& e) {
        EXPECT_EQ(e.kind(), EngineError::Kind::invalidRationalTime);
        return e.what();
    }
    return "(no failure)";
}

TEST(EditPlanResolver, oneBadTimeMakesThePlanUnusable) {
    const auto badTransition = [] {
        auto operation = op("transition", "a", "soon", "0/1");
        operation.transition = EditPlanTransition{"fade", "1/2"};
        return operation;
    }();
    struct Case {
        const char* name;
        std::vector<EditPlanOperation> operations;
        std::string clips;
        std::string keeps;
        std::string transitions;
    } cases[] = {
        {"a bad start in a keep",
         {keep("a", "0/1", "1/1"), keep("a", "1.5s", "2/1")},
         "Invalid rational time: 1.5s",
         "Invalid rational time: 1.5s",
         "(no failure)"},
        {"a bad position on a reversed clip, which would be dropped anyway",
         {placed(op("clip", "a", "5/1", "1/1"), "12")},
         "Invalid rational time: 12",
         "(no failure)",
         "(no failure)"},
        {"a bad time in a transition troubles only the transitions",
         {keep("a", "0/1", "1/1"), badTransition},
         "(no failure)",
         "(no failure)",
         "Invalid rational time: soon"},
        {"a timescale beyond 32 bits, which no time can hold",
         {keep("a", "450450/3000444444444440", "1/1")},
         "Invalid rational time: 450450/3000444444444440",
         "Invalid rational time: 450450/3000444444444440",
         "(no failure)"},
        {"operations of unknown types are never read",
         {op("sparkle", "a", "x", "y"), op("layout", "l", "?", "?")},
         "(no failure)",
         "(no failure)",
         "(no failure)"},
    };
    for (const auto& c : cases) {
        const auto plan = planOf(c.operations);
        EXPECT_EQ(failureOf([&] { (void)EditPlanResolver::programClips(plan); }), c.clips) << c.name;
        EXPECT_EQ(failureOf([&] { (void)EditPlanResolver::keepSpans(plan); }), c.keeps) << c.name;
        EXPECT_EQ(failureOf([&] { (void)EditPlanResolver::transitions(plan); }), c.transitions) << c.name;
    }
}

TEST(EditPlanResolver, checkTimesNamesThePathOfTheFirstBadTime) {
    auto withCaptions = op("text", "t", "0/1", "1/1");
    withCaptions.text = EditPlanTextPayload{.content = "a b"};
    withCaptions.text->captionWords =
        std::vector<EditPlanCaptionWord>{{"a", "0/1", "1/2"}, {"b", "1/2", "one"}};
    auto transition = op("transition", "a", "1/1", "1/1");
    transition.transition = EditPlanTransition{"fade", "half"};
    struct Case {
        std::vector<EditPlanOperation> operations;
        std::string failure;
    } cases[] = {
        {{keep("a", "0/1", "1/1"), keep("a", "1/1", "2/1"), keep("a", "2/1", "3/1"), keep("a", "3s", "4/1")},
         "plan.json: /operations/3/start: Invalid rational time: 3s"},
        {{placed(keep("a", "0/1", "1/1"), "later")},
         "plan.json: /operations/0/timeline_start: Invalid rational time: later"},
        {{withCaptions}, "plan.json: /operations/0/text/caption_words/1/end: Invalid rational time: one"},
        {{transition}, "plan.json: /operations/0/transition/duration: Invalid rational time: half"},
        {{op("layout", "l", "0/1", "end")}, "plan.json: /operations/0/end: Invalid rational time: end"},
        {{op("layout", "l", "0/4294967296", "1/1")},
         "plan.json: /operations/0/start: Invalid rational time: 0/4294967296"},
        {{op("sparkle", "a", "x", "y"), op("transition", "a", "x", "y")}, "(no failure)"},
    };
    for (const auto& c : cases) {
        std::string failure = "(no failure)";
        try {
            EditPlanResolver::checkTimes(planOf(c.operations), "plan.json");
        } catch (const JsonDecodeError& e) {
            failure = e.what();
        }
        EXPECT_EQ(failure, c.failure);
    }

    auto plan = planOf({});
    plan.timeline.frameDuration = "30fps";
    EXPECT_THROW(EditPlanResolver::checkTimes(plan), JsonDecodeError);
    plan.timeline.frameDuration = "";  // empty falls back to a default when the format is resolved
    plan.sources = {{"s", "u", "1/0", false, std::nullopt}};
    try {
        EditPlanResolver::checkTimes(plan);
        ADD_FAILURE();
    } catch (const JsonDecodeError& e) {
        EXPECT_STREQ(e.what(), "/sources/0/frame_duration: Invalid rational time: 1/0");
    }
}

}  // namespace
}  // namespace morvane::engine
