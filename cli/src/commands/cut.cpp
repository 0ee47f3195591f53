// morvane cut (FILE --transcript T.json | NAME.morvane) (--command ID [--target-seconds S] |
// --instruction "...") [--accept | --reject] [--plan-out PLAN.json] [--model-url URL] [--json]: the
// assistant's whole request, on a recording and its transcript held in memory or on a project (saved back
// into its bundle): checkpoint, decision, proposal, rough cut, then accept or reject, and the resulting
// edit plan.

#include <fmt/core.h>

#include <filesystem>
#include <iostream>
#include <nlohmann/json.hpp>

#include "cli.hpp"
#include "morvane/app/pipeline/project_pipeline.hpp"
#include "morvane/engine/plan/edit_plan_coding.hpp"
#include "morvane/engine/support/files.hpp"
#include "morvane/engine/support/preferences_store.hpp"
#include "progress.hpp"
#include "session_run.hpp"

namespace morvane::cli {

using namespace morvane::app;
using intelligence::AssistantCommandID;

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
    verb->add_option("file", options->media, "The recording, or a project bundle (NAME.morvane)")
        ->required()
        ->check(CLI::ExistingPath);
    verb->add_option("--transcript", options->transcript,
                     "The recording's transcript (JSON); a project has its own");
    addCommandOptions(*verb, options->command, options->instruction, options->targetSeconds);
    auto* accept = verb->add_flag("--accept", options->accept, "Accept the rough cut");
    verb->add_flag("--reject", options->reject, "Reject the rough cut")->excludes(accept);
    verb->add_option("--plan-out", options->planOut, "Write the resulting edit plan here");
    verb->add_option("--model-url", options->modelURL, "Language model server API root");
    verb->add_flag("--json", options->json, "Print the chat, the status and the keep list as JSON");
    verb->callback([options, &state] {
        const std::optional<AssistantCommandID> commandID =
            requestedCommand(options->command, options->instruction, options->targetSeconds);
        const bool project = isProjectBundle(options->media);
        if (project && !options->transcript.empty())
            throw CLI::ValidationError("--transcript", "a project keeps its own transcript");
        if (!project && options->transcript.empty()) throw CLI::RequiredError("--transcript");
        ProjectSession session;
        if (project) {
            openProject(session, options->media);
        } else {
            loadRecording(session, std::filesystem::absolute(options->media), options->transcript);
        }

        const PreferencesStore preferences;
        auto connection = intelligence::LanguageModelConnection::fromPreferences(preferences);
        if (!options->modelURL.empty()) connection.baseURL = options->modelURL;
        intelligence::HttpLanguageModelService model(connection);
        TerminalDelegate delegate;
        runRequest(session, "cut", [&](MainLoop& loop) {
            const PipelineContext context{.mainLoop = loop,
                                          .languageModel = &model,
                                          .delegate = &delegate,
                                          .preferences = &preferences};
            if (commandID) {
                return ProjectPipeline::applyCommand(session, *commandID, context,
                                                     {.targetSeconds = options->targetSeconds});
            }
            session.instruction = *options->instruction;
            return ProjectPipeline::applyInstruction(session, context);
        });
        if (session.isReviewingProposal()) {
            if (options->accept) ProjectPipeline::acceptRoughCut(session);
            if (options->reject) ProjectPipeline::rejectRoughCut(session);
        }
        // Saved whatever came of it, the chat and checkpoints included. A rough cut left under review
        // reopens as a draft of the transcript cut (the review itself isn't part of a project).
        if (project) saveProject(session);
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
