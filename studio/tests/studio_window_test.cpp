#include "studio_window.hpp"

#include <gtest/gtest.h>

#include <QAction>
#include <QDialog>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTreeWidget>
#include <condition_variable>
#include <mutex>

#include "assistant/assistant_panel.hpp"
#include "morvane/app/timeline/timeline_document.hpp"
#include "morvane/intelligence/model/language_model.hpp"
#include "morvane/testing/fake_model_server.hpp"
#include "preview/preview_monitor.hpp"
#include "studio_fixture.hpp"
#include "timeline/timeline_view.hpp"
#include "transcript/transcript_view.hpp"

namespace morvane::studio {
namespace {

using intelligence::AssistantCommandID;
using testing::StudioWindowTest;
using testing::waitUntil;

using StudioWindowMedia = StudioWindowTest;

// Drags across the transcript from one word to another, as a user selecting them does.
void dragSelect(TranscriptView& view, int firstID, int lastID) {
    const QPoint from = view.wordBox(firstID).center();
    const QPoint to = view.wordBox(lastID).center();
    QTest::mousePress(view.viewport(), Qt::LeftButton, {}, from);
    QMouseEvent move(QEvent::MouseMove, to, view.viewport()->mapToGlobal(to), Qt::NoButton, Qt::LeftButton,
                     Qt::NoModifier);
    QApplication::sendEvent(view.viewport(), &move);
    QTest::mouseRelease(view.viewport(), Qt::LeftButton, {}, to);
}

TEST_F(StudioWindowMedia, opensARecordingAndShowsItsTranscriptPictureAndTimeline) {
    EXPECT_TRUE(window->welcomePage()->isVisible());
    openMessyTalk();
    EXPECT_FALSE(window->welcomePage()->isVisible());
    EXPECT_EQ(window->transcriptView()->wordCount(), 17u);
    ASSERT_TRUE(
        waitUntil([&] { return window->player().isReady() && !window->player().currentImage().isNull(); }));
    EXPECT_NEAR(window->player().duration(), 10.0, 0.1);
    const auto& clips = window->timelineView()->clips();
    ASSERT_EQ(clips.size(), 1u);
    EXPECT_EQ(clips.front().trackID, "source");
    EXPECT_EQ(window->statusLabel()->text().toStdString(), window->session().statusMessage);
    EXPECT_TRUE(window->statusLabel()->text().startsWith(QStringLiteral("Opened talk.mp4 — 5 segments.")));
}

TEST_F(StudioWindowMedia, cleanUpProposesARoughCutThatAcceptMakesTheStoryline) {
    openMessyTalk();
    QPushButton* cleanUp = window->assistantPanel()->commandButton(AssistantCommandID::cleanUp);
    ASSERT_NE(cleanUp, nullptr);
    ASSERT_TRUE(cleanUp->isEnabled());
    QTest::mouseClick(cleanUp, Qt::LeftButton);
    ASSERT_TRUE(waitUntil([&] { return window->session().isReviewingProposal(); }))
        << window->session().errorMessage.value_or("");
    window->refreshNow();

    // The review shows everywhere: the proposal bar, the segments' marks, the rough cut's track, the chat.
    AssistantPanel& assistant = *window->assistantPanel();
    EXPECT_TRUE(assistant.proposalBar()->isVisible());
    EXPECT_FALSE(cleanUp->isEnabled());  // one review at a time
    // The fillers go and one of the two takes of "Today we cut video."; each paragraph shows its verdict.
    const std::vector<int> kept = window->session().pendingProposal->keepSegmentIDs;
    ASSERT_EQ(kept.size(), 3u);
    EXPECT_EQ(kept.front(), 0);
    EXPECT_EQ(kept.back(), 4);
    const TranscriptView& transcript = *window->transcriptView();
    for (int segment = 0; segment < 5; ++segment) {
        const bool keeps = std::find(kept.begin(), kept.end(), segment) != kept.end();
        EXPECT_EQ(transcript.markOfParagraph(static_cast<std::size_t>(segment)),
                  keeps ? SegmentMark::keep : SegmentMark::drop)
            << segment;
    }
    EXPECT_TRUE(transcript.isStruck(4));  // "Um," went with its segment
    EXPECT_FALSE(transcript.isStruck(0));
    int roughCut = 0;
    for (const auto& clip : window->timelineView()->clips())
        roughCut += clip.trackID == "program";
    EXPECT_GT(roughCut, 0);
    ASSERT_EQ(assistant.restoreButtons().size(), 1u);
    EXPECT_EQ(window->undoAction()->text(), QStringLiteral("Undo Propose Cut"));
    // The preview plays the rough cut: three segments of about 1.5, 1.5 and 1.3 s.
    ASSERT_TRUE(waitUntil([&] { return window->player().isReady() && window->player().duration() < 6.0; }));

    QTest::mouseClick(assistant.acceptButton(), Qt::LeftButton);
    window->refreshNow();
    EXPECT_FALSE(window->session().isReviewingProposal());
    EXPECT_FALSE(assistant.proposalBar()->isVisible());
    const auto& storyline = window->session().timeline->clips(app::TimelineTrackIDs::source);
    ASSERT_EQ(storyline.size(), 1u);
    EXPECT_EQ(storyline.front().originSegmentIDs, kept);
    EXPECT_EQ(window->undoAction()->text(), QStringLiteral("Undo Accept Cut"));
    EXPECT_EQ(
        window->statusLabel()->text(),
        QStringLiteral("Cut accepted — Storyline updated. Restore checkpoint to return to the Rough Cut."));

    // Undo through the Edit menu takes the Accept back, and Redo brings it again.
    window->undoAction()->trigger();
    window->refreshNow();
    EXPECT_TRUE(window->session().timeline->clips(app::TimelineTrackIDs::program).size() > 0);
    EXPECT_EQ(window->redoAction()->text(), QStringLiteral("Redo Accept Cut"));
    window->redoAction()->trigger();
    EXPECT_TRUE(window->session().timeline->clips(app::TimelineTrackIDs::program).empty());

    // Restore from the chat brings the rough cut back as it was reviewed.
    window->refreshNow();
    QTest::mouseClick(assistant.restoreButtons().front(), Qt::LeftButton);
    window->refreshNow();
    EXPECT_EQ(window->session().statusMessage, "Restored checkpoint from chat.");
    EXPECT_FALSE(window->session().timeline->clips(app::TimelineTrackIDs::program).empty());
    EXPECT_EQ(window->undoAction()->text(), QStringLiteral("Undo Restore Cut"));
}

TEST_F(StudioWindowMedia, theSheetOfEveryCommandRunsTheOneChosen) {
    openMessyTalk();
    window->assistantPanel()->showMoreCommands();
    auto* sheet = window->findChild<QDialog*>(QStringLiteral("commandSheet"));
    ASSERT_NE(sheet, nullptr);
    ASSERT_TRUE(QTest::qWaitForWindowExposed(sheet));
    auto* tree = sheet->findChild<QTreeWidget*>();
    ASSERT_NE(tree, nullptr);
    // Grouped by category, each command with its subtitle.
    EXPECT_EQ(tree->topLevelItem(0)->text(0), QStringLiteral("Cleanup"));
    QTreeWidgetItem* silence = nullptr;
    for (auto* item :
         tree->findItems(QStringLiteral("Remove silence"), Qt::MatchExactly | Qt::MatchRecursive))
        silence = item;
    ASSERT_NE(silence, nullptr);
    EXPECT_EQ(silence->text(1), QStringLiteral("Cut pauses and keep spoken ranges"));
    tree->setCurrentItem(silence);
    auto* run = [&]() -> QPushButton* {
        for (auto* button : sheet->findChildren<QPushButton*>()) {
            if (button->text() == QStringLiteral("Run")) return button;
        }
        return nullptr;
    }();
    ASSERT_NE(run, nullptr);
    QTest::mouseClick(run, Qt::LeftButton);
    ASSERT_TRUE(waitUntil([&] { return window->session().isReviewingProposal(); }))
        << window->session().errorMessage.value_or("");
    EXPECT_EQ(window->session().chatMessages.front().text, "Remove silence");
}

TEST_F(StudioWindowMedia, strikingWordsCutsThemAndDeleteAgainBringsThemBack) {
    openMessyTalk();
    ASSERT_TRUE(waitUntil([&] { return window->player().isReady(); }));
    TranscriptView& transcript = *window->transcriptView();

    // The retake: "Today we cut video." said a second time, words 10 to 13.
    dragSelect(transcript, 10, 13);
    EXPECT_EQ(transcript.selectedWordIDs(), (std::set<int>{10, 11, 12, 13}));
    // The selection is painted where the words are, and nowhere else.
    const QColor highlight = transcript.palette().color(QPalette::Highlight);
    const auto paintedAt = [&](int wordID) {
        const QRect box = transcript.wordBox(wordID);
        return transcript.viewport()->grab().toImage().pixelColor(box.left() - 1, box.top() + 2);
    };
    EXPECT_EQ(paintedAt(11), highlight);
    EXPECT_NE(paintedAt(0), highlight);
    EXPECT_NE(paintedAt(14), highlight);
    QTest::keyClick(&transcript, Qt::Key_Delete);
    window->refreshNow();
    for (int id = 10; id <= 13; ++id)
        EXPECT_TRUE(transcript.isStruck(id)) << id;
    EXPECT_FALSE(transcript.isStruck(9));
    EXPECT_EQ(window->session().statusMessage, "Removed 4 word(s). 13 words remain in the cut.");
    EXPECT_EQ(window->undoAction()->text(), QStringLiteral("Undo Remove Words"));
    EXPECT_TRUE(window->assistantPanel()->proposalBar()->isVisible());  // a transcript draft to accept
    // The cut shows on the rough cut's track and in the preview's length (the 1.5 s of the retake are gone).
    ASSERT_TRUE(waitUntil([&] { return window->player().isReady() && window->player().duration() < 9.0; }));
    EXPECT_EQ(transcript.selectedWordIDs(), (std::set<int>{10, 11, 12, 13}));  // the selection stays

    // Delete on words that are all struck restores them.
    QTest::keyClick(&transcript, Qt::Key_Delete);
    window->refreshNow();
    EXPECT_FALSE(transcript.isStruck(10));
    EXPECT_EQ(window->session().statusMessage, "Restored 4 word(s).");

    // Strike again and accept the transcript cut: the storyline becomes the cut.
    QTest::keyClick(&transcript, Qt::Key_Delete);
    window->refreshNow();
    QTest::mouseClick(window->assistantPanel()->acceptButton(), Qt::LeftButton);
    window->refreshNow();
    EXPECT_EQ(window->session().statusMessage,
              "Transcript cut applied — Storyline stitched. Restore checkpoint to undo.");
    EXPECT_TRUE(window->session().timeline->clips(app::TimelineTrackIDs::program).empty());
    EXPECT_TRUE(transcript.isStruck(12));  // still shown struck: the storyline leaves it out
}

TEST_F(StudioWindowMedia, clickingAWordPlaysFromItAndTheTimelineSeeksTheProgram) {
    openMessyTalk();
    ASSERT_TRUE(waitUntil([&] { return window->player().isReady(); }));
    TranscriptView& transcript = *window->transcriptView();
    QTest::mouseClick(transcript.viewport(), Qt::LeftButton, {},
                      transcript.wordBox(14).center());  // "Thanks"
    window->refreshNow();
    EXPECT_NEAR(window->session().playheadSeconds.value_or(-1), 8.5, 0.01);
    EXPECT_EQ(transcript.playingWordID(), 14);
    ASSERT_TRUE(waitUntil([&] {
        return window->player().currentImageTime().has_value() &&
               std::abs(*window->player().currentImageTime() - 8.5) < 0.05;
    }));

    TimelineView& timeline = *window->timelineView();
    const int x = timeline.xOf(2.0);
    QTest::mouseClick(timeline.viewport(), Qt::LeftButton, {}, QPoint(x, TimelineView::rulerHeight / 2));
    window->refreshNow();
    EXPECT_NEAR(window->session().playheadCompositionSeconds.value_or(-1), 2.0, 1.0 / timeline.zoom());
    ASSERT_TRUE(waitUntil([&] { return std::abs(window->player().position() - 2.0) < 0.1; }));

    // A click on a clip selects it.
    const auto clipID = timeline.clips().front().id;
    QTest::mouseClick(timeline.viewport(), Qt::LeftButton, {}, timeline.clipBox(clipID).center());
    window->refreshNow();
    EXPECT_EQ(window->session().selectedClipIDs, std::set<std::string>{clipID});
}

TEST_F(StudioWindowMedia, playbackRunsTheClockAndStopsAtTheEnd) {
    openMessyTalk();
    ASSERT_TRUE(waitUntil([&] { return window->player().isReady(); }));
    window->player().seek(9.0);
    window->activateWindow();
    QTest::keyClick(window.get(), Qt::Key_Space);
    EXPECT_TRUE(window->player().isPlaying());
    ASSERT_TRUE(waitUntil([&] { return !window->player().isPlaying(); }, 20));
    EXPECT_NEAR(window->player().position(), 10.0, 0.1);
    EXPECT_GT(window->player().statistics().framesShown, 0);
    // The playhead followed into the session on the way.
    EXPECT_GT(window->session().playheadCompositionSeconds.value_or(0), 9.0);
}

TEST_F(StudioWindowMedia, theWindowKeepsRespondingWhileTheModelThinks) {
    // A model that answers only when the test lets it.
    std::mutex mutex;
    std::condition_variable released;
    bool release = false;
    morvane::testing::FakeModelServer server;
    server.onChat([&](const nlohmann::json&) {
        std::unique_lock lock(mutex);
        released.wait(lock, [&] { return release; });
        return morvane::testing::FakeModelServer::reply("{\"keepSegmentIDs\":[0]}");
    });
    intelligence::HttpLanguageModelService model({.baseURL = server.baseURL()});
    window.reset();
    window =
        std::make_unique<StudioWindow>(StudioServices{.preferences = *preferences, .languageModel = &model});
    window->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
    openMessyTalk();

    QLineEdit* box = window->assistantPanel()->instructionBox();
    QTest::keyClicks(box, QStringLiteral("keep the parts about the show"));
    QTest::keyClick(box, Qt::Key_Return);
    ASSERT_TRUE(waitUntil([&] { return window->session().isBusy(); }));
    window->refreshNow();
    EXPECT_EQ(window->session().statusMessage, "Classifying segments…");
    // While the worker waits on the model, the window takes typing, clicks and repaints.
    QTest::keyClicks(box, QStringLiteral("next"));
    EXPECT_EQ(box->text(), QStringLiteral("next"));
    QTest::mouseClick(window->monitor()->playButton(), Qt::LeftButton);
    EXPECT_TRUE(window->player().isPlaying());
    QTest::mouseClick(window->monitor()->playButton(), Qt::LeftButton);
    EXPECT_TRUE(window->isWorking());
    {
        const std::lock_guard lock(mutex);
        release = true;
    }
    released.notify_all();
    ASSERT_TRUE(waitUntil([&] { return !window->isWorking(); }, 60));
    EXPECT_TRUE(window->session().isReviewingProposal()) << window->session().errorMessage.value_or("");
}

TEST_F(StudioWindowMedia, errorsShowInTheBannerUntilDismissed) {
    window->openFiles({folder.path() / "missing.mp4"});
    window->refreshNow();
    ASSERT_TRUE(window->errorBanner()->isVisible());
    const QString message = window->errorLabel()->text();
    EXPECT_FALSE(message.isEmpty());
    const QString status = window->statusLabel()->text();  // an error leaves the status line alone
    EXPECT_EQ(status.toStdString(), window->session().statusMessage);
    auto* dismiss = window->errorBanner()->findChild<QPushButton*>();
    ASSERT_NE(dismiss, nullptr);
    QTest::mouseClick(dismiss, Qt::LeftButton);
    window->refreshNow();
    EXPECT_FALSE(window->errorBanner()->isVisible());
    EXPECT_FALSE(window->session().errorMessage.has_value());
}

}  // namespace
}  // namespace morvane::studio
