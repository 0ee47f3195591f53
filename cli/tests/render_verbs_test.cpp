// `morvane frame` and `morvane render-audio` on a plan with two generated sources, a layout and a zoom.

#include <gtest/gtest.h>

#include <cmath>

#include "morvane/engine/audio/pcm_sample_reader.hpp"
#include "morvane/engine/render/video_frame.hpp"
#include "morvane/testing/process.hpp"
#include "morvane/testing/synthetic_media.hpp"
#include "morvane/testing/temp_dir.hpp"

namespace morvane {
namespace {

using testing::runMorvane;

// Source "a" fills the frame, zoomed on its top-left quarter; "b" sits in the webcam corner from 3 s of its
// own time.
constexpr const char* kPlan = R"({"version":"0.3",
  "timeline":{"frame_duration":"1/30","render_size":"320x240"},
  "sources":[{"id":"a","url":"a.mov","frame_duration":"1/30","vfr":false},
             {"id":"b","url":"b.mov","frame_duration":"1/30","vfr":false}],
  "operations":[
    {"type":"keep","source_id":"a","start":"0/1","end":"4/1",
     "zoom_regions":[{"timeline_start":{"value":0,"timescale":1},"timeline_end":{"value":4,"timescale":1},
                      "source_rect":{"x":0,"y":0,"width":0.5,"height":0.5}}]},
    {"type":"clip","source_id":"b","start":"3/1","end":"7/1","timeline_start":"0/1","track_id":"overlay",
     "slot_id":"webcam"},
    {"type":"layout","source_id":"layout","start":"0/1","end":"4/1","label":"pip"}]})";

class MorvaneRenderCli : public ::testing::Test {
  protected:
    void SetUp() override {
        morvane::testing::makeCounterMovie(dir_.path() / "a.mov", 5.0, {.toneHz = 440.0});
        morvane::testing::makeCounterMovie(dir_.path() / "b.mov", 8.0, {.palette = 1});
        plan_ = dir_.write("cut.json", kPlan);
    }
    morvane::testing::TempDir dir_;
    std::filesystem::path plan_;
};

int level(const engine::RGBAImage& image, int x, int y) {
    const auto* p = image.pixel(x, y);
    return (p[0] + p[1] + p[2]) / 3;
}

TEST_F(MorvaneRenderCli, frameWritesTheZoomedPictureWithTheWebcamInItsCorner) {
    const auto png = dir_.path() / "frame.png";
    const auto result = runMorvane({"frame", plan_.string(), "--at", "2.01", "-o", png.string()});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, "Wrote " + png.string() + ": 320x240, frame 60 at 2.000 s\n");
    const engine::RGBAImage image = engine::readImage(png);
    ASSERT_EQ(image.width, 320);
    ASSERT_EQ(image.height, 240);
    // Frame 60 is 0b111100. Doubled, the cells of bits 0 and 1 fill the top and those of bits 4 and 5 the
    // bottom third; unzoomed, the bottom would show bit 8 (off).
    EXPECT_LT(level(image, 40, 60), 60);
    EXPECT_GT(level(image, 40, 200), 190);
    EXPECT_GT(level(image, 240, 200), 190);
    // The webcam shows b's frame 150 (3 s + 2 s) in the "pip" slot.
    const auto webcam = morvane::testing::readCounter(image.pixels.data(), 320, 240, 0.66 * 320, 0.05 * 240,
                                                      0.3 * 320, 0.3 * 240);
    EXPECT_EQ(webcam, 150);
}

TEST_F(MorvaneRenderCli, frameOutsideTheProgramFailsWithTheCompositorsText) {
    const auto result =
        runMorvane({"frame", plan_.string(), "--at", "9", "-o", (dir_.path() / "x.png").string()});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, "morvane: Decode failed: Missing composition instruction or pixel buffer\n");
    EXPECT_FALSE(std::filesystem::exists(dir_.path() / "x.png"));
}

TEST_F(MorvaneRenderCli, renderAudioWritesTheMixedProgram) {
    const auto wav = dir_.path() / "mix.wav";
    const auto result = runMorvane({"render-audio", plan_.string(), "-o", wav.string()});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const auto mix = engine::PCMSampleReader::readMonoFloat(wav, 48000);
    ASSERT_EQ(mix.samples.size(), 4u * 48000u);
    double sum = 0.0;
    for (std::size_t i = 48000; i < 96000; ++i)
        sum += static_cast<double>(mix.samples[i]) * mix.samples[i];
    EXPECT_NEAR(std::sqrt(sum / 48000.0), 0.5 / std::sqrt(2.0), 0.01);  // a's tone; b has no sound
}

}  // namespace
}  // namespace morvane
