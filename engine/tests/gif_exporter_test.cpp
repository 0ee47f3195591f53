// GIFs written from a counter recording, read back with the ffmpeg command: each picture must be the
// program's frame at its time, at the GIF's size, and the file must say whether it loops.

#include "morvane/engine/export/gif_exporter.hpp"

#include <gtest/gtest.h>

#include <fmt/core.h>

#include <fstream>
#include <iterator>

#include "morvane/engine/engine_error.hpp"
#include "morvane/engine/support/files.hpp"
#include "morvane/testing/synthetic_media.hpp"
#include "morvane/testing/temp_dir.hpp"

namespace morvane::engine {
namespace {

namespace fs = std::filesystem;
using morvane::testing::TempDir;

TEST(GIFExporter, frameCountFloorsTheLengthAtATenthOfASecondAndRoundsUp) {
    struct Case {
        double seconds;
        int rate;
        std::int64_t frames;
    };
    for (const Case& c : {Case{0.05, 30, 3}, Case{0.0, 12, 2}, Case{2.0, 12, 24}, Case{2.01, 12, 25},
                          Case{1.0, 4, 4}, Case{-3.0, 30, 3}})
        EXPECT_EQ(GIFExporter::frameCount(c.seconds, c.rate), c.frames) << c.seconds << " s at " << c.rate;
}

// A 3-second 320x240 counter recording at 30 fps.
class GIFExporterMedia : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        dir_ = new TempDir();
        morvane::testing::makeCounterMovie(dir_->path() / "count.mov", 3.0, {.toneHz = 440.0});
    }
    static void TearDownTestSuite() {
        delete dir_;
        dir_ = nullptr;
    }

    static EditPlan plan() {
        EditPlan p;
        p.timeline.frameDuration = "1/30";
        p.timeline.renderSize = "320x240";
        p.sources = {{.id = "a", .url = (dir_->path() / "count.mov").string(), .frameDuration = "1/30"}};
        p.operations = {{.type = "keep", .sourceID = "a", .start = "0/600", .end = "1800/600"}};
        return p;
    }

    // The pictures of `gif`, decoded to RGBA.
    static std::vector<std::vector<std::uint8_t>> pictures(const fs::path& gif, int width, int height) {
        const fs::path raw = gif.string() + ".rgba";
        morvane::testing::runFfmpeg({"-i", gif.string(), "-f", "rawvideo", "-pix_fmt", "rgba", raw.string()});
        std::ifstream in(raw, std::ios::binary);
        const std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(in), {}};
        const auto size = static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4;
        std::vector<std::vector<std::uint8_t>> out;
        for (std::size_t at = 0; at + size <= bytes.size(); at += size)
            out.emplace_back(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                             bytes.begin() + static_cast<std::ptrdiff_t>(at + size));
        return out;
    }

    static bool loops(const fs::path& gif) {
        std::ifstream in(gif, std::ios::binary);
        const std::string bytes{std::istreambuf_iterator<char>(in), {}};
        return bytes.find("NETSCAPE2.0") != std::string::npos;
    }

    TempDir out_;
    static TempDir* dir_;
};

TempDir* GIFExporterMedia::dir_ = nullptr;

TEST_F(GIFExporterMedia, eachPictureIsTheProgramAtItsTimeScaledToFit) {
    const fs::path to = out_.path() / "count.gif";
    std::vector<double> shares;
    const RenderReport report =
        GIFExporter::render(plan(), AudioFinishingOptions::preview(), ExportTimeRange{0.5, 2.5},
                            {.framesPerSecond = 10, .loop = true, .maxDimension = 160}, to,
                            [&](double share) { shares.push_back(share); });
    EXPECT_EQ(report.outputPath, to.string());
    EXPECT_EQ(report.frameCount, 20);
    EXPECT_DOUBLE_EQ(report.durationSeconds, 2.0);
    EXPECT_EQ(morvane::testing::streamCodecs(to), std::vector<std::string>{"gif"});
    EXPECT_TRUE(loops(to));
    EXPECT_FALSE(fs::exists(partialFileBeside(to)));

    const auto frames = pictures(to, 160, 120);
    ASSERT_EQ(frames.size(), 20u);
    for (std::size_t i = 0; i < frames.size(); ++i) {
        // 0.5 s in, then a tenth of a second (3 source frames) per picture.
        EXPECT_EQ(morvane::testing::readCounter(frames[i].data(), 160, 120, 0, 0, 160, 120),
                  static_cast<int>(15 + 3 * i))
            << "picture " << i;
    }
    ASSERT_FALSE(shares.empty());
    EXPECT_TRUE(std::is_sorted(shares.begin(), shares.end()));
    EXPECT_EQ(shares.back(), 1.0);
}

TEST_F(GIFExporterMedia, aGifThatDoesNotLoopPlaysOnceAndAStopLeavesNothing) {
    const fs::path once = out_.path() / "once.gif";
    (void)GIFExporter::render(plan(), AudioFinishingOptions::preview(), ExportTimeRange{0.0, 1.0},
                              {.framesPerSecond = 4, .loop = false, .maxDimension = 480}, once);
    EXPECT_FALSE(loops(once));
    // Never enlarged: the 320x240 program stays 320x240 under a limit of 480.
    EXPECT_EQ(pictures(once, 320, 240).size(), 4u);

    const fs::path stopped = out_.path() / "stopped.gif";
    std::stop_source stop;
    EXPECT_THROW((void)GIFExporter::render(
                     plan(), AudioFinishingOptions::preview(), std::nullopt, {}, stopped,
                     [&](double share) {
                         if (share > 0.3) stop.request_stop();
                     },
                     stop.get_token()),
                 OperationCancelled);
    EXPECT_FALSE(fs::exists(stopped));
    EXPECT_FALSE(fs::exists(partialFileBeside(stopped)));
}

}  // namespace
}  // namespace morvane::engine
