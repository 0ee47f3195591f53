#include "morvane/app/session/project_session.hpp"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "morvane/app/session/edit_coordinator.hpp"
#include "morvane/app/timeline/transcript_cut.hpp"
#include "morvane/engine/support/uuid.hpp"
#include "session_fixture.hpp"

namespace morvane::app {
namespace {

using namespace testing;

struct CountingObserver final : ProjectSessionObserver {
    int changes = 0;
    void projectSessionDidChange(ProjectSession&) override { ++changes; }
};

TEST(ProjectSessionStatus, busySuccessAndErrorShareOneJob) {
    ProjectSession session;
    auto observer = std::make_shared<CountingObserver>();
    session.addObserver(observer);
    std::vector<SessionNotification> posted;
    session.onNotification([&](SessionNotification n, ProjectSession&) { posted.push_back(n); });

    session.setBusy(true, "Transcribing…", MediaJobKind::transcribe);
    EXPECT_TRUE(session.isBusy());
    EXPECT_EQ(session.statusKind, SessionStatusKind::working);
    EXPECT_EQ(session.statusMessage, "Transcribing…");
    session.setBusy(true, "Still transcribing…");  // nested: the same job
    EXPECT_EQ(session.activeJobs.size(), 1u);
    EXPECT_EQ(session.activeJobs[0].title, "Still transcribing…");
    session.setSuccess("Transcribed 10 words.");
    EXPECT_FALSE(session.isBusy());
    EXPECT_EQ(session.statusKind, SessionStatusKind::success);
    EXPECT_GT(observer->changes, 3);
    EXPECT_EQ(posted.front(), SessionNotification::mediaJobsDidChange);

    session.setBusy(true, "Exporting…", MediaJobKind::exportMovie);
    session.setError("Export failed: disk full");
    EXPECT_EQ(session.errorMessage, "Export failed: disk full");
    EXPECT_EQ(session.statusMessage, "Exporting…");  // errors never touch the status line
    EXPECT_EQ(session.statusKind, SessionStatusKind::error);
    EXPECT_TRUE(session.activeJobs.empty());
    session.setError(std::nullopt);
    EXPECT_EQ(session.statusKind, SessionStatusKind::info);

    // Background jobs don't make the session busy or touch the status line.
    const std::string before = session.statusMessage;
    const std::string waveform = session.beginJob(MediaJobKind::waveform, "Waveform");
    EXPECT_FALSE(session.isBusy());
    EXPECT_EQ(session.backgroundJobCount(), 1);
    EXPECT_EQ(session.statusMessage, before);
    session.endJob(waveform);
    EXPECT_EQ(session.statusKind, SessionStatusKind::info);

    observer.reset();  // a dead observer is dropped, not called
    session.notifyChange();
}

TEST(ProjectSessionDerived, unsavedChangesWorkflowAndSelection) {
    ProjectSession session;
    session.resetForNewProject("Talk");
    EXPECT_FALSE(session.hasUnsavedChanges());
    EXPECT_TRUE(session.hasProject());  // a new project always has a timeline
    EXPECT_EQ(session.workflowStep(), CreatorWorkflowStep::noMedia);
    loadShortTalk(session);
    EXPECT_TRUE(session.hasUnsavedChanges());  // never saved, and the bin isn't empty
    EXPECT_FALSE(session.isDirty);
    session.projectURL = "/projects/Talk.morvane";
    EXPECT_FALSE(session.hasUnsavedChanges());
    EXPECT_EQ(session.workflowStep(), CreatorWorkflowStep::editing);
    EXPECT_EQ(session.keptSegmentCount(), 3);

    auto observer = std::make_shared<CountingObserver>();
    session.addObserver(observer);
    const std::string clipID = session.timeline->clips(TimelineTrackIDs::source).front().id;
    session.selectClip(clipID);
    const int afterSelect = observer->changes;
    session.selectClip(clipID);
    EXPECT_EQ(observer->changes, afterSelect);  // same clip, no lane: nobody is told
    session.selectClips({"b", "a"}, "zzz", TimelineLaneKind::overlay);
    EXPECT_EQ(session.selectedClipID, "a");  // the primary must be in the set; else the smallest id

    session.applySourceTranscript("caption");
    EXPECT_EQ(session.transcriptSourceID, "src1");
}

TEST(ProjectSessionTranscripts, eachSourceKeepsItsOwnTranscriptState) {
    ProjectSession session;
    loadShortTalk(session);
    TranscriptCutMaterializer::setWordsRemoved(session, {1}, true);
    session.applySourceTranscript("src2");
    EXPECT_FALSE(session.transcript.has_value());
    EXPECT_TRUE(session.removedWordIDs.empty());
    ASSERT_TRUE(session.sourceTranscripts.contains("src1"));
    EXPECT_EQ(session.sourceTranscripts["src1"].removedWordIDs, (std::vector{1}));
    session.applySourceTranscript("src1");
    EXPECT_EQ(session.removedWordIDs, (std::set<int>{1}));
    EXPECT_EQ(session.transcript->words.size(), 10u);
}

TEST(ProjectSessionSeek, aSeekIntoCutMaterialLandsOnTheNearestKeptMoment) {
    ProjectSession session;
    loadShortTalk(session);
    // Cut "It works." (2.2-3.0 s): the program plays 0-2.0 s, then 4.0-5.4 s of the source.
    EditCoordinator::perform(session, "Strike", [&] {
        TranscriptCutMaterializer::setWordsRemoved(session, {5, 6}, true);
    });
    ASSERT_TRUE(session.usesCompositionTimeline());
    // 2.9 s is cut; the nearest kept moment is program time 2.0, the join, where source 4.0 s plays.
    session.requestSeek(2.9);
    EXPECT_DOUBLE_EQ(*session.playheadCompositionSeconds, 2.0);
    EXPECT_DOUBLE_EQ(*session.playheadSeconds, 4.0);
    session.requestSeek(0.5);
    EXPECT_DOUBLE_EQ(*session.playheadCompositionSeconds, 0.5);
    const std::string token = session.seekToken;
    session.requestSeek(4.2);
    EXPECT_NE(session.seekToken, token);
    EXPECT_NEAR(*session.seekCompositionSeconds, 2.2, 1e-9);

    session.playbackRanges.clear();
    session.timeline->track(TimelineTrackIDs::program)->clips.clear();
    session.timeline->track(TimelineTrackIDs::source)->clips.clear();
    session.cutItems.clear();
    session.requestSeek(7.0);
    EXPECT_EQ(session.seekCompositionSeconds, 7.0);  // no ranges: both clocks agree
}

TEST(EditCoordinator, recordsOneUndoStepPerRealChangeAndRestoresEqualSnapshots) {
    ProjectSession session;
    loadShortTalk(session);
    const EditableStateSnapshot original = EditableStateSnapshot::capture(session);
    EditCoordinator::perform(session, "Strike Words",
                             [&] { TranscriptCutMaterializer::setWordsRemoved(session, {1}, true); });
    expectConsistent(session);
    ASSERT_EQ(session.editHistory.undoStack().size(), 1u);
    EXPECT_EQ(session.editHistory.undoMenuTitle(), "Undo Strike Words");
    ASSERT_TRUE(session.editPlan.has_value());
    EXPECT_EQ(session.editPlan->operations.size(), 3u);
    const EditableStateSnapshot struck = EditableStateSnapshot::capture(session);

    session.isDirty = false;
    EditCoordinator::perform(session, "Nothing", [] {});
    EXPECT_EQ(session.editHistory.undoStack().size(), 1u);  // no change, no step
    EXPECT_TRUE(session.isDirty);                           // but dirty all the same

    EXPECT_EQ(EditCoordinator::undo(session), "Strike Words");
    EXPECT_EQ(session.statusMessage, "Undid strike words.");
    EXPECT_EQ(EditableStateSnapshot::capture(session).encoded(), original.encoded());
    expectConsistent(session);
    EXPECT_EQ(EditCoordinator::redo(session), "Strike Words");
    EXPECT_EQ(session.statusMessage, "Redid strike words.");
    EXPECT_EQ(EditableStateSnapshot::capture(session).encoded(), struck.encoded());
    expectConsistent(session);

    EXPECT_EQ(EditCoordinator::redo(session), std::nullopt);
    session.statusMessage = "untouched";
    session.editHistory.clear();
    EXPECT_EQ(EditCoordinator::undo(session), std::nullopt);
    EXPECT_EQ(session.statusMessage, "untouched");
}

TEST(EditCoordinator, keepsFiftyStepsAndRefusesEditsWhileSaving) {
    ProjectSession session;
    loadShortTalk(session);
    for (int i = 0; i < 51; ++i) {
        EditCoordinator::perform(session, "Marker " + std::to_string(i), [&] { session.addMarker(i); });
    }
    ASSERT_EQ(session.editHistory.undoStack().size(), 50u);
    EXPECT_EQ(session.editHistory.undoStack().front().label, "Marker 1");  // the oldest went

    const std::string job = session.beginJob(MediaJobKind::projectSave, "Saving…");
    const auto before = EditableStateSnapshot::capture(session);
    try {
        EditCoordinator::perform(session, "Marker", [&] { session.addMarker(1); });
        ADD_FAILURE();
    } catch (const EditRejection& e) {
        EXPECT_EQ(e.reason(), EditRejection::Reason::documentLocked);
        EXPECT_STREQ(e.what(), "Still opening or saving the project — try again in a moment.");
    }
    EXPECT_EQ(EditableStateSnapshot::capture(session), before);
    EXPECT_EQ(EditCoordinator::undo(session), std::nullopt);  // undo during a save does nothing
    session.endJob(job);
    EXPECT_TRUE(EditCoordinator::undo(session).has_value());
}

TEST(EditCoordinator, aGestureIsOneStepAndTheFirstGestureWins) {
    ProjectSession session;
    loadShortTalk(session);
    EditCoordinator::beginGesture("Drag", session);
    session.addMarker(1);
    EditCoordinator::beginGesture("Other", session);  // ignored
    session.addMarker(2);
    EditCoordinator::endGesture(session, [&] { EditCoordinator::finalizeStructuralChange(session); });
    ASSERT_EQ(session.editHistory.undoStack().size(), 1u);
    EXPECT_EQ(session.editHistory.undoStack().back().label, "Drag");
    EXPECT_FALSE(EditCoordinator::isInGesture());

    EditCoordinator::beginGesture("Broken", session);
    EXPECT_THROW(EditCoordinator::endGesture(session, [] { throw std::runtime_error("no"); }),
                 std::runtime_error);
    EXPECT_FALSE(EditCoordinator::isInGesture());
}

TEST(Checkpoints, saveAndRestoreThroughTheUndoStack) {
    ProjectSession session;
    loadShortTalk(session);
    const std::string id = session.saveNamedCheckpoint("Before cleanup");
    ASSERT_EQ(session.chatMessages.size(), 1u);
    EXPECT_TRUE(session.chatMessages[0].isCutCheckpoint);
    EXPECT_EQ(session.chatMessages[0].text,
              "Before cleanup — tap Restore checkpoint below to return to this timeline.");
    EXPECT_EQ(session.namedCheckpoints[0].messageID, id);

    EditCoordinator::perform(session, "Strike", [&] {
        TranscriptCutMaterializer::setWordsRemoved(session, {1, 2}, true);
    });
    EditCoordinator::restoreCutCheckpoint(id, session);
    EXPECT_TRUE(session.removedWordIDs.empty());
    EXPECT_EQ(session.editHistory.undoStack().back().label, "Restore Cut");
    EXPECT_EQ(session.chatMessages.size(), 1u);  // restoring never removes a chat line
    EXPECT_TRUE(EditCoordinator::undo(session).has_value());
    EXPECT_EQ(session.removedWordIDs, (std::set<int>{1, 2}));
    EXPECT_THROW(EditCoordinator::restoreCutCheckpoint("missing", session), CheckpointMissingError);
}

TEST(EditableStateSnapshot, encodesDeterministicallyAndReadsOldSnapshots) {
    ProjectSession session;
    loadShortTalk(session);
    TranscriptCutMaterializer::setWordsRemoved(session, {3}, true);
    const std::string a = makeUUID();
    const std::string b = makeUUID();
    session.selectClips({a, b}, b, std::nullopt);
    const auto snapshot = EditableStateSnapshot::capture(session);
    const std::string bytes = snapshot.encoded();
    EXPECT_EQ(EditableStateSnapshot::capture(session).encoded(), bytes);
    const Json json = parseJson(bytes, "snapshot");
    const auto reread = JsonReader(json).get<EditableStateSnapshot>();
    EXPECT_EQ(reread.encoded(), bytes);

    // An old snapshot: a transcript but no per-source records, and a primary outside its selection.
    const Json old = parseJson(R"({"transcript":)" + dumpJson(Json(*session.transcript), -1) +
                                   R"(,"removedWordIDs":[2],"selectedClipID":")" +
                                   session.timeline->tracks[0].clips[0].id + R"(","selectedClipIDs":[]})",
                               "old");
    const auto legacy = JsonReader(old).get<EditableStateSnapshot>();
    EXPECT_FALSE(legacy.timeline.has_value());
    EditableStateSnapshot::apply(legacy, session);
    EXPECT_EQ(session.sourceTranscripts.size(), 1u);
    EXPECT_EQ(session.sourceTranscripts.begin()->second.removedWordIDs, (std::vector{2}));
    EXPECT_EQ(session.selectedClipIDs.size(), 1u);  // a lone primary becomes the selection
}

}  // namespace
}  // namespace morvane::app
