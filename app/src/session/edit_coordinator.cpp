#include "morvane/app/session/edit_coordinator.hpp"

#include "morvane/app/session/project_session.hpp"
#include "morvane/app/timeline/timeline_editor.hpp"
#include "morvane/app/timeline/timeline_plan_bridge.hpp"
#include "morvane/app/timeline/transcript_cut.hpp"
#include "morvane/intelligence/support/text.hpp"

namespace morvane::app {
namespace {

// One gesture at a time in the whole process, on the main thread.
std::optional<EditableStateSnapshot> gestureSnapshot;
std::optional<std::string> gestureLabel;

std::string stepMessage(const char* verb, const std::optional<std::string>& label) {
    if (!label || label->empty()) return std::string(verb) + " edit.";
    return std::string(verb) + " " + intelligence::lowercased(*label) + ".";
}

}  // namespace

void EditCoordinator::requireUnlocked(const ProjectSession& session) {
    if (session.hasExclusiveLock()) throw EditRejection(EditRejection::Reason::documentLocked);
}

void EditCoordinator::perform(ProjectSession& session, const std::string& label,
                              const std::function<void()>& edit) {
    requireUnlocked(session);
    const EditableStateSnapshot before = EditableStateSnapshot::capture(session);
    edit();
    recordChange(session, label, before);
}

void EditCoordinator::finalizeStructuralChange(ProjectSession& session) {
    TimelineEditor::healMisplacedAudioOnOverlay(session);
    session.editPlan = TimelinePlanBridge::rebuildEditPlan(session);
    session.rebuildPlaybackMap();
    session.isDirty = true;
    session.notifyChange();
}

void EditCoordinator::recordChange(ProjectSession& session, const std::string& label,
                                   const EditableStateSnapshot& before) {
    if (EditableStateSnapshot::capture(session) != before) {
        session.editHistory.pushUndo(label, before);
        session.editHistory.clearRedo();
    }
    if (session.isReviewingProposal() && !session.cutItems.empty())
        TranscriptCutMaterializer::rebuildProgram(session);
    finalizeStructuralChange(session);
    session.post(SessionNotification::editHistoryDidChange);
    session.notifyChange();
}

std::optional<std::string> EditCoordinator::undo(ProjectSession& session) {
    if (session.hasExclusiveLock() || session.editHistory.undoStack().empty()) return std::nullopt;
    std::optional<std::string> label;
    try {
        label = session.editHistory.undo(session);
    } catch (const std::exception& e) {
        session.setError(e.what());
        return std::nullopt;
    }
    session.setSuccess(stepMessage("Undid", label));
    session.post(SessionNotification::editHistoryDidChange);
    session.notifyChange();
    return label;
}

std::optional<std::string> EditCoordinator::redo(ProjectSession& session) {
    if (session.hasExclusiveLock() || session.editHistory.redoStack().empty()) return std::nullopt;
    std::optional<std::string> label;
    try {
        label = session.editHistory.redo(session);
    } catch (const std::exception& e) {
        session.setError(e.what());
        return std::nullopt;
    }
    session.setSuccess(stepMessage("Redid", label));
    session.post(SessionNotification::editHistoryDidChange);
    session.notifyChange();
    return label;
}

void EditCoordinator::beginGesture(const std::string& label, ProjectSession& session) {
    if (gestureSnapshot) return;
    gestureLabel = label;
    gestureSnapshot = EditableStateSnapshot::capture(session);
}

bool EditCoordinator::isInGesture() noexcept {
    return gestureSnapshot.has_value();
}

void EditCoordinator::endGesture(ProjectSession& session, const std::function<void()>& finalize) {
    struct Clear {
        ~Clear() {
            gestureSnapshot.reset();
            gestureLabel.reset();
        }
    } clear;
    if (finalize) finalize();
    if (gestureSnapshot && gestureLabel && EditableStateSnapshot::capture(session) != *gestureSnapshot) {
        session.editHistory.pushUndo(*gestureLabel, *gestureSnapshot);
        session.editHistory.clearRedo();
        session.post(SessionNotification::editHistoryDidChange);
        session.notifyChange();
    }
}

void EditCoordinator::restoreCutCheckpoint(const std::string& messageID, ProjectSession& session) {
    const auto stored = session.cutCheckpoints.find(messageID);
    if (stored == session.cutCheckpoints.end()) throw CheckpointMissingError();
    const EditableStateSnapshot snapshot = stored->second;  // apply may replace the dictionary's entries
    const EditableStateSnapshot before = EditableStateSnapshot::capture(session);
    EditableStateSnapshot::apply(snapshot, session);
    if (before != snapshot) {
        session.editHistory.pushUndo("Restore Cut", before);
        session.editHistory.clearRedo();
    }
    session.post(SessionNotification::editHistoryDidChange);
    session.notifyChange();
}

}  // namespace morvane::app
