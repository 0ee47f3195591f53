// morvane commands [--json]: the assistant's commands, in catalog order.

#include <fmt/core.h>

#include <nlohmann/json.hpp>

#include "cli.hpp"
#include "morvane/intelligence/instruction/assistant_command.hpp"

namespace morvane::cli {
namespace {

using namespace morvane::intelligence;

Json commandJson(const AssistantCommand& c) {
    Json json = Json::object();
    json["id"] = kAssistantCommandIDNames.text(c.id);
    json["title"] = c.title;
    json["subtitle"] = c.subtitle;
    json["category"] = kAssistantCommandCategoryNames.text(c.category);
    json["backend"] = kAssistantCommandBackendNames.text(c.backend);
    json["instruction"] = c.instruction;
    json["requiresTranscript"] = c.requiresTranscript();
    json["requiresLanguageModel"] = c.requiresLanguageModel;
    json["isPrimary"] = c.isPrimary;
    json["wave"] = c.wave;
    json["isHidden"] = c.isHidden;
    return json;
}

void printTable() {
    fmt::print("{:<18} {:<19} {:<11} {:<14} {}\n", "ID", "TITLE", "CATEGORY", "BACKEND", "NEEDS");
    for (const auto& c : AssistantCommandCatalog::all()) {
        std::string needs;
        if (c.requiresTranscript()) needs = "transcript";
        if (c.requiresLanguageModel) needs += needs.empty() ? "language model" : ", language model";
        if (c.isHidden) needs += needs.empty() ? "(hidden)" : " (hidden)";
        fmt::print("{:<18} {:<19} {:<11} {:<14} {}\n", kAssistantCommandIDNames.text(c.id), c.title,
                   kAssistantCommandCategoryNames.text(c.category),
                   kAssistantCommandBackendNames.text(c.backend), needs);
        fmt::print("{:<18} {}\n", "", c.subtitle);
    }
}

}  // namespace

void addCommandsVerb(CLI::App& app, RunState& /*state*/) {
    auto* verb = app.add_subcommand("commands", "List the assistant's commands in catalog order");
    auto json = std::make_shared<bool>(false);
    verb->add_flag("--json", *json, "Print the catalog as JSON");
    verb->callback([json] {
        if (*json) {
            Json list = Json::array();
            for (const auto& c : AssistantCommandCatalog::all())
                list.push_back(commandJson(c));
            printJson(list);
        } else {
            printTable();
        }
    });
}

}  // namespace morvane::cli
