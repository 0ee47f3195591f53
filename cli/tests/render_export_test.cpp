// `morvane render` on the bundled sample: movies FFmpeg reads, of the kept length, quiet at the cuts, with
// captions FFmpeg reads back; and the ways an export fails: a missing source, an output under a file, a
// full disk and Ctrl-C.

#include <fmt/core.h>
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <nlohmann/json.hpp>

#include "morvane/engine/audio/pcm_sample_reader.hpp"
#include "morvane/engine/support/json.hpp"
#include "morvane/testing/process.hpp"
#include "morvane/testing/synthetic_media.hpp"
#include "morvane/testing/temp_dir.hpp"

namespace morvane {
namespace {

namespace fs = std::filesystem;
using testing::runMorvane;
using testing::runProcess;

constexpr double kFrame = 1.0 / 30.0;

fs::path sample() {
    return testing::sourceDir() / "samples" / "talk.mp4";
}

// A plan of `keeps` (source seconds) of the sample at its own 640x360 canvas, with two captions.
std::string planOf(std::vector<std::pair<double, double>> keeps) {
    Json operations = Json::array();
    for (const auto& [start, end] : keeps) {
        operations.push_back({{"type", "keep"},
                              {"source_id", "src1"},
                              {"start", fmt::format("{}/600", std::llround(start * 600))},
                              {"end", fmt::format("{}/600", std::llround(end * 600))}});
    }
    for (const auto& [start, end, text] : {std::tuple{"600/600", "1800/600", "Hi everyone,"},
                                           std::tuple{"2400/600", "3300/600", "today --> a cut"}}) {
        operations.push_back({{"type", "text"},
                              {"source_id", "text"},
                              {"track_id", "text"},
                              {"start", start},
                              {"end", end},
                              {"timeline_start", start},
                              {"text", {{"content", text}}}});
    }
    const Json plan = {
        {"version", "0.3"},
        {"timeline", {{"frame_duration", "1/30"}, {"render_size", "640x360"}}},
        {"sources",
         {{{"id", "src1"}, {"url", sample().string()}, {"frame_duration", "1/30"}, {"vfr", false}}}},
        {"operations", operations}};
    return plan.dump(2);
}

double probedDuration(const fs::path& path) {
    const auto result = runProcess({"/usr/bin/ffprobe", "-v", "error", "-show_entries", "format=duration",
                                    "-of", "csv=p=0", path.string()});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    return result.exitCode == 0 ? std::stod(result.out) : -1.0;
}

double rms(std::span<const float> samples) {
    double sum = 0.0;
    for (const float s : samples)
        sum += static_cast<double>(s) * s;
    return samples.empty() ? 0.0 : std::sqrt(sum / static_cast<double>(samples.size()));
}

class MorvaneRenderExport : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(fs::exists(sample())) << "the build makes " << sample(); }

    std::vector<std::string> listing() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(out_.path()))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }

    testing::TempDir out_;
};

