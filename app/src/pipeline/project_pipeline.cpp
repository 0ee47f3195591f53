#include "morvane/app/pipeline/project_pipeline.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <map>

#include "morvane/app/session/edit_coordinator.hpp"
#include "morvane/app/timeline/timeline_editor.hpp"
#include "morvane/app/timeline/timeline_plan_bridge.hpp"
#include "morvane/app/timeline/transcript_cut.hpp"
#include "morvane/engine/support/cancellation.hpp"
#include "morvane/engine/support/preferences_store.hpp"
#include "morvane/engine/support/uuid.hpp"
#include "morvane/intelligence/cleanup/cleanup_composer.hpp"
#include "morvane/intelligence/cleanup/duration_target_packer.hpp"
#include "morvane/intelligence/cleanup/retake_detector.hpp"
#include "morvane/intelligence/cleanup/silence_remover.hpp"
#include "morvane/intelligence/instruction/deterministic_instruction_rules.hpp"
#include "morvane/intelligence/intelligence_error.hpp"
#include "morvane/intelligence/model/language_model_instruction_parser.hpp"
#include "morvane/intelligence/plan/edit_proposal.hpp"
#include "morvane/intelligence/routing/model_router.hpp"
#include "morvane/intelligence/support/text.hpp"
#include "pipeline/pipeline_support.hpp"

