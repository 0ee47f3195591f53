#pragma once

/// The spine of Morvane: one assistant request, from the click (or the typed instruction) to a rough cut
/// on its own track, then Accept or Reject, with a checkpoint in the chat to return to. The decision runs
/// on a worker; everything that touches the session comes back through the main loop.
///
///     PipelineContext context{.mainLoop = loop, .languageModel = &service, .delegate = &ui};
///     auto request = ProjectPipeline::applyCommand(session, AssistantCommandID::cleanUp, context);
///     loop.runUntil([&] { return request->isFinished(); });
///     if (session.isReviewingProposal()) ProjectPipeline::acceptRoughCut(session);

#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "morvane/app/session/project_session.hpp"
#include "morvane/app/support/main_loop.hpp"
#include "morvane/engine/layout/project_format.hpp"
#include "morvane/engine/plan/edit_plan.hpp"
#include "morvane/intelligence/instruction/assistant_command.hpp"
#include "morvane/intelligence/model/language_model.hpp"
#include "morvane/intelligence/transcription/transcription_provider.hpp"
#include "morvane/intelligence/publish/auto_reframe_analyzer.hpp"
#include "morvane/intelligence/publish/shorts_candidate_scorer.hpp"

namespace morvane {
class PreferencesStore;
}

namespace morvane::engine {
struct MediaProbeReport;
}

namespace morvane::app {

class WaveformCache;
class ProxyStore;

/// What the window or the command line shows on the pipeline's behalf beyond the session's own state.
class UserInterfaceDelegate {
  public:
    virtual ~UserInterfaceDelegate() = default;
    virtual void showAlert(const std::string& title, const std::string& text) = 0;
    /// Asks `question` with `choices`, the last of which cancels, and returns the index of the one chosen.
    /// A front end that can't ask keeps this default, which declines.
    virtual std::optional<std::size_t> ask(const std::string& /*question*/,
                                           const std::string& /*informativeText*/,
                                           const std::vector<std::string>& /*choices*/) {
        return std::nullopt;
    }
    /// The language `fileLabel` is spoken in, chosen by the user from `locales` (and remembered as the user
    /// asks); none when the user skips. A front end that can't ask keeps this default, which skips.
    virtual std::optional<std::string> chooseTranscriptionLocale(const std::string& /*fileLabel*/,
                                                                 const std::vector<std::string>& /*locales*/) {
        return std::nullopt;
    }
};

/// What the pipeline's long operations run with.
struct PipelineContext {
    MainLoop& mainLoop;
    intelligence::LanguageModelService* languageModel = nullptr;  ///< none: only the rules can answer
    UserInterfaceDelegate* delegate = nullptr;
    const PreferencesStore* preferences = nullptr;  ///< "morvane.allowRemoteModel"
    /// The recognizer transcriptions run on (none: recordings can't be transcribed); their language comes
    /// from `preferences` unless the caller or the user gives it.
    intelligence::TranscriptionProvider* transcription = nullptr;
    /// Where imported sources get their waveforms (none: they get none, as on the command line).
    WaveformCache* waveforms = nullptr;
    /// Where very large imported sources get playback proxies (none: they play as they are).
    ProxyStore* proxies = nullptr;
};

/// A request deciding on a worker. Cancelling it puts the session back as it was before the request.
class PipelineRequest {
  public:
    PipelineRequest() = default;
    ~PipelineRequest();
    PipelineRequest(const PipelineRequest&) = delete;
    PipelineRequest& operator=(const PipelineRequest&) = delete;

    void cancel() noexcept { stop_.request_stop(); }
    /// True once the request's last step has run on the main loop (or it never started a worker).
    [[nodiscard]] bool isFinished() const noexcept { return finished_.load(); }

