#include <curl/curl.h>

#include <charconv>
#include <mutex>
#include <nlohmann/json.hpp>

#include "morvane/engine/support/cancellation.hpp"
#include "morvane/engine/support/preferences_store.hpp"
#include "morvane/intelligence/intelligence_error.hpp"
#include "morvane/intelligence/model/language_model.hpp"
#include "morvane/intelligence/routing/model_context_limits.hpp"

namespace morvane::intelligence {
namespace {

// Model calls run one at a time, whichever session makes them.
std::mutex& requestMutex() {
    static std::mutex mutex;
    return mutex;
}

void initialiseCurlOnce() {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

struct HttpResponse {
    long status = 0;
    std::string body;
};

struct Transfer {
    std::string body;
    const std::stop_token* stop = nullptr;
};

std::size_t collect(char* data, std::size_t size, std::size_t count, void* context) {
    static_cast<Transfer*>(context)->body.append(data, size * count);
    return size * count;
}

int checkStop(void* context, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    return static_cast<Transfer*>(context)->stop->stop_requested() ? 1 : 0;
}

// One HTTP exchange. Throws `OperationCancelled`, `IntelligenceError::languageModelUnavailable` when
// nothing answers at `url`, or `LanguageModelError` for a timeout or a dropped connection.
HttpResponse exchange(const std::string& url, const std::string* postBody, int connectTimeoutMs,
                      int timeoutMs, const std::stop_token& stop) {
    initialiseCurlOnce();
    throwIfStopRequested(stop);
    std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> curl(curl_easy_init(), &curl_easy_cleanup);
    std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> headers(nullptr, &curl_slist_free_all);
    if (!curl)
        throw LanguageModelError(LanguageModelError::Kind::connectionDropped,
                                 "Could not start an HTTP request.");
    Transfer transfer{.stop = &stop};
    char error[CURL_ERROR_SIZE] = {};
    curl_easy_setopt(curl.get(), CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl.get(), CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl.get(), CURLOPT_ERRORBUFFER, error);
    curl_easy_setopt(curl.get(), CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(connectTimeoutMs));
    curl_easy_setopt(curl.get(), CURLOPT_TIMEOUT_MS, static_cast<long>(timeoutMs));
    curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, &collect);
    curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &transfer);
    curl_easy_setopt(curl.get(), CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(curl.get(), CURLOPT_XFERINFOFUNCTION, &checkStop);
    curl_easy_setopt(curl.get(), CURLOPT_XFERINFODATA, &transfer);
    // A model on this computer: never go through a proxy configured for the outside world.
    curl_easy_setopt(curl.get(), CURLOPT_NOPROXY, "*");
    if (postBody != nullptr) {
        headers.reset(curl_slist_append(nullptr, "Content-Type: application/json"));
        curl_easy_setopt(curl.get(), CURLOPT_HTTPHEADER, headers.get());
        curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDS, postBody->c_str());
        curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(postBody->size()));
    }
    const CURLcode code = curl_easy_perform(curl.get());
    if (code == CURLE_ABORTED_BY_CALLBACK && stop.stop_requested()) throw OperationCancelled();
    if (code != CURLE_OK) {
        const std::string reason = error[0] != '\0' ? error : curl_easy_strerror(code);
        curl_off_t connectTime = 0;
        curl_easy_getinfo(curl.get(), CURLINFO_CONNECT_TIME_T, &connectTime);
        const bool connected = connectTime > 0;
        if (code == CURLE_COULDNT_CONNECT || code == CURLE_COULDNT_RESOLVE_HOST ||
            code == CURLE_UNSUPPORTED_PROTOCOL || code == CURLE_URL_MALFORMAT ||
            (code == CURLE_OPERATION_TIMEDOUT && !connected)) {
            throw IntelligenceError::languageModelUnavailable();
        }
        if (code == CURLE_OPERATION_TIMEDOUT) {
            throw LanguageModelError(
                LanguageModelError::Kind::timeout,
                "The language model did not answer within " + std::to_string(timeoutMs / 1000) + " s.");
        }
        throw LanguageModelError(LanguageModelError::Kind::connectionDropped,
                                 "The language model server closed the connection: " + reason);
    }
    HttpResponse response;
    curl_easy_getinfo(curl.get(), CURLINFO_RESPONSE_CODE, &response.status);
    response.body = std::move(transfer.body);
    return response;
}

