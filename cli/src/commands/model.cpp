// morvane model status [--url URL] [--model NAME] [--json]: the language model server the assistant
// would use, its model and context window, or why none is reachable.
// morvane model use [--url URL] [--model NAME]: remember the server and model in the preferences.

#include <fmt/core.h>

#include <nlohmann/json.hpp>

#include "cli.hpp"
#include "morvane/engine/support/preferences_store.hpp"
#include "morvane/intelligence/intelligence_error.hpp"
#include "morvane/intelligence/model/language_model.hpp"
#include "morvane/intelligence/routing/model_context_limits.hpp"

namespace morvane::cli {

using namespace morvane::intelligence;

void addModelVerb(CLI::App& app, RunState& state) {
    struct Options {
        std::string url;
        std::string model;
        bool json = false;
    };
    auto options = std::make_shared<Options>();
    auto* verb = app.add_subcommand("model", "The language model that answers typed instructions");
    verb->require_subcommand(1);
    auto use = std::make_shared<Options>();
    auto* set = verb->add_subcommand("use", "Remember which server and model to use (in the preferences)");
    set->add_option("--url", use->url, "Server API root, e.g. http://127.0.0.1:11434/v1 for Ollama");
    set->add_option("--model", use->model, "Model name, e.g. qwen2.5:3b; \"\" for the server's first");
    set->callback([use] {
        PreferencesStore preferences;
        if (!use->url.empty()) preferences.set(LanguageModelConnection::urlPreference, use->url);
        if (use->model.empty()) {
            preferences.remove(LanguageModelConnection::namePreference);
        } else {
            preferences.set(LanguageModelConnection::namePreference, use->model);
        }
        const auto connection = LanguageModelConnection::fromPreferences(preferences);
        fmt::print("Using {} with {} (saved in {})\n", connection.baseURL,
                   connection.model.empty() ? "the server's first model" : connection.model,
                   preferences.path().string());
    });
    auto* status = verb->add_subcommand("status", "Show the model server, its model and context window");
    status->add_option("--url", options->url,
                       "Server API root (default: the preference, or http://127.0.0.1:8080/v1)");
    status->add_option("--model", options->model,
                       "Model name (default: the preference, or the server's first)");
    status->add_flag("--json", options->json, "Print the status as JSON");
    status->callback([options, &state] {
        const PreferencesStore preferences;
        auto connection = LanguageModelConnection::fromPreferences(preferences);
        if (!options->url.empty()) connection.baseURL = options->url;
        if (!options->model.empty()) connection.model = options->model;
        HttpLanguageModelService service(connection);
        const LanguageModelStatus s = service.status({});
        state.exitCode = s.available ? 0 : 1;
        if (options->json) {
            Json json = Json::object();
            json["serverURL"] = s.serverURL;
            json["available"] = s.available;
            json["reason"] = s.available ? Json(nullptr) : Json(s.reason);
            json["models"] = s.models;
            json["model"] = s.available ? Json(s.model) : Json(nullptr);
            json["contextTokens"] = s.available ? Json(s.contextTokens) : Json(nullptr);
            json["contextReported"] = s.contextReported;
            json["segmentsPerPrompt"] =
                s.available ? Json(ModelContextLimits::recommendedChunkSize(s.contextTokens)) : Json(nullptr);
            printJson(json);
            return;
        }
        fmt::print("Server:   {}\n", s.serverURL);
        if (!s.available) {
            fmt::print("Status:   not available. {}\n\n{}\n", s.reason,
                       IntelligenceError::languageModelUnavailable().what());
            return;
        }
        fmt::print("Status:   available\n");
        fmt::print("Model:    {}\n", s.model);
        if (s.models.size() > 1) {
            std::string others;
            for (const auto& m : s.models)
                others += (others.empty() ? "" : ", ") + m;
            fmt::print("Offers:   {}\n", others);
        }
        fmt::print("Context:  {} tokens{}, {} segments per prompt\n", s.contextTokens,
                   s.contextReported ? "" : " (assumed; the server doesn't say)",
                   ModelContextLimits::recommendedChunkSize(s.contextTokens));
    });
}

}  // namespace morvane::cli
