#pragma once

/// The one live object of an open project: the media bin, the active transcript, the timeline, the plan
/// derived from it, the chat log, the checkpoints, the undo history, the playhead and the running jobs.
/// Everything here is main-thread state; long operations run on workers and post back to the main loop.
/// The fields are the state itself and are read and written directly by the operations that own the
/// edits (the pipeline, the timeline editor); the member functions are the protocols around them.
///
///     ProjectSession session;                          // a new project: empty timeline, nothing loaded
///     session.addObserver(view);                       // held weakly
///     session.setBusy(true, "Transcribing…", MediaJobKind::transcribe);
///     ...
///     session.setSuccess("Transcribed 1,204 words.");

#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "morvane/app/media/media_bin_entry.hpp"
#include "morvane/app/session/editable_state_snapshot.hpp"
#include "morvane/app/session/session_records.hpp"
#include "morvane/app/timeline/timeline_document.hpp"
#include "morvane/engine/audio/waveform_generator.hpp"
#include "morvane/engine/plan/edit_plan.hpp"

namespace morvane::app {

class ProjectSession;

/// Something that shows the session and redraws when it changes.
class ProjectSessionObserver {
  public:
    virtual ~ProjectSessionObserver() = default;
    virtual void projectSessionDidChange(ProjectSession& session) = 0;
};

/// Posted with the session, beside the observer calls.
enum class SessionNotification { mediaJobsDidChange, editHistoryDidChange, editMenuNeedsUpdate };

class ProjectSession {
  public:
    using NotificationHandler = std::function<void(SessionNotification, ProjectSession&)>;
    static constexpr std::string_view initialStatusMessage =
        "Create a project or drop a file on the preview.";

    ProjectSession();
    ProjectSession(const ProjectSession&) = delete;
    ProjectSession& operator=(const ProjectSession&) = delete;

    // Observers and notifications.

    /// Registers `observer`, held weakly, and drops the entries whose observer is gone.
    void addObserver(const std::shared_ptr<ProjectSessionObserver>& observer);
    /// Calls every live observer once, in registration order, after dropping the dead ones.
    void notifyChange();
    /// Receives every notification this session posts.
    void onNotification(NotificationHandler handler);
    void post(SessionNotification notification);

    // Status and jobs.

    /// Starts (`busy`) or ends the one job this protocol owns. Nested starts share it; `message` becomes
    /// the status line (for any kind), the job's title otherwise comes from the status line.
    void setBusy(bool busy, std::optional<std::string> message = std::nullopt,
                 MediaJobKind kind = MediaJobKind::operation);
    /// Starts a job of its own and returns its id; a foreground job shows its title in the status line.
    std::string beginJob(MediaJobKind kind, std::string title,
                         std::optional<std::string> sourceID = std::nullopt, bool isCancellable = false);
    void updateJob(const std::string& id, std::optional<double> progress,
                   std::optional<std::string> title = std::nullopt);
    void endJob(const std::string& id);
    /// Ends the protocol's job, clears the error and shows `message` as a success.
    void setSuccess(std::string message);
    /// Ends the protocol's job and shows `message` in the error banner (the status line is left alone);
    /// nothing clears the error.
    void setError(std::optional<std::string> message);

    // Derived state.

    [[nodiscard]] bool hasExclusiveLock() const noexcept;
    [[nodiscard]] bool isBusy() const noexcept;
    [[nodiscard]] int backgroundJobCount() const noexcept;
    [[nodiscard]] bool hasProject() const noexcept;
    [[nodiscard]] bool hasUnsavedChanges() const;
    [[nodiscard]] bool hasUserEditedContent() const;
    [[nodiscard]] bool isReviewingProposal() const noexcept { return pendingProposal && proposalBaseline; }
    [[nodiscard]] bool isTranscriptDrafting() const;
    [[nodiscard]] bool needsTranscription() const noexcept { return mediaURL && !segments; }
    [[nodiscard]] bool hasAnyTranscript() const;
    [[nodiscard]] CreatorWorkflowStep workflowStep() const;
    [[nodiscard]] std::vector<int> acceptedSegmentIDs() const;
    [[nodiscard]] int keptSegmentCount() const;
    [[nodiscard]] bool segmentHasKeptWords(const intelligence::TranscriptSegment& segment) const;
    [[nodiscard]] bool usesCompositionTimeline() const;
    /// The duration of the primary media, or the transcript's, or 0.
    [[nodiscard]] double sourceDurationSeconds() const;
    /// The primary clip playing at a program time.
    [[nodiscard]] std::optional<TimelineClip> storylineClip(double programSeconds) const;

    // Selection and the active transcript.

    void selectClip(std::optional<std::string> clipID);
    void selectClips(const std::set<std::string>& ids, std::optional<std::string> primary,
                     std::optional<TimelineLaneKind> laneKind);
    void syncActiveTranscript(const std::string& selectedClipID);
    void applySourceTranscript(const std::string& sourceID);
    void commitSourceTranscript();
    void removeSourceTranscript(const std::string& sourceID);
    void syncActiveTranscriptToPlayhead();

