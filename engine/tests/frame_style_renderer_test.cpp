// The framed look and the pointer against golden pictures. A golden matches when the two pictures mean the
// same: at most 1.5 levels of mean difference per channel, and under 1% of pixels off by more than 12
// levels (edges antialias a little differently from one compiler to the next). MORVANE_UPDATE_GOLDEN=1
// writes the pictures as they are now.

#include "morvane/engine/render/frame_style_renderer.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <memory>

#include "morvane/engine/render/cursor_layer_renderer.hpp"
#include "morvane/engine/render/video_frame.hpp"
#include "morvane/testing/temp_dir.hpp"

namespace morvane::engine {
namespace {

constexpr PixelSize kCanvas{192, 108};

// A 160 x 90 picture with something to see in every region: a colour ramp, a bright diagonal, a frame.
RGBAImage testPicture() {
    RGBAImage image = RGBAImage::filled({160, 90});
    for (int y = 0; y < 90; ++y) {
        for (int x = 0; x < 160; ++x) {
            std::uint8_t* p = image.pixel(x, y);
            const bool line = std::abs(x * 90 - y * 160) < 160;
            const bool edge = x < 3 || y < 3 || x >= 157 || y >= 87;
            p[0] = line ? 255 : static_cast<std::uint8_t>(x * 255 / 159);
            p[1] = line ? 255 : static_cast<std::uint8_t>(y * 255 / 89);
            p[2] = edge ? 255 : 90;
            p[3] = 255;
        }
    }
    return image;
}

// The picture placed to fill the canvas, as a layer of the compositor would place it.
AffineTransform filling() {
    return AffineTransform::scale(192.0 / 160.0, 108.0 / 90.0);
}

void expectMatchesGolden(const RGBAImage& image, const std::string& name) {
    const auto path = std::filesystem::path(MORVANE_SOURCE_DIR) / "engine/tests/golden" / (name + ".png");
    const char* update = std::getenv("MORVANE_UPDATE_GOLDEN");
    if (update != nullptr && std::string(update) == "1") {
        writePNG(image, path);
        GTEST_SKIP() << "rewrote " << path;
    }
    ASSERT_TRUE(std::filesystem::exists(path)) << path << " is missing: run with MORVANE_UPDATE_GOLDEN=1";
    const RGBAImage golden = readImage(path);
    ASSERT_EQ(golden.size(), image.size()) << name;
    double total = 0.0;
    std::size_t off = 0;
    for (std::size_t i = 0; i < image.pixels.size(); i += 4) {
        for (int k = 0; k < 3; ++k) {
            const int d = std::abs(image.pixels[i + static_cast<std::size_t>(k)] -
                                   golden.pixels[i + static_cast<std::size_t>(k)]);
            total += d;
            if (d > 12) ++off;
        }
    }
    const double channels = static_cast<double>(image.pixels.size()) / 4 * 3;
    EXPECT_LE(total / channels, 1.5) << name;
    EXPECT_LE(static_cast<double>(off) / channels, 0.01) << name;
}

ClipPresentationStyle smallFramed() {
    // The demo style with its pixel lengths scaled to a 108-line canvas.
    auto style = ClipPresentationStyle::demoDefault();
    style.shadowRadius = 6.0;
    style.shadowOffsetY = 5.0;
    return style;
}

TEST(FrameStyleRenderer, drawsTheFramedLooksAsTheirGoldens) {
    struct Case {
        std::string name;
        std::optional<ClipPresentationStyle> style;
        double slotCorner;
    };
    auto edgeToEdge = ClipPresentationStyle{.cornerRadius = 0.04,
                                            .background = ClipBackgroundFill::solid({1.0, 0.5, 0.0, 1.0})};
    auto square = smallFramed();
    square.outputAspectWidth = 1.0;
    square.outputAspectHeight = 1.0;
    auto blurred = smallFramed();
    blurred.background = ClipBackgroundFill::blurSource();
    const std::vector<Case> cases{
        {"framed_gradient_shadow", smallFramed(), 0.0}, {"rounded_edge_to_edge", edgeToEdge, 0.0},
        {"framed_square_aspect", square, 0.0},          {"framed_blurred_source", blurred, 0.0},
        {"plain_slot_corner", std::nullopt, 0.1},
    };
    const RGBAImage picture = testPicture();
    for (const auto& c : cases) {
        FrameStyleRenderer renderer;
        RGBAImage canvas = RGBAImage::filled(kCanvas);
        static_cast<void>(
            renderer.apply(canvas, picture, filling(), std::nullopt, c.style, c.slotCorner, 1.0f, nullptr));
        expectMatchesGolden(canvas, c.name);
        // Drawn again from the kept backdrop, the frame is the same.
        RGBAImage again = RGBAImage::filled(kCanvas);
        static_cast<void>(
            renderer.apply(again, picture, filling(), std::nullopt, c.style, c.slotCorner, 1.0f, nullptr));
        EXPECT_EQ(again, canvas) << c.name;
    }
}

TEST(FrameStyleRenderer, placesThePictureInThePaddedRectangleAndRoundsItsCorners) {
    const auto g =
        FrameStyleRenderer::geometry(ClipPresentationStyle::demoDefault(), {0, 0, 1920, 1080}, {1920, 1080});
    // Padding 0.08 of 1080 on each side; the 16:9 picture fits the wider rectangle by its height, centred.
    EXPECT_NEAR(g.inner.x, 86.4, 1e-9);
    EXPECT_NEAR(g.inner.width, 1920 - 2 * 86.4, 1e-9);
    EXPECT_NEAR(g.plate.height, g.inner.height, 1e-9);
    EXPECT_NEAR(g.plate.width, g.inner.height * 16 / 9, 1e-9);
    EXPECT_NEAR(g.plate.x + g.plate.width / 2, 960, 1e-9);
    EXPECT_NEAR(g.cornerRadius, 0.04 * (1080 - 2 * 86.4), 1e-9);
    EXPECT_NEAR(g.fit.apply({1920, 1080}).x, g.plate.maxX(), 1e-9);
    // No padding: edge to edge. A corner larger than half the picture is held to half.
    const auto tight = FrameStyleRenderer::geometry({.cornerRadius = 0.9}, {0, 0, 1920, 1080}, {1920, 1080});
    EXPECT_EQ(tight.plate, (RectD{0, 0, 1920, 1080}));
    EXPECT_NEAR(tight.cornerRadius, 540, 1e-9);
}

TEST(FrameStyleRenderer, blurredSourceWithNoFrameShowsThePlainColour) {
    RGBAImage out;
    FrameStyleRenderer::backgroundImage(out, {.background = ClipBackgroundFill::blurSource()}, {8, 4},
                                        nullptr, nullptr);
    const RGBA8 fallback = RGBA8::fromStraight(0.08, 0.09, 0.12, 1.0);
    EXPECT_EQ(out, RGBAImage::filled({8, 4}, fallback));
    FrameStyleRenderer::backgroundImage(out, {}, {8, 4}, nullptr, nullptr);
    EXPECT_EQ(out, RGBAImage::filled({8, 4}));  // none: transparent
}

TEST(CursorLayerRenderer, drawsThePointerWhereTheTrackSaysThroughThePicturesPlacement) {
    auto track = std::make_shared<const CursorTrack>(
        CursorTrack{.samples = {{0.0, 0.25, 0.25, {}}, {1.0, 0.5, 0.5, {}}, {2.0, 0.5, 0.5, {1}}},
                    .captureWidth = 160,
                    .captureHeight = 90});
    CursorLayerRenderer renderer;
    RGBAImage canvas = RGBAImage::filled(kCanvas, {40, 40, 40, 255});
    renderer.overlay(
        canvas, track, CursorStyle{.sway = 0.0},
        {.compositionTime = RationalTime{1, 1}, .plateTransform = filling(), .sourceSize = {160, 90}});
    expectMatchesGolden(canvas, "pointer");
    // Hidden, or before a track with no samples: nothing drawn.
    RGBAImage untouched = RGBAImage::filled(kCanvas, {40, 40, 40, 255});
    RGBAImage hidden = untouched;
    renderer.overlay(hidden, track, CursorStyle{.isVisible = false},
                     {.plateTransform = filling(), .sourceSize = {160, 90}});
    renderer.overlay(hidden, std::make_shared<const CursorTrack>(), CursorStyle{}, {.sourceSize = {160, 90}});
    EXPECT_EQ(hidden, untouched);
}

TEST(CursorLayerRenderer, timesThePointerInItsRecordingAndEasesClicks) {
    const CursorTrack track{
        .samples = {{0.0, 0, 0, {}}, {1.0, 0, 0, {1}}, {1.5, 0, 0, {1}}, {2.0, 0, 0, {}}, {4.0, 0, 0, {}}}};
    struct Case {
        double time;
        double rate;
        bool loop;
        double seconds;
    };
    for (const Case& c : std::vector<Case>{{12.0, 1.0, false, 5.0},
                                           {12.0, 2.0, false, 7.0},
                                           {12.0, 0.0, false, 3.02},
                                           {12.0, 1.0, true, 1.0},
                                           {9.0, 1.0, true, 2.0}}) {
        const CursorPlacement placement{.compositionTime = RationalTime::fromSeconds(c.time, 600),
                                        .clipTimelineStart = RationalTime{10, 1},
                                        .clipSourceStart = 3.0,
                                        .playbackRate = c.rate};
        EXPECT_NEAR(CursorLayerRenderer::pointerSeconds(track, {.loopMode = c.loop}, placement), c.seconds,
                    1e-9)
            << c.time << " at " << c.rate << (c.loop ? " looped" : "");
    }
    for (const auto& [time, press] : std::vector<std::pair<double, double>>{
             {0.5, 0.0}, {1.0, 0.0}, {1.06, 0.5}, {1.12, 1.0}, {1.9, 1.0}, {2.06, 0.5}, {2.2, 0.0}})
        EXPECT_NEAR(CursorLayerRenderer::clickProgress(track, time), press, 1e-9) << time;
}

TEST(CursorTrack, samplesBetweenPointsAndSmoothsOverAWindow) {
    const CursorTrack track{.samples = {{0.0, 0.0, 0.0, {}}, {1.0, 0.3, 0.6, {1}}, {2.0, 0.0, 0.0, {}}}};
    EXPECT_FALSE(CursorTrack{}.sample(1.0));
    EXPECT_EQ(track.sample(-1.0)->x, 0.0);
    const auto half = track.sample(0.5);
    EXPECT_NEAR(half->x, 0.15, 1e-12);
    EXPECT_EQ(half->buttons.rawValue, 1);  // the later sample's buttons
    EXPECT_EQ(track.smoothed(1), track);
    const auto smooth = track.smoothed(3);
    EXPECT_NEAR(smooth.samples[1].x, 0.1, 1e-12);
    EXPECT_NEAR(smooth.samples[0].x, 0.15, 1e-12);  // fewer neighbours at the ends
    EXPECT_EQ(smooth.samples[1].seconds, 1.0);
}

}  // namespace
}  // namespace morvane::engine
