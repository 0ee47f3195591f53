// Movies written by the MP4 exporter from generated counter recordings, read back with FFmpeg's tools:
// which frames they show, how they were written, how long they last and how loud they are.

#include "morvane/engine/export/mp4_exporter.hpp"

#include <fmt/core.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <fstream>
#include <iterator>
#include <optional>

#include "morvane/engine/audio/loudness_analyzer.hpp"
#include "morvane/engine/engine_error.hpp"
#include "morvane/testing/process.hpp"
#include "morvane/testing/synthetic_media.hpp"
#include "morvane/testing/temp_dir.hpp"

namespace morvane::engine {
namespace {

namespace fs = std::filesystem;
using morvane::testing::runProcess;

constexpr double kFrame = 1.0 / 30.0;

std::string secs(double seconds) {
    return fmt::format("{}/600", std::llround(seconds * 600));
}

// The output of an FFmpeg tool run on `path`, or a failed test.
std::string tool(const std::vector<std::string>& argv) {
    const auto result = runProcess(argv);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    return result.out;
}

// The MD5 of each decoded video frame, in order.
std::vector<std::string> frameHashes(const fs::path& path) {
    const std::string out = tool({"/usr/bin/ffmpeg", "-nostdin", "-loglevel", "error", "-i", path.string(),
                                  "-map", "0:v:0", "-f", "framemd5", "-"});
    std::vector<std::string> hashes;
    std::size_t at = 0;
    while (at < out.size()) {
        const auto end = out.find('\n', at);
        const std::string line = out.substr(at, end - at);
        at = end == std::string::npos ? out.size() : end + 1;
        if (!line.empty() && line[0] != '#') hashes.push_back(line.substr(line.rfind(',') + 2));
    }
    return hashes;
}

// The counter shown by each frame of `path`, decoded at `width` x `height`; -1 where it can't be read.
std::vector<int> counters(const fs::path& path, int width, int height) {
    const std::string pixels = tool({"/usr/bin/ffmpeg", "-nostdin", "-loglevel", "error", "-i", path.string(),
                                     "-f", "rawvideo", "-pix_fmt", "rgba", "-"});
    const std::size_t frameBytes = static_cast<std::size_t>(width) * height * 4;
    std::vector<int> out;
    for (std::size_t at = 0; at + frameBytes <= pixels.size(); at += frameBytes) {
        const auto* rgba = reinterpret_cast<const std::uint8_t*>(pixels.data() + at);
        out.push_back(morvane::testing::readCounter(rgba, width, height, 0, 0, width, height).value_or(-1));
    }
    return out;
}

std::string probe(const fs::path& path, const std::string& entries) {
    const std::string out = tool({"/usr/bin/ffprobe", "-v", "error", "-select_streams", "v:0",
                                  "-show_entries", entries, "-of", "csv=p=0", path.string()});
    return out.substr(0, out.find_last_not_of("\n,") + 1);
}

std::vector<int> range(int first, int end) {
    std::vector<int> out;
    for (int n = first; n < end; ++n)
        out.push_back(n);
    return out;
}

// A 10-second counter recording at 30 fps with a key frame every second and a 440 Hz tone at half
// scale, shared by the suite.
class MP4ExporterMedia : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        dir_ = new morvane::testing::TempDir();
        morvane::testing::makeCounterMovie(dir_->path() / "talk.mov", 10.0, {.toneHz = 440.0});
    }
    static void TearDownTestSuite() {
        delete dir_;
        dir_ = nullptr;
    }

    static fs::path source() { return dir_->path() / "talk.mov"; }

    static EditPlan plan(std::vector<std::pair<double, double>> keeps, std::string renderSize = "320x240") {
        EditPlan p;
        p.timeline.frameDuration = "1/30";
        p.timeline.renderSize = std::move(renderSize);
        p.sources = {{.id = "src1", .url = source().string(), .frameDuration = "1/30"}};
        for (const auto& [start, end] : keeps)
            p.operations.push_back(
                {.type = "keep", .sourceID = "src1", .start = secs(start), .end = secs(end)});
        return p;
    }

    // Nothing but `expected` in `folder`: no partial file left behind.
    static void expectOnly(const fs::path& folder, std::vector<std::string> expected) {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        EXPECT_EQ(names, expected);
    }

    morvane::testing::TempDir out_;
    static morvane::testing::TempDir* dir_;
};

morvane::testing::TempDir* MP4ExporterMedia::dir_ = nullptr;

