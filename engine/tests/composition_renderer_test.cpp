// The frame and the sound at each program time, checked on generated counter movies whose frame number
// is readable from their pixels and whose audio is a known tone.

#include "morvane/engine/composition/composition_renderer.hpp"

#include <gtest/gtest.h>

#include <fmt/core.h>
#include <cmath>
#include <functional>
#include <numbers>

#include "morvane/engine/composition/audio_mix_stream.hpp"
#include "morvane/engine/engine_error.hpp"
#include "morvane/testing/synthetic_media.hpp"
#include "morvane/testing/temp_dir.hpp"

namespace morvane::engine {
namespace {

using morvane::testing::CounterMovieOptions;

RationalTime at(double seconds) {
    return RationalTime::fromSeconds(seconds, RationalTime::workingTimescale);
}

std::string secs(double seconds) {
    return fmt::format("{}/600", std::llround(seconds * 600));
}

// Two counter movies shared by the suite: 20 s each at 30 fps, "a" in black and white with a 440 Hz
// tone, "b" in blue and yellow with a 660 Hz tone.
class CompositionRendererMedia : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        dir_ = new morvane::testing::TempDir();
        morvane::testing::makeCounterMovie(dir_->path() / "a.mov", 20.0, {.toneHz = 440.0});
        morvane::testing::makeCounterMovie(dir_->path() / "b.mov", 20.0, {.palette = 1, .toneHz = 660.0});
    }
    static void TearDownTestSuite() {
        delete dir_;
        dir_ = nullptr;
    }

    static EditPlan plan(std::vector<EditPlanOperation> operations) {
        EditPlan p;
        p.timeline.frameDuration = "1/30";
        p.timeline.renderSize = "320x240";
        p.sources = {{.id = "a", .url = (dir_->path() / "a.mov").string(), .frameDuration = "1/30"},
                     {.id = "b", .url = (dir_->path() / "b.mov").string(), .frameDuration = "1/30"}};
        p.operations = std::move(operations);
        return p;
    }

    static EditPlanOperation keep(std::string source, double start, double end, double rate = 1.0) {
        EditPlanOperation op{
            .type = "keep", .sourceID = std::move(source), .start = secs(start), .end = secs(end)};
        if (rate != 1.0) op.playbackRate = rate;
        return op;
    }

    static std::optional<int> counterIn(const VideoFrame& frame, const RectD& where) {
        const RGBAImage image = frame.toRGBA();
        return morvane::testing::readCounter(image.pixels.data(), image.width, image.height, where.x, where.y,
                                             where.width, where.height);
    }

    static std::optional<int> counter(const VideoFrame& frame) { return counterIn(frame, {0, 0, 320, 240}); }

    static morvane::testing::TempDir* dir_;
};

morvane::testing::TempDir* CompositionRendererMedia::dir_ = nullptr;

TEST_F(CompositionRendererMedia, everyFrameAcrossCutsIsTheSourceFrameOfItsProgramTime) {
    // Out of order in the document; laid out by source start.
    CompositionRenderer renderer(
        CompositionBuilder::build(plan({keep("a", 7.0, 8.0), keep("a", 2.0, 4.0), keep("a", 12.0, 12.5)}),
                                  AudioFinishingOptions::preview()));
    // Program: [0,2) <- source 2..4, [2,3) <- 7..8, [3,3.5) <- 12..12.5.
    ASSERT_EQ(renderer.frameCount(), 105);
    // Every source at the output size and nothing over it: no compositing at all.
    EXPECT_FALSE(renderer.build().videoComposition.has_value());
    for (std::int64_t i = 0; i < renderer.frameCount(); ++i) {
        const int expected = i < 60   ? 60 + static_cast<int>(i)
                             : i < 90 ? 210 + static_cast<int>(i - 60)
                                      : 360 + static_cast<int>(i - 90);
        const VideoFrame frame = renderer.frame(renderer.frameTime(i));
        EXPECT_TRUE(frame.isPassthrough()) << "frame " << i;
        EXPECT_EQ(counter(frame), expected) << "program frame " << i;
    }
}