namespace morvane::app {

using intelligence::AssistantCommand;
using intelligence::AssistantCommandBackend;
namespace AssistantCommandCatalog = intelligence::AssistantCommandCatalog;
using intelligence::ClassificationRun;
using ID = intelligence::AssistantCommandID;

PipelineRequest::~PipelineRequest() = default;

namespace {

constexpr const char* kReviewOpen = "Accept or Reject the current rough cut before proposing another.";
constexpr const char* kCheckpointFirst =
    "Checkpoint before cut — tap Restore checkpoint to return to the timeline as it was.";
constexpr const char* kCheckpointMarked =
    "Checkpoint before cut — tap Restore checkpoint below to return to the timeline as it was.";

// The request running for each session, kept alive until its last step has run on the main loop.
std::map<const ProjectSession*, std::shared_ptr<PipelineRequest>>& runningRequests() {
    static std::map<const ProjectSession*, std::shared_ptr<PipelineRequest>> requests;
    return requests;
}

bool isPolishWithoutTranscript(ID id) {
    switch (id) {
        case ID::reduceNoise:
        case ID::voiceEnhancer:
        case ID::voiceChanger:
        case ID::voiceover:
        case ID::autoReframe:
        case ID::greenScreen:
        case ID::personBackground:
        case ID::screenCapture:
            return true;
        default:
            return false;
    }
}

bool isPolishFromAnyTranscript(ID id) {
    return id == ID::generateCaptions;
}

// Replaces chat line `id` whole, keeping its id, role and date.
void replaceMessage(ProjectSession& session, const std::string& id, const std::string& text,
                    bool isCutCheckpoint, bool isThinking) {
    for (auto& message : session.chatMessages) {
        if (message.id == id)
            message = {message.id, message.role, text, message.date, isCutCheckpoint, isThinking};
    }
}

std::string firstCharacters(const std::string& text, std::size_t count) {
    return std::string(intelligence::firstCharacters(text, count));
}

using TimelinePlanBridge::programDurationSeconds;

// Whether a local model answers; the two ways it can't are told apart for the user.
enum class ModelAvailability { available, unreachable, noModelLoaded };

ModelAvailability modelAvailability(const PipelineContext& context) {
    if (!context.languageModel) return ModelAvailability::unreachable;
    const auto status = context.languageModel->status({});
    if (!status.available) return ModelAvailability::unreachable;
    return status.models.empty() ? ModelAvailability::noModelLoaded : ModelAvailability::available;
}

void capabilityFailure(ProjectSession& session, const PipelineContext& context,
                       ModelAvailability availability) {
    if (availability == ModelAvailability::unreachable) {
        session.setError(
            "AI rough cuts need a language model server on this computer, and Morvane can't reach one.");
        return;
    }
    session.setError(
        "Load a model in your local model server (Preferences → Language Model) to use AI rough cuts.");
    if (context.delegate) {
        context.delegate->showAlert(
            "Language Model Required",
            "AI rough cuts use a language model that runs on this computer.\n\nStart a local model server "
            "(llama.cpp's llama-server or Ollama), open Preferences → Language Model, check its address and "
            "model "
            "name, then try again.");
    }
}

bool canApplyCommand(const AssistantCommand* command, bool hasTranscript, bool hasAnyTranscript,
                     const PipelineContext& context) {
    if (!command || command->backend == AssistantCommandBackend::comingSoon || command->isHidden)
        return false;
    if (!isPolishWithoutTranscript(command->id)) {
        if (command->id == ID::generateCaptions ? !hasAnyTranscript : !hasTranscript) return false;
    }
    if (command->requiresLanguageModel) return modelAvailability(context) == ModelAvailability::available;
    return true;
}

bool canApplyInstruction(const std::string& instruction, const intelligence::SegmentDocument* segments,
                         const PipelineContext& context) {
    if (!segments) return false;
    if (modelAvailability(context) == ModelAvailability::available) return true;
    if (const auto* command = AssistantCommandCatalog::resolve(instruction)) {
        return command->backend != AssistantCommandBackend::comingSoon && !command->isHidden &&
               !command->requiresLanguageModel;
    }
    return intelligence::DeterministicInstructionRules::classify(*segments, instruction).has_value() ||
           intelligence::CleanupComposer::matches(instruction) ||
           intelligence::SilenceRemover::matches(instruction) ||
           intelligence::DurationTargetPacker::matches(instruction) ||
           intelligence::RetakeDetector::matches(instruction);
}

// What the worker decides with: copies, since the session stays editable meanwhile.
struct DecisionInput {
    intelligence::SegmentDocument segments;
    std::optional<intelligence::TranscriptDocument> transcript;
    std::optional<std::filesystem::path> mediaPath;
    std::string instruction;
    std::optional<ID> commandID;
    std::optional<std::set<int>> scope;
    intelligence::InstructionParserOptions options;
};

ClassificationRun decide(const DecisionInput& input, intelligence::LanguageModelService* model,
                         const intelligence::PartialRunCallback& onPartial, std::stop_token stop) {
    intelligence::ClassifyRequest request{.transcript = input.transcript ? &*input.transcript : nullptr,
                                          .mediaPath = input.mediaPath,
                                          .options = input.options,
                                          .commandID = input.commandID,
                                          .candidateKeepIDs = input.scope,
                                          .onPartial = onPartial};
    const auto route = intelligence::ModelRouter::route(
        input.segments, input.instruction,
        {.transcript = request.transcript, .options = input.options, .commandID = input.commandID});
    if (intelligence::isRule(route.arm) || !model) {
        return intelligence::ModelRouter::classify(input.segments, input.instruction, request, stop);
    }
    intelligence::LanguageModelInstructionParser parser(*model);
    const intelligence::LanguageModelRoute modelRoute{parser, model->contextTokens(stop)};
    request.model = &modelRoute;
    return intelligence::ModelRouter::classify(input.segments, input.instruction, request, stop);
}

struct CutFlow {
    ProjectSession& session;
    PipelineContext context;
    const AssistantCommand* command;
    std::string trimmed;
    std::string checkpointMessageID;
    std::string thinkingMessageID;
    EditableStateSnapshot checkpoint;
    EditableStateSnapshot before;
    std::optional<std::set<int>> scope;
    double baseDuration = 0.0;
    std::shared_ptr<PipelineRequest> request;

    int total() const {
        return scope ? static_cast<int>(scope->size()) : static_cast<int>(session.segments->segments.size());
    }

