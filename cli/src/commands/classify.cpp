// morvane classify TRANSCRIPT.json [--media FILE] (--command ID | --instruction "...") [--model-url URL]
// [--json]: which segments a command or a typed instruction keeps, and why.

#include <fmt/core.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <unordered_map>

#include "cli.hpp"
#include "morvane/engine/support/preferences_store.hpp"
#include "morvane/intelligence/intelligence_error.hpp"
#include "morvane/intelligence/model/language_model.hpp"
#include "morvane/intelligence/model/language_model_instruction_parser.hpp"
#include "morvane/intelligence/routing/model_router.hpp"
#include "progress.hpp"
#include "transcript_input.hpp"

namespace morvane::cli {

using namespace morvane::intelligence;

namespace {

// The language model behind the model arms, asked only when a request reaches one.
struct ModelConnection {
    explicit ModelConnection(LanguageModelConnection connection)
        : service(std::move(connection)), parser(service) {}
    HttpLanguageModelService service;
    LanguageModelInstructionParser parser;
    std::optional<LanguageModelRoute> route;
};

struct Summary {
    int kept = 0;
    int dropped = 0;
    double keptSeconds = 0.0;
    double savedSeconds = 0.0;
};

}  // namespace

void addClassifyVerb(CLI::App& app, RunState& /*state*/) {
    struct Options {
        std::string transcript;
        std::optional<std::string> media;
        std::optional<std::string> command;
        std::optional<std::string> instruction;
        std::string modelURL;
        bool json = false;
    };
    auto options = std::make_shared<Options>();
    auto* verb = app.add_subcommand("classify", "Show which segments a command or an instruction keeps");
    verb->add_option("transcript", options->transcript, "A transcript (JSON)")->required();
    verb->add_option("--media", options->media,
                     "Its recording: edges snap to its pauses, and the rules measure it");
    auto* command =
        verb->add_option("--command", options->command, "A command id, such as cleanUp (see `commands`)");
    auto* typed =
        verb->add_option("--instruction", options->instruction, "An instruction as a user would type it");
    command->excludes(typed);
    verb->add_option("--model-url", options->modelURL,
                     "Language model server API root (default: the preference, or http://127.0.0.1:8080/v1)");
    verb->add_flag("--json", options->json, "Print the segments, the run and the summary as JSON");
    verb->callback([options] {
        if (!options->command && !options->instruction) {
            throw CLI::RequiredError("--command or --instruction");
        }
        std::optional<AssistantCommandID> commandID;
        std::string instruction = options->instruction.value_or("");
        if (options->command) {
            commandID = kAssistantCommandIDNames.parse(*options->command);
            if (!commandID)
                throw CLI::ValidationError("--command", "unknown command id " + *options->command);
            instruction = AssistantCommandCatalog::command(*commandID)->instruction;
        }

        const auto [input, run,
                    arm] = withProgress("classify", [&](const auto& progress, std::stop_token stop) {
            auto segmented = segmentTranscriptFile(
                options->transcript, options->media,
                [&](double share) { progress(options->media ? share / 2 : share); }, stop);
            const Route route =
                ModelRouter::route(segmented.segments, instruction,
                                   {.transcript = &segmented.transcript, .commandID = commandID});
            std::unique_ptr<ModelConnection> model;
            if (!isRule(route.arm)) {
                auto connection = LanguageModelConnection::fromPreferences(PreferencesStore{});
                if (!options->modelURL.empty()) connection.baseURL = options->modelURL;
                model = std::make_unique<ModelConnection>(connection);
                if (!model->service.isAvailable(stop)) {
                    throwIfStopRequested(stop);
                    throw IntelligenceError::languageModelUnavailable();
                }
                model->route.emplace(LanguageModelRoute{model->parser, model->service.contextTokens(stop)});
            }
            ClassificationRun decided = ModelRouter::classify(
                segmented.segments, instruction,
                {.transcript = &segmented.transcript,
                 .mediaPath =
                     options->media ? std::optional<std::filesystem::path>(*options->media) : std::nullopt,
                 .commandID = commandID,
                 .model = model ? &*model->route : nullptr,
                 .silences = segmented.silences,
                 .onProgress = [&](double share) { progress(0.5 + share / 2); }},
                stop);
            return std::tuple(std::move(segmented), std::move(decided), route.arm);
        });

        // The keep list decides; the verdicts say how sure and why.
        std::unordered_map<int, const SegmentClassification*> verdicts;
        for (const auto& document : run.results) {
            for (const auto& verdict : document.segmentResults)
                verdicts.try_emplace(verdict.segmentID, &verdict);
        }
        const std::set<int> kept(run.mergedKeepSegmentIDs.begin(), run.mergedKeepSegmentIDs.end());
        Summary summary;
        Json rows = Json::array();
        for (const auto& segment : input.segments.segments) {
            const bool keep = kept.contains(segment.id);
            const double seconds = segment.end.seconds() - segment.start.seconds();
            (keep ? summary.kept : summary.dropped) += 1;
            (keep ? summary.keptSeconds : summary.savedSeconds) += seconds;
            const auto found = verdicts.find(segment.id);
            const SegmentClassification* verdict = found != verdicts.end() ? found->second : nullptr;
            const std::string reason = verdict && verdict->reason ? *verdict->reason : "";
            if (options->json) {
                Json row = Json::object();
                row["id"] = segment.id;
                row["keep"] = keep;
                row["confidence"] = verdict ? Json(verdict->confidence) : Json(nullptr);
                row["reason"] = verdict && verdict->reason ? Json(reason) : Json(nullptr);
                row["startSeconds"] = segment.start.seconds();
                row["endSeconds"] = segment.end.seconds();
                row["text"] = segment.text;
                rows.push_back(std::move(row));
                continue;
            }
            fmt::print("{:4}  {}  {:4}  {:8.2f} - {:8.2f}  {}{}\n", segment.id, keep ? "keep" : "drop",
                       verdict ? fmt::format("{:.2f}", verdict->confidence) : std::string("-"),
                       segment.start.seconds(), segment.end.seconds(), segment.text,
                       reason.empty() ? "" : "  [" + reason + "]");
        }
        if (options->json) {
            Json json = Json::object();
            json["instruction"] = instruction;
            json["arm"] = kRouteArmNames.text(arm);
            json["segments"] = std::move(rows);
            json["run"] = run;
            json["summary"] = {{"kept", summary.kept},
                               {"dropped", summary.dropped},
                               {"keptSeconds", summary.keptSeconds},
                               {"savedSeconds", summary.savedSeconds}};
            printJson(json);
            return;
        }
        fmt::print("\nAnswered by {}.\n", describe(arm));
        fmt::print("Kept {} of {} segments ({:.2f} s); dropped {}, saving {:.2f} s.\n", summary.kept,
                   summary.kept + summary.dropped, summary.keptSeconds, summary.dropped,
                   summary.savedSeconds);
    });
}

}  // namespace morvane::cli
