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
#include "morvane/intelligence/publish/shorts_candidate_scorer.hpp"

namespace morvane {
class PreferencesStore;
}

namespace morvane::app {

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
};

/// What the pipeline's long operations run with.
struct PipelineContext {
    MainLoop& mainLoop;
    intelligence::LanguageModelService* languageModel = nullptr;  ///< none: only the rules can answer
    UserInterfaceDelegate* delegate = nullptr;
    const PreferencesStore* preferences = nullptr;  ///< "morvane.allowRemoteModel"
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

/// The plan that renders a short candidate on its own: its passage of the primary source as one kept
/// span, on `format`'s canvas at the session's frame rate. Throws `ShortProjectError` when the session has
/// no media.
[[nodiscard]] engine::EditPlan shortEditPlan(const ProjectSession& session,
                                             const intelligence::ShortsCandidate& candidate,
                                             const engine::ProjectFormat& format);

/// "1:05" or "1:02:03": a duration as the chat shows it.
[[nodiscard]] std::string formatTimecode(double seconds);

}  // namespace ProjectPipeline

}  // namespace morvane::app
