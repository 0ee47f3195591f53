// The timeline's gestures in the window, as a user makes them: dragging an edge, splitting at the playhead,
// deleting, ripple deleting; each one undo step with its title in the Edit menu.

#include <gtest/gtest.h>

#include <QAction>

#include "morvane/app/session/edit_coordinator.hpp"
#include "morvane/app/timeline/timeline_editor.hpp"
#include "studio_fixture.hpp"
#include "timeline/timeline_view.hpp"

namespace morvane::studio {
namespace {

using app::TimelineTrackIDs::source;
using testing::waitUntil;

class TimelineGesturesMedia : public testing::StudioWindowTest {
  protected:
    [[nodiscard]] std::vector<app::TimelineClip> clips(std::string_view track) const {
        return window->session().timeline->clips(track);
    }
    [[nodiscard]] QString undoTitle() {
        window->refreshNow();
        return window->undoAction()->text();
    }
    void press(Qt::Key key, Qt::KeyboardModifiers modifiers = Qt::NoModifier) {
        window->activateWindow();
        window->timelineView()->setFocus();
        QTest::keyClick(window->timelineView(), key, modifiers);
        window->refreshNow();
    }
};

TEST_F(TimelineGesturesMedia, draggingAnEdgeTrimsTheClipInOneUndoStep) {
    openMessyTalk();
    TimelineView& view = *window->timelineView();
    view.setZoom(60.0);
    const std::string id = clips(source).front().id;
    const QRect box = view.clipBox(id);
    const QPoint edge(box.right() - 1, box.center().y());
    ASSERT_EQ(view.hitTest(edge)->edge, app::TrimEdge::trailing);

    QTest::mousePress(view.viewport(), Qt::LeftButton, {}, edge);
    for (const double seconds : {9.5, 9.0, 8.5, 8.0}) {
        const QPoint to(view.xOf(seconds), edge.y());
        QMouseEvent move(QEvent::MouseMove, to, view.viewport()->mapToGlobal(to), Qt::NoButton,
                         Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(view.viewport(), &move);
    }
    QTest::mouseRelease(view.viewport(), Qt::LeftButton, {}, QPoint(view.xOf(8.0), edge.y()));

    ASSERT_EQ(clips(source).size(), 1u);
    EXPECT_NEAR(clips(source).front().sourceOut.seconds(), 8.0, 1.0 / view.zoom());
    EXPECT_EQ(undoTitle(), QStringLiteral("Undo Trim Clip"));
    EXPECT_EQ(window->session().editHistory.undoStack().size(), 1u);  // four moves, one step
    ASSERT_TRUE(waitUntil([&] { return window->player().isReady() && window->player().duration() < 8.1; }));
    window->undoAction()->trigger();
    EXPECT_NEAR(clips(source).front().sourceOut.seconds(), 10.0, 0.01);
}

TEST_F(TimelineGesturesMedia, splitAtThePlayheadThenDeleteAPiece) {
    openMessyTalk();
    window->session().requestSeekToComposition(4.0);
    press(Qt::Key_S);
    ASSERT_EQ(clips(source).size(), 2u);
    EXPECT_NEAR(clips(source)[1].timelineStart.seconds(), 4.0, 0.01);
    EXPECT_EQ(undoTitle(), QStringLiteral("Undo Split Clip"));

    const std::string second = clips(source)[1].id;
    TimelineView& view = *window->timelineView();
    QTest::mouseClick(view.viewport(), Qt::LeftButton, {}, view.clipBox(second).center());
    EXPECT_EQ(window->session().selectedClipIDs, std::set<std::string>{second});
    press(Qt::Key_Delete);
    ASSERT_EQ(clips(source).size(), 1u);
    EXPECT_NE(clips(source).front().id, second);
    EXPECT_EQ(undoTitle(), QStringLiteral("Undo Delete Clip"));
    ASSERT_TRUE(waitUntil([&] { return window->player().isReady() && window->player().duration() < 4.1; }));
}

TEST_F(TimelineGesturesMedia, rippleDeleteClosesTheGapOffTheStoryline) {
    openMessyTalk();
    app::ProjectSession& session = window->session();
    std::optional<std::string> first;
    std::optional<std::string> second;
    app::EditCoordinator::perform(session, "Add Titles", [&] {
        first = app::TimelineEditor::addTextClip(session, "Intro", 1.0, 2.0);
        second = app::TimelineEditor::addTextClip(session, "Outro", 5.0, 2.0);
    });
    ASSERT_TRUE(first && second);
    window->refreshNow();
    TimelineView& view = *window->timelineView();

    // A plain delete leaves the gap; its undo brings the title back.
    QTest::mouseClick(view.viewport(), Qt::LeftButton, {}, view.clipBox(*first).center());
    press(Qt::Key_Delete);
    ASSERT_EQ(clips(app::TimelineTrackIDs::text).size(), 1u);
    EXPECT_NEAR(clips(app::TimelineTrackIDs::text).front().timelineStart.seconds(), 5.0, 0.01);
    window->undoAction()->trigger();
    window->refreshNow();

    QTest::mouseClick(view.viewport(), Qt::LeftButton, {}, view.clipBox(*first).center());
    press(Qt::Key_Delete, Qt::ShiftModifier);
    const auto text = clips(app::TimelineTrackIDs::text);
    ASSERT_EQ(text.size(), 1u);
    EXPECT_EQ(text.front().id, *second);
    EXPECT_NEAR(text.front().timelineStart.seconds(), 3.0, 0.01);  // moved up by the 2 s removed
    EXPECT_EQ(undoTitle(), QStringLiteral("Undo Ripple Delete"));
    window->undoAction()->trigger();
    EXPECT_EQ(clips(app::TimelineTrackIDs::text).size(), 2u);
}

}  // namespace
}  // namespace morvane::studio
