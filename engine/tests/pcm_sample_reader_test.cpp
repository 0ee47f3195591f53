#include "morvane/engine/audio/pcm_sample_reader.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>
#include <numeric>

#include "morvane/engine/engine_error.hpp"
#include "morvane/testing/synthetic_media.hpp"
#include "morvane/testing/temp_dir.hpp"

namespace morvane::engine {
namespace {

using namespace morvane::testing;

double rmsOf(std::span<const float> samples) {
    if (samples.empty()) return 0.0;
    const double sum = std::inner_product(samples.begin(), samples.end(), samples.begin(), 0.0);
    return std::sqrt(sum / static_cast<double>(samples.size()));
}

double dB(double linear) {
    return 20.0 * std::log10(linear);
}

// The error a read throws, or nothing.
std::optional<EngineError> readError(const std::filesystem::path& path) {
    try {
        (void)PCMSampleReader::readMonoFloat(path, 48000);
    } catch (const EngineError& e) {
        return e;
    }
    return std::nullopt;
}

TEST(PCMSampleReaderMedia, readsTheFirstAudioTrackOfEveryCommonContainer) {
    const TempDir dir;
    // 1.0 s of a 440 Hz tone at -6 dBFS peak, stereo with the same signal on both sides.
    const auto mono = tone(440.0, 0.5, 1.0, 48000);
    const auto wav = writeWav(dir.path() / "tone.wav", interleave(mono, mono), 2, 48000);
    const double expectedRmsDB = dB(0.5 / std::sqrt(2.0));
    struct Case {
        std::string name;
        std::filesystem::path file;
        double levelToleranceDB;  // lossy encoders move a pure tone's level a little (LAME about 0.45 dB)
    };
    const std::vector<Case> cases = {
        {"wav float", wav, 0.01},
        {"wav 16-bit",
         writeWav(dir.path() / "tone16.wav", interleave(mono, mono), 2, 48000, WavEncoding::pcm16), 0.01},
        {"m4a", encodeAudio(wav, dir.path() / "tone.m4a"), 0.3},
        {"mp3", encodeAudio(wav, dir.path() / "tone.mp3"), 0.6},
        {"flac", encodeAudio(wav, dir.path() / "tone.flac"), 0.01},
        {"opus", encodeAudio(wav, dir.path() / "tone.opus"), 0.3},
        {"mp4", makeMovie(dir.path() / "tone.mp4", 1.0, wav), 0.3},
        {"mov", makeMovie(dir.path() / "tone.mov", 1.0, wav), 0.3},
        {"mkv", makeMovie(dir.path() / "tone.mkv", 1.0, wav), 0.3},
        {"webm", makeMovie(dir.path() / "tone.webm", 1.0, wav), 0.3},
    };
    for (const auto& c : cases) {
        const PCMBuffer buffer = PCMSampleReader::readMonoFloat(c.file, 48000);
        EXPECT_EQ(buffer.sampleRate, 48000.0) << c.name;
        // Lossy codecs pad or trim a frame or two at the ends.
        EXPECT_NEAR(buffer.durationSeconds, 1.0, 0.05) << c.name;
        EXPECT_DOUBLE_EQ(buffer.durationSeconds, static_cast<double>(buffer.samples.size()) / 48000.0)
            << c.name;
        // The middle of the tone, away from encoder ramps.
        const auto middle = std::span<const float>(buffer.samples).subspan(12000, 24000);
        EXPECT_NEAR(dB(rmsOf(middle)), expectedRmsDB, c.levelToleranceDB) << c.name;
    }
}

// One decode feeding a second rate must hand out what a stream of its own at that rate reads, block for
// block, whichever rate the file has and whichever of the two needs converting.
TEST(PCMSampleReaderMedia, aSecondRateReadsWhatItsOwnStreamWould) {
    const TempDir dir;
    const auto signal = concat({tone(440.0, 0.5, 1.3, 48000), silence(0.4, 48000), noise(0.1, 1.1, 48000)});
    const auto wav48 = writeWav(dir.path() / "a48.wav", signal, 1, 48000);
    const auto wav44 = writeWav(dir.path() / "a44.wav", concat({tone(440.0, 0.5, 2.8, 44100)}), 1, 44100);
    const auto blocks = [](PCMStream& stream) {
        std::vector<std::vector<float>> out;
        for (auto block = stream.read(); !block.empty(); block = stream.read())
            out.emplace_back(block.begin(), block.end());
        return out;
    };
    for (const auto& file :
         {wav48, wav44, encodeAudio(wav48, dir.path() / "a.m4a"), encodeAudio(wav44, dir.path() / "a.mp3"),
          makeMovie(dir.path() / "a.mp4", 2.8, wav48)}) {
        for (const auto& [mainRate, otherRate] : {std::pair(48000, 44100), std::pair(44100, 48000)}) {
            PCMStream both(file, mainRate);
            std::vector<std::vector<float>> other;
            both.alsoAtRate(otherRate, [&](std::span<const float> block) {
                other.emplace_back(block.begin(), block.end());
            });
            PCMStream alone(file, mainRate);
            PCMStream otherAlone(file, otherRate);
            EXPECT_EQ(blocks(both), blocks(alone)) << file.filename() << " at " << mainRate;
            EXPECT_EQ(other, blocks(otherAlone)) << file.filename() << " at " << otherRate;
            EXPECT_FALSE(other.empty()) << file.filename();
        }
    }
}

TEST(PCMSampleReaderMedia, downmixesToTheAverageOfTheChannels) {
    const TempDir dir;
    const auto left = tone(440.0, 0.5, 1.0, 48000);
    std::vector<float> inverted(left.size());
    std::transform(left.begin(), left.end(), inverted.begin(), [](float s) { return -s; });
    const auto quiet = silence(1.0, 48000);

    const auto opposite = writeWav(dir.path() / "opposite.wav", interleave(left, inverted), 2, 48000);
    EXPECT_LT(rmsOf(PCMSampleReader::readMonoFloat(opposite, 48000).samples), 1e-6);

    // One side only: the average halves the level (-6 dB), where FFmpeg's default mix would give -3 dB.
    const auto oneSide = writeWav(dir.path() / "left.wav", interleave(left, quiet), 2, 48000);
    const double level = dB(rmsOf(PCMSampleReader::readMonoFloat(oneSide, 48000).samples));
    EXPECT_NEAR(level, dB(0.25 / std::sqrt(2.0)), 0.01);
}

TEST(PCMSampleReaderMedia, resamplesWithoutShiftingTime) {
    const TempDir dir;
    // A single click at 1.000 s in 2 s of silence.
    auto samples = silence(2.0, 48000);
    samples[48000] = 1.0f;
    const auto wav = writeWav(dir.path() / "click.wav", samples, 1, 48000);
    for (const int rate : {44100, 16000, 96000}) {
        const PCMBuffer buffer = PCMSampleReader::readMonoFloat(wav, rate);
        EXPECT_NEAR(static_cast<double>(buffer.samples.size()), 2.0 * rate, 2.0) << rate;
        const auto peak = std::max_element(buffer.samples.begin(), buffer.samples.end(),
                                           [](float a, float b) { return std::abs(a) < std::abs(b); });
        EXPECT_NEAR(static_cast<double>(peak - buffer.samples.begin()), 1.0 * rate, 1.0) << rate;
    }
    // A tone keeps its level through the conversion.
    const auto toneWav = writeWav(dir.path() / "tone.wav", tone(1000.0, 0.5, 1.0, 48000), 1, 48000);
    const PCMBuffer converted = PCMSampleReader::readMonoFloat(toneWav, 44100);
    EXPECT_NEAR(dB(rmsOf(std::span<const float>(converted.samples).subspan(4410, 35280))),
                dB(0.5 / std::sqrt(2.0)), 0.05);

    // Band-limited: 18 kHz passes to 44.1 kHz, 25 kHz (above the new Nyquist) does not fold back.
    struct Band {
        double hz;
        double minDB;
        double maxDB;
    } bands[] = {{18000.0, -9.3, -8.8}, {25000.0, -200.0, -90.0}};
    for (const auto& band : bands) {
        const auto bandWav = writeWav(dir.path() / "band.wav", tone(band.hz, 0.5, 1.0, 48000), 1, 48000);
        const PCMBuffer out = PCMSampleReader::readMonoFloat(bandWav, 44100);
        const double level = dB(rmsOf(std::span<const float>(out.samples).subspan(4410, 35280)));
        EXPECT_GT(level, band.minDB) << band.hz;
        EXPECT_LT(level, band.maxDB) << band.hz;
    }
}

TEST(PCMSampleReaderMedia, readsRangesExactlyFromUncompressedAudio) {
    const TempDir dir;
    std::vector<float> ramp(48000 * 3);
    for (std::size_t i = 0; i < ramp.size(); ++i)
        ramp[i] = static_cast<float>(i) / static_cast<float>(ramp.size());
    const auto wav = writeWav(dir.path() / "ramp.wav", ramp, 1, 48000);
    const auto slice = [&](std::size_t from, std::size_t count) {
        return std::vector<float>(ramp.begin() + static_cast<std::ptrdiff_t>(from),
                                  ramp.begin() + static_cast<std::ptrdiff_t>(from + count));
    };
    struct Case {
        double start;
        std::optional<double> max;
        std::vector<float> expected;
    } cases[] = {
        {0.0, 0.5, slice(0, 24000)},
        {1.25, 0.5, slice(60000, 24000)},
        {2.5, std::nullopt, slice(120000, 24000)},
        {2.9, 5.0, slice(139200, 4800)},  // runs past the end: what there is
        {-1.0, 0.1, slice(0, 4800)},      // before the start counts from 0
        {4.0, 1.0, {}},                   // beyond the end: nothing
        {1.0, 0.0, {}},
    };
    for (const auto& c : cases) {
        const PCMBuffer buffer =
            PCMSampleReader::readMonoFloat(wav, 48000, {.startSeconds = c.start, .maxSeconds = c.max});
        EXPECT_EQ(buffer.samples, c.expected) << c.start;
    }

    const SecondsRange ranges[] = {{2.0, 2.5}, {0.0, 0.25}, {1.0, 0.5}, {0.5, 0.75}};
    const PCMBuffer joined = PCMSampleReader::readConcatenated(wav, 48000, ranges);
    auto expected = slice(96000, 24000);
    for (const auto& piece : {slice(0, 12000), slice(24000, 12000)})
        expected.insert(expected.end(), piece.begin(), piece.end());
    EXPECT_EQ(joined.samples, expected);
    EXPECT_DOUBLE_EQ(joined.durationSeconds, 1.0);
}

TEST(PCMSampleReaderMedia, seeksCompressedAudioCloseToTheAskedTime) {
    const TempDir dir;
    // Silence, then a tone from 2.0 s: a read from 1.9 s must see the tone start 0.1 s in.
    const auto wav = writeWav(dir.path() / "late.wav",
                              concat({silence(2.0, 48000), tone(440, 0.5, 1.0, 48000)}), 1, 48000);
    const auto m4a = encodeAudio(wav, dir.path() / "late.m4a");
    const PCMBuffer buffer =
        PCMSampleReader::readMonoFloat(m4a, 48000, {.startSeconds = 1.9, .maxSeconds = 0.5});
    ASSERT_EQ(buffer.samples.size(), 24000u);
    const auto onset = std::find_if(buffer.samples.begin(), buffer.samples.end(),
                                    [](float s) { return std::abs(s) > 0.1f; });
    EXPECT_NEAR(static_cast<double>(onset - buffer.samples.begin()), 4800.0, 100.0);
}

TEST(PCMSampleReaderMedia, aRangeReadsTheSameWhateverTheStreamReadBefore) {
    // An export reads the cuts of one recording through one stream, range after range. What a range gives
    // must not depend on how far the stream had decoded before: AAC carries state from frame to frame.
    const TempDir dir;
    const auto m4a = encodeAudio(writeWav(dir.path() / "noise.wav", noise(0.2, 8.0, 48000), 1, 48000),
                                 dir.path() / "noise.m4a");
    const auto readRange = [](PCMStream& stream) {
        stream.setRange(5.0, 1.0);
        std::vector<float> samples;
        for (auto block = stream.read(); !block.empty(); block = stream.read())
            samples.insert(samples.end(), block.begin(), block.end());
        return samples;
    };
    PCMStream fresh(m4a, 48000);
    const auto expected = readRange(fresh);
    ASSERT_EQ(expected.size(), 48000u);
    for (const double before : {0.0, 1.3, 4.9}) {
        PCMStream used(m4a, 48000);
        used.setRange(before, 0.7);
        while (!used.read().empty()) {
        }
        EXPECT_EQ(readRange(used), expected) << "after reading from " << before << " s";
    }
}

TEST(PCMSampleReaderMedia, refusesWhatItCannotReadWithTheRightError) {
    const TempDir dir;
    const auto wav = writeWav(dir.path() / "tone.wav", tone(440, 0.5, 2.0, 48000), 1, 48000);
    const auto movie = makeMovie(dir.path() / "talk.mp4", 2.0, wav);
    std::string garbage(200000, '\0');
    for (std::size_t i = 0; i < garbage.size(); ++i)
        garbage[i] = static_cast<char>((i * 7919u + 13u) % 251u);
    const auto silentMovie = makeMovie(dir.path() / "silent.mp4", 1.0);
    const auto mkv = makeMovie(dir.path() / "talk.mkv", 2.0, wav);
    const auto faststart = dir.path() / "faststart.mp4";
    runFfmpeg({"-i", movie.string(), "-c", "copy", "-movflags", "+faststart", faststart.string()});
    const auto halfOf = [&](const std::filesystem::path& file, const std::string& name) {
        return truncateCopy(file, dir.path() / name, std::filesystem::file_size(file) / 2);
    };
    // An MP4 whose header and index, at the front, are overwritten with noise.
    std::string damaged = [&] {
        std::ifstream in(faststart, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }();
    std::copy(garbage.begin(), garbage.begin() + 1000, damaged.begin());

    struct Case {
        std::string name;
        std::filesystem::path file;
        EngineError::Kind kind;
    } cases[] = {
        {"missing", dir.path() / "nothing-here.wav", EngineError::Kind::missingFile},
        {"folder", dir.path(), EngineError::Kind::missingFile},
        {"empty", dir.write("empty.mp4", ""), EngineError::Kind::readerFailed},
        {"text", dir.write("notes.wav", "These are my notes, not a recording.\n"),
         EngineError::Kind::readerFailed},
        {"garbage", dir.write("noise.mp4", garbage), EngineError::Kind::readerFailed},
        {"damaged index", dir.write("damaged.mp4", damaged), EngineError::Kind::readerFailed},
        {"truncated mp4, index last", halfOf(movie, "cut.mp4"), EngineError::Kind::readerFailed},
        {"truncated mp4, index first", halfOf(faststart, "cut-faststart.mp4"),
         EngineError::Kind::readerFailed},
        {"truncated mkv", halfOf(mkv, "cut.mkv"), EngineError::Kind::readerFailed},
        {"no audio", silentMovie, EngineError::Kind::noAudioTrack},
    };
    for (const auto& c : cases) {
        const auto error = readError(c.file);
        ASSERT_TRUE(error.has_value()) << c.name;
        EXPECT_EQ(error->kind(), c.kind) << c.name << ": " << error->what();
        if (c.kind == EngineError::Kind::readerFailed) {
            // FFmpeg's own reason comes after our context.
            EXPECT_TRUE(std::string(error->what()).starts_with("Media reader failed: ")) << error->what();
            EXPECT_NE(error->payload().find(": "), std::string::npos) << error->what();
        }
    }
    EXPECT_STREQ(readError(silentMovie)->what(), "Asset has no audio track");
    EXPECT_EQ(readError(dir.path() / "nothing-here.wav")->payload(),
              (dir.path() / "nothing-here.wav").string());
}

TEST(PCMSampleReaderMedia, stopsWhenAsked) {
    const TempDir dir;
    const auto wav = writeWav(dir.path() / "tone.wav", tone(440, 0.5, 2.0, 48000), 1, 48000);
    std::stop_source source;
    source.request_stop();
    EXPECT_THROW((void)PCMSampleReader::readMonoFloat(wav, 48000, {}, source.get_token()),
                 OperationCancelled);

    std::vector<double> shares;
    const auto buffer =
        PCMSampleReader::readMonoFloat(wav, 48000, {.progress = [&](double s) { shares.push_back(s); }});
    ASSERT_FALSE(shares.empty());
    EXPECT_EQ(shares.back(), 1.0);
    EXPECT_TRUE(std::is_sorted(shares.begin(), shares.end()));
}

TEST(PCMSampleReaderMedia, anEmptyAudioTrackGivesNoSamples) {
    const TempDir dir;
    const auto wav = writeWav(dir.path() / "empty.wav", std::vector<float>{}, 1, 48000);
    const PCMBuffer buffer = PCMSampleReader::readMonoFloat(wav, 48000);
    EXPECT_TRUE(buffer.samples.empty());
    EXPECT_EQ(buffer.durationSeconds, 0.0);
}

}  // namespace
}  // namespace morvane::engine
