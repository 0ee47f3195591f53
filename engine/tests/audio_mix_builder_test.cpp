#include "morvane/engine/audio/audio_mix_builder.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <numbers>

#include "morvane/engine/audio/click_soundtrack_builder.hpp"
#include "morvane/engine/audio/pcm_sample_reader.hpp"
#include "morvane/testing/temp_dir.hpp"

namespace morvane::engine {
namespace {

RationalTime s(double seconds) {
    return RationalTime::fromSeconds(seconds, RationalTime::workingTimescale);
}

ProgramClip clip(std::string source, double sourceStart, double length, double at,
                 std::optional<double> gain = {}) {
    ProgramClip c{.type = "keep", .sourceID = std::move(source), .trackID = "primary"};
    c.start = s(sourceStart);
    c.end = s(sourceStart + length);
    c.timelineStart = s(at);
    c.audioGain = gain;
    return c;
}

// The envelope at a table of times.
void expectLevels(const AudioMixInputParameters& p, const std::vector<std::pair<double, float>>& levels,
                  const std::string& label) {
    for (const auto& [time, level] : levels)
        EXPECT_NEAR(p.volume(time), level, 1e-3) << label << " at " << time;
}

TEST(AudioMixInputParameters, holdsStepsAndRampsLikeAnEnvelope) {
    AudioMixInputParameters p;
    expectLevels(p, {{0.0, 1.0f}, {100.0, 1.0f}}, "no change");
    p.setVolume(0.5f, s(1.0));
    p.setVolumeRamp(0.5f, 0.0f, {s(2.0), s(3.0)});
    p.setVolume(0.8f, s(5.0));
    p.setVolume(0.2f, s(5.0));  // the later of two at one time wins
    expectLevels(p,
                 {{0.5, 1.0f}, {1.0, 0.5f}, {2.0, 0.5f}, {2.5, 0.25f}, {3.0, 0.0f}, {4.0, 0.0f}, {5.0, 0.2f}},
                 "envelope");
}

TEST(AudioMixBuilder, primaryClipsRampFromAndToSilenceAtEveryCut) {
    // 30 fps, 3 frames: ramps of 0.1 s. Clip B continues A's source exactly: no cut between them.
    const std::vector<ProgramClip> clips{clip("a", 10.0, 2.0, 0.0), clip("a", 12.0, 1.0, 2.0, 0.5),
                                         clip("a", 20.0, 1.0, 3.0, -1.0), clip("b", 0.0, 0.1, 4.0)};
    AudioMixInputParameters p{.trackID = 2};
    auto options = AudioFinishingOptions::preview();
    options.primaryLoudnessGain = 2.0f;
    AudioMixBuilder::applyPrimaryEnvelope(p, clips, RationalTime{1, 30}, options);
    expectLevels(p,
                 {{0.0, 0.0f},
                  {0.05, 1.0f},
                  {0.1, 2.0f},
                  {1.0, 2.0f},  // in from silence, times the loudness gain
                  {1.99, 2.0f},
                  {2.0, 2.0f},
                  {2.05, 1.5f},
                  {2.1, 1.0f},  // no cut: down to B's level 0.5 × 2
                  {2.9, 1.0f},
                  {2.95, 0.5f},
                  {3.0, 0.0f},  // out to the cut
                  {3.5, 0.0f},  // a gain of −1 counts as 0
                  {4.0, 0.0f},
                  {4.05, 2.0f},
                  {4.1, 0.0f}},  // a clip shorter than two ramps
                 "primary");
}

TEST(AudioMixBuilder, musicIsDownWhileSpeechRunsAndOverlaysRampAtTheirEdges) {
    auto options = AudioFinishingOptions::preview();
    options.speechSpans = {{s(3.8), s(6.0)}, {s(2.0), s(3.0)}, {s(2.5), s(3.5)}, {s(9.0), s(8.0)}};
    EXPECT_EQ(AudioMixBuilder::mergedSpeechSpans(options.speechSpans),
              (std::vector<TimeSpan>{{s(2.0), s(3.5)}, {s(3.8), s(6.0)}}));

    AudioMixInputParameters music;
    ProgramClip song = clip("m", 0.0, 10.0, 0.0, 0.8);
    song.trackID = "audio";
    AudioMixBuilder::applyMusicEnvelope(music, song, options);
    // Spans 0.3 s apart (less than two ramps) duck as one: down over the 0.2 s before 2.0, up over the 0.2 s
    // after 6.0.
    expectLevels(music,
                 {{0.005, 0.4f},
                  {1.0, 0.8f},
                  {1.8, 0.8f},
                  {1.9, 0.5f},
                  {2.0, 0.2f},
                  {3.7, 0.2f},
                  {6.0, 0.2f},
                  {6.1, 0.5f},
                  {6.2, 0.8f},
                  {9.995, 0.4f},
                  {10.0, 0.0f}},
                 "music");

    AudioMixInputParameters overlay;
    AudioMixBuilder::applyOverlayEnvelope(overlay, std::vector<ProgramClip>{clip("o", 0.0, 2.0, 1.0, 0.5)});
    expectLevels(overlay, {{1.0, 0.0f}, {1.005, 0.25f}, {1.5, 0.5f}, {2.995, 0.25f}, {3.0, 0.0f}}, "overlay");
}

TEST(AudioMixBuilder, buildsParametersOnlyForTracksWithClips) {
    const std::vector<ProgramClip> primary{clip("a", 0.0, 1.0, 0.0)};
    const std::vector<ProgramClip> none;
    const std::vector<std::int32_t> noTracks;
    const auto options = AudioFinishingOptions::preview();
    EXPECT_FALSE(AudioMixBuilder::build(none, 2, none, 4, none, noTracks, RationalTime{1, 30}, options));
    const auto mix =
        AudioMixBuilder::build(primary, 2, none, 4, none, noTracks, RationalTime{1, 30}, options);
    ASSERT_TRUE(mix);
    ASSERT_EQ(mix->inputParameters.size(), 1u);
    EXPECT_EQ(mix->inputParameters[0].trackID, 2);
    EXPECT_EQ(mix->inputParameters[0].audioTimePitchAlgorithm, AudioTimePitchAlgorithm::spectral);
    EXPECT_EQ(AudioFinishingOptions::forExport().loudnessTarget, LoudnessTarget::youtube);
    EXPECT_EQ(AudioFinishingOptions::preview().crossfadeFrames, 3);
}

std::vector<std::int16_t> wavSamples(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(bytes.substr(0, 4), "RIFF");
    EXPECT_EQ(bytes.substr(8, 8), "WAVEfmt ");
    std::vector<std::int16_t> out((bytes.size() - 44) / 2);
    std::memcpy(out.data(), bytes.data() + 44, out.size() * 2);
    return out;
}

TEST(ClickSoundtrackBuilder, writesABlipAtEachClickInsideTheSoundtrack) {
    const morvane::testing::TempDir dir;
    ClickSoundtrackBuilder::writeWAV({}, 0.0, dir.path() / "empty.wav");
    const auto silent = wavSamples(dir.path() / "empty.wav");
    EXPECT_EQ(silent.size(), 11025u);  // a quarter second, all silence
    EXPECT_TRUE(std::all_of(silent.begin(), silent.end(), [](std::int16_t v) { return v == 0; }));

    ClickSoundtrackBuilder::writeWAV(std::vector<double>{0.5, 0.99, 7.0}, 1.0, dir.path() / "clicks.wav");
    const auto samples = wavSamples(dir.path() / "clicks.wav");
    ASSERT_EQ(samples.size(), 44100u);
    const auto expected = [](int i) {
        return static_cast<std::int16_t>(
            (1.0 - i / 529.0) * std::sin(i * 2.0 * std::numbers::pi * 1180.0 / 44100.0) * 0.55 * 32767.0);
    };
    for (const int i : {0, 1, 10, 100, 528})
        EXPECT_EQ(samples[22050 + static_cast<std::size_t>(i)], expected(i)) << i;
    EXPECT_EQ(samples[22050 + 529], 0);
    EXPECT_EQ(samples[43659 + 10], expected(10));  // the click at 0.99 s is cut at the end
    // Read back as audio, it is a mono 44.1 kHz file.
    EXPECT_EQ(PCMSampleReader::readMonoFloat(dir.path() / "clicks.wav", 44100).samples.size(), 44100u);
}

}  // namespace
}  // namespace morvane::engine