TEST_F(MP4ExporterMedia, cutsOnKeyFramesCopyTheRecordingsPicturesUntouched) {
    const fs::path to = out_.path() / "cut.mp4";
    std::vector<double> progress;
    const RenderReport report =
        MP4Exporter::render(plan({{2.0, 4.0}, {6.0, 8.0}}), to, {.audio = AudioFinishingOptions::preview()},
                            [&](double p) { progress.push_back(p); });

    auto expected = frameHashes(source());
    ASSERT_EQ(expected.size(), 300u);
    std::vector<std::string> kept(expected.begin() + 60, expected.begin() + 120);
    kept.insert(kept.end(), expected.begin() + 180, expected.begin() + 240);
    EXPECT_EQ(frameHashes(to), kept);
    EXPECT_EQ(morvane::testing::streamCodecs(to), (std::vector<std::string>{"h264", "aac"}));
    EXPECT_NEAR(report.durationSeconds, 4.0, kFrame);
    EXPECT_EQ(report.frameCount, 120);
    EXPECT_EQ(report.outputPath, to.string());
    ASSERT_FALSE(progress.empty());
    EXPECT_EQ(progress.front(), 0.0);
    EXPECT_EQ(progress.back(), 1.0);
    EXPECT_TRUE(std::is_sorted(progress.begin(), progress.end()));
}

TEST_F(MP4ExporterMedia, cutsBetweenKeyFramesAreEncodedShowingEachFramesSourceTime) {
    const fs::path to = out_.path() / "cut.mp4";
    const RenderReport report =
        MP4Exporter::render(plan({{2.5, 3.5}, {6.2, 7.0}}), to, {.audio = AudioFinishingOptions::preview()});
    auto expected = range(75, 105);
    const auto second = range(186, 210);
    expected.insert(expected.end(), second.begin(), second.end());
    EXPECT_EQ(counters(to, 320, 240), expected);
    EXPECT_NEAR(report.durationSeconds, 1.8, kFrame);
    EXPECT_EQ(report.frameCount, 54);
}

TEST_F(MP4ExporterMedia, everyCodecWritesAMovieOfTheProgramsLength) {
    const struct {
        ExportVideoSettings video;
        const char* file;
        const char* renderSize;
        std::vector<std::string> codecs;
        const char* size;
    } cases[] = {
        {{.bitrate = ExportVideoBitrate::medium}, "a.mp4", "320x240", {"h264", "aac"}, "320,240"},
        // A canvas other than the recording's needs a composition: no copy, whatever the rate.
        {{}, "b.mp4", "640x480", {"h264", "aac"}, "640,480"},
        {{.codec = ExportVideoCodec::hevc}, "c.mp4", "320x240", {"hevc", "aac"}, "320,240"},
        {{.codec = ExportVideoCodec::proRes422}, "d.mov", "320x240", {"prores", "pcm_s16le"}, "320,240"},
    };
    for (const auto& c : cases) {
        const fs::path to = out_.path() / c.file;
        const RenderReport report =
            MP4Exporter::render(plan({{1.0, 2.5}, {5.0, 6.5}}, c.renderSize), to, {.videoSettings = c.video});
        EXPECT_EQ(morvane::testing::streamCodecs(to), c.codecs) << c.file;
        EXPECT_EQ(probe(to, "stream=width,height"), c.size) << c.file;
        EXPECT_NEAR(report.durationSeconds, 3.0, kFrame) << c.file;
        const auto shown = counters(to, 320, 240);
        if (std::string(c.renderSize) == "320x240") {
            ASSERT_EQ(shown.size(), 90u) << c.file;
            EXPECT_EQ(shown.front(), 30) << c.file;
            EXPECT_EQ(shown[45], 150) << c.file;
        }
    }
}

// The mean red, green and blue of the frame of `path` at `seconds`, as FFmpeg shows it.
std::array<double, 3> meanColor(const fs::path& path, double seconds) {
    const std::string pixels =
        tool({"/usr/bin/ffmpeg", "-nostdin", "-loglevel", "error", "-ss", std::to_string(seconds), "-i", path.string(),
              "-frames:v", "1", "-f", "rawvideo", "-pix_fmt", "rgb24", "-"});
    std::array<double, 3> sum{};
    for (std::size_t i = 0; i + 2 < pixels.size(); i += 3) {
        for (std::size_t c = 0; c < 3; ++c)
            sum[c] += static_cast<unsigned char>(pixels[i + c]);
    }
    for (auto& channel : sum)
        channel /= static_cast<double>(pixels.size() / 3);
    return sum;
}

