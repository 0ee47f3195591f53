#pragma once

/// The manifest of a project bundle ("project.json"): everything of a session that outlives the window,
/// as one value. The plan is derived again on open, so it isn't stored; nor are the undo history, the jobs,
/// the playhead or the review baseline. Keys are the field names in lower camel case; every key but `name`
/// may be missing, and older formats are brought up to date in memory when applied.
///
///     ProjectDocument document = ProjectDocument::capture(session);   // version 2, the active transcript
///     committed std::string text = ProjectDocument::encode(document);           // pretty, keys sorted
///     ProjectDocument again = ProjectDocument::decode(text);          // refuses a newer format first
///     again.apply(session, bundle);                                   // fills the session, rebuilds the
///     plan

#include <filesystem>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "morvane/app/media/media_bin_entry.hpp"
#include "morvane/app/session/editable_state_snapshot.hpp"
#include "morvane/app/session/session_records.hpp"
#include "morvane/app/timeline/timeline_document.hpp"
#include "morvane/engine/capture/cursor_track.hpp"
#include "morvane/engine/support/json.hpp"

namespace morvane::app {

class ProjectSession;

/// A project that can't be opened or saved. `what()` is the text the user reads.
class ProjectBundleError : public std::runtime_error {
  public:
    enum class Kind {
        notABundle,        // "Not a Morvane project: " + name
        missingManifest,   // "Missing project.json in " + name
        manifestTooLarge,  // "project.json is too large to open safely."
        newerFormat,       // "This project requires a newer version of Morvane (format v" + n + ")."
        alreadyExists,     // "A project already exists at " + path
    };

    static ProjectBundleError notABundle(const std::string& name);
    static ProjectBundleError missingManifest(const std::string& name);
    static ProjectBundleError manifestTooLarge();
    static ProjectBundleError newerFormat(long long version);
    static ProjectBundleError alreadyExists(const std::string& path);

    [[nodiscard]] Kind kind() const noexcept { return kind_; }

  private:
    ProjectBundleError(Kind kind, const std::string& message) : std::runtime_error(message), kind_(kind) {}
    Kind kind_;
};

/// A checkpoint as the file keeps it: the chat line's id and the state it restores.
struct CutCheckpointEntry {
    std::string messageID;  ///< UUID
    EditableStateSnapshot snapshot;
};

struct ProjectDocument {
    /// The format this version of Morvane writes; older ones are read and upgraded in memory.
    static constexpr int currentVersion = 2;

    int version = currentVersion;  ///< 1 when the key is missing
    std::string name;
    std::string frameDuration = "1001/30000";
    std::string primarySourceID = "src1";
    std::optional<std::string> transcriptSourceID;
    std::vector<int> removedWordIDs;  ///< ascending
    std::vector<MediaBinEntry> mediaBin;
    std::optional<TimelineDocument> timeline;
    std::vector<CutItemSnapshot> cutItems;
    std::string instruction;
    std::optional<intelligence::ClassificationRun> classification;
    std::optional<intelligence::TranscriptDocument> transcript;
    std::optional<intelligence::SegmentDocument> segments;
    std::map<std::string, SourceTranscriptRecord> sourceTranscripts;
    std::optional<intelligence::MediaEvidenceDocument> mediaEvidence;
    std::vector<intelligence::PublishChapterMarker> publishChapters;
    std::vector<ChatMessage> chatMessages;
    std::vector<CutCheckpointEntry> cutCheckpoints;
    std::vector<NamedCheckpoint> namedCheckpoints;
    std::optional<std::string> selectedClipID;
    std::map<std::string, engine::CursorTrack> cursorTracks;

    /// The session as a document of the present version, after committing the active transcript's working
    /// copy into its source record.
    [[nodiscard]] static ProjectDocument capture(ProjectSession& session);

    /// Fills `session` from this document, media paths resolved against `bundle`: a version 1 timeline gets
    /// its track roles, and a transcript without per-source records gets one. The history is emptied, the
    /// plan and playback map rebuilt, the session marked dirty. Throws when the plan can't be rebuilt; the
    /// fields are then assigned.
    void apply(ProjectSession& session, const std::optional<std::filesystem::path>& bundle) const;

    /// The manifest's bytes: pretty printed, keys sorted, dates in ISO 8601.
    [[nodiscard]] static std::string encode(const ProjectDocument& document);

    /// Reads a manifest. The version is checked before anything else is read, so a project of a newer
    /// format is refused as such whatever its content. Throws `ProjectBundleError::newerFormat` for a
    /// version above 2, and `JsonDecodeError` naming `documentName` and where it fails for text that isn't
    /// JSON, a version that isn't a whole number of at least 1, a missing `name`, or a value of the wrong
    /// shape ("project.json: /timeline/tracks/2/clips/0/start: expected an object").
    [[nodiscard]] static ProjectDocument decode(std::string_view text,
                                                std::string_view documentName = "project.json");
};

void to_json(Json& json, const CutCheckpointEntry& entry);
void fromJson(const JsonReader& reader, CutCheckpointEntry& entry);
/// Optionals written only when present, lists and dictionaries always.
void to_json(Json& json, const ProjectDocument& document);
void fromJson(const JsonReader& reader, ProjectDocument& document);

}  // namespace morvane::app
