// The rules on real recordings, made by the tests: tones for speech, digital silence for pauses.

#include <gtest/gtest.h>

#include <cmath>

#include "morvane/engine/audio/pcm_sample_reader.hpp"
#include "morvane/intelligence/cleanup/cleanup_composer.hpp"
#include "morvane/intelligence/cleanup/cleanup_evidence.hpp"
#include "morvane/intelligence/cleanup/disfluency_detector.hpp"
#include "morvane/intelligence/cleanup/retake_detector.hpp"
#include "morvane/intelligence/cleanup/silence_remover.hpp"
#include "morvane/intelligence/evidence/media_evidence_builder.hpp"
#include "morvane/intelligence/segmentation/segmenter.hpp"
#include "morvane/testing/synthetic_media.hpp"
#include "morvane/testing/temp_dir.hpp"
#include "transcript_builder.hpp"

namespace morvane::intelligence {
namespace {

using namespace morvane::testing;
using intelligence::testing::segmentOf;
using intelligence::testing::takes;
using intelligence::testing::TranscriptBuilder;

// Eleven seconds at `rate`: speech 0-2 s, a 2.5 s pause, speech 4.5-6 s, a murmur 6-7 s (quiet: RMS
// 0.005), speech 7-9 s with a wobbling level, then 2 s of silence.
std::vector<float> recording(int rate) {
    auto wobble = concat({tone(220, 0.4, 0.25, rate), tone(220, 0.02, 0.25, rate), tone(220, 0.4, 0.25, rate),
                          tone(220, 0.02, 0.25, rate)});
    return concat({tone(220, 0.3, 2.0, rate), silence(2.5, rate), tone(330, 0.3, 1.5, rate),
                   noise(0.005, 1.0, rate), wobble, wobble, silence(2.0, rate)});
}

// Segments over the recording, some of them overlapping, empty, or past its end.
SegmentDocument segmentsOverRecording() {
    return intelligence::testing::documentOf({
        segmentOf(0, "First line here.", 0.0, 2.0, 0, 2),
        segmentOf(1, "Hello?", 2.2, 4.4, 3, 3),
        segmentOf(2, "Second line here.", 4.4, 6.0, 4, 6),
        segmentOf(3, "Um, uh.", 6.0, 7.0, 7, 8),
        segmentOf(4, "First line here.", 6.9, 9.0, 9, 11),
        segmentOf(5, "Nothing.", 9.0, 9.0, 12, 12),
        segmentOf(6, "Past the end.", 10.5, 14.0, 13, 15),
    });
}

TranscriptDocument transcriptOverRecording() {
    TranscriptBuilder builder;
    for (const char* word : {"First", "line", "here.", "Hello?", "Second", "line", "here.", "Um,", "uh.",
                             "First", "line", "here.", "Nothing.", "Past", "the", "end."}) {
        builder.say(word, 0.2, 0.0);
    }
    return builder.build();
}

TEST(SegmentAudioMeterMedia, streamedLevelsEqualThoseOfTheDecodedTrack) {
    const TempDir dir;
    const auto wav = writeWav(dir.path() / "talk.wav", recording(48000), 1, 48000);
    const auto slow = writeWav(dir.path() / "talk44.wav", recording(44100), 1, 44100);
    const auto segments = segmentsOverRecording();
    for (const auto& file :
         {wav, encodeAudio(wav, dir.path() / "talk.m4a"), slow, encodeAudio(slow, dir.path() / "talk.mp3")}) {
        const auto pcm = engine::PCMSampleReader::readMonoFloat(file, SegmentAudioMeter::sampleRate);
        const auto levels = SegmentAudioMeter::measure(segments.segments, file);
        EXPECT_EQ(levels, SegmentAudioMeter::measure(segments.segments, pcm)) << file.filename();
        ASSERT_EQ(levels.size(), 7u);
        EXPECT_NEAR(levels[0].rms.value(), 0.3 / std::sqrt(2.0), 0.02) << file.filename();
        EXPECT_LT(levels[3].rms.value(), 0.015) << file.filename();
        EXPECT_GT(levels[0].stability, 0.99) << file.filename();
        EXPECT_LT(levels[4].stability, levels[0].stability - 0.2) << file.filename();
        EXPECT_EQ(levels[5], SegmentAudioLevel{}) << file.filename();  // no samples
        EXPECT_TRUE(levels[6].rms.has_value()) << file.filename();     // cut at the end of the audio
    }
}

TEST(CleanupEvidenceMedia, eachRuleDecidesAsIfItHadReadTheRecordingItself) {
    const TempDir dir;
    const auto file =
        encodeAudio(writeWav(dir.path() / "talk.wav", recording(48000), 1, 48000), dir.path() / "talk.m4a");
    const auto segments = segmentsOverRecording();
    const auto transcript = transcriptOverRecording();

    int reports = 0;
    double last = 0.0;
    const auto evidence = CleanupEvidence::read(segments, file, {}, [&](double share) {
        ++reports;
        EXPECT_GE(share, last);
        last = share;
    });
    EXPECT_EQ(evidence.silences, engine::SilenceDetector::detect(file));
    EXPECT_EQ(evidence.levels, SegmentAudioMeter::measure(segments.segments, file));
    EXPECT_GT(reports, 0);
    EXPECT_DOUBLE_EQ(last, 1.0);

    const std::optional<std::filesystem::path> media = file;
    EXPECT_EQ(SilenceRemover::classify(segments, "x", media),
              SilenceRemover::classify(segments, "x", evidence.silences));
    EXPECT_EQ(DisfluencyDetector::classify(segments, transcript, "x", media),
              DisfluencyDetector::classify(segments, transcript, "x", evidence));
    EXPECT_EQ(RetakeDetector::classify(segments, transcript, "x", media),
              RetakeDetector::classify(segments, transcript, "x", evidence));
    const auto composed = CleanupComposer::classify(segments, transcript, "Clean up", media);
    EXPECT_EQ(composed, CleanupComposer::classify(segments, transcript, "Clean up", evidence));

    // The pause swallows segment 1, the murmur is filler, and the repeat of the first line goes.
    EXPECT_EQ(composed.reason(1), "cleanup_drop:silence");
    EXPECT_EQ(composed.reason(3), "cleanup_drop:filler");
    EXPECT_EQ(composed.reason(4), "cleanup_drop:retake");
    EXPECT_EQ(composed.reason(0), "cleanup_keep");
    EXPECT_EQ(composed.reason(2), "cleanup_keep");
}

TEST(CleanupEvidenceMedia, aRecordingThatCantBeReadGivesNoEvidence) {
    const TempDir dir;
    const auto notMedia = dir.write("talk.mp4", "this is not a movie");
    const auto segments = segmentsOverRecording();
    const auto evidence = CleanupEvidence::read(segments, notMedia);
    EXPECT_TRUE(evidence.silences.empty());
    EXPECT_FALSE(evidence.levels.has_value());
    const auto missing = CleanupEvidence::read(segments, dir.path() / "gone.wav");
    EXPECT_FALSE(missing.levels.has_value());

    const auto transcript = transcriptOverRecording();
    const std::optional<std::filesystem::path> media = notMedia;
    EXPECT_EQ(CleanupComposer::classify(segments, transcript, "Clean up", media),
              CleanupComposer::classify(segments, transcript, "Clean up", CleanupEvidence{}));

    std::stop_source stop;
    stop.request_stop();
    const auto wav = writeWav(dir.path() / "talk.wav", recording(48000), 1, 48000);
    EXPECT_THROW((void)CleanupEvidence::read(segments, wav, {}, {}, stop.get_token()), OperationCancelled);
}

TEST(SegmenterMedia, snapsSegmentEdgesIntoTheRecordingsPauses) {
    const TempDir dir;
    const auto file = writeWav(dir.path() / "talk.wav", recording(48000), 1, 48000);
    // The recogniser heard the second line start 0.25 s after its sound does.
    const auto transcript = TranscriptBuilder()
                                .say("First line here.", 0.6, 0.1)
                                .pause(2.55)
                                .say("Second line.", 0.6, 0.2)
                                .build();
    const auto segments = Segmenter::segment(transcript, file);
    ASSERT_EQ(segments.segmentCount, 2);
    const auto pauses = engine::SilenceDetector::detect(file);
    ASSERT_FALSE(pauses.empty());
    // Both edges land on the pause's edges, which the detector widens by 0.05 s.
    EXPECT_NEAR(segments.segments[0].end.seconds(), 1.95, 0.021);
    EXPECT_EQ(segments.segments[0].end.timescale, 600);
    EXPECT_NEAR(segments.segments[1].start.seconds(), 4.55, 0.021);
}

TEST(MediaEvidenceBuilderMedia, notesTheLongPausesOfARecording) {
    const TempDir dir;
    const auto file = writeWav(dir.path() / "talk.wav", recording(48000), 1, 48000);
    const auto talk = takes({"First line here.", "Second line here."});
    const auto evidence = MediaEvidenceBuilder::build(file, talk.transcript, talk.segments);
    EXPECT_EQ(evidence.silenceSpans.size(), engine::SilenceDetector::detect(file).size());
    EXPECT_EQ(evidence.notes, (std::vector<std::string>{"2 silence spans ≥1.5s detected."}));
}

}  // namespace
}  // namespace morvane::intelligence