TEST_F(CompositionRendererMedia, seeksBackAndForthGiveTheSameFramesAsPlaying) {
    CompositionRenderer renderer(CompositionBuilder::build(plan({keep("a", 1.0, 9.0), keep("a", 15.0, 19.0)}),
                                                           AudioFinishingOptions::preview()));
    // Program frame -> source frame, asked in a scrubbing order: far forward, back, across the cut.
    const std::vector<std::pair<int, int>> cases{{300, 510}, {0, 30},    {239, 269}, {240, 450},
                                                 {90, 120},  {359, 569}, {1, 31},    {238, 268}};
    for (const auto& [program, expected] : cases)
        EXPECT_EQ(counter(renderer.frame(renderer.frameTime(program))), expected)
            << "program frame " << program;
}

TEST_F(CompositionRendererMedia, speedChangesShowTheFramesOfTheScaledSourceTime) {
    struct Case {
        double rate;
        std::vector<std::pair<int, int>> programToSource;  // program frame -> source frame
    };
    const std::vector<Case> cases{
        {2.0, {{0, 60}, {1, 62}, {15, 90}, {29, 118}}},  // 2..4 s in 1 s
        {0.5, {{0, 60}, {1, 60}, {2, 61}, {119, 119}}},  // 2..4 s in 4 s
        {1.00005, {{0, 60}, {59, 119}}},                 // too close to 1x to scale
    };
    for (const auto& c : cases) {
        CompositionRenderer renderer(
            CompositionBuilder::build(plan({keep("a", 2.0, 4.0, c.rate)}), AudioFinishingOptions::preview()));
        for (const auto& [program, source] : c.programToSource)
            EXPECT_EQ(counter(renderer.frame(renderer.frameTime(program))), source)
                << c.rate << "x frame " << program;
    }
}

TEST_F(CompositionRendererMedia, overlaysDrawInTheirSlotOverThePrimary) {
    EditPlanOperation webcam{.type = "clip",
                             .sourceID = "b",
                             .start = secs(5.0),
                             .end = secs(6.0),
                             .timelineStart = secs(1.0),
                             .trackID = "overlay",
                             .slotID = "webcam"};
    EditPlanOperation layout{
        .type = "layout", .sourceID = "layout", .start = secs(0.0), .end = secs(3.0), .label = "pip"};
    CompositionRenderer renderer(CompositionBuilder::build(plan({keep("a", 0.0, 3.0), webcam, layout}),
                                                           AudioFinishingOptions::preview()));
    ASSERT_TRUE(renderer.build().videoComposition.has_value());
    const RectD slot{0.66 * 320, 0.05 * 240, 0.3 * 320, 0.3 * 240};
    struct Case {
        double time;
        int primary;
        std::optional<int> overlay;
    };
    for (const Case& c : std::vector<Case>{
             {0.5, 15, {}}, {1.0, 30, 150}, {1.5, 45, 165}, {59.0 / 30.0, 59, 179}, {2.0, 60, {}}}) {
        const VideoFrame frame = renderer.frame(RationalTime{std::llround(c.time * 30), 30});
        if (c.overlay) {
            EXPECT_FALSE(frame.isPassthrough());
            EXPECT_EQ(counterIn(frame, slot), c.overlay) << "overlay at " << c.time;
        } else {
            EXPECT_EQ(counter(frame), c.primary) << "primary at " << c.time;
        }
    }
}

TEST_F(CompositionRendererMedia, oneSourceAtTwoTimesInOneFrameShowsBoth) {
    EditPlanOperation pip{.type = "clip",
                          .sourceID = "a",
                          .start = secs(10.0),
                          .end = secs(12.0),
                          .timelineStart = secs(0.0),
                          .trackID = "overlay",
                          .slotID = "webcam"};
    CompositionRenderer renderer(
        CompositionBuilder::build(plan({keep("a", 0.0, 2.0), pip}), AudioFinishingOptions::preview()));
    const RectD slot{0.66 * 320, 0.05 * 240, 0.3 * 320, 0.3 * 240};
    for (int i = 0; i < 60; i += 7) {
        const VideoFrame frame = renderer.frame(renderer.frameTime(i));
        EXPECT_EQ(counterIn(frame, slot), 300 + i) << "overlay frame " << i;
        // The bottom row of cells is never under the slot: bits 8..11 of the primary's frame number.
        const RGBAImage image = frame.toRGBA();
        const auto primary = morvane::testing::readCounter(image.pixels.data(), 320, 240, 0, 0, 320, 240);
        if (primary) {
            EXPECT_EQ(*primary >> 8, i >> 8);
        }
    }
}