TEST_F(MorvaneRenderExport, theSampleCutPlaysForItsKeptLengthQuietAtTheCutsWithItsCaptions) {
    // Cuts that miss the sample's key frames (every 2 s): every frame is encoded.
    const std::vector<std::pair<double, double>> keeps{{0.5, 6.1}, {9.3, 14.0}, {23.7, 30.0}};
    const auto plan = out_.write("cut.json", planOf(keeps));
    const struct {
        std::vector<std::string> flags;
        const char* file;
        std::vector<std::string> codecs;
    } cases[] = {
        {{}, "cut.mp4", {"h264", "aac"}},
        {{"--codec", "hevc"}, "cut-hevc.mp4", {"hevc", "aac"}},
        {{"--codec", "prores", "--preset", "podcast"}, "cut.mov", {"prores", "pcm_s16le"}},
    };
    const double kept = 5.6 + 4.7 + 6.3;
    for (const auto& c : cases) {
        const fs::path movie = out_.path() / c.file;
        std::vector<std::string> args{"render", plan.string(), "-o", movie.string(), "--json"};
        args.insert(args.end(), c.flags.begin(), c.flags.end());
        const auto result = runMorvane(args);
        ASSERT_EQ(result.exitCode, 0) << result.err;
        const Json report = parseJson(result.out, "report");
        EXPECT_NEAR(report["durationSeconds"].get<double>(), kept, kFrame) << c.file;
        EXPECT_NEAR(probedDuration(movie), kept, kFrame) << c.file;
        EXPECT_EQ(testing::streamCodecs(movie), c.codecs) << c.file;

        // The captions beside the movie, read back by FFmpeg; no cue can fake a timing line.
        fs::path srt = movie;
        srt.replace_extension("srt");
        EXPECT_EQ(report["captionsPath"].get<std::string>(), srt.string());
        const auto readBack = runProcess(
            {"/usr/bin/ffmpeg", "-nostdin", "-loglevel", "error", "-i", srt.string(), "-f", "srt", "-"});
        ASSERT_EQ(readBack.exitCode, 0) << readBack.err;
        EXPECT_NE(readBack.out.find("Hi everyone,"), std::string::npos) << readBack.out;
        EXPECT_NE(readBack.out.find("today → a cut"), std::string::npos) << readBack.out;

        // Speech plays between the cuts; at each cut the sound has ramped down to nothing.
        const auto sound = engine::PCMSampleReader::readMonoFloat(movie, 48000);
        const std::span<const float> samples = sound.samples;
        EXPECT_GT(rms(samples), 0.02) << c.file;
        for (const double cut : {5.6, 5.6 + 4.7}) {
            const auto at = static_cast<std::size_t>(std::llround(cut * 48000));
            EXPECT_LT(rms(samples.subspan(at - 96, 192)), 0.01) << c.file << " at " << cut;
        }
    }
}

TEST_F(MorvaneRenderExport, keyFrameCutsOfTheSampleAreCopiedAndStillOfTheirLength) {
    const auto plan = out_.write("cut.json", planOf({{2.0, 6.0}, {10.0, 20.0}, {30.0, 34.0}}));
    const fs::path movie = out_.path() / "copy.mp4";
    const auto result = runMorvane({"render", plan.string(), "-o", movie.string()});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NEAR(probedDuration(movie), 18.0, kFrame);
    EXPECT_EQ(testing::countVideoFrames(movie), 540);
    // A copy keeps the sample's own pictures: the first frame is the sample's frame at 2 s, exactly.
    EXPECT_EQ(testing::thumbnailDifference(testing::grayThumbnail(movie, 0.0),
                                           testing::grayThumbnail(sample(), 2.0)),
              0.0);
    EXPECT_TRUE(result.out.starts_with("Wrote " + movie.string() + ": 18.0")) << result.out;
    EXPECT_TRUE(
        result.out.ends_with(" s, 540 frames\nCaptions: " + (out_.path() / "copy.srt").string() + "\n"))
        << result.out;
}

