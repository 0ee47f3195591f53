#include "morvane/engine/audio/audio_render_io.hpp"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <regex>

#include "morvane/engine/engine_error.hpp"
#include "morvane/testing/synthetic_media.hpp"
#include "morvane/testing/temp_dir.hpp"

namespace morvane::engine {
namespace {

using namespace morvane::testing;

std::string errorOf(const std::function<void()>& run) {
    try {
        run();
    } catch (const EngineError& e) {
        return e.what();
    }
    return "(no error)";
}

TEST(AudioRenderIO, outputURLsAreCleanedUniqueNamesInTheFolder) {
    struct Case {
        std::string basename;
        std::string pattern;
    } cases[] = {
        {"talk", "talk_cleaned_[0-9a-f]{8}\\.wav"},
        {"My talk: take 2", "My_talk__take_2_cleaned_[0-9a-f]{8}\\.wav"},
        {"../../etc/passwd", "etc_passwd_cleaned_[0-9a-f]{8}\\.wav"},
        {"Vortrag über Öl", "Vortrag_über_Öl_cleaned_[0-9a-f]{8}\\.wav"},
        {"", "audio_cleaned_[0-9a-f]{8}\\.wav"},
        {" ..", "audio_cleaned_[0-9a-f]{8}\\.wav"},
    };
    const std::filesystem::path folder = "/tmp/out";
    for (const auto& c : cases) {
        const auto url = AudioRenderIO::outputURL(folder, c.basename, "_cleaned", ".wav");
        EXPECT_EQ(url.parent_path(), folder) << c.basename;
        EXPECT_TRUE(std::regex_match(url.filename().string(), std::regex(c.pattern))) << url;
    }
    EXPECT_NE(AudioRenderIO::outputURL(folder, "a", "", ".wav"),
              AudioRenderIO::outputURL(folder, "a", "", ".wav"));
}

TEST(AudioRenderIOMedia, writesFloatWavsThatReadBackExactly) {
    const TempDir dir;
    std::vector<float> samples = noise(0.3, 0.5, 44100);
    samples.push_back(1.5f);  // written as it is, not clipped
    const auto wav = dir.path() / "out.wav";
    AudioRenderIO::writeWAV(samples, 44100.0, wav);

    std::ifstream in(wav, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), {});
    ASSERT_GE(bytes.size(), 58u);
    EXPECT_EQ(bytes.substr(0, 4), "RIFF");
    EXPECT_EQ(bytes[20], 3);  // IEEE float
    EXPECT_EQ(bytes[22], 1);  // mono
    EXPECT_EQ(bytes[34], 32);
    EXPECT_EQ(bytes.size(), 58u + samples.size() * 4);

    const PCMBuffer back = PCMSampleReader::readMonoFloat(wav, 44100);
    EXPECT_EQ(back.samples, samples);

    AudioRenderIO::writeWAV({}, 48000.0, dir.path() / "empty.wav");
    EXPECT_TRUE(PCMSampleReader::readMonoFloat(dir.path() / "empty.wav", 48000).samples.empty());

