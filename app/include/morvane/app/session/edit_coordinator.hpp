#pragma once

/// Every user edit of a session goes through one wrapper: refuse during an open or save, snapshot, edit,
/// record. Recording pushes an undo step when the state changed, re-lays a rough cut under review, and
/// rebuilds the plan. A drag is one gesture: many small changes, one undo step.
///
///     EditCoordinator::perform(session, "Trim", [&] { TimelineEditor::trimClip(session, id, edge, t); });
///     EditCoordinator::undo(session);   // "Undid trim."

#include <functional>
#include <optional>
#include <stdexcept>
#include <string>

#include "morvane/app/session/editable_state_snapshot.hpp"

namespace morvane::app {

class ProjectSession;

/// Why an edit was refused.
class EditRejection : public std::runtime_error {
  public:
    enum class Reason { documentLocked, invalidEdit };
    explicit EditRejection(Reason reason, const std::string& message = {})
        : std::runtime_error(reason == Reason::documentLocked
                                 ? "Still opening or saving the project — try again in a moment."
                                 : message),
          reason_(reason) {}
    [[nodiscard]] Reason reason() const noexcept { return reason_; }

  private:
    Reason reason_;
};

/// A checkpoint whose snapshot is missing; domain "Morvane", code 404.
class CheckpointMissingError : public std::runtime_error {
  public:
    CheckpointMissingError() : std::runtime_error("Checkpoint data is missing for this message.") {}
    [[nodiscard]] static constexpr int code() noexcept { return 404; }
};

namespace EditCoordinator {

/// Throws `EditRejection::documentLocked` while the project is being opened or saved, before anything
/// changes.
void requireUnlocked(const ProjectSession& session);

/// The whole wrapper: refuse when locked, snapshot, run `edit`, record under `label`. Exceptions of the
/// edit or of the rebuild pass to the caller (after the undo step was pushed, for a rebuild failure).
void perform(ProjectSession& session, const std::string& label, const std::function<void()>& edit);

/// After an edit: pushes `before` under `label` when the state changed (clearing redo), re-lays a rough
/// cut under review, heals the tracks, rebuilds the plan and the playback map, marks the project dirty and
/// notifies. A no-op edit still marks the project dirty.
void recordChange(ProjectSession& session, const std::string& label, const EditableStateSnapshot& before);

/// Takes back the last step: "Undid <label>." in the status line, or nothing during an open or save or with
/// nothing to undo. A failing restore shows its error and returns nothing.
std::optional<std::string> undo(ProjectSession& session);
/// The mirror image: "Redid <label>.".
std::optional<std::string> redo(ProjectSession& session);

/// Starts a gesture (a drag): the first one in flight wins; later calls change nothing.
void beginGesture(const std::string& label, ProjectSession& session);
/// Ends the gesture: runs `finalize`, then pushes one undo step if the state changed. Clears the gesture
/// even when `finalize` throws.
void endGesture(ProjectSession& session, const std::function<void()>& finalize);
/// Whether a gesture is in flight (process-wide: one at a time).
[[nodiscard]] bool isInGesture() noexcept;

/// Returns to the state filed under chat message `messageID`, as a step that can itself be undone.
/// Throws `CheckpointMissingError` when no snapshot is filed.
void restoreCutCheckpoint(const std::string& messageID, ProjectSession& session);

/// Heal, rebuild the plan and the playback map, mark dirty, notify: what every edit ends with.
void finalizeStructuralChange(ProjectSession& session);

}  // namespace EditCoordinator

}  // namespace morvane::app