std::string apiRoot(const std::string& baseURL) {
    std::string root = baseURL;
    while (root.ends_with('/'))
        root.pop_back();
    if (root.ends_with("/v1")) root.resize(root.size() - 3);
    return root;
}

std::string joined(const std::string& baseURL, std::string_view path) {
    std::string url = baseURL;
    while (url.ends_with('/'))
        url.pop_back();
    return url + std::string(path);
}

std::optional<Json> parsedBody(const HttpResponse& response) {
    if (response.status < 200 || response.status >= 300) return std::nullopt;
    try {
        return parseJson(response.body, "reply");
    } catch (const JsonDecodeError&) {
        return std::nullopt;
    }
}

// The server's own words for an error status, kept short.
std::string serverReason(const HttpResponse& response) {
    if (auto json = [&]() -> std::optional<Json> {
            try {
                return parseJson(response.body, "reply");
            } catch (const JsonDecodeError&) {
                return std::nullopt;
            }
        }()) {
        if (json->is_object() && json->contains("error")) {
            const Json& e = (*json)["error"];
            if (e.is_string()) return e.get<std::string>();
            if (e.is_object() && e.contains("message") && e["message"].is_string())
                return e["message"].get<std::string>();
        }
    }
    std::string text = response.body.substr(0, 200);
    return text.empty() ? "no details" : text;
}

std::vector<std::string> listedModels(const Json& json) {
    std::vector<std::string> models;
    if (json.is_object() && json.contains("data") && json["data"].is_array()) {
        for (const auto& entry : json["data"]) {
            if (entry.is_object() && entry.contains("id") && entry["id"].is_string()) {
                models.push_back(entry["id"].get<std::string>());
            }
        }
    }
    return models;
}

std::optional<int> positiveInteger(const Json& value) {
    if (!value.is_number_integer() && !value.is_number_unsigned()) return std::nullopt;
    const auto n = value.get<std::int64_t>();
    if (n <= 0 || n > 10'000'000) return std::nullopt;
    return static_cast<int>(n);
}

// "num_ctx 8192" in the parameter text of an Ollama model.
std::optional<int> ollamaNumCtx(const Json& show) {
    if (!show.is_object() || !show.contains("parameters") || !show["parameters"].is_string())
        return std::nullopt;
    const std::string parameters = show["parameters"].get<std::string>();
    const auto at = parameters.find("num_ctx");
    if (at == std::string::npos) return std::nullopt;
    std::size_t p = at + 7;
    while (p < parameters.size() && (parameters[p] == ' ' || parameters[p] == '\t'))
        ++p;
    int value = 0;
    const auto [end, error] =
        std::from_chars(parameters.data() + p, parameters.data() + parameters.size(), value);
    if (error != std::errc{} || value <= 0) return std::nullopt;
    return value;
}

}  // namespace

LanguageModelConnection LanguageModelConnection::fromPreferences(const PreferencesStore& preferences) {
    LanguageModelConnection connection;
    if (auto url = preferences.string(urlPreference); url && !url->empty()) connection.baseURL = *url;
    if (auto name = preferences.string(namePreference)) connection.model = *name;
    return connection;
}

class HttpLanguageModelService::Session final : public LanguageModelSession {
  public:
    Session(HttpLanguageModelService& service, std::optional<std::string> instructions)
        : service_(service), instructions_(std::move(instructions)) {}

    std::string respond(std::string_view prompt, const GenerationOptions& options,
                        std::stop_token stop) override {
        const Json message = complete(prompt, options, nullptr, false, stop);
        if (!message.contains("content") || !message["content"].is_string()) {
            throw LanguageModelError(LanguageModelError::Kind::malformedResponse,
                                     "The language model's reply has no text.");
        }
        return message["content"].get<std::string>();
    }