  private:
    friend struct PipelineRequestAccess;
    std::stop_source stop_;
    std::atomic<bool> finished_{false};
    std::jthread worker_;
};

struct ImportMediaOptions {
    std::optional<bool> setAsPrimary;  ///< none: primary when the bin is empty
};

struct TranscribeMediaOptions {
    std::optional<std::string> sourceID;  ///< the source to prefer; none: the one the user is looking at
    bool promptIfNeeded = true;           ///< ask for the language unless the preferences answer
    std::optional<std::string> locale;    ///< chosen by the caller: nothing asked, nothing remembered
};

/// The source a transcription would take, and why that one.
struct TranscribeTarget {
    MediaBinEntry entry;
    std::string reason;  ///< "preferred", "transcriptPane", "selectedClip", "primary", "firstAudio"
};

/// How auto-reframe runs beyond its clips.
struct AutoReframeOptions {
    double sampleInterval = intelligence::AutoReframeAnalyzer::defaultSampleInterval;  ///< seconds
    std::function<void()> completion;  ///< once, on the main loop, when the request is over however it ended
};

struct ApplyCommandOptions {
    std::optional<double> targetSeconds;  ///< for the short cut: the length to pack to (60 when absent)
};

namespace ProjectPipeline {

/// Runs an assistant command: its canonical instruction (or the short cut's target length) goes to the
/// chat and into the session, then `applyInstruction`. Fails by the status line only.
std::shared_ptr<PipelineRequest> applyCommand(ProjectSession& session, intelligence::AssistantCommandID id,
                                              PipelineContext context, ApplyCommandOptions options = {});

/// Runs `session.instruction` (or `commandID`'s) through the checks, a checkpoint, the decision on a
/// worker, a validated proposal and the rough cut on "program", ending in review. Every failure shows in
/// the error banner and replaces the chat's thinking line. The returned request is finished at once when a
/// check refused it.
std::shared_ptr<PipelineRequest> applyInstruction(
    ProjectSession& session, PipelineContext context,
    std::optional<intelligence::AssistantCommandID> commandID = {});

/// Accept: the rough cut becomes one stitched assembly on the storyline; the checkpoint now restores the
/// rough cut. Throws `EditRejection` during a save.
void acceptRoughCut(ProjectSession& session);
/// Reject: back to the state before the proposal. Throws `EditRejection` during a save.
void rejectRoughCut(ProjectSession& session);
/// Accepts a cut made by striking words. Throws `EditRejection` during a save.
void acceptTranscriptCut(ProjectSession& session);
/// Keeps every word again. Throws `EditRejection` during a save.
void resetTranscriptCut(ProjectSession& session);
/// Keeps or removes one segment, as one undoable step.
void toggleCut(ProjectSession& session, int segmentID, bool accepted);
/// Strikes or restores words, as one undoable step.
void toggleWords(ProjectSession& session, const std::set<int>& wordIDs, bool removed);
/// The commands carried out on the timeline rather than by a cut; those whose tools aren't built yet say so.
void applyTimelinePolish(intelligence::AssistantCommandID id, ProjectSession& session,
                         PipelineContext context);

// Media: bringing files in and keeping them reachable.

/// Brings `file` into the project as a new source ("src2"...): copied into "Media" when the project has a
/// bundle, probed (a still image lasts 5 s), and made primary (the storyline laid down for it) when asked
/// or when the bin was empty. The chat and the status say what came in; a failure shows as "Import failed:
/// " and the reason. Refused while the project is being opened or saved.
std::shared_ptr<PipelineRequest> importMedia(ProjectSession& session, const std::filesystem::path& file,
                                             PipelineContext context, ImportMediaOptions options = {});
/// Points source `sourceID` at `file`, the same material in a new place: its transcript and cuts stay.
std::shared_ptr<PipelineRequest> relinkMedia(ProjectSession& session, const std::string& sourceID,
                                             const std::filesystem::path& file, PipelineContext context);
/// Takes sources out of the project with their clips and transcripts, as one undoable step; removing the
/// primary promotes another. Unknown ids are ignored.
void removeMedia(ProjectSession& session, const std::vector<std::string>& sourceIDs);
/// Makes a source with a picture (or a still) the primary one: the storyline starts afresh from it.
std::shared_ptr<PipelineRequest> setPrimaryMedia(ProjectSession& session, const std::string& sourceID,
                                                 PipelineContext context);
/// Transcribes a source (see `resolveTranscribeTarget`) in the chosen language, then segments it at its
/// pauses and gathers its evidence; the transcript becomes the active one. The job shows progress and can
/// be cancelled through the request. A recording with no speech is reported as an outcome, not an error.
std::shared_ptr<PipelineRequest> transcribeMedia(ProjectSession& session, PipelineContext context,
                                                 TranscribeMediaOptions options = {});
/// The source to transcribe: the preferred one, else the one whose transcript is shown, the selected
/// clip's, the primary, the first with audio; each only when it is in the bin and has audio.
[[nodiscard]] std::optional<TranscribeTarget> resolveTranscribeTarget(
    const ProjectSession& session, const std::optional<std::string>& preferredSourceID);
/// Makes `entry` (whose file is probed as `probe`) the primary source and lays the storyline down for it.
/// False, with the reason in the error banner, when the probe found no duration.
bool applyPrimaryMedia(MediaBinEntry entry, const engine::MediaProbeReport& probe, ProjectSession& session);
/// Makes the still `entry` the primary source, shown for 5 s.
void applyPrimaryImage(MediaBinEntry entry, ProjectSession& session);
/// A fresh "Untitled Project" with an empty timeline.
void createUntitledProject(ProjectSession& session);
/// After the primary `removedID` left the bin: the first source with a picture (else any) becomes primary;
/// with none left the project has no media, and no classification or proposal.
void clearOrPromotePrimary(const std::string& removedID, ProjectSession& session);
/// Renames a source as the bin shows it. False for an unknown id or an empty name.
bool renameMedia(ProjectSession& session, const std::string& sourceID, const std::string& label);

/// The plan that renders a short candidate on its own: its passage of the primary source as one kept
/// span, on `format`'s canvas at the session's frame rate. Throws `ShortProjectError` when the session has
/// no media.
[[nodiscard]] engine::EditPlan shortEditPlan(const ProjectSession& session,
                                             const intelligence::ShortsCandidate& candidate,
                                             const engine::ProjectFormat& format);

// Auto-reframe: crops that follow the subject, for a vertical canvas.

/// The assistant's Auto-reframe: the selected picture clips, else those of the main picture, reframed as
/// `autoReframeClips` does; the project switches to the shorts format first unless `formatAlreadySet`.
std::shared_ptr<PipelineRequest> runAutoReframe(ProjectSession& session, PipelineContext context,
                                                bool formatAlreadySet, AutoReframeOptions options = {});
/// Finds the subject of each of `clipIDs` on a worker (a job of kind `analyzeSubject`, with progress, that
/// the request cancels) and writes their crop keyframes on the main loop as one undoable step, together
/// with the switch to the shorts format when `switchToShorts`. A clip that fails doesn't stop the others:
/// the status says "Auto-reframe applied to " and how many worked; when none did, the error banner says
/// why the first failed.
std::shared_ptr<PipelineRequest> autoReframeClips(ProjectSession& session, std::vector<std::string> clipIDs,
                                                  bool switchToShorts, PipelineContext context,
                                                  AutoReframeOptions options = {});
/// `autoReframeClips` on the selected clip, for the shorts format.
std::shared_ptr<PipelineRequest> autoReframeSelectedClip(ProjectSession& session, PipelineContext context,
                                                         AutoReframeOptions options = {});
/// Gives the timeline the shorts format at the session's frame rate (making an empty timeline when there
/// is none). Records nothing itself: call it inside an edit.
void prepareForShorts(ProjectSession& session);

/// "1:05" or "1:02:03": a duration as the chat shows it.
[[nodiscard]] std::string formatTimecode(double seconds);

}  // namespace ProjectPipeline

}  // namespace morvane::app
