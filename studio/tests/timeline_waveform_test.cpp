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

}  // namespace
}  // namespace morvane::studio