    Json respondGenerating(std::string_view prompt, const GenerationSchema& schema,
                           bool includeSchemaInPrompt, const GenerationOptions& options,
                           std::stop_token stop) override {
        const Json message = complete(prompt, options, &schema, includeSchemaInPrompt, stop);
        if (message.contains("content") && message["content"].is_string()) {
            try {
                Json reply = parseJson(message["content"].get<std::string>(), "reply");
                if (reply.is_object()) return reply;
            } catch (const JsonDecodeError&) {
            }
        }
        // A server that ignores the schema is treated like one that rejects it.
        throw LanguageModelError(
            LanguageModelError::Kind::refusal,
            "The language model's reply did not follow the JSON schema (a refusal of guided "
            "output).");
    }

  private:
    // Sends one chat completion and returns its first choice's message.
    Json complete(std::string_view prompt, const GenerationOptions& options, const GenerationSchema* schema,
                  bool includeSchemaInPrompt, const std::stop_token& stop) {
        const std::lock_guard lock(requestMutex());
        Json body = Json::object();
        body["model"] = service_.resolvedModel(stop);
        Json messages = Json::array();
        std::string system = instructions_.value_or("");
        if (schema != nullptr && includeSchemaInPrompt) {
            if (!system.empty()) system += "\n\n";
            system += "Respond with JSON that follows this JSON schema: " + schema->schema;
        }
        if (!system.empty()) messages.push_back({{"role", "system"}, {"content", system}});
        messages.push_back({{"role", "user"}, {"content", prompt}});
        body["messages"] = std::move(messages);
        body["stream"] = false;
        if (options.temperature) body["temperature"] = *options.temperature;
        if (options.maximumResponseTokens) body["max_tokens"] = *options.maximumResponseTokens;
        if (schema != nullptr) {
            body["response_format"] = {
                {"type", "json_schema"},
                {"json_schema",
                 {{"name", schema->name}, {"strict", true}, {"schema", Json::parse(schema->schema)}}}};
        }
        const std::string text = dumpJson(body, -1);
        const auto& connection = service_.connection_;
        const HttpResponse response =
            exchange(joined(connection.baseURL, "/chat/completions"), &text, connection.connectTimeoutMs,
                     connection.requestTimeoutMs, stop);
        if (response.status < 200 || response.status >= 300) {
            if (schema != nullptr && response.status >= 400 && response.status < 500) {
                throw LanguageModelError(
                    LanguageModelError::Kind::refusal,
                    "The language model server rejected the JSON schema (a refusal of guided "
                    "output): " +
                        serverReason(response));
            }
            throw LanguageModelError(LanguageModelError::Kind::httpStatus,
                                     "The language model server answered HTTP " +
                                         std::to_string(response.status) + ": " + serverReason(response));
        }
        const auto json = parsedBody(response);
        if (!json || !json->is_object() || !json->contains("choices") || !(*json)["choices"].is_array() ||
            (*json)["choices"].empty() || !(*json)["choices"][0].is_object() ||
            !(*json)["choices"][0].contains("message") || !(*json)["choices"][0]["message"].is_object()) {
            throw LanguageModelError(LanguageModelError::Kind::malformedResponse,
                                     "The language model server's reply is not a chat completion.");
        }
        const Json& choice = (*json)["choices"][0];
        const Json& message = choice["message"];
        if (message.contains("refusal") && message["refusal"].is_string() &&
            !message["refusal"].get<std::string>().empty()) {
            throw LanguageModelError(
                LanguageModelError::Kind::refusal,
                "The language model gave a refusal: " + message["refusal"].get<std::string>());
        }
        if (choice.contains("finish_reason") && choice["finish_reason"] == "content_filter") {
            throw LanguageModelError(LanguageModelError::Kind::refusal,
                                     "The language model's guardrail stopped the reply (a refusal).");
        }
        return message;
    }

    HttpLanguageModelService& service_;
    std::optional<std::string> instructions_;
};

HttpLanguageModelService::HttpLanguageModelService(LanguageModelConnection connection)
    : connection_(std::move(connection)) {}

HttpLanguageModelService::~HttpLanguageModelService() = default;

