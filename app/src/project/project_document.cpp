#include "morvane/app/project/project_document.hpp"

#include <fmt/core.h>

#include <nlohmann/json.hpp>

#include "morvane/app/session/edit_coordinator.hpp"
#include "morvane/app/session/project_session.hpp"
#include "morvane/app/timeline/transcript_cut.hpp"

namespace morvane::app {

ProjectBundleError ProjectBundleError::notABundle(const std::string& name) {
    return {Kind::notABundle, "Not a Morvane project: " + name};
}
ProjectBundleError ProjectBundleError::missingManifest(const std::string& name) {
    return {Kind::missingManifest, "Missing project.json in " + name};
}
ProjectBundleError ProjectBundleError::manifestTooLarge() {
    return {Kind::manifestTooLarge, "project.json is too large to open safely."};
}
ProjectBundleError ProjectBundleError::newerFormat(long long version) {
    return {Kind::newerFormat,
            fmt::format("This project requires a newer version of Morvane (format v{}).", version)};
}
ProjectBundleError ProjectBundleError::alreadyExists(const std::string& path) {
    return {Kind::alreadyExists, "A project already exists at " + path};
}

ProjectDocument ProjectDocument::capture(ProjectSession& session) {
    session.commitSourceTranscript();
    ProjectDocument document{
        .version = currentVersion,
        .name = session.projectName,
        .frameDuration = session.frameDuration,
        .primarySourceID = session.primarySourceID,
        .transcriptSourceID = session.transcriptSourceID,
        .removedWordIDs = std::vector<int>(session.removedWordIDs.begin(), session.removedWordIDs.end()),
        .mediaBin = session.mediaBin,
        .timeline = session.timeline,
        .cutItems = session.cutItems,
        .instruction = session.instruction,
        .classification = session.classification,
        .transcript = session.transcript,
        .segments = session.segments,
        .sourceTranscripts = session.sourceTranscripts,
        .mediaEvidence = session.mediaEvidence,
        .publishChapters = session.publishChapters,
        .chatMessages = session.chatMessages,
        .cutCheckpoints = {},
        .namedCheckpoints = session.namedCheckpoints,
        .selectedClipID = session.selectedClipID,
        .cursorTracks = session.cursorTracks,
    };
    for (const auto& [messageID, snapshot] : session.cutCheckpoints)
        document.cutCheckpoints.push_back({messageID, snapshot});
    return document;
}

void ProjectDocument::apply(ProjectSession& session,
                            const std::optional<std::filesystem::path>& bundle) const {
    session.projectName = name;
    session.frameDuration = frameDuration;
    session.primarySourceID = primarySourceID;
    session.transcriptSourceID = transcriptSourceID;
    session.removedWordIDs = std::set<int>(removedWordIDs.begin(), removedWordIDs.end());
    session.mediaBin = mediaBin;
    session.timeline = timeline ? std::optional(timeline->migrated()) : std::nullopt;
    session.cutItems = cutItems;
    session.instruction = instruction;
    session.classification = classification;
    session.transcript = transcript;
    session.segments = segments;
    session.sourceTranscripts = sourceTranscripts;
    if (session.sourceTranscripts.empty() && transcript) {
        // A project from before transcripts were kept per source.
        session.sourceTranscripts[transcriptSourceID.value_or(primarySourceID)] =
            SourceTranscriptRecord{*transcript, segments, removedWordIDs, cutItems, mediaEvidence};
    }
    session.mediaEvidence = mediaEvidence;
    session.publishChapters = publishChapters;
    session.chatMessages = chatMessages;
    session.cutCheckpoints.clear();
    for (const auto& entry : cutCheckpoints)
        session.cutCheckpoints[entry.messageID] = entry.snapshot;
    session.namedCheckpoints = namedCheckpoints;
    session.selectedClipID = selectedClipID;
    session.selectedClipIDs.clear();
    if (selectedClipID) session.selectedClipIDs.insert(*selectedClipID);
    session.cursorTracks = cursorTracks;
    session.selectedLaneKind.reset();
    session.waveformEnvelope.reset();

    session.extraSources.clear();
    session.syncExtraSourcesFromMediaBin(bundle);
    if (const MediaBinEntry* primary = session.binEntry(primarySourceID)) {
        session.mediaURL = session.extraSources.at(primary->id);
        session.mediaTitle = primary->label;
        session.mediaDurationSeconds = primary->durationSeconds;
        session.mediaHasVideo = primary->hasVideo;
    } else {
        session.mediaURL.reset();
        session.mediaTitle = name;
        session.mediaDurationSeconds.reset();
        session.mediaHasVideo = true;
    }
    session.editHistory.clear();

    if (!session.cutItems.empty()) TranscriptCutMaterializer::rebuildProgram(session);
    EditCoordinator::finalizeStructuralChange(session);
}

// Coding.

namespace {

template <class T>
Json dictionary(const std::map<std::string, T>& values) {
    Json out = Json::object();
    for (const auto& [key, value] : values)
        out[key] = value;
    return out;
}

}  // namespace

void to_json(Json& json, const CutCheckpointEntry& entry) {
    json = Json::object();
    json["messageID"] = entry.messageID;
    json["snapshot"] = entry.snapshot;
}

void fromJson(const JsonReader& reader, CutCheckpointEntry& entry) {
    entry.messageID = readUUID(reader["messageID"]);
    entry.snapshot = reader["snapshot"].get<EditableStateSnapshot>();
}

void to_json(Json& json, const ProjectDocument& d) {
    json = Json::object();
    json["version"] = d.version;
    json["name"] = d.name;
    json["frameDuration"] = d.frameDuration;
    json["primarySourceID"] = d.primarySourceID;
    if (d.transcriptSourceID) json["transcriptSourceID"] = *d.transcriptSourceID;
    json["removedWordIDs"] = d.removedWordIDs;
    json["mediaBin"] = d.mediaBin;
    if (d.timeline) json["timeline"] = *d.timeline;
    json["cutItems"] = d.cutItems;
    json["instruction"] = d.instruction;
    if (d.classification) json["classification"] = *d.classification;
    if (d.transcript) json["transcript"] = *d.transcript;
    if (d.segments) json["segments"] = *d.segments;
    json["sourceTranscripts"] = dictionary(d.sourceTranscripts);
    if (d.mediaEvidence) json["mediaEvidence"] = *d.mediaEvidence;
    json["publishChapters"] = d.publishChapters;
    json["chatMessages"] = d.chatMessages;
    json["cutCheckpoints"] = d.cutCheckpoints;
    json["namedCheckpoints"] = d.namedCheckpoints;
    if (d.selectedClipID) json["selectedClipID"] = *d.selectedClipID;
    json["cursorTracks"] = dictionary(d.cursorTracks);
}

void fromJson(const JsonReader& reader, ProjectDocument& d) {
    d.version = reader.valueOr("version", 1);
    d.name = reader["name"].get<std::string>();
    d.frameDuration = reader.valueOr<std::string>("frameDuration", "1001/30000");
    d.primarySourceID = reader.valueOr<std::string>("primarySourceID", "src1");
    d.transcriptSourceID = reader.optional<std::string>("transcriptSourceID");
    d.removedWordIDs = reader.valueOr<std::vector<int>>("removedWordIDs", {});
    d.mediaBin = reader.valueOr<std::vector<MediaBinEntry>>("mediaBin", {});
    d.timeline = reader.optional<TimelineDocument>("timeline");
    d.cutItems = reader.valueOr<std::vector<CutItemSnapshot>>("cutItems", {});
    d.instruction = reader.valueOr<std::string>("instruction", "");
    d.classification = reader.optional<intelligence::ClassificationRun>("classification");
    d.transcript = reader.optional<intelligence::TranscriptDocument>("transcript");
    d.segments = reader.optional<intelligence::SegmentDocument>("segments");
    d.sourceTranscripts = readDictionary<SourceTranscriptRecord>(reader, "sourceTranscripts");
    d.mediaEvidence = reader.optional<intelligence::MediaEvidenceDocument>("mediaEvidence");
    d.publishChapters =
        reader.valueOr<std::vector<intelligence::PublishChapterMarker>>("publishChapters", {});
    d.chatMessages = reader.valueOr<std::vector<ChatMessage>>("chatMessages", {});
    d.cutCheckpoints = reader.valueOr<std::vector<CutCheckpointEntry>>("cutCheckpoints", {});
    d.namedCheckpoints = reader.valueOr<std::vector<NamedCheckpoint>>("namedCheckpoints", {});
    d.selectedClipID =
        reader.has("selectedClipID") ? std::optional(readUUID(reader["selectedClipID"])) : std::nullopt;
    d.cursorTracks = readDictionary<engine::CursorTrack>(reader, "cursorTracks");
}

std::string ProjectDocument::encode(const ProjectDocument& document) {
    return dumpJson(withSortedKeys(Json(document)), 2);
}

ProjectDocument ProjectDocument::decode(std::string_view text, std::string_view documentName) {
    const Json root = parseJson(text, documentName);
    const JsonReader reader(root, documentName);
    if (!root.is_object()) reader.fail("expected an object");
    if (reader.has("version")) {
        // Read wide, so that a far future version is reported as such rather than as out of range.
        const auto version = reader["version"].get<std::int64_t>();
        if (version > currentVersion) throw ProjectBundleError::newerFormat(version);
        if (version < 1) reader["version"].fail(fmt::format("unknown format version {}", version));
    }
    return reader.get<ProjectDocument>();
}

}  // namespace morvane::app