    void showPartial(const ClassificationRun& run) {
        session.classification = run;
        session.rebuildCutItems(run);
        session.notifyChange();
        const auto kept = run.mergedKeepSegmentIDs.size();
        replaceMessage(session, thinkingMessageID,
                       fmt::format("Thinking… kept {}/{} segments so far", kept, total()), false, true);
        session.notifyChange();
        session.setBusy(true, fmt::format("Classifying… {}/{}", kept, total()));
    }

    void fail(const std::string& description, const char* status) {
        session.setBusy(false, std::string(status));
        session.setError(description);
        replaceMessage(session, thinkingMessageID, "Could not apply that instruction: " + description, false,
                       false);
        session.notifyChange();
    }

    void cancelled() {
        // The request is taken back whole: what the partial results changed goes too.
        try {
            EditableStateSnapshot::apply(before, session);
        } catch (const std::exception&) {
            // The fields are restored; a plan that can't be rebuilt keeps its old value.
        }
        session.setBusy(false, std::string("Cut cancelled."));
        replaceMessage(session, thinkingMessageID, "Cut cancelled — your timeline is as it was.", false,
                       false);
        session.notifyChange();
    }

    void finish(const ClassificationRun& run) {
        const auto& segments = *session.segments;
        if (!(baseDuration > 0.0)) baseDuration = session.sourceDurationSeconds();
        intelligence::EditProposal proposal = intelligence::EditProposalBuilder::build(
            run, segments, session.mediaEvidence ? &*session.mediaEvidence : nullptr, baseDuration);
        const auto validation = intelligence::EditProposalValidator::validate(proposal, segments);
        if (!validation.isValid) {
            std::string errors;
            for (const auto& e : validation.errors)
                errors += (errors.empty() ? "" : " ") + e;
            fail(errors, "Proposal rejected.");
            return;
        }
        if (validation.sanitizedKeepSegmentIDs != proposal.keepSegmentIDs) {
            proposal.keepSegmentIDs = validation.sanitizedKeepSegmentIDs;
            const std::set<int> kept(proposal.keepSegmentIDs.begin(), proposal.keepSegmentIDs.end());
            proposal.removeSegmentIDs.clear();
            for (const auto& segment : segments.segments) {
                if (!kept.contains(segment.id)) proposal.removeSegmentIDs.push_back(segment.id);
            }
        }
        session.setBusy(false);
        if (session.hasExclusiveLock()) {
            fail(EditRejection(EditRejection::Reason::documentLocked).what(), "Classification failed.");
            return;
        }
        session.classification = run;
        session.rebuildCutItems(run);
        const std::set<int> review(proposal.requiresReviewSegmentIDs.begin(),
                                   proposal.requiresReviewSegmentIDs.end());
        for (auto& item : session.cutItems) {
            if (review.contains(item.segmentID) && !item.accepted) {
                item.accepted = true;
                item.reason = "needs_review";
            }
        }
        session.beginProposalReview(checkpoint, checkpointMessageID, proposal);
        bool recorded = true;
        try {
            EditCoordinator::recordChange(session, "Propose Cut", before);
        } catch (const std::exception&) {
            recorded = false;
        }
        if (!recorded || !session.isReviewingProposal()) {
            replaceMessage(session, thinkingMessageID,
                           "Could not open the rough cut for review. Try Apply Cut again.", false, false);
            session.setError("Could not open the rough cut for review.");
            return;
        }
        const std::string text = closingText(run, proposal);
        replaceMessage(session, thinkingMessageID, text, false, false);
        session.setSuccess(text);
    }