    EXPECT_EQ(
        errorOf([&] { AudioRenderIO::writeWAV(samples, 44100.0, dir.path() / "no" / "such" / "x.wav"); }),
        "Export failed: Could not write processed audio.");
    EXPECT_EQ(errorOf([&] { AudioRenderIO::writeWAV(samples, 0.0, dir.path() / "x.wav"); }),
              "Export failed: Could not write processed audio.");
}

TEST(AudioRenderIOMedia, exportCopiesWhatMp4HoldsAndReencodesTheRest) {
    const TempDir dir;
    const auto wav = writeWav(dir.path() / "tone.wav", tone(440, 0.5, 2.0, 48000), 1, 48000);
    struct Case {
        std::filesystem::path source;
        std::vector<std::string> codecs;
    } cases[] = {
        {makeMovie(dir.path() / "a.mp4", 2.0, wav), {"h264", "aac"}},   // both copied
        {makeMovie(dir.path() / "b.mkv", 2.0, wav), {"h264", "aac"}},   // Vorbis audio re-encoded
        {makeMovie(dir.path() / "c.webm", 2.0, wav), {"h264", "aac"}},  // VP8 and Opus re-encoded
        {makeMovie(dir.path() / "d.mp4", 2.0), {"h264"}},               // no audio: the picture alone
        {encodeAudio(wav, dir.path() / "e.flac"), {"aac"}},             // no video: the sound alone
    };
    for (const auto& c : cases) {
        const auto out = dir.path() / (c.source.stem().string() + "-export.mp4");
        AudioRenderIO::exportMovie(c.source, out);
        EXPECT_EQ(streamCodecs(out), c.codecs) << c.source;
        if (c.codecs.size() == 2) {
            EXPECT_EQ(countVideoFrames(out), 50) << c.source;
            const PCMBuffer audio = PCMSampleReader::readMonoFloat(out, 48000);
            EXPECT_NEAR(audio.durationSeconds, 2.0, 0.05) << c.source;
        }
    }
    const auto notes = dir.write("notes.txt", "plain text");
    EXPECT_EQ(errorOf([&] { AudioRenderIO::exportMovie(dir.path() / "gone.mp4", dir.path() / "x.mp4"); }),
              "Missing file: " + (dir.path() / "gone.mp4").string());
    EXPECT_TRUE(errorOf([&] {
                    AudioRenderIO::exportMovie(notes, dir.path() / "x.mp4");
                }).starts_with("Media reader failed: "));
    EXPECT_FALSE(std::filesystem::exists(dir.path() / "x.mp4"));
}

TEST(AudioRenderIOMedia, remuxPairsThePictureOfOneFileWithTheSoundOfAnother) {
    const TempDir dir;
    const auto original = writeWav(dir.path() / "orig.wav", tone(440, 0.5, 4.0, 48000), 1, 48000);
    const auto movie = makeMovie(dir.path() / "talk.mp4", 4.0, original);
    // The cleaned sound of the kept ranges: 1.0 s + 0.5 s.
    const auto cleaned = dir.path() / "cleaned.wav";
    AudioRenderIO::writeWAV(tone(1000, 0.25, 1.5, 48000), 48000.0, cleaned);

    const SecondsRange kept[] = {{2.0, 3.0}, {0.4, 0.9}};
    const auto out = AudioRenderIO::outputURL(dir.path(), "talk", "_cleaned", ".mp4");
    std::vector<double> shares;
    AudioRenderIO::remux(movie, cleaned, out, kept, [&](double s) { shares.push_back(s); });
    EXPECT_EQ(streamCodecs(out), (std::vector<std::string>{"h264", "aac"}));
    EXPECT_EQ(countVideoFrames(out), 38);  // 25 + 12.5 frames at 25 fps, the half frame kept
    // Each range starts with the source's picture at its lower bound, not whatever came before it.
    for (const auto& [outSeconds, sourceSeconds, otherSeconds] :
         {std::tuple{0.0, 2.0, 0.0}, std::tuple{1.0, 0.4, 3.0}}) {
        const auto picture = grayThumbnail(out, outSeconds);
        EXPECT_LT(thumbnailDifference(picture, grayThumbnail(movie, sourceSeconds)), 3.0) << outSeconds;
        EXPECT_GT(thumbnailDifference(picture, grayThumbnail(movie, otherSeconds)), 6.0) << outSeconds;
    }
    const PCMBuffer sound = PCMSampleReader::readMonoFloat(out, 48000);
    EXPECT_NEAR(sound.durationSeconds, 1.5, 0.05);
    ASSERT_FALSE(shares.empty());
    EXPECT_EQ(shares.back(), 1.0);

    // Without ranges the picture is copied whole.
    const auto whole = dir.path() / "whole.mp4";
    AudioRenderIO::remux(movie, cleaned, whole);
    EXPECT_EQ(countVideoFrames(whole), 100);

    const auto mute = makeMovie(dir.path() / "mute.mp4", 1.0);
    for (const auto& [video, audio] : {std::pair{mute, mute}, std::pair{cleaned, cleaned}}) {
        EXPECT_EQ(errorOf([&] { AudioRenderIO::remux(video, audio, dir.path() / "bad.mp4"); }),
                  "Export failed: Could not build a composition for the processed audio.");
    }
    EXPECT_FALSE(std::filesystem::exists(dir.path() / "bad.mp4"));

    std::stop_source stop;
    stop.request_stop();
    EXPECT_THROW(AudioRenderIO::remux(movie, cleaned, dir.path() / "stopped.mp4", kept, {}, stop.get_token()),
                 OperationCancelled);
    EXPECT_FALSE(std::filesystem::exists(dir.path() / "stopped.mp4"));
    for (const auto& entry : std::filesystem::directory_iterator(dir.path()))
        EXPECT_FALSE(entry.path().filename().string().starts_with("morvane-")) << entry.path();
}

}  // namespace
}  // namespace morvane::engine
