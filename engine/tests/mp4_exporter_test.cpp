// The choices the MP4 exporter makes before it encodes: the preset, the output size, the text it keeps,
// the range and the frame count of the report.

#include "morvane/engine/export/mp4_exporter.hpp"

#include <fmt/core.h>
#include <gtest/gtest.h>

#include "morvane/engine/engine_error.hpp"
#include "record_json.hpp"

namespace morvane::engine {
namespace {

using P = ExportPresetName;
using B = ExportVideoBitrate;
using C = ExportVideoCodec;

TEST(MP4Exporter, aKnownRenderSizeChoosesThePresetByItsHeightOtherwiseTheBitrateDoes) {
    const struct {
        C codec;
        B bitrate;
        std::optional<RenderSize> size;
        P preset;
    } cases[] = {
        {C::h264, B::max, RenderSize{854, 480}, P::preset640x480},
        {C::h264, B::low, RenderSize{854, 480.4}, P::preset640x480},
        {C::h264, B::automatic, RenderSize{854, 481}, P::preset1280x720},
        {C::h264, B::automatic, RenderSize{1280, 720}, P::preset1280x720},
        {C::h264, B::low, RenderSize{1920, 1080}, P::preset1920x1080},
        {C::h264, B::automatic, RenderSize{1920, 1081}, P::preset3840x2160},
        {C::h264, B::automatic, RenderSize{1080, 1920}, P::preset3840x2160},
        {C::h264, B::automatic, std::nullopt, P::preset1920x1080},
        {C::h264, B::medium, std::nullopt, P::preset1920x1080},
        {C::h264, B::low, std::nullopt, P::preset1280x720},
        {C::h264, B::high, std::nullopt, P::highestQuality},
        {C::h264, B::max, std::nullopt, P::preset3840x2160},
        {C::h264, B::high, RenderSize{0, 1080}, P::highestQuality},  // a side of zero is no size
        {C::hevc, B::max, RenderSize{1920, 1080}, P::hevc1920x1080},
        {C::hevc, B::low, RenderSize{2560, 1440}, P::hevcHighestQuality},
        {C::hevc, B::medium, std::nullopt, P::hevc1920x1080},
        {C::hevc, B::automatic, std::nullopt, P::hevcHighestQuality},
        {C::proRes422, B::low, RenderSize{640, 360}, P::proRes422LPCM},
        {C::proRes422, B::max, std::nullopt, P::proRes422LPCM},
        {C::gif, B::automatic, RenderSize{1920, 1080}, P::preset640x480},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(MP4Exporter::exportPresetName(c.codec, c.bitrate, c.size), c.preset)
            << label(c.codec) << " " << label(c.bitrate) << " " << (c.size ? c.size->height : -1.0);
    }
}

TEST(MP4Exporter, thePictureShrinksIntoThePresetKeepingItsShapeAndNeverGrows) {
    const struct {
        PixelSize size;
        std::optional<PixelSize> box;
        PixelSize out;
    } cases[] = {
        {{1920, 1080}, PixelSize{1280, 720}, {1280, 720}},
        {{1080, 1920}, PixelSize{1920, 1080}, {608, 1080}},
        {{640, 360}, PixelSize{1920, 1080}, {640, 360}},
        {{3840, 2160}, std::nullopt, {3840, 2160}},
        {{853, 481}, std::nullopt, {852, 480}},  // 4:2:0 needs even sides
        {{1, 1}, PixelSize{640, 480}, {2, 2}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(fittedOutputSize(c.size, c.box), c.out) << c.size.width << "x" << c.size.height;
    }
    EXPECT_EQ(encoderSettings(P::proRes422LPCM).fileType, ExportFileType::quickTimeMovie);
    EXPECT_TRUE(encoderSettings(P::proRes422LPCM).pcmAudio);
    EXPECT_EQ(encoderSettings(P::hevc1920x1080).maxSize, (PixelSize{1920, 1080}));
}

EditPlanOperation text(double start, double end, bool payload = true) {
    EditPlanOperation op{.type = "text",
                         .sourceID = "text",
                         .start = fmt::format("{}/600", std::llround(start * 600)),
                         .end = fmt::format("{}/600", std::llround(end * 600))};
    if (payload) op.text = EditPlanTextPayload{.content = fmt::format("at {}", start)};
    return op;
}

TEST(MP4Exporter, onlyTextInsideTheRangeIsKeptAndItMovesToTheEndOfThePlan) {
    EditPlan plan;
    plan.operations = {text(0, 2),
                       {.type = "keep", .sourceID = "src1", .start = "0/600", .end = "6000/600"},
                       text(2, 4),
                       text(4, 6, false),
                       text(8, 9)};
    EXPECT_EQ(MP4Exporter::textOperations(plan, std::nullopt).size(), 3u);  // the one without a payload never
    EXPECT_EQ(MP4Exporter::textOperations(plan, ExportTimeRange{1.0, 1.04}).size(),
              3u);  // too short to filter

    const auto kept = MP4Exporter::textOperations(plan, ExportTimeRange{2.0, 8.0});
    ASSERT_EQ(kept.size(), 1u);  // [0, 2) ends at the start; [8, 9) starts at the end
    EXPECT_EQ(kept[0].start, "1200/600");

    const EditPlan trimmed = MP4Exporter::trimmedPlanKeepingText(plan, kept);
    ASSERT_EQ(trimmed.operations.size(), 2u);
    EXPECT_EQ(trimmed.operations[0].type, "keep");
    EXPECT_EQ(trimmed.operations[1], kept[0]);

    plan.operations.push_back(text(5, 7));
    plan.operations.back().end = "7s";
    EXPECT_THROW((void)MP4Exporter::textOperations(plan, ExportTimeRange{2.0, 8.0}), EngineError);
}

TEST(MP4Exporter, theRangeIsCutToTheCompositionAndDroppedWhenNothingIsLeft) {
    const RationalTime length{6000, 600};  // 10 s
    const struct {
        std::optional<ExportTimeRange> range;
        std::optional<TimeSpan> span;
    } cases[] = {
        {std::nullopt, std::nullopt},
        {ExportTimeRange{2.0, 4.0}, TimeSpan{{1200, 600}, {2400, 600}}},
        {ExportTimeRange{8.0, 30.0}, TimeSpan{{4800, 600}, {6000, 600}}},
        {ExportTimeRange{12.0, 30.0}, std::nullopt},  // starts past the end: the whole composition instead
        {ExportTimeRange{3.0, 3.04}, std::nullopt},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(MP4Exporter::exportTimeSpan(c.range, length), c.span)
            << (c.range ? c.range->startSeconds : -1.0);
    }
}

TEST(MP4Exporter, frameCountTakesWholeFramesOfThePlansFrameDuration) {
    EXPECT_EQ(MP4Exporter::frameCount(10.0, "1001/30000"), 299);  // 299.7 frames
    EXPECT_EQ(MP4Exporter::frameCount(10.0, "1/30"), 300);
    EXPECT_EQ(MP4Exporter::frameCount(0.0333, "1/30"), 0);
    EXPECT_EQ(MP4Exporter::frameCount(5.0, "0/30"), 0);
    EXPECT_THROW((void)MP4Exporter::frameCount(5.0, "1/0"), EngineError);
}

TEST(MP4Exporter, theReportRoundTripsThroughJson) {
    const RenderReport report{"/out/talk.mp4", 12.5, 375};
    EXPECT_EQ(testing::compactJson(report),
              R"({"outputPath":"/out/talk.mp4","durationSeconds":12.5,"frameCount":375})");
    testing::expectRoundTrip(report);
}

}  // namespace
}  // namespace morvane::engine