TEST_F(MP4ExporterMedia, coloursLookTheSameAfterCompositingOrConvertingForTheEncoder) {
    // Blue and yellow cells, untagged standard definition: read as BT.601, written as BT.709.
    const fs::path colours = out_.path() / "colours.mov";
    morvane::testing::makeCounterMovie(colours, 2.0, {.palette = 1});
    for (const char* size : {"320x240", "640x480"}) {
        EditPlan p = plan({}, size);
        p.sources = {{.id = "src1", .url = colours.string(), .frameDuration = "1/30"}};
        p.operations = {{.type = "keep", .sourceID = "src1", .start = "0/600", .end = "1200/600"}};
        const fs::path to = out_.path() / fmt::format("colours-{}.mp4", size);
        (void)MP4Exporter::render(p, to, {.videoSettings = {.bitrate = ExportVideoBitrate::high}});
        const auto want = meanColor(colours, 0.5);
        const auto got = meanColor(to, 0.5);
        for (std::size_t c = 0; c < 3; ++c)
            EXPECT_NEAR(got[c], want[c], 4.0) << size << " channel " << c;
    }
}

TEST_F(MP4ExporterMedia, aRangeExportsOnlyThatStretchOfTheProgram) {
    const fs::path to = out_.path() / "range.mov";
    const RenderReport report = MP4Exporter::render(
        plan({{0.0, 3.0}, {5.0, 9.0}}), to,
        {.timeRange = ExportTimeRange{2.0, 4.5}, .videoSettings = {.codec = ExportVideoCodec::proRes422}});
    EXPECT_NEAR(report.durationSeconds, 2.5, kFrame);
    const auto shown = counters(to, 320, 240);
    ASSERT_EQ(shown.size(), 75u);
    EXPECT_EQ(shown.front(), 60);
    EXPECT_EQ(shown[30], 150);  // program 3.0 s is source 5.0 s
}

TEST_F(MP4ExporterMedia, theFinishedMixMeetsTheLoudnessTarget) {
    const double original = *LoudnessAnalyzer::measureIntegratedLUFS(source());
    const struct {
        LoudnessTarget target;
        double lufs;
    } cases[] = {
        {LoudnessTarget::youtube, -14.0}, {LoudnessTarget::podcast, -16.0}, {LoudnessTarget::none, original}};
    for (const auto& c : cases) {
        const fs::path to = out_.path() / "loud.mov";
        AudioFinishingOptions audio;
        audio.loudnessTarget = c.target;
        (void)MP4Exporter::render(plan({{0.5, 4.0}, {5.0, 9.5}}), to,
                                  {.audio = audio, .videoSettings = {.codec = ExportVideoCodec::proRes422}});
        EXPECT_NEAR(*LoudnessAnalyzer::measureIntegratedLUFS(to), c.lufs, 0.2) << label(c.target);
    }
}

TEST_F(MP4ExporterMedia, loudnessGainStopsBeforeTheLoudestSampleClips) {
    // A quiet tone with one loud click: reaching -14 LUFS would push the click far past full scale.
    auto samples = morvane::testing::tone(440.0, 0.01, 3.0, 48000);
    samples[48000] = 0.9f;
    const fs::path wav = morvane::testing::writeWav(out_.path() / "quiet.wav", samples, 1, 48000);
    EditPlan p = plan({});
    p.sources = {{.id = "src1", .url = wav.string(), .frameDuration = "1/30"}};
    p.operations = {{.type = "keep", .sourceID = "src1", .start = "0/600", .end = "1800/600"}};
    const fs::path to = out_.path() / "quiet.mov";
    (void)MP4Exporter::render(p, to, {.videoSettings = {.codec = ExportVideoCodec::proRes422}});
    const PCMBuffer written = PCMSampleReader::readMonoFloat(to, 48000);
    float peak = 0.0f;
    for (const float s : written.samples)
        peak = std::max(peak, std::abs(s));
    EXPECT_NEAR(20.0 * std::log10(peak), -1.0, 0.1);
}

