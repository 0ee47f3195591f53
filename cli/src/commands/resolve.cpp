// morvane resolve "<instruction>" [--no-transcript | --transcript FILE] [--json]:
// which command typed text asks for, and which decider would answer it.

#include <fmt/core.h>

#include <nlohmann/json.hpp>
#include <optional>

#include "cli.hpp"
#include "morvane/engine/support/files.hpp"
#include "morvane/intelligence/intelligence_error.hpp"
#include "morvane/intelligence/models/transcript.hpp"
#include "morvane/intelligence/routing/model_router.hpp"
#include "resolution.hpp"

namespace morvane::cli {

using namespace morvane::intelligence;

Resolution resolveInstruction(std::string_view instruction, const TranscriptDocument* transcript) {
    Resolution resolution;
    resolution.command = AssistantCommandCatalog::resolve(instruction);
    try {
        // Routing decides from the text alone; the segments matter only to the deciders themselves.
        const Route route = ModelRouter::route(SegmentDocument{}, instruction, {.transcript = transcript});
        resolution.arm = route.arm;
    } catch (const IntelligenceError& e) {
        resolution.refusal = e.description();
    }
    return resolution;
}

Json resolutionJson(std::string_view instruction, const Resolution& r, bool hasTranscript) {
    Json json = Json::object();
    json["instruction"] = instruction;
    json["transcript"] = hasTranscript;
    json["command"] = r.command ? Json(kAssistantCommandIDNames.text(r.command->id)) : Json(nullptr);
    json["title"] = r.command ? Json(r.command->title) : Json(nullptr);
    json["arm"] = r.arm ? Json(kRouteArmNames.text(*r.arm)) : Json(nullptr);
    json["answeredBy"] = r.arm ? Json(describe(*r.arm)) : Json(nullptr);
    json["refusal"] = r.refusal ? Json(*r.refusal) : Json(nullptr);
    return json;
}

std::string resolutionLine(const Resolution& r) {
    std::string command =
        r.command ? fmt::format("{} ({})", kAssistantCommandIDNames.text(r.command->id), r.command->title)
                  : std::string("no command");
    if (r.refusal) return fmt::format("{}; refused: {}", command, *r.refusal);
    return fmt::format("{}; answered by {}", command, describe(*r.arm));
}

void addResolveVerb(CLI::App& app, RunState& /*state*/) {
    struct Options {
        std::string instruction;
        bool noTranscript = false;
        std::string transcriptPath;
        bool json = false;
    };
    auto options = std::make_shared<Options>();
    auto* verb =
        app.add_subcommand("resolve", "Show which command and which decider answer a typed instruction");
    verb->add_option("instruction", options->instruction, "The instruction, as a user would type it")
        ->required();
    auto* none = verb->add_flag("--no-transcript", options->noTranscript,
                                "Route as for a clip that has no transcript yet");
    verb->add_option("--transcript", options->transcriptPath, "Route with this transcript (JSON)")
        ->excludes(none);
    verb->add_flag("--json", options->json, "Print the result as JSON");
    verb->callback([options] {
        std::optional<TranscriptDocument> loaded;
        if (!options->transcriptPath.empty()) {
            const Json json = parseJson(readWholeFile(options->transcriptPath), options->transcriptPath);
            loaded = JsonReader(json, options->transcriptPath).get<TranscriptDocument>();
        }
        // Without a file the clip is taken to be transcribed, unless told otherwise.
        const TranscriptDocument assumed;
        const TranscriptDocument* transcript =
            loaded ? &*loaded : (options->noTranscript ? nullptr : &assumed);
        const Resolution resolution = resolveInstruction(options->instruction, transcript);
        if (options->json) {
            printJson(resolutionJson(options->instruction, resolution, transcript != nullptr));
            return;
        }
        if (resolution.command) {
            fmt::print("Command:     {} ({})\n", kAssistantCommandIDNames.text(resolution.command->id),
                       resolution.command->title);
        } else {
            fmt::print("Command:     none\n");
        }
        if (resolution.refusal) {
            fmt::print("Refused:     {}\n", *resolution.refusal);
        } else {
            fmt::print("Answered by: {} [{}]\n", describe(*resolution.arm),
                       kRouteArmNames.text(*resolution.arm));
        }
    });
}

}  // namespace morvane::cli
