#include "morvane/app/session/editable_state_snapshot.hpp"

#include <nlohmann/json.hpp>

#include "morvane/app/session/project_session.hpp"
#include "morvane/app/timeline/timeline_editor.hpp"
#include "morvane/app/timeline/timeline_plan_bridge.hpp"
#include "morvane/app/timeline/transcript_cut.hpp"
#include "morvane/engine/support/files.hpp"

namespace morvane::app {

EditableStateSnapshot EditableStateSnapshot::capture(ProjectSession& session) {
    session.commitSourceTranscript();
    return {.timeline = session.timeline,
            .cutItems = session.cutItems,
            .selectedClipID = session.selectedClipID,
            .selectedClipIDs =
                std::vector<std::string>(session.selectedClipIDs.begin(), session.selectedClipIDs.end()),
            .extraSources = session.extraSources,
            .classification = session.classification,
            .transcript = session.transcript,
            .segments = session.segments,
            .sourceTranscripts = session.sourceTranscripts,
            .transcriptSourceID = session.transcriptSourceID,
            .mediaEvidence = session.mediaEvidence,
            .publishChapters = session.publishChapters,
            .pendingProposal = session.pendingProposal,
            .removedWordIDs = std::vector<int>(session.removedWordIDs.begin(), session.removedWordIDs.end()),
            .cursorTracks = session.cursorTracks};
}

void EditableStateSnapshot::apply(const EditableStateSnapshot& snapshot, ProjectSession& session) {
    session.timeline = snapshot.timeline;
    session.cutItems = snapshot.cutItems;

    std::set<std::string> selection(snapshot.selectedClipIDs.begin(), snapshot.selectedClipIDs.end());
    if (selection.empty() && snapshot.selectedClipID) selection.insert(*snapshot.selectedClipID);
    if (snapshot.selectedClipID && selection.contains(*snapshot.selectedClipID)) {
        session.selectedClipID = snapshot.selectedClipID;
    } else if (!snapshot.selectedClipIDs.empty()) {
        session.selectedClipID = snapshot.selectedClipIDs.front();
    } else {
        session.selectedClipID.reset();
    }
    session.selectedClipIDs = std::move(selection);
    session.selectedLaneKind.reset();

    session.extraSources = snapshot.extraSources;
    session.classification = snapshot.classification;
    session.transcript = snapshot.transcript;
    session.segments = snapshot.segments;
    session.sourceTranscripts = snapshot.sourceTranscripts;
    session.transcriptSourceID = snapshot.transcriptSourceID;
    if (session.sourceTranscripts.empty() && snapshot.transcript) {
        // A snapshot from before transcripts were kept per source.
        session.sourceTranscripts[snapshot.transcriptSourceID.value_or(session.primarySourceID)] =
            SourceTranscriptRecord{*snapshot.transcript, snapshot.segments, snapshot.removedWordIDs,
                                   snapshot.cutItems, snapshot.mediaEvidence};
    }
    session.mediaEvidence = snapshot.mediaEvidence;
    session.publishChapters = snapshot.publishChapters;
    session.pendingProposal = snapshot.pendingProposal;
    session.removedWordIDs = std::set<int>(snapshot.removedWordIDs.begin(), snapshot.removedWordIDs.end());
    session.cursorTracks = snapshot.cursorTracks;

    if (session.isReviewingProposal() && !session.cutItems.empty())
        TranscriptCutMaterializer::rebuildProgram(session);
    TimelineEditor::healMisplacedAudioOnOverlay(session);
    session.editPlan = TimelinePlanBridge::rebuildEditPlan(session);
    session.rebuildPlaybackMap();
    session.isDirty = true;
    session.notifyChange();
}

std::string EditableStateSnapshot::encoded() const {
    return dumpJson(Json(*this), -1);
}

namespace {

// Whether two values of one field would be written alike. Equal values always are, so only unequal ones
// are encoded (NaN, for one, equals nothing yet writes the same bytes).
template <class T>
bool writesAlike(const T& a, const T& b) {
    if (a == b) return true;
    return dumpJson(Json(a), -1) == dumpJson(Json(b), -1);
}

template <class T>
bool writesAlike(const std::optional<T>& a, const std::optional<T>& b) {
    if (a.has_value() != b.has_value()) return false;
    return !a || writesAlike(*a, *b);
}

bool writesAlike(const std::map<std::string, std::filesystem::path>& a,
                 const std::map<std::string, std::filesystem::path>& b) {
    if (a == b) return true;
    if (a.size() != b.size()) return false;
    for (auto x = a.begin(), y = b.begin(); x != a.end(); ++x, ++y) {
        if (x->first != y->first || fileURL(x->second) != fileURL(y->second)) return false;
    }
    return true;
}

template <class T>
bool writesAlike(const std::map<std::string, T>& a, const std::map<std::string, T>& b) {
    if (a.size() != b.size()) return false;
    for (auto x = a.begin(), y = b.begin(); x != a.end(); ++x, ++y) {
        if (x->first != y->first || !writesAlike(x->second, y->second)) return false;
    }
    return true;
}

}  // namespace

bool operator==(const EditableStateSnapshot& a, const EditableStateSnapshot& b) {
    // Field by field, in the order they are written: the same answer as comparing the whole encoding,
    // without encoding the unchanged hour of transcript on every edit.
    return writesAlike(a.timeline, b.timeline) && writesAlike(a.cutItems, b.cutItems) &&
           writesAlike(a.selectedClipID, b.selectedClipID) &&
           writesAlike(a.selectedClipIDs, b.selectedClipIDs) && writesAlike(a.extraSources, b.extraSources) &&
           writesAlike(a.classification, b.classification) && writesAlike(a.transcript, b.transcript) &&
           writesAlike(a.segments, b.segments) && writesAlike(a.sourceTranscripts, b.sourceTranscripts) &&
           writesAlike(a.transcriptSourceID, b.transcriptSourceID) &&
           writesAlike(a.mediaEvidence, b.mediaEvidence) &&
           writesAlike(a.publishChapters, b.publishChapters) &&
           writesAlike(a.pendingProposal, b.pendingProposal) &&
           writesAlike(a.removedWordIDs, b.removedWordIDs) && writesAlike(a.cursorTracks, b.cursorTracks);
}

void to_json(Json& json, const EditableStateSnapshot& s) {
    json = Json::object();
    if (s.timeline) json["timeline"] = *s.timeline;
    json["cutItems"] = s.cutItems;
    if (s.selectedClipID) json["selectedClipID"] = *s.selectedClipID;
    json["selectedClipIDs"] = s.selectedClipIDs;
    Json sources = Json::object();
    for (const auto& [id, file] : s.extraSources)
        sources[id] = fileURL(file);
    json["extraSources"] = std::move(sources);
    if (s.classification) json["classification"] = *s.classification;
    if (s.transcript) json["transcript"] = *s.transcript;
    if (s.segments) json["segments"] = *s.segments;
    Json records = Json::object();
    for (const auto& [id, record] : s.sourceTranscripts)
        records[id] = record;
    json["sourceTranscripts"] = std::move(records);
    if (s.transcriptSourceID) json["transcriptSourceID"] = *s.transcriptSourceID;
    if (s.mediaEvidence) json["mediaEvidence"] = *s.mediaEvidence;
    json["publishChapters"] = s.publishChapters;
    if (s.pendingProposal) json["pendingProposal"] = *s.pendingProposal;
    json["removedWordIDs"] = s.removedWordIDs;
    Json tracks = Json::object();
    for (const auto& [id, track] : s.cursorTracks)
        tracks[id] = track;
    json["cursorTracks"] = std::move(tracks);
}

void fromJson(const JsonReader& reader, EditableStateSnapshot& s) {
    s.timeline = reader.optional<TimelineDocument>("timeline");
    s.cutItems = reader.valueOr<std::vector<CutItemSnapshot>>("cutItems", {});
    s.selectedClipID =
        reader.has("selectedClipID") ? std::optional(readUUID(reader["selectedClipID"])) : std::nullopt;
    s.selectedClipIDs.clear();
    if (reader.has("selectedClipIDs")) {
        const JsonReader ids = reader["selectedClipIDs"];
        for (std::size_t i = 0; i < ids.size(); ++i)
            s.selectedClipIDs.push_back(readUUID(ids.at(i)));
    }
    s.extraSources.clear();
    for (const auto& [id, url] : readDictionary<std::string>(reader, "extraSources")) {
        const auto file = pathFromFileURL(url);
        s.extraSources.emplace(id, file ? *file : std::filesystem::path(url));
    }
    s.classification = reader.optional<intelligence::ClassificationRun>("classification");
    s.transcript = reader.optional<intelligence::TranscriptDocument>("transcript");
    s.segments = reader.optional<intelligence::SegmentDocument>("segments");
    s.sourceTranscripts = readDictionary<SourceTranscriptRecord>(reader, "sourceTranscripts");
    s.transcriptSourceID = reader.optional<std::string>("transcriptSourceID");
    s.mediaEvidence = reader.optional<intelligence::MediaEvidenceDocument>("mediaEvidence");
    s.publishChapters =
        reader.valueOr<std::vector<intelligence::PublishChapterMarker>>("publishChapters", {});
    s.pendingProposal = reader.optional<intelligence::EditProposal>("pendingProposal");
    s.removedWordIDs = reader.valueOr<std::vector<int>>("removedWordIDs", {});
    s.cursorTracks = readDictionary<engine::CursorTrack>(reader, "cursorTracks");
}

void SessionEditHistory::pushUndo(std::string label, EditableStateSnapshot snapshot) {
    undoStack_.push_back({std::move(label), std::move(snapshot)});
    if (undoStack_.size() > maxDepth) {
        undoStack_.erase(undoStack_.begin(),
                         undoStack_.begin() + static_cast<std::ptrdiff_t>(undoStack_.size() - maxDepth));
    }
}

std::optional<std::string> SessionEditHistory::undo(ProjectSession& session) {
    if (undoStack_.empty()) return std::nullopt;
    Entry entry = std::move(undoStack_.back());
    undoStack_.pop_back();
    redoStack_.push_back({entry.label, EditableStateSnapshot::capture(session)});
    EditableStateSnapshot::apply(entry.snapshot, session);
    return entry.label;
}

std::optional<std::string> SessionEditHistory::redo(ProjectSession& session) {
    if (redoStack_.empty()) return std::nullopt;
    Entry entry = std::move(redoStack_.back());
    redoStack_.pop_back();
    undoStack_.push_back({entry.label, EditableStateSnapshot::capture(session)});
    EditableStateSnapshot::apply(entry.snapshot, session);
    return entry.label;
}

std::string SessionEditHistory::undoMenuTitle() const {
    return undoStack_.empty() ? "Undo" : "Undo " + undoStack_.back().label;
}

std::string SessionEditHistory::redoMenuTitle() const {
    return redoStack_.empty() ? "Redo" : "Redo " + redoStack_.back().label;
}

}  // namespace morvane::app
