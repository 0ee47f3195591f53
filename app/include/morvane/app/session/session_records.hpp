#pragma once

/// The plain records a project session keeps: the cut list, each source's transcript state, running jobs,
/// the chat log and its checkpoints, and the map between source and program time.

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "morvane/engine/support/enum_table.hpp"
#include "morvane/engine/support/iso_date.hpp"
#include "morvane/engine/support/json.hpp"
#include "morvane/engine/time/rational_time.hpp"
#include "morvane/intelligence/evidence/media_evidence_document.hpp"
#include "morvane/intelligence/models/transcript.hpp"

namespace morvane::app {

using engine::RationalTime;

/// One row of the cut list: a transcript segment and whether the cut keeps it.
struct CutItem {
    int segmentID = 0;
    std::string text;
    RationalTime start;
    RationalTime end;
    std::optional<std::string> reason;
    std::optional<double> confidence;
    bool accepted = true;
    friend bool operator==(const CutItem&, const CutItem&) = default;
};
/// The form in which cut items are snapshotted and saved.
using CutItemSnapshot = CutItem;

/// The stored transcript state of one source: the working copy of the active source is committed here.
struct SourceTranscriptRecord {
    intelligence::TranscriptDocument transcript;
    std::optional<intelligence::SegmentDocument> segments;
    std::vector<int> removedWordIDs;  ///< ascending
    std::vector<CutItemSnapshot> cutItems;
    std::optional<intelligence::MediaEvidenceDocument> mediaEvidence;
    friend bool operator==(const SourceTranscriptRecord&, const SourceTranscriptRecord&) = default;
};

enum class SessionStatusKind { info, success, error, working };

enum class MediaJobKind {
    operation,
    importMedia,
    probe,
    waveform,
    filmstrip,
    thumbnail,
    proxy,
    transcribe,
    classify,
    exportMovie,
    projectOpen,
    projectSave,
    relinkMedia,
    switchPrimary,
    analyzeSubject,
    previewRebuild,
    capture,
};

inline constexpr auto kMediaJobKindNames = makeEnumTable<MediaJobKind>({
    {MediaJobKind::operation, "operation"},
    {MediaJobKind::importMedia, "import"},
    {MediaJobKind::probe, "probe"},
    {MediaJobKind::waveform, "waveform"},
    {MediaJobKind::filmstrip, "filmstrip"},
    {MediaJobKind::thumbnail, "thumbnail"},
    {MediaJobKind::proxy, "proxy"},
    {MediaJobKind::transcribe, "transcribe"},
    {MediaJobKind::classify, "classify"},
    {MediaJobKind::exportMovie, "export"},
    {MediaJobKind::projectOpen, "projectOpen"},
    {MediaJobKind::projectSave, "projectSave"},
    {MediaJobKind::relinkMedia, "relink"},
    {MediaJobKind::switchPrimary, "switchPrimary"},
    {MediaJobKind::analyzeSubject, "analyzeSubject"},
    {MediaJobKind::previewRebuild, "previewRebuild"},
    {MediaJobKind::capture, "capture"},
});

/// Background jobs (probes, waveforms, thumbnails, proxies, preview rebuilds) don't make the session busy.
[[nodiscard]] bool isBackground(MediaJobKind kind) noexcept;
/// Opening and saving lock the project against edits.
[[nodiscard]] bool isExclusive(MediaJobKind kind) noexcept;

struct MediaJob {
    std::string id;  ///< UUID
    MediaJobKind kind = MediaJobKind::operation;
    std::optional<std::string> sourceID;
    std::string title;
    std::optional<double> progress;
    bool isCancellable = false;
    friend bool operator==(const MediaJob&, const MediaJob&) = default;
};

/// Where the user stands in the main job, in order.
enum class CreatorWorkflowStep { noMedia, needsTranscription, editing, reviewing, finishedCut };

/// The lanes of the timeline view.
enum class TimelineLaneKind { layout, storyline, speech, audio, program, overlay, text };

/// One kept stretch of source played at a place in the program (composition) clock. All seconds.
struct PlaybackRange {
    int segmentID = -1;
    double sourceStart = 0.0;
    double sourceEnd = 0.0;
    double compositionStart = 0.0;
    double playbackRate = 1.0;
    /// (sourceEnd − sourceStart) / rate, a rate not above 0 counting as 1.
    [[nodiscard]] double compositionLength() const noexcept {
        return (sourceEnd - sourceStart) / (playbackRate > 0.0 ? playbackRate : 1.0);
    }
    friend bool operator==(const PlaybackRange&, const PlaybackRange&) = default;
};

/// A line of the assistant's chat log. Lines are replaced whole, keeping `id`, `role` and `date`.
struct ChatMessage {
    enum class Role { user, assistant, system };
    std::string id;  ///< UUID; a checkpoint's key
    Role role = Role::system;
    std::string text;
    Date date;
    bool isCutCheckpoint = false;  ///< offers Restore
    bool isThinking = false;       ///< an assistant line still working
    friend bool operator==(const ChatMessage&, const ChatMessage&) = default;
};

inline constexpr auto kChatRoleNames = makeEnumTable<ChatMessage::Role>({
    {ChatMessage::Role::user, "user"},
    {ChatMessage::Role::assistant, "assistant"},
    {ChatMessage::Role::system, "system"},
});

/// A row of the checkpoint list; its snapshot is found through `messageID`.
struct NamedCheckpoint {
    std::string id;  ///< UUID
    std::string name;
    Date createdAt;
    std::optional<std::string> messageID;
    std::string summary;
    friend bool operator==(const NamedCheckpoint&, const NamedCheckpoint&) = default;
};

void to_json(Json& json, const CutItem& item);
void fromJson(const JsonReader& reader, CutItem& item);
void to_json(Json& json, const SourceTranscriptRecord& record);
void fromJson(const JsonReader& reader, SourceTranscriptRecord& record);
/// Dates as ISO 8601; "isCutCheckpoint" and "isThinking" read as false when missing.
void to_json(Json& json, const ChatMessage& message);
void fromJson(const JsonReader& reader, ChatMessage& message);
void to_json(Json& json, const NamedCheckpoint& checkpoint);
void fromJson(const JsonReader& reader, NamedCheckpoint& checkpoint);

/// A UUID string, or `JsonDecodeError` naming where.
[[nodiscard]] std::string readUUID(const JsonReader& reader);
/// An ISO 8601 date, or `JsonDecodeError` naming where.
[[nodiscard]] Date readDate(const JsonReader& reader);

/// The member names of an object, in document order; `JsonDecodeError` when it isn't an object.
[[nodiscard]] std::vector<std::string> memberNames(const JsonReader& reader);

/// The object at `key` read as a dictionary of `T`, empty when the key is absent.
template <class T>
[[nodiscard]] std::map<std::string, T> readDictionary(const JsonReader& reader, std::string_view key) {
    std::map<std::string, T> out;
    if (!reader.has(key)) return out;
    const JsonReader dictionary = reader[key];
    for (const auto& name : memberNames(dictionary))
        out.emplace(name, dictionary[name].template get<T>());
    return out;
}

}  // namespace morvane::app