TEST_F(MorvaneRenderExport, aGifOutputWritesAnAnimationWithoutSoundOrCaptions) {
    const auto plan = out_.write("cut.json", planOf({{2.0, 6.0}, {10.0, 12.0}}));
    // The extension alone asks for a GIF.
    const fs::path gif = out_.path() / "loop.GIF";
    const auto result =
        runMorvane({"render", plan.string(), "-o", gif.string(), "--gif-fps", "10", "--gif-size", "320"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, "Wrote " + gif.string() + ": 6.000 s, 60 frames\n");
    EXPECT_EQ(testing::streamCodecs(gif), std::vector<std::string>{"gif"});
    EXPECT_EQ(testing::countVideoFrames(gif), 60);
    EXPECT_NEAR(probedDuration(gif), 6.0, 0.02);
    // The 640x360 canvas fitted within 320 pixels.
    const auto size = runProcess({"/usr/bin/ffprobe", "-v", "error", "-show_entries", "stream=width,height",
                                  "-of", "csv=p=0", gif.string()});
    EXPECT_EQ(size.out, "320,180\n");
    EXPECT_EQ(listing(), (std::vector<std::string>{"cut.json", "loop.GIF"}));
}

TEST_F(MorvaneRenderExport, aMissingSourceOrAnOutputUnderAFileFailsWithItsReason) {
    std::string text = planOf({{0.0, 4.0}});
    const std::string missing = (out_.path() / "gone.mp4").string();
    text.replace(text.find(sample().string()), sample().string().size(), missing);
    const auto plan = out_.write("cut.json", text);
    auto result = runMorvane({"render", plan.string(), "-o", (out_.path() / "cut.mp4").string()});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, "morvane: Missing file: " + missing + "\n");

    const auto good = out_.write("good.json", planOf({{0.0, 4.0}}));
    const auto blocker = out_.write("blocker", "");
    result = runMorvane({"render", good.string(), "-o", (blocker / "cut.mp4").string()});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, "morvane: Export failed: Could not create the folder " + blocker.string() +
                              ": Not a directory\n");
    EXPECT_EQ(listing(), (std::vector<std::string>{"blocker", "cut.json", "good.json"}));
}

TEST_F(MorvaneRenderExport, aFullDiskFailsTheExportAndLeavesNothingBehind) {
    // A 1 MB file system of its own, in a mount namespace of the run's own, so no privileges are needed.
    const auto plan = out_.write("cut.json", planOf({{0.5, 30.0}}));
    const fs::path disk = out_.path() / "disk";
    fs::create_directory(disk);
    const std::string script = fmt::format(
        "mount -t tmpfs -o size=1m none '{0}' || exit 77; '{1}' render '{2}' -o '{0}/cut.mp4' --codec "
        "prores; "
        "rc=$?; ls -A '{0}'; exit $rc",
        disk.string(), (testing::binaryDir() / "bin" / "morvane").string(), plan.string());
    const auto result =
        runProcess({"/usr/bin/unshare", "--map-root-user", "--mount", "/bin/sh", "-c", script});
    if (result.exitCode == 77 || result.err.find("unshare") != std::string::npos)
        GTEST_SKIP() << "no mount namespace here: " << result.err;
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(result.err.starts_with("morvane: Media reader failed: Could not ")) << result.err;
    EXPECT_NE(result.err.find("No space left on device"), std::string::npos) << result.err;
    EXPECT_EQ(result.out, "");  // the small disk is empty again
}

TEST_F(MorvaneRenderExport, ctrlCStopsTheExportAndLeavesNoFile) {
    const auto plan = out_.write("cut.json", planOf({{0.0, 40.0}}));
    const fs::path movie = out_.path() / "cut.mp4";
    const fs::path err = out_.path() / "err.txt";
    // The progress bar on stderr says the work is under way; then Ctrl-C.
    const std::string script = fmt::format(
        "MORVANE_PROGRESS=always '{0}' render '{1}' -o '{2}' --codec hevc 2>'{3}' & pid=$!; "
        "for i in $(seq 1200); do [ -s '{3}' ] && break; sleep 0.05; done; kill -INT $pid; wait $pid",
        (testing::binaryDir() / "bin" / "morvane").string(), plan.string(), movie.string(), err.string());
    const auto result = runProcess({"/bin/sh", "-c", script});
    EXPECT_EQ(result.exitCode, 130);
    std::ifstream in(err);
    const std::string stderrText{std::istreambuf_iterator<char>(in), {}};
    EXPECT_TRUE(stderrText.ends_with("morvane: Cancelled\n")) << stderrText;
    fs::remove(err);
    EXPECT_EQ(listing(), (std::vector<std::string>{"cut.json"}));
}

}  // namespace
}  // namespace morvane