TEST_F(CompositionRendererMedia, timeBeyondThePrimaryShowsThePlateAndOutsideTheProgramFailsThatFrame) {
    EditPlanOperation music{.type = "clip",
                            .sourceID = "b",
                            .start = secs(0.0),
                            .end = secs(3.0),
                            .timelineStart = secs(0.0),
                            .trackID = "audio"};
    CompositionRenderer renderer(
        CompositionBuilder::build(plan({keep("a", 4.0, 5.0), music}), AudioFinishingOptions::preview()));
    EXPECT_EQ(renderer.duration().compare(at(3.0)), 0);
    EXPECT_EQ(counter(renderer.frame(at(0.5))), 135);
    const RGBAImage plate = renderer.frame(at(2.0)).toRGBA();
    EXPECT_EQ(plate.pixel(160, 120)[0], 0);
    EXPECT_EQ(plate.pixel(160, 120)[3], 255);
    for (const double outside : {-0.1, 3.0, 40.0}) {
        try {
            static_cast<void>(renderer.frame(at(outside)));
            ADD_FAILURE() << "no failure at " << outside;
        } catch (const EngineError& e) {
            EXPECT_STREQ(e.what(), "Decode failed: Missing composition instruction or pixel buffer");
        }
    }
    EXPECT_EQ(counter(renderer.frame(at(0.0))), 120);  // the renderer goes on after a failed frame

    // With nothing but sound, the whole program is a plate.
    const auto alone = CompositionBuilder::build(plan({music}), AudioFinishingOptions::preview());
    const CompositionTrack* primary = alone.composition.track(1);
    ASSERT_NE(primary, nullptr);
    ASSERT_EQ(primary->segments.size(), 1u);
    EXPECT_EQ(primary->segments[0].source.kind, CompositionSource::Kind::solidColor);
    EXPECT_EQ(primary->segments[0].target.end.compare(at(3.0)), 0);
}

TEST_F(CompositionRendererMedia, aTurnedRecordingShowsUpright) {
    const morvane::testing::TempDir dir;
    const auto phone =
        morvane::testing::makeCounterMovie(dir.path() / "phone.mov", 1.0, {.rotationDegrees = 90});
    EditPlan p = plan({keep("phone", 0.0, 1.0)});
    p.timeline.renderSize = "240x320";
    p.sources.push_back({.id = "phone", .url = phone.string(), .frameDuration = "1/30"});
    CompositionRenderer renderer(CompositionBuilder::build(p, AudioFinishingOptions::preview()));
    // Shown as players show it: turned a quarter counter-clockwise.
    const RGBAImage image = renderer.frame(RationalTime{5, 30}).toRGBA();
    ASSERT_EQ(image.size(), (PixelSize{240, 320}));
    EXPECT_EQ(morvane::testing::readTurnedCounter(image.pixels.data(), 240, 320), 5);
}

TEST_F(CompositionRendererMedia, framedClipsShowTheirBackgroundAroundThePicture) {
    const morvane::testing::TempDir dir;
    const auto red = dir.path() / "red.png";
    writePNG(RGBAImage::filled({32, 18}, {230, 20, 20, 255}), red);
    struct Case {
        std::string label;
        ClipBackgroundFill background;
        std::function<bool(const std::uint8_t*)> corner;  // what the padding shows at (4, 4)
    };
    const std::vector<Case> cases{
        {"solid", ClipBackgroundFill::solid({0.0, 0.0, 1.0, 1.0}),
         [](const auto* p) { return p[2] == 255 && p[0] == 0; }},
        {"image", ClipBackgroundFill::image("bg"), [](const auto* p) { return p[0] == 230 && p[1] == 20; }},
        // The counter's top-left cell is dark at frame 30: blurred, the corner is dark but not the fallback.
        {"blurred frame", ClipBackgroundFill::blurSource(),
         [](const auto* p) { return p[0] < 60 && !(p[0] == 20 && p[2] == 31); }},
    };
    for (const auto& c : cases) {
        EditPlanOperation op = keep("a", 1.0, 2.0);
        op.presentationStyle = ClipPresentationStyle{.padding = 0.1, .background = c.background};
        EditPlan p = plan({op});
        p.sources.push_back({.id = "bg", .url = red.string(), .frameDuration = "1/30"});
        CompositionRenderer renderer(CompositionBuilder::build(p, AudioFinishingOptions::preview()));
        const RGBAImage image = renderer.frame(RationalTime::zero).toRGBA();
        const auto* corner = image.pixel(4, 4);
        EXPECT_TRUE(c.corner(corner))
            << c.label << ": " << int(corner[0]) << " " << int(corner[1]) << " " << int(corner[2]);
        // The picture itself, fitted into the rectangle 24 px in (256 x 192 at 32, 24), reads as frame 30.
        EXPECT_EQ(morvane::testing::readCounter(image.pixels.data(), 320, 240, 32, 24, 256, 192), 30)
            << c.label;
    }
}