TEST_F(MP4ExporterMedia, failuresLeaveNothingAtTheOutput) {
    const fs::path to = out_.path() / "talk-cut.mp4";
    {
        std::ofstream(to) << "the previous export";
        EditPlan missing = plan({{0.0, 2.0}});
        missing.sources[0].url = (out_.path() / "gone.mov").string();
        try {
            (void)MP4Exporter::render(missing, to);
            FAIL() << "a missing source was exported";
        } catch (const EngineError& e) {
            EXPECT_EQ(e.kind(), EngineError::Kind::missingFile);
            EXPECT_EQ(std::string(e.what()), "Missing file: " + (out_.path() / "gone.mov").string());
        }
        // Nothing was encoded, so nothing was replaced.
        expectOnly(out_.path(), {"talk-cut.mp4"});
    }
    {
        // Stopped halfway: the old file is gone (the output is replaced from the start), the new one never
        // appears, no partial file stays.
        std::stop_source stop;
        EXPECT_THROW((void)MP4Exporter::render(
                         plan({{0.0, 9.0}}), to, {.videoSettings = {.bitrate = ExportVideoBitrate::high}},
                         [&](double p) {
                             if (p > 0.5) stop.request_stop();
                         },
                         stop.get_token()),
                     OperationCancelled);
        expectOnly(out_.path(), {});
    }
}

// The threads this process runs now.
std::size_t runningThreads() {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator("/proc/self/task"), fs::directory_iterator{}));
}

TEST_F(MP4ExporterMedia, composedFramesReachTheEncoderInOrderEachOnce) {
    // A canvas larger than the recording: every frame is composed and converted ahead of the encoder.
    const fs::path to = out_.path() / "big.mp4";
    (void)MP4Exporter::render(plan({{1.2, 4.0}, {6.5, 8.0}}, "640x480"), to,
                              {.audio = AudioFinishingOptions::preview()});
    auto expected = range(36, 120);
    const auto second = range(195, 240);
    expected.insert(expected.end(), second.begin(), second.end());
    EXPECT_EQ(counters(to, 640, 480), expected);
}

TEST_F(MP4ExporterMedia, aStopOrABrokenSourceMidEncodeEndsEveryThreadAndPresentsNothing) {
    // A silent recording with its index in front, cut short halfway: it opens, and its pictures stop at
    // 5 s.
    const fs::path whole = out_.path() / "whole.mp4";
    morvane::testing::makeCounterMovie(out_.path() / "counter.mp4", 10.0);
    tool({"/usr/bin/ffmpeg", "-nostdin", "-loglevel", "error", "-i", (out_.path() / "counter.mp4").string(),
          "-c", "copy", "-movflags", "+faststart", whole.string()});
    const fs::path broken = morvane::testing::truncateCopy(whole, out_.path() / "broken.mp4",
                                                            fs::file_size(whole) / 2);
    const fs::path folder = out_.path() / "out";
    fs::create_directories(folder);
    const fs::path to = folder / "cut.mp4";

    const std::size_t threadsBefore = runningThreads();
    const struct {
        const char* name;
        fs::path source;
        double stopAt;  // the share of the render at which it is stopped; never when above 1
        std::optional<std::string> error;
    } cases[] = {
        {"stopped as encoding starts", source(), 0.42, std::nullopt},
        {"stopped near the end", source(), 0.9, std::nullopt},
        // The last report comes once the movie is in place: a stop then still takes it away.
        {"stopped as it ends", source(), 0.999, std::nullopt},
        {"broken source", broken, 2.0,
         "Media reader failed: broken.mp4 has no picture at 5.000 s"},
    };
    for (const auto& c : cases) {
        EditPlan p = plan({{0.5, 9.0}});
        p.sources[0].url = c.source.string();
        std::stop_source stop;
        try {
            (void)MP4Exporter::render(
                p, to, {.videoSettings = {.bitrate = ExportVideoBitrate::high}},
                [&](double share) {
                    if (share > c.stopAt) stop.request_stop();
                },
                stop.get_token());
            ADD_FAILURE() << c.name << ": the render completed";
        } catch (const OperationCancelled&) {
            EXPECT_FALSE(c.error) << c.name;
        } catch (const EngineError& e) {
            EXPECT_EQ(std::optional<std::string>(e.what()), c.error) << c.name;
        }
        EXPECT_EQ(runningThreads(), threadsBefore) << c.name;
        expectOnly(folder, {});
    }
}

TEST_F(MP4ExporterMedia, anOutputUnderAFileCannotBeWritten) {
    const fs::path blocker = out_.write("blocker", "a file, not a folder");
    try {
        (void)MP4Exporter::render(plan({{0.0, 1.0}}), blocker / "cut.mp4");
        FAIL() << "wrote under a file";
    } catch (const EngineError& e) {
        EXPECT_EQ(e.kind(), EngineError::Kind::exportFailed);
        EXPECT_EQ(std::string(e.what()),
                  "Export failed: Could not create the folder " + blocker.string() + ": Not a directory");
    }
    expectOnly(out_.path(), {"blocker"});
}

}  // namespace
}  // namespace morvane::engine