    std::string closingText(const ClassificationRun& run, const intelligence::EditProposal& proposal) const {
        const auto kept = proposal.keepSegmentIDs.size();
        double to = programDurationSeconds(session);
        if (!(to > 0.0)) to = proposal.estimatedOutputDurationSeconds;
        const std::string span = "(" + ProjectPipeline::formatTimecode(baseDuration) + " → " +
                                 ProjectPipeline::formatTimecode(to) + ")";
        std::string text;
        if (!command) {
            text = fmt::format("Proposed rough cut — kept {} of {} segments {}.", kept, total(), span);
        } else if (command->id == ID::shortCut60s) {
            const double target = intelligence::DurationTargetPacker::targetSeconds(trimmed).value_or(60.0);
            text = fmt::format("Short cut · target {} · kept {}s {}. Kept {} of {} segments.",
                               intelligence::DurationTargetPacker::displayLabel(target),
                               static_cast<long long>(proposal.estimatedOutputDurationSeconds), span, kept,
                               total());
        } else {
            text = fmt::format("{} — kept {} of {} segments {}.", command->title, kept, total(), span);
        }
        if (scope) text += " Scoped to your current cut.";
        for (const auto& warning : proposal.warnings)
            text += " " + warning;
        text += " Preview it now, then tap Accept Cut or Reject.";
        if (run.modelBackend == intelligence::ClassificationModelBackend::remoteModel) {
            text += " Used the remote model.";
        } else if (run.usedOnDeviceFallback) {
            text += " Cloud model unavailable — used on-device model instead.";
        }
        return text;
    }
};

std::shared_ptr<PipelineRequest> startCutFlow(ProjectSession& session, const PipelineContext& context,
                                              const AssistantCommand* command, const std::string& trimmed) {
    auto flow = std::make_shared<CutFlow>(
        CutFlow{.session = session, .context = context, .command = command, .trimmed = trimmed});
    flow->checkpoint = EditableStateSnapshot::capture(session);
    flow->checkpointMessageID = appendMessage(session, ChatMessage::Role::system, kCheckpointFirst);
    session.notifyChange();
    session.cutCheckpoints[flow->checkpointMessageID] = flow->checkpoint;
    session.namedCheckpoints.push_back({makeUUID(), "Before: " + firstCharacters(trimmed, 40),
                                        std::chrono::system_clock::now(), flow->checkpointMessageID,
                                        "Timeline before this cut"});
    replaceMessage(session, flow->checkpointMessageID, kCheckpointMarked, true, false);
    session.notifyChange();
    session.commitSourceTranscript();
    if (!session.isDirty) {
        session.isDirty = true;
        session.notifyChange();
    }
    session.setBusy(true, std::string("Classifying segments…"), MediaJobKind::operation);
    flow->thinkingMessageID =
        appendMessage(session, ChatMessage::Role::assistant, "Thinking about your cut…", true);
    session.notifyChange();
    flow->before = EditableStateSnapshot::capture(session);

    TranscriptCutMaterializer::seedRemovedWordsFromCurrentCutIfNeeded(session);
    if (session.cutItems.empty()) {
        session.seedCutItemsFromSegments("transcript");
        TranscriptCutMaterializer::syncCutItemsFromWords(session);
    }
    flow->scope = TimelinePlanBridge::activeSegmentIDs(session);
    flow->baseDuration = flow->scope
                             ? std::max(programDurationSeconds(session), 0.1)
                             : (session.sourceDurationSeconds() > 0.0 ? session.sourceDurationSeconds()
                                                                      : programDurationSeconds(session));

    DecisionInput input{
        .segments = *session.segments,
        .transcript = session.transcript,
        .mediaPath = session.mediaURL,
        .instruction = trimmed,
        .commandID = command ? std::optional(command->id) : std::nullopt,
        .scope = flow->scope,
        .options = {
            .chunkSize = 12,
            .mode = intelligence::ClassificationMode::twoPass,
            .verbose = false,
            .allowRemoteModel = context.preferences
                                    ? context.preferences->boolean("morvane.allowRemoteModel").value_or(false)
                                    : false}};
    auto request = std::make_shared<PipelineRequest>();
    flow->request = request;
    runningRequests()[&session] = request;
    MainLoop& loop = context.mainLoop;
    intelligence::LanguageModelService* model = context.languageModel;
    const std::stop_token stop = PipelineRequestAccess::token(*request);
    PipelineRequestAccess::worker(*request) =
        std::jthread([flow, input = std::move(input), model, stop, &loop] {
            const auto onPartial = [flow, &loop](const ClassificationRun& run) {
                loop.post([flow, run] { flow->showPartial(run); });
            };
            std::function<void()> last;
            try {
                ClassificationRun run = decide(input, model, onPartial, stop);
                if (stop.stop_requested()) throw OperationCancelled();
                last = [flow, run = std::move(run)] { flow->finish(run); };
            } catch (const OperationCancelled&) {
                last = [flow] { flow->cancelled(); };
            } catch (const std::exception& e) {
                last = [flow, description = std::string(e.what())] {
                    flow->fail(description, "Classification failed.");
                };
            }
            loop.post([flow, last = std::move(last)] {
                last();
                PipelineRequestAccess::finish(*flow->request);
                // The worker has posted its last task, so letting go of the request only waits for it to
                // return. The flow lets go too: it must not be what keeps the request (and its thread) alive.
                auto& running = runningRequests();
                if (const auto entry = running.find(&flow->session);
                    entry != running.end() && entry->second == flow->request) {
                    running.erase(entry);
                }
                flow->request.reset();
            });
        });
    return request;
}

}  // namespace

std::string ProjectPipeline::formatTimecode(double seconds) {
    const auto total =
        static_cast<long long>(std::llround(std::max(std::isfinite(seconds) ? seconds : 0.0, 0.0)));
    if (total < 3600) return fmt::format("{}:{:02}", total / 60, total % 60);
    return fmt::format("{}:{:02}:{:02}", total / 3600, (total / 60) % 60, total % 60);
}

std::shared_ptr<PipelineRequest> ProjectPipeline::applyCommand(ProjectSession& session, ID id,
                                                               PipelineContext context,
                                                               ApplyCommandOptions options) {
    const AssistantCommand* command = AssistantCommandCatalog::command(id);
    if (!command) {
        session.setError("Unknown assistant command.");
        return finishedRequest();
    }
    if (command->backend == AssistantCommandBackend::comingSoon || command->isHidden) {
        session.setError("“" + std::string(command->title) + "” is coming soon.");
        return finishedRequest();
    }
    if (id == ID::shortCut60s) {
        const double target = options.targetSeconds.value_or(60.0);
        session.instruction = intelligence::DurationTargetPacker::instruction(target);
        appendMessage(session, ChatMessage::Role::user,
                      "Short cut · target " + intelligence::DurationTargetPacker::displayLabel(target));
    } else {
        session.instruction = command->instruction;
        appendMessage(session, ChatMessage::Role::user, std::string(command->title));
    }
    session.notifyChange();
    return applyInstruction(session, context, id);
}

std::shared_ptr<PipelineRequest> ProjectPipeline::applyInstruction(ProjectSession& session,
                                                                   PipelineContext context,
                                                                   std::optional<ID> commandID) {
    const std::string trimmed(trimWhitespaceAndNewlines(session.instruction));
    const AssistantCommand* command = commandID ? AssistantCommandCatalog::command(*commandID)
                                                : AssistantCommandCatalog::resolve(session.instruction);
    if (runningRequests().contains(&session)) {
        session.setError("Morvane is still working on your last request.");
        return finishedRequest();
    }
    if (command && (isPolishWithoutTranscript(command->id) || isPolishFromAnyTranscript(command->id))) {
        if (session.isReviewingProposal()) {
            session.setError(kReviewOpen);
        } else {
            applyTimelinePolish(command->id, session, context);
        }
        return finishedRequest();
    }
    if (!session.segments) {
        session.setError("Segment the transcript first.");
        return finishedRequest();
    }
    if (session.isReviewingProposal()) {
        session.setError(kReviewOpen);
        return finishedRequest();
    }
    if (trimmed.empty()) {
        session.setError("Enter an instruction.");
        return finishedRequest();
    }
    session.errorMessage.reset();
    if (!commandID) command = AssistantCommandCatalog::resolve(session.instruction);
    if (!command) {
        if (!canApplyInstruction(trimmed, &*session.segments, context)) {
            capabilityFailure(session, context, modelAvailability(context));
            return finishedRequest();
        }
    } else {
        if (!canApplyCommand(command, true, true, context)) {
            if (command->requiresLanguageModel) {
                capabilityFailure(session, context, modelAvailability(context));
            } else {
                session.setError("This command isn’t available yet.");
            }
            return finishedRequest();
        }
        if (command->id == ID::generateCaptions || command->id == ID::chapterTitles) {
            applyTimelinePolish(command->id, session, context);
            return finishedRequest();
        }
    }
    return startCutFlow(session, context, command, trimmed);
}

void ProjectPipeline::applyTimelinePolish(ID id, ProjectSession& session, PipelineContext context) {
    // Each of these is the work of its own tool; the ones not built yet answer as unavailable commands do.
    const AssistantCommand* command = AssistantCommandCatalog::command(id);
    switch (id) {
        case ID::autoReframe:
            // It reports for itself when the analysis is over; the request lives until then.
            runAutoReframe(session, context, false);
            return;
        case ID::generateCaptions:
        case ID::chapterTitles:
        case ID::personBackground:
        case ID::reduceNoise:
        case ID::voiceEnhancer:
        case ID::voiceChanger:
        case ID::voiceover:
        case ID::greenScreen:
        case ID::screenCapture:
            session.setError(
                intelligence::IntelligenceError::unsupportedInstruction(std::string(command->title)).what());
            return;
        default:
            return;
    }
}

namespace {

std::string acceptedCutSummary(const intelligence::EditProposal& proposal, const ProjectSession& session) {
    const auto& source =
        session.timeline ? session.timeline->clips(TimelineTrackIDs::source) : std::vector<TimelineClip>{};
    const bool stitched = std::any_of(source.begin(), source.end(), [](const TimelineClip& c) {
        return c.assemblyRanges && !c.assemblyRanges->empty();
    });
    const auto total = session.segments ? session.segments->segments.size() : proposal.decisions.size();
    std::string text =
        fmt::format("Cut accepted — {}/{} segments ({} → {}).", proposal.keepSegmentIDs.size(), total,
                    ProjectPipeline::formatTimecode(proposal.estimatedSourceDurationSeconds),
                    ProjectPipeline::formatTimecode(programDurationSeconds(session)));
    if (stitched) text += " Storyline shows one stitched assembly.";
    return text + " Tap Restore checkpoint to return to the Rough Cut draft.";
}

}  // namespace

void ProjectPipeline::acceptRoughCut(ProjectSession& session) {
    if (!session.isReviewingProposal() || !session.pendingProposal) {
        session.setError("No rough cut proposal to accept.");
        return;
    }
    const auto messageID = session.proposalMessageID;
    const intelligence::EditProposal proposal = *session.pendingProposal;
    const EditableStateSnapshot draft = EditableStateSnapshot::capture(session);
    EditCoordinator::requireUnlocked(session);
    const EditableStateSnapshot before = EditableStateSnapshot::capture(session);
    TranscriptCutMaterializer::rebuildProgram(session);
    EditCoordinator::finalizeStructuralChange(session);
    TimelinePlanBridge::promoteProgramToStoryline(session);
    session.cutItems.clear();
    session.removedWordIDs.clear();
    session.classification.reset();
    EditCoordinator::finalizeStructuralChange(session);
    session.pendingProposal.reset();
    EditCoordinator::recordChange(session, "Accept Cut", before);

    if (messageID) {
        session.cutCheckpoints[*messageID] = draft;
        const auto clips = draft.timeline ? draft.timeline->clips(TimelineTrackIDs::program).size() : 0;
        NamedCheckpoint checkpoint{makeUUID(), "Before Accept: " + firstCharacters(proposal.instruction, 40),
                                   std::chrono::system_clock::now(), messageID,
                                   fmt::format("{} rough-cut clips", clips)};
        const auto existing =
            std::find_if(session.namedCheckpoints.begin(), session.namedCheckpoints.end(),
                         [&](const NamedCheckpoint& c) { return c.messageID == messageID; });
        if (existing != session.namedCheckpoints.end()) {
            checkpoint.id = existing->id;
            *existing = checkpoint;
        } else {
            session.namedCheckpoints.push_back(checkpoint);
        }
        replaceMessage(session, *messageID, acceptedCutSummary(proposal, session), true, false);
    }
    session.commitSourceTranscript();
    if (!session.isDirty) {
        session.isDirty = true;
        session.notifyChange();
    }
    session.setSuccess("Cut accepted — Storyline updated. Restore checkpoint to return to the Rough Cut.");
}

void ProjectPipeline::rejectRoughCut(ProjectSession& session) {
    if (!session.isReviewingProposal() || !session.proposalBaseline) {
        session.setError("No rough cut proposal to reject.");
        return;
    }
    EditCoordinator::requireUnlocked(session);
    const EditableStateSnapshot before = EditableStateSnapshot::capture(session);
    const EditableStateSnapshot baseline = *session.proposalBaseline;
    EditableStateSnapshot::apply(baseline, session);
    session.pendingProposal.reset();
    EditCoordinator::recordChange(session, "Reject Cut", before);
    if (session.proposalMessageID) {
        replaceMessage(
            session, *session.proposalMessageID,
            "Rough cut rejected — restored your previous timeline. Describe another cut when ready.", false,
            false);
    }
    session.setSuccess("Rough cut discarded. Storyline restored.");
}

void ProjectPipeline::acceptTranscriptCut(ProjectSession& session) {
    if (!session.isTranscriptDrafting()) {
        session.setError(
            "Nothing to accept — remove transcript words first, or use Accept on an AI rough cut.");
        return;
    }
    const bool keepsSomething =
        session.transcript ? std::any_of(session.transcript->words.begin(), session.transcript->words.end(),
                                         [&](const intelligence::TranscriptWord& w) {
                                             return !session.removedWordIDs.contains(w.id);
                                         })
                           : std::any_of(session.cutItems.begin(), session.cutItems.end(),
                                         [](const CutItem& i) { return i.accepted; });
    if (!keepsSomething) {
        session.setError("Keep at least one word before accepting.");
        return;
    }
    const EditableStateSnapshot draft = EditableStateSnapshot::capture(session);
    const auto clipCount = session.timeline ? session.timeline->clips(TimelineTrackIDs::program).size() : 0;
    const std::string id = appendMessage(
        session, ChatMessage::Role::system,
        fmt::format("Checkpoint before Accept — restore to return to this Rough Cut ({} clips).", clipCount));
    session.cutCheckpoints[id] = draft;
    session.namedCheckpoints.push_back(
        {makeUUID(), "Before Accept (transcript cut)", std::chrono::system_clock::now(), id,
         clipCount > 0 ? fmt::format("{} rough-cut clips", clipCount) : "Transcript draft"});
    replaceMessage(
        session, id,
        fmt::format(
            "Checkpoint before Accept — tap Restore checkpoint to return to this Rough Cut ({} clips).",
            clipCount),
        true, false);
    EditCoordinator::requireUnlocked(session);
    const EditableStateSnapshot before = EditableStateSnapshot::capture(session);
    TranscriptCutMaterializer::rebuildProgram(session);
    TimelinePlanBridge::promoteProgramToStoryline(session);
    session.cutItems.clear();
    session.removedWordIDs.clear();
    EditCoordinator::recordChange(session, "Accept Transcript Cut", before);
    appendMessage(
        session, ChatMessage::Role::assistant,
        "Transcript cut accepted — Storyline is one stitched assembly. Restore the checkpoint above to get "
        "the Rough Cut clips back.");
    session.setSuccess("Transcript cut applied — Storyline stitched. Restore checkpoint to undo.");
}

void ProjectPipeline::resetTranscriptCut(ProjectSession& session) {
    if (!session.isTranscriptDrafting()) return;
    EditCoordinator::requireUnlocked(session);
    const EditableStateSnapshot before = EditableStateSnapshot::capture(session);
    session.removedWordIDs.clear();
    session.seedCutItemsFromSegments("transcript");
    if (TimelineTrack* program =
            session.timeline ? session.timeline->track(TimelineTrackIDs::program) : nullptr) {
        program->clips.clear();
    } else if (session.timeline) {
        session.timeline->updateTrack({std::string(TimelineTrackIDs::program),
                                       TimelineTrackKind::program,
                                       "Rough Cut",
                                       TimelineTrackRole::dialogue,
                                       {}});
    }
    EditCoordinator::finalizeStructuralChange(session);
    EditCoordinator::recordChange(session, "Reset Transcript Cut", before);
    session.setSuccess("Transcript cut reset — all words kept.");
}

namespace {

void seedCutForToggles(ProjectSession& session) {
    if (!session.cutItems.empty()) return;
    TranscriptCutMaterializer::seedRemovedWordsFromCurrentCutIfNeeded(session);
    session.seedCutItemsFromSegments("transcript");
    TranscriptCutMaterializer::syncCutItemsFromWords(session);
}

}  // namespace

void ProjectPipeline::toggleCut(ProjectSession& session, int segmentID, bool accepted) {
    seedCutForToggles(session);
    if (std::none_of(session.cutItems.begin(), session.cutItems.end(),
                     [&](const CutItem& i) { return i.segmentID == segmentID; })) {
        return;
    }
    try {
        EditCoordinator::perform(session, accepted ? "Keep Segment" : "Remove Segment", [&] {
            TranscriptCutMaterializer::setSegmentAccepted(session, accepted, segmentID);
            EditCoordinator::finalizeStructuralChange(session);
        });
    } catch (const std::exception& e) {
        session.setError(e.what());
        return;
    }
    const auto acceptedCount = std::count_if(session.cutItems.begin(), session.cutItems.end(),
                                             [](const CutItem& i) { return i.accepted; });
    session.setSuccess(fmt::format("Segment {:02} {}. {}/{} in cut.", segmentID,
                                   accepted ? "kept" : "removed", acceptedCount, session.cutItems.size()));
}

void ProjectPipeline::toggleWords(ProjectSession& session, const std::set<int>& wordIDs, bool removed) {
    if (wordIDs.empty()) return;
    seedCutForToggles(session);
    try {
        EditCoordinator::perform(session, removed ? "Remove Words" : "Restore Words", [&] {
            TranscriptCutMaterializer::setWordsRemoved(session, wordIDs, removed);
            EditCoordinator::finalizeStructuralChange(session);
        });
    } catch (const std::exception& e) {
        session.setError(e.what());
        return;
    }
    if (removed) {
        const long long total =
            session.transcript ? static_cast<long long>(session.transcript->words.size()) : 0;
        const long long remain = std::max(0LL, total - static_cast<long long>(session.removedWordIDs.size()));
        session.setSuccess(
            fmt::format("Removed {} word(s). {} words remain in the cut.", wordIDs.size(), remain));
    } else {
        session.setSuccess(fmt::format("Restored {} word(s).", wordIDs.size()));
    }
}

}  // namespace morvane::app
