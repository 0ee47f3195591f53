#include "preview/preview_player.hpp"

#include <gtest/gtest.h>

#include <fmt/core.h>

#include "studio_fixture.hpp"

namespace morvane::studio {
namespace {

using testing::waitUntil;

// A 6 s counter movie at 30 fps, cut to source 1–3 s then 4–5 s: program frame n shows source frame 30 + n
// for n < 60, then 120 + (n − 60).
class PreviewPlayerMedia : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        dir_ = new morvane::testing::TempDir();
        morvane::testing::makeCounterMovie(dir_->path() / "count.mov", 6.0, {.toneHz = 440.0});
    }
    static void TearDownTestSuite() {
        delete dir_;
        dir_ = nullptr;
    }

    static engine::EditPlan plan() {
        engine::EditPlan p;
        p.timeline.frameDuration = "1/30";
        p.timeline.renderSize = "320x240";
        p.sources = {{.id = "a", .url = (dir_->path() / "count.mov").string(), .frameDuration = "1/30"}};
        p.operations = {{.type = "keep", .sourceID = "a", .start = "600/600", .end = "1800/600"},
                        {.type = "keep", .sourceID = "a", .start = "2400/600", .end = "3000/600"}};
        return p;
    }

    // The source frame number the player shows now.
    [[nodiscard]] std::optional<int> shownCounter() const {
        const QImage image = player.currentImage().convertToFormat(QImage::Format_RGBA8888);
        if (image.isNull()) return std::nullopt;
        return morvane::testing::readCounter(image.constBits(), image.width(), image.height(), 0, 0,
                                             image.width(), image.height());
    }

    bool showsFrameAt(double seconds) {
        return waitUntil(
            [&] {
                return player.currentImageTime() && std::abs(*player.currentImageTime() - seconds) < 0.001;
            },
            20);
    }

    static morvane::testing::TempDir* dir_;
    int frames = 0;
    std::vector<std::string> failures;
    PreviewPlayer player{{.frameChanged = [this] { ++frames; },
                          .failed = [this](const std::string& reason) { failures.push_back(reason); }}};
};

morvane::testing::TempDir* PreviewPlayerMedia::dir_ = nullptr;

TEST_F(PreviewPlayerMedia, seeksAndStepsShowTheFrameOfTheirProgramTime) {
    player.setDisplaySize({320, 240});
    player.setPlan(plan());
    ASSERT_TRUE(showsFrameAt(0.0));
    EXPECT_TRUE(player.isReady());
    EXPECT_NEAR(player.duration(), 3.0, 1e-6);
    EXPECT_EQ(shownCounter(), 30);

    struct Step {
        const char* what;
        std::function<void()> act;
        double programSeconds;
        int sourceFrame;
    };
    const std::vector<Step> steps{
        {"seek into the first cut", [&] { player.seek(1.5); }, 1.5, 75},
        {"seek across the cut", [&] { player.seek(2.5); }, 2.5, 135},
        {"step back over the cut", [&] { player.stepFrames(-16); }, 59 / 30.0, 89},
        {"step forward across it", [&] { player.stepFrames(1); }, 2.0, 120},
        {"seek past the end shows the last frame", [&] { player.seek(99.0); }, 3.0 - 1 / 30.0, 149},
        {"step past the start stops there", [&] { player.stepFrames(-1000); }, 0.0, 30},
    };
    for (const auto& step : steps) {
        step.act();
        ASSERT_TRUE(showsFrameAt(step.programSeconds)) << step.what;
        EXPECT_EQ(shownCounter(), step.sourceFrame) << step.what;
    }
    EXPECT_TRUE(failures.empty()) << failures.front();
}

TEST_F(PreviewPlayerMedia, playsToTheEndAndStopsThereThenPlaysAgainFromTheStart) {
    player.setPlan(plan());
    ASSERT_TRUE(showsFrameAt(0.0));
    player.seek(2.0);
    player.play();
    EXPECT_TRUE(player.isPlaying());
    ASSERT_TRUE(waitUntil([&] { return !player.isPlaying(); }, 20));
    EXPECT_NEAR(player.position(), 3.0 - 1 / 30.0, 1e-6);
    const auto stats = player.statistics();
    EXPECT_GT(stats.framesShown, 0);
    EXPECT_LE(stats.framesShown + stats.framesDropped, 31);  // no frame shown twice
    ASSERT_TRUE(showsFrameAt(3.0 - 1 / 30.0));
    EXPECT_EQ(shownCounter(), 149);

    player.play();  // at the end: from the start again
    EXPECT_LT(player.position(), 0.5);
    player.pause();
    EXPECT_FALSE(player.isPlaying());
}

TEST_F(PreviewPlayerMedia, aPlanThatCantBeBuiltSaysWhyAndShowsNothing) {
    engine::EditPlan broken = plan();
    broken.sources.front().url = (dir_->path() / "gone.mov").string();
    player.setPlan(broken);
    ASSERT_TRUE(waitUntil([&] { return !failures.empty(); }));
    EXPECT_NE(failures.front().find("gone.mov"), std::string::npos) << failures.front();
    EXPECT_FALSE(player.isReady());
    EXPECT_TRUE(player.currentImage().isNull());

    // A good plan after it plays again; no plan at all empties the picture.
    player.setPlan(plan());
    ASSERT_TRUE(showsFrameAt(0.0));
    player.setPlan(std::nullopt);
    ASSERT_TRUE(waitUntil([&] { return player.currentImage().isNull(); }));
}

TEST_F(PreviewPlayerMedia, aSourceWithAProxyPlaysFromTheProxy) {
    // The stand-in counts the same frames in blue and yellow instead of black and white.
    const auto proxy = morvane::testing::makeCounterMovie(dir_->path() / "proxy.mov", 6.0, {.palette = 1});
    // How far from grey the picture is: blue and yellow cells are far, black and white ones aren't.
    const auto colourfulness = [&] {
        const QImage image = player.currentImage().convertToFormat(QImage::Format_RGB32);
        const QColor corner = image.pixelColor(image.width() / 8, image.height() / 6);
        return std::abs(corner.red() - corner.blue());
    };
    player.setDisplaySize({320, 240});
    player.setPlan(plan());
    ASSERT_TRUE(showsFrameAt(0.0));
    EXPECT_LT(colourfulness(), 40);
    player.setPlan(plan(), {{"a", proxy.string()}});
    ASSERT_TRUE(waitUntil([&] { return player.isReady() && colourfulness() > 100; }, 20));
    player.seek(1.5);
    ASSERT_TRUE(showsFrameAt(1.5));
    EXPECT_GT(colourfulness(), 100);
    EXPECT_TRUE(failures.empty());
}

}  // namespace
}  // namespace morvane::studio