    // Seek and playhead: the source clock and the program (composition) clock.

    void requestSeek(double sourceSeconds);
    void requestSeekToComposition(double compositionSeconds);
    /// What the running preview calls; notifies at most about seven times a second.
    void updatePlayhead(double seconds, bool fromComposition);

    // Review of a proposal, and the cut list.

    void beginProposalReview(EditableStateSnapshot baseline, std::optional<std::string> messageID,
                             intelligence::EditProposal proposal);
    void clearProposalReview();
    void seedCutItemsFromSegments(std::optional<std::string> reason);
    void rebuildCutItems(const intelligence::ClassificationRun& run);
    void rebuildPlaybackMap();

    // Sources, markers, projects.

    [[nodiscard]] std::string nextSourceID(const std::set<std::string>& reserving = {}) const;
    void syncExtraSourcesFromMediaBin(const std::optional<std::filesystem::path>& bundle = std::nullopt);
    [[nodiscard]] std::optional<std::string> displayName(const std::optional<std::string>& sourceID) const;
    [[nodiscard]] const MediaBinEntry* binEntry(const std::string& sourceID) const;
    void addMarker(double seconds, std::optional<std::string> name = std::nullopt);
    /// Writes a checkpoint line to the chat and files the present state under it; returns the line's id.
    std::string saveNamedCheckpoint(const std::string& name);
    void resetForNewProject(const std::string& name);
    /// The words of `segment` (ids between its first and last word) in transcript order.
    [[nodiscard]] std::vector<int> wordIDs(const intelligence::TranscriptSegment& segment) const;

    // The state. Field names and meanings as the project format and the operations use them.

    std::optional<std::filesystem::path> mediaURL;  ///< the primary media file
    std::string mediaTitle = "Morvane";
    std::string projectName = "Untitled Project";
    std::optional<std::filesystem::path> projectURL;  ///< the .morvane bundle, once saved
    bool isDirty = false;
    std::string primarySourceID = "src1";
    std::optional<std::string> transcriptSourceID;
    std::set<int> removedWordIDs;  ///< words struck from the active transcript
    std::vector<MediaBinEntry> mediaBin;
    std::string frameDuration = "1001/30000";
    std::optional<intelligence::TranscriptDocument> transcript;
    std::optional<intelligence::SegmentDocument> segments;
    std::map<std::string, SourceTranscriptRecord> sourceTranscripts;
    std::optional<intelligence::MediaEvidenceDocument> mediaEvidence;
    std::vector<intelligence::PublishChapterMarker> publishChapters;
    std::string instruction;
    std::optional<intelligence::ClassificationRun> classification;
    std::optional<intelligence::EditProposal> pendingProposal;
    std::optional<EditableStateSnapshot> proposalBaseline;  ///< what Reject returns to
    std::optional<std::string> proposalMessageID;
    std::optional<engine::EditPlan> editPlan;  ///< derived from the timeline after every edit
    std::vector<CutItem> cutItems;
    std::string statusMessage{initialStatusMessage};
    SessionStatusKind statusKind = SessionStatusKind::info;
    std::vector<MediaJob> activeJobs;
    std::optional<std::string> errorMessage;
    std::optional<Date> lastAutosaveAt;
    std::vector<std::pair<double, double>> attentionGapRanges;
    std::optional<double> playheadSeconds;  ///< source seconds
    std::optional<double> mediaDurationSeconds;
    bool mediaHasVideo = true;
    std::optional<engine::WaveformEnvelope> waveformEnvelope;
    std::map<std::string, engine::WaveformEnvelope> auxiliaryWaveforms;
    std::vector<ChatMessage> chatMessages;
    std::map<std::string, EditableStateSnapshot> cutCheckpoints;  ///< by chat message id
    std::vector<NamedCheckpoint> namedCheckpoints;
    std::optional<TimelineDocument> timeline;  ///< the document of record for the cut
    std::map<std::string, std::filesystem::path>
        extraSources;  ///< files of the sources other than the primary
    std::map<std::string, engine::CursorTrack> cursorTracks;
    std::optional<std::string> selectedClipID;
    std::set<std::string> selectedClipIDs;
    std::optional<TimelineLaneKind> selectedLaneKind;
    SessionEditHistory editHistory;
    std::vector<PlaybackRange> playbackRanges;
    std::chrono::steady_clock::time_point lastPlayheadNotify;
    std::string seekToken;  ///< changes at every seek request
    std::optional<double> seekSeconds;
    std::optional<double> seekCompositionSeconds;
    std::optional<double> playheadCompositionSeconds;
    std::optional<double> inPointSeconds;
    std::optional<double> outPointSeconds;

  private:
    void selectionChanged(std::optional<std::string> primary, std::set<std::string> ids,
                          std::optional<TimelineLaneKind> laneKind);
    void loadWorkingCopy(const SourceTranscriptRecord* record);

    std::vector<std::weak_ptr<ProjectSessionObserver>> observers_;
    std::vector<NotificationHandler> notificationHandlers_;
    std::optional<std::string> legacyJobID_;  // the job that setBusy opened
};

}  // namespace morvane::app
