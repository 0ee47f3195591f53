#pragma once

/// The unit of undo: every editable value of a session, copied whole. Undo and checkpoints store these;
/// two snapshots are equal when they would save the same bytes. The media bin, the chat log, the
/// checkpoints, the instruction, the plan (derived), the playhead and the review baseline are left out on
/// purpose: undo never brings back a chat line or removes imported media.
///
///     auto before = EditableStateSnapshot::capture(session);
///     ...edit...
///     if (EditableStateSnapshot::capture(session) != before) history.pushUndo("Trim Clip", before);

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "morvane/app/session/session_records.hpp"
#include "morvane/app/timeline/timeline_document.hpp"
#include "morvane/engine/capture/cursor_track.hpp"
#include "morvane/engine/support/json.hpp"
#include "morvane/intelligence/evidence/media_evidence_document.hpp"
#include "morvane/intelligence/models/classification.hpp"
#include "morvane/intelligence/models/transcript.hpp"
#include "morvane/intelligence/plan/edit_proposal.hpp"
#include "morvane/intelligence/publish/publish_chapter_marker.hpp"

namespace morvane::app {

class ProjectSession;

struct EditableStateSnapshot {
    std::optional<TimelineDocument> timeline;
    std::vector<CutItemSnapshot> cutItems;
    std::optional<std::string> selectedClipID;
    std::vector<std::string> selectedClipIDs;
    std::map<std::string, std::filesystem::path> extraSources;
    std::optional<intelligence::ClassificationRun> classification;
    std::optional<intelligence::TranscriptDocument> transcript;
    std::optional<intelligence::SegmentDocument> segments;
    std::map<std::string, SourceTranscriptRecord> sourceTranscripts;
    std::optional<std::string> transcriptSourceID;
    std::optional<intelligence::MediaEvidenceDocument> mediaEvidence;
    std::vector<intelligence::PublishChapterMarker> publishChapters;
    std::optional<intelligence::EditProposal> pendingProposal;
    std::vector<int> removedWordIDs;
    std::map<std::string, engine::CursorTrack> cursorTracks;

    /// The session's editable state, after committing the active transcript's working copy into its
    /// source record (so the snapshot holds it up to date).
    [[nodiscard]] static EditableStateSnapshot capture(ProjectSession& session);

    /// Puts `snapshot` back into `session`: selection, transcript state, the rough cut re-materialized when
    /// a review is open, and the plan rebuilt. Throws when the plan can't be rebuilt; the fields are then
    /// assigned and the plan keeps its old value.
    static void apply(const EditableStateSnapshot& snapshot, ProjectSession& session);

    /// The snapshot as this system encodes it: compact JSON with keys in a fixed order and dictionaries
    /// sorted, so equal states give equal bytes.
    [[nodiscard]] std::string encoded() const;

    /// Equal when they would encode to the same bytes.
    friend bool operator==(const EditableStateSnapshot& a, const EditableStateSnapshot& b);
};

/// Optionals are written only when present, lists and dictionaries always. Every key may be missing on
/// reading (a missing optional is none, a missing list or dictionary is empty), so a checkpoint written by
/// an older version always reads.
void to_json(Json& json, const EditableStateSnapshot& snapshot);
void fromJson(const JsonReader& reader, EditableStateSnapshot& snapshot);

/// Undo and redo as whole-state snapshots, at most 50 undo steps.
class SessionEditHistory {
  public:
    static constexpr std::size_t maxDepth = 50;

    struct Entry {
        std::string label;
        EditableStateSnapshot snapshot;
    };

    /// Appends a step, dropping the oldest beyond 50.
    void pushUndo(std::string label, EditableStateSnapshot snapshot);
    /// Takes back the last step: the present state goes on the redo stack and the step's snapshot is
    /// applied. Returns its label, or nothing with no step. A failing apply throws; the step is then gone
    /// from the undo stack and sits on the redo stack.
    std::optional<std::string> undo(ProjectSession& session);
    /// The mirror image of `undo`.
    std::optional<std::string> redo(ProjectSession& session);
    void clearRedo() noexcept { redoStack_.clear(); }
    void clear() noexcept {
        undoStack_.clear();
        redoStack_.clear();
    }

    /// "Undo " + the last label, or "Undo".
    [[nodiscard]] std::string undoMenuTitle() const;
    /// "Redo " + the last label, or "Redo".
    [[nodiscard]] std::string redoMenuTitle() const;
    [[nodiscard]] const std::vector<Entry>& undoStack() const noexcept { return undoStack_; }
    [[nodiscard]] const std::vector<Entry>& redoStack() const noexcept { return redoStack_; }

  private:
    std::vector<Entry> undoStack_;
    std::vector<Entry> redoStack_;
};

}  // namespace morvane::app