bool HttpLanguageModelService::isAvailable(std::stop_token stop) {
    const std::lock_guard lock(requestMutex());
    try {
        const auto response =
            exchange(joined(connection_.baseURL, "/models"), nullptr, connection_.availabilityTimeoutMs,
                     connection_.availabilityTimeoutMs, stop);
        return parsedBody(response).has_value();
    } catch (const IntelligenceError&) {
        return false;
    } catch (const LanguageModelError&) {
        return false;
    }
}

std::string HttpLanguageModelService::resolvedModel(std::stop_token stop) {
    if (!connection_.model.empty()) return connection_.model;
    if (!model_) {
        // The first model the server lists; servers that serve one model ignore the name anyway.
        const auto response = exchange(joined(connection_.baseURL, "/models"), nullptr,
                                       connection_.connectTimeoutMs, connection_.availabilityTimeoutMs, stop);
        const auto json = parsedBody(response);
        const auto models = json ? listedModels(*json) : std::vector<std::string>{};
        model_ = models.empty() ? std::string("default") : models.front();
    }
    return *model_;
}

int HttpLanguageModelService::contextTokens(std::stop_token stop) {
    const std::lock_guard lock(requestMutex());
    if (contextTokens_) return *contextTokens_;
    const std::string root = apiRoot(connection_.baseURL);
    std::optional<int> tokens;
    // llama-server: /props reports the context it was started with.
    try {
        if (const auto props = parsedBody(exchange(root + "/props", nullptr, connection_.connectTimeoutMs,
                                                   connection_.availabilityTimeoutMs, stop))) {
            if (props->is_object() && props->contains("default_generation_settings") &&
                (*props)["default_generation_settings"].is_object() &&
                (*props)["default_generation_settings"].contains("n_ctx")) {
                tokens = positiveInteger((*props)["default_generation_settings"]["n_ctx"]);
            }
            if (!tokens && props->is_object() && props->contains("n_ctx"))
                tokens = positiveInteger((*props)["n_ctx"]);
        }
        // Ollama: the model's num_ctx parameter, when one is set.
        if (!tokens) {
            const std::string request = dumpJson(Json{{"model", resolvedModel(stop)}}, -1);
            if (const auto show =
                    parsedBody(exchange(root + "/api/show", &request, connection_.connectTimeoutMs,
                                        connection_.availabilityTimeoutMs, stop))) {
                tokens = ollamaNumCtx(*show);
            }
        }
    } catch (const IntelligenceError&) {
    } catch (const LanguageModelError&) {
    }
    if (!tokens)
        return ModelContextLimits::defaultOnDeviceContextTokens;  // not cached: the server may come up later
    contextTokens_ = tokens;
    return *tokens;
}

std::unique_ptr<LanguageModelSession> HttpLanguageModelService::makeSession(
    std::optional<std::string> instructions) {
    return std::make_unique<Session>(*this, std::move(instructions));
}

LanguageModelStatus HttpLanguageModelService::status(std::stop_token stop) {
    LanguageModelStatus status;
    status.serverURL = connection_.baseURL;
    {
        const std::lock_guard lock(requestMutex());
        try {
            const auto response =
                exchange(joined(connection_.baseURL, "/models"), nullptr, connection_.availabilityTimeoutMs,
                         connection_.availabilityTimeoutMs, stop);
            if (const auto json = parsedBody(response)) {
                status.available = true;
                status.models = listedModels(*json);
            } else {
                status.reason = "The server at " + connection_.baseURL + " answered HTTP " +
                                std::to_string(response.status) + " for its model list.";
            }
        } catch (const IntelligenceError&) {
            status.reason = "Nothing answers at " + connection_.baseURL + ".";
        } catch (const LanguageModelError& e) {
            status.reason = e.what();
        }
    }
    if (!status.available) return status;
    status.model = !connection_.model.empty()
                       ? connection_.model
                       : (status.models.empty() ? std::string("default") : status.models.front());
    status.contextTokens = contextTokens(stop);
    status.contextReported = contextTokens_.has_value();
    return status;
}

}  // namespace morvane::intelligence