// ---- audio ----

double largestStep(std::span<const float> samples) {
    double largest = 0.0;
    for (std::size_t i = 1; i < samples.size(); ++i)
        largest = std::max(largest, static_cast<double>(std::abs(samples[i] - samples[i - 1])));
    return largest;
}

double rms(std::span<const float> samples) {
    double sum = 0.0;
    for (float s : samples)
        sum += static_cast<double>(s) * s;
    return samples.empty() ? 0.0 : std::sqrt(sum / static_cast<double>(samples.size()));
}

// Frequency from the rising zero crossings, interpolated between samples.
double frequency(std::span<const float> samples, int rate) {
    std::vector<double> crossings;
    for (std::size_t i = 1; i < samples.size(); ++i) {
        if (samples[i - 1] < 0.0f && samples[i] >= 0.0f)
            crossings.push_back(static_cast<double>(i - 1) + samples[i - 1] / (samples[i - 1] - samples[i]));
    }
    if (crossings.size() < 2) return 0.0;
    return rate * static_cast<double>(crossings.size() - 1) / (crossings.back() - crossings.front());
}

TEST_F(CompositionRendererMedia, cutsRampToSilenceSoNoSampleJumps) {
    // 0.37 s of the tone is cut out: without ramps the phase jumps at 1 s.
    CompositionRenderer renderer(CompositionBuilder::build(plan({keep("a", 0.0, 1.0), keep("a", 1.37, 2.37)}),
                                                           AudioFinishingOptions::preview()));
    const PCMBuffer mix = renderer.renderAudio({.sampleRate = 48000});
    ASSERT_EQ(mix.samples.size(), 96000u);
    // A 440 Hz sine at 0.5 steps at most 2π·440/48000·0.5 = 0.0288 a sample; a cut with no ramp steps up
    // to 1.
    const double toneStep = 2.0 * std::numbers::pi * 440.0 / 48000.0 * 0.5;
    EXPECT_LT(largestStep(mix.samples), toneStep * 1.05);
    // Silent at the cut, whole between the ramps (3 frames of 1/30 s: 0.1 s).
    EXPECT_LT(std::abs(mix.samples[48000]), 0.01);
    EXPECT_NEAR(rms(std::span(mix.samples).subspan(19200, 19200)), 0.5 / std::sqrt(2.0), 0.01);
    EXPECT_NEAR(rms(std::span(mix.samples).subspan(48000 + 6000, 24000)), 0.5 / std::sqrt(2.0), 0.01);
    EXPECT_LT(rms(std::span(mix.samples).subspan(47900, 200)), 0.05);
}

TEST_F(CompositionRendererMedia, speedChangesKeepThePitch) {
    for (const double rate : {2.0, 0.5}) {
        CompositionRenderer renderer(
            CompositionBuilder::build(plan({keep("a", 2.0, 6.0, rate)}), AudioFinishingOptions::preview()));
        const PCMBuffer mix = renderer.renderAudio({.sampleRate = 48000});
        ASSERT_EQ(mix.samples.size(), static_cast<std::size_t>(std::llround(4.0 / rate * 48000)));
        const auto middle = std::span(mix.samples).subspan(mix.samples.size() / 4, mix.samples.size() / 2);
        EXPECT_NEAR(frequency(middle, 48000), 440.0, 4.0) << rate << "x";
        EXPECT_NEAR(rms(middle), 0.5 / std::sqrt(2.0), 0.05) << rate << "x";
    }
}

