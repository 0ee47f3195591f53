// The timeline draws each media clip over its sound's waveform once the session has it.

#include <gtest/gtest.h>

#include <QImage>

#include "studio_fixture.hpp"
#include "studio_window.hpp"
#include "timeline/timeline_view.hpp"

namespace morvane::studio {
namespace {

using testing::StudioWindowTest;
using testing::waitUntil;

using TimelineWaveformMedia = StudioWindowTest;

TEST_F(TimelineWaveformMedia, theOpenedRecordingsClipIsDrawnOverItsWaveform) {
    openMessyTalk();
    auto& session = window->session();
    ASSERT_TRUE(waitUntil([&] { return session.waveformEnvelope.has_value(); }));
    window->refreshNow();
    TimelineView& timeline = *window->timelineView();
    ASSERT_TRUE(timeline.waveforms().contains(session.primarySourceID));
    EXPECT_EQ(timeline.waveforms().at(session.primarySourceID), *session.waveformEnvelope);

    const auto& clip = session.timeline->clips(app::TimelineTrackIDs::source).front();
    const QRect box = timeline.clipBox(clip.id);
    ASSERT_FALSE(box.isEmpty());
    const auto grabClip = [&] {
        timeline.viewport()->repaint();
        return timeline.viewport()->grab(box).toImage();
    };
    const QImage withWaveform = grabClip();
    // Without the envelope the same clip is drawn plain: the waveform is what differed.
    const engine::WaveformEnvelope kept = *session.waveformEnvelope;
    session.waveformEnvelope.reset();
    window->refreshNow();
    EXPECT_FALSE(timeline.waveforms().contains(session.primarySourceID));
    const QImage plain = grabClip();
    EXPECT_NE(withWaveform, plain);
    session.waveformEnvelope = kept;
    window->refreshNow();
    EXPECT_EQ(grabClip(), withWaveform);
}

TEST_F(TimelineWaveformMedia, aPackedClipShowsTheSoundOfThePiecesItPlays) {
    openMessyTalk();
    auto& session = window->session();
    ASSERT_TRUE(waitUntil([&] { return session.waveformEnvelope.has_value(); }));
    // A recording silent for 4 s, then loud for 4 s, and a storyline clip that plays only the loud half in
    // two pieces: its whole box must show the loud sound, not the silence its outer bounds begin with.
    engine::WaveformEnvelope envelope{
        .mins = std::vector<float>(800, 0.0f), .maxs = std::vector<float>(800, 0.0f), .durationSeconds = 8.0};
    std::fill(envelope.mins.begin() + 400, envelope.mins.end(), -1.0f);
    std::fill(envelope.maxs.begin() + 400, envelope.maxs.end(), 1.0f);
    session.waveformEnvelope = envelope;
    app::TimelineTrack storyline = *session.timeline->track(app::TimelineTrackIDs::source);
    app::TimelineClip& clip = storyline.clips.front();
    storyline.clips.resize(1);
    clip.sourceIn = engine::RationalTime::zero;
    clip.sourceOut = engine::RationalTime{4800, 600};
    clip.assemblyRanges =
        std::vector<app::TimelineSourceRange>{{{2400, 600}, {3600, 600}}, {{3600, 600}, {4800, 600}}};
    session.timeline->updateTrack(storyline);
    window->refreshNow();

    TimelineView& timeline = *window->timelineView();
    const QRect box = timeline.clipBox(clip.id);
    ASSERT_FALSE(box.isEmpty());
    const auto grabClip = [&] {
        timeline.viewport()->repaint();
        return timeline.viewport()->grab(box).toImage();
    };
    const QImage drawn = grabClip();
    session.waveformEnvelope.reset();
    window->refreshNow();
    const QImage plain = grabClip();
    // In a column a fifth of the way in, the loud sound covers most of the lane's height.
    const int x = box.width() / 5;
    int covered = 0;
    for (int y = 0; y < box.height(); ++y)
        covered += drawn.pixel(x, y) != plain.pixel(x, y) ? 1 : 0;
    EXPECT_GT(covered, box.height() / 2);
}

}  // namespace
}  // namespace morvane::studio
