// morvane cut FILE --transcript T.json (--command ID [--target-seconds S] | --instruction "...")
// [--accept | --reject] [--plan-out PLAN.json] [--model-url URL] [--json]: the assistant's whole request
// over a session held in memory: checkpoint, decision, proposal, rough cut, then accept or reject, and the
// resulting edit plan.

#include <fmt/core.h>

#include <filesystem>
#include <iostream>
#include <nlohmann/json.hpp>

#include "cli.hpp"
#include "morvane/app/pipeline/project_pipeline.hpp"
#include "morvane/app/timeline/timeline_plan_bridge.hpp"
#include "morvane/engine/plan/edit_plan_coding.hpp"
#include "morvane/engine/support/files.hpp"
#include "morvane/engine/support/preferences_store.hpp"
#include "progress.hpp"
#include "transcript_input.hpp"

namespace morvane::cli {

using namespace morvane::app;
using intelligence::AssistantCommandID;

namespace {

// The command line has nobody to show a dialog to: alerts go to stderr.
struct TerminalDelegate final : UserInterfaceDelegate {
    void showAlert(const std::string& title, const std::string& text) override {
        std::cerr << title << "\n" << text << "\n";
    }
};

void loadRecording(ProjectSession& session, const std::filesystem::path& media,
                   const std::string& transcriptPath) {
    auto segmented = withProgress("segment", [&](const auto& progress, std::stop_token stop) {
        return segmentTranscriptFile(transcriptPath, media.string(), progress, std::move(stop));
    });
    session.resetForNewProject(media.stem().string());
    session.mediaURL = media;
    session.mediaDurationSeconds = segmented.transcript.durationSeconds;
    session.mediaBin.push_back({.id = "src1",
                                .label = media.filename().string(),
                                .urlPath = media.string(),
                                .kind = MediaBinKind::primary,
                                .durationSeconds = segmented.transcript.durationSeconds,
                                .hasVideo = true,
                                .hasAudio = true});
    session.transcript = std::move(segmented.transcript);
    session.segments = std::move(segmented.segments);
    session.transcriptSourceID = "src1";
    TimelinePlanBridge::bootstrapSourceTimeline(session, "src1");
    session.seedCutItemsFromSegments("transcript");
    session.editPlan = TimelinePlanBridge::rebuildEditPlan(session);
}

}  // namespace

void addCutVerb(CLI::App& app, RunState& state) {
    struct Options {
        std::string media;
        std::string transcript;
        std::optional<std::string> command;
        std::optional<std::string> instruction;
        std::optional<double> targetSeconds;
        bool accept = false;
        bool reject = false;
        std::optional<std::string> planOut;
        std::string modelURL;
        bool json = false;
    };
    auto options = std::make_shared<Options>();
    auto* verb = app.add_subcommand("cut", "Propose a rough cut of a recording, then accept or reject it");
    verb->add_option("file", options->media, "The recording")->required()->check(CLI::ExistingFile);
    verb->add_option("--transcript", options->transcript, "Its transcript (JSON)")->required();
    auto* command = verb->add_option("--command", options->command, "A command id, such as cleanUp");
    auto* typed =
        verb->add_option("--instruction", options->instruction, "An instruction as a user would type it");
    command->excludes(typed);
    verb->add_option("--target-seconds", options->targetSeconds,
                     "With --command shortCut60s: the length to pack to (60 when absent)")
        ->check(CLI::PositiveNumber)
        ->needs(command);
    auto* accept = verb->add_flag("--accept", options->accept, "Accept the rough cut");
    verb->add_flag("--reject", options->reject, "Reject the rough cut")->excludes(accept);
    verb->add_option("--plan-out", options->planOut, "Write the resulting edit plan here");
    verb->add_option("--model-url", options->modelURL, "Language model server API root");
    verb->add_flag("--json", options->json, "Print the chat, the status and the keep list as JSON");
    verb->callback([options, &state] {
        if (!options->command && !options->instruction)
            throw CLI::RequiredError("--command or --instruction");
        std::optional<AssistantCommandID> commandID;
        if (options->command) {
            commandID = intelligence::kAssistantCommandIDNames.parse(*options->command);
            if (!commandID)
                throw CLI::ValidationError("--command", "unknown command id " + *options->command);
        }
        if (options->targetSeconds && commandID != AssistantCommandID::shortCut60s)
            throw CLI::ValidationError("--target-seconds",
                                       "only the short cut (shortCut60s) packs to a length");
        ProjectSession session;
        loadRecording(session, std::filesystem::absolute(options->media), options->transcript);

        const PreferencesStore preferences;
        auto connection = intelligence::LanguageModelConnection::fromPreferences(preferences);
        if (!options->modelURL.empty()) connection.baseURL = options->modelURL;
        intelligence::HttpLanguageModelService model(connection);
        TerminalDelegate delegate;
        RunLoop loop;
        const PipelineContext context{
            .mainLoop = loop, .languageModel = &model, .delegate = &delegate, .preferences = &preferences};
        std::shared_ptr<PipelineRequest> request;
        {
            const InterruptStop interrupt;
            loop.post([&] {
                if (commandID) {
                    request = ProjectPipeline::applyCommand(session, *commandID, context,
                                                            {.targetSeconds = options->targetSeconds});
                } else {
                    session.instruction = *options->instruction;
                    request = ProjectPipeline::applyInstruction(session, context);
                }
            });
            loop.startTimer(20, true, [&] {
                if (request && interrupt.token().stop_requested()) request->cancel();
                if (request && request->isFinished()) loop.quit();
            });
            loop.run();
        }
        if (session.isReviewingProposal()) {
            if (options->accept) ProjectPipeline::acceptRoughCut(session);
            if (options->reject) ProjectPipeline::rejectRoughCut(session);
        }
        if (options->planOut && session.editPlan) {
            writeFileAtomically(*options->planOut, engine::EditPlanCoding::encode(*session.editPlan));
        }

        if (options->json) {
            Json json = Json::object();
            Json chat = Json::array();
            for (const auto& m : session.chatMessages)
                chat.push_back(m);
            json["chat"] = std::move(chat);
            json["status"] = session.statusMessage;
            json["error"] = session.errorMessage ? Json(*session.errorMessage) : Json(nullptr);
            json["reviewing"] = session.isReviewingProposal();
            json["keepSegmentIDs"] =
                session.classification ? Json(session.classification->mergedKeepSegmentIDs) : Json(nullptr);
            printJson(json);
        } else {
            for (const auto& m : session.chatMessages) {
                fmt::print("[{}] {}\n", kChatRoleNames.text(m.role), m.text);
            }
            fmt::print("Status: {}\n", session.statusMessage);
        }
        if (session.errorMessage) {
            std::cerr << "morvane: " << *session.errorMessage << "\n";
            state.exitCode = 1;
        }
    });
}

}  // namespace morvane::cli