TEST_F(CompositionRendererMedia, musicDucksUnderSpeechAndOverlaysMixAtTheirLevel) {
    EditPlanOperation music{.type = "clip",
                            .sourceID = "b",
                            .start = secs(0.0),
                            .end = secs(4.0),
                            .timelineStart = secs(0.0),
                            .trackID = "audio",
                            .audioGain = 0.5};
    auto options = AudioFinishingOptions::preview();
    options.speechSpans = {{at(1.0), at(2.0)}};
    CompositionRenderer renderer(CompositionBuilder::build(plan({music}), options));
    const PCMBuffer mix = renderer.renderAudio({.sampleRate = 48000});
    ASSERT_EQ(mix.samples.size(), 4u * 48000u);
    const double full = 0.5 * 0.5 / std::sqrt(2.0);
    EXPECT_NEAR(rms(std::span(mix.samples).subspan(12000, 24000)), full, 0.01);          // 0.25–0.75 s
    EXPECT_NEAR(rms(std::span(mix.samples).subspan(60000, 24000)), full * 0.25, 0.005);  // 1.25–1.75 s
    EXPECT_NEAR(rms(std::span(mix.samples).subspan(120000, 24000)), full, 0.01);         // 2.5–3 s
    EXPECT_NEAR(frequency(std::span(mix.samples).subspan(12000, 24000), 48000), 660.0, 3.0);
}

TEST_F(CompositionRendererMedia, theSoundStreamedInAnyBlockSizeIsTheWholeMix) {
    // Cuts, a speed change, music over the cut on another track with ducking: every block size must give
    // the samples of the whole mix, including where a segment starts or ends inside a block.
    EditPlanOperation music{.type = "clip",
                            .sourceID = "b",
                            .start = secs(2.0),
                            .end = secs(6.0),
                            .timelineStart = secs(0.5),
                            .trackID = "audio",
                            .audioGain = 0.5};
    auto options = AudioFinishingOptions::preview();
    options.speechSpans = {{at(1.0), at(2.0)}};
    const CompositionBuildResult build =
        CompositionBuilder::build(plan({keep("a", 0.0, 1.0), keep("a", 1.37, 2.37), keep("b", 3.0, 4.0, 2.0),
                                        keep("a", 8.0, 9.5), music}),
                                  options);
    CompositionRenderer renderer(build);
    const PCMBuffer whole = renderer.renderAudio({.sampleRate = 48000});
    ASSERT_EQ(whole.samples.size(), 216000u);  // the music runs on to 4.5 s
    for (const std::size_t block : {std::size_t{1000}, std::size_t{4801}, std::size_t{48000 * 10}}) {
        AudioMixStream stream(build, {.sampleRate = 48000}, {}, block);
        EXPECT_EQ(stream.totalSamples(), static_cast<std::int64_t>(whole.samples.size()));
        std::vector<float> streamed;
        for (auto samples = stream.read(); !samples.empty(); samples = stream.read()) {
            EXPECT_LE(samples.size(), block);
            streamed.insert(streamed.end(), samples.begin(), samples.end());
        }
        EXPECT_EQ(streamed, whole.samples) << "blocks of " << block;
    }

    // A range is the same stretch of program: the sound 1.5 s to 3.5 s in.
    AudioMixStream ranged(build, {.sampleRate = 48000, .range = TimeSpan{at(1.5), at(3.5)}}, {}, 7000);
    std::vector<float> part;
    for (auto samples = ranged.read(); !samples.empty(); samples = ranged.read())
        part.insert(part.end(), samples.begin(), samples.end());
    ASSERT_EQ(part.size(), 96000u);
    for (std::size_t i = 0; i < part.size(); i += 997)
        ASSERT_NEAR(part[i], whole.samples[72000 + i], 1e-4) << i;

    std::stop_source stop;
    AudioMixStream stopped(build, {.sampleRate = 48000}, stop.get_token(), 4800);
    (void)stopped.read();
    stop.request_stop();
    EXPECT_THROW((void)stopped.read(), OperationCancelled);
}

}  // namespace
}  // namespace morvane::engine
