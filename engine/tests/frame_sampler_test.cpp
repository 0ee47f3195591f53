#include "morvane/engine/render/frame_sampler.hpp"

#include <gtest/gtest.h>

#include <fstream>

#include "morvane/engine/engine_error.hpp"
#include "morvane/engine/render/video_frame.hpp"
#include "morvane/testing/synthetic_media.hpp"
#include "morvane/testing/temp_dir.hpp"

namespace morvane::engine {
namespace {

using morvane::testing::readCounter;

std::optional<int> counterOf(const SampledFrame& frame) {
    const RGBAImage& image = frame.image;
    return readCounter(image.pixels.data(), image.width, image.height, 0, 0, image.width, image.height);
}

TEST(FrameSamplerMedia, givesThePictureShownAtATimeWithItsOwnTime) {
    const morvane::testing::TempDir dir;
    const auto movie = morvane::testing::makeCounterMovie(dir.path() / "count.mp4", 1.0);
    FrameSampler sampler(movie, {});
    EXPECT_FALSE(sampler.isStill());
    EXPECT_EQ(sampler.sampleSize(), (PixelSize{320, 240}));
    struct Case {
        double asked;
        std::optional<int> frame;  // none: no picture within 0.25 s
    } cases[] = {
        {0.0, 0},
        {0.5, 15},
        {0.51, 15},  // the picture still shown, reported at its own time
        {0.2, 6},    // backwards
        {1.2, 29},   // the last picture lies 0.23 s before: within the tolerance
        {1.3, std::nullopt},
    };
    for (const auto& c : cases) {
        const auto frame = sampler.frameNear(c.asked);
        ASSERT_EQ(frame.has_value(), c.frame.has_value()) << c.asked;
        if (!frame) continue;
        EXPECT_EQ(counterOf(*frame), c.frame) << c.asked;
        EXPECT_NEAR(frame->seconds, *c.frame / 30.0, 1e-3) << c.asked;
        EXPECT_EQ(frame->image.size(), sampler.sampleSize());
    }
}

TEST(FrameSamplerMedia, portraitPicturesOfAnyWidthConvertWithinTheirBuffer) {
    // H.264 codes 1080 columns as 1088; the converter must not write the padding past the picture.
    const morvane::testing::TempDir dir;
    for (const int width : {1080}) {
        const auto movie = morvane::testing::makeCounterMovie(dir.path() / "tall.mp4", 0.2,
                                                              {.width = width, .height = 1920});
        FrameSampler sampler(movie, {}, {.maxDimension = 1920});
        for (const double t : {0.0, 0.1}) {
            const auto frame = sampler.frameNear(t);
            ASSERT_TRUE(frame.has_value()) << width;
            EXPECT_EQ(frame->image.size(), (PixelSize{width, 1920}));
            EXPECT_EQ(frame->image.pixels.size(), static_cast<std::size_t>(width) * 1920 * 4);
            EXPECT_EQ(counterOf(*frame), static_cast<int>(t * 30 + 0.5)) << width;
        }
    }
}

TEST(FrameSamplerMedia, aTurnedRecordingIsSampledUpright) {
    const morvane::testing::TempDir dir;
    const auto phone =
        morvane::testing::makeCounterMovie(dir.path() / "phone.mov", 1.0, {.rotationDegrees = 90});
    FrameSampler sampler(phone, {});
    EXPECT_EQ(sampler.sampleSize(), (PixelSize{240, 320}));
    const auto frame = sampler.frameNear(5.0 / 30.0);
    ASSERT_TRUE(frame.has_value());
    const RGBAImage& image = frame->image;
    ASSERT_EQ(image.size(), (PixelSize{240, 320}));
    EXPECT_EQ(morvane::testing::readTurnedCounter(image.pixels.data(), 240, 320), 5);
}

TEST(FrameSamplerMedia, largePicturesShrinkToFitAndStillsAreRecognised) {
    const morvane::testing::TempDir dir;
    const auto movie = morvane::testing::makeCounterMovie(dir.path() / "count.mp4", 0.5);
    FrameSampler small(movie, {}, {.maxDimension = 160});
    EXPECT_EQ(small.sampleSize(), (PixelSize{160, 120}));
    const auto frame = small.frameNear(0.1);
    ASSERT_TRUE(frame.has_value());
    EXPECT_EQ(frame->image.size(), (PixelSize{160, 120}));
    EXPECT_EQ(counterOf(*frame), 3);

    const auto png = dir.path() / "still.png";
    writePNG(RGBAImage::filled({64, 48}, {200, 10, 10, 255}), png);
    FrameSampler still(png, {});
    EXPECT_TRUE(still.isStill());
    const auto picture = still.frameNear(12.0);  // a still answers any time
    ASSERT_TRUE(picture.has_value());
    EXPECT_EQ(picture->image.pixel(10, 10)[0], 200);

    const auto garbage = dir.path() / "garbage.mp4";
    std::ofstream(garbage) << "not a movie at all";
    EXPECT_THROW(FrameSampler sampler(garbage, {}), EngineError);
}

}  // namespace
}  // namespace morvane::engine
