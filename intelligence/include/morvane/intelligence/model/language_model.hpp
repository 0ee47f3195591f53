#pragma once

/// The language model that answers typed instructions: a server on this computer that speaks the
/// OpenAI-compatible chat API (llama.cpp's llama-server, Ollama, LM Studio...). One request at a time;
/// every session call is a fresh request, with the session's instructions as the system message.
///
///     HttpLanguageModelService service(LanguageModelConnection::fromPreferences(prefs));
///     if (!service.isAvailable(stop)) throw IntelligenceError::languageModelUnavailable();
///     auto session = service.makeSession("You classify transcript segments...");
///     Json reply = session->respondGenerating(prompt, selectionSchema, true, {}, stop);   // guided JSON
///     std::string text = session->respond(prompt, {}, stop);                             // plain text

#include <memory>
#include <optional>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "morvane/engine/support/json.hpp"

namespace morvane {
class PreferencesStore;
}

namespace morvane::intelligence {

/// Sampling settings of one request; absent fields use the server's defaults.
struct GenerationOptions {
    std::optional<double> temperature;
    std::optional<int> maximumResponseTokens;
};

/// A JSON schema that a guided reply must follow.
struct GenerationSchema {
    std::string name;    ///< e.g. "GuidedSegmentSelection"
    std::string schema;  ///< a JSON Schema object, as JSON text
};

/// A failure of the model or its server that isn't a missing server (that is
/// `IntelligenceError::languageModelUnavailable`). Refusals, including a server that rejects or ignores
/// a JSON schema, say "refusal" in their text, so callers retry them as plain text.
class LanguageModelError : public std::runtime_error {
  public:
    enum class Kind {
        refusal,            ///< the model declined, or the server wouldn't follow the schema
        httpStatus,         ///< the server answered with an error status
        timeout,            ///< no complete answer in time
        connectionDropped,  ///< the server closed the connection mid-answer
        malformedResponse,  ///< not a chat completion
    };
    LanguageModelError(Kind kind, const std::string& message) : std::runtime_error(message), kind_(kind) {}
    [[nodiscard]] Kind kind() const noexcept { return kind_; }

  private:
    Kind kind_;
};

/// One conversation context. Calls throw `LanguageModelError`, `IntelligenceError::languageModelUnavailable`
/// when the server can't be reached, and `OperationCancelled` when `stop` is requested.
class LanguageModelSession {
  public:
    virtual ~LanguageModelSession() = default;

    /// The model's text reply to `prompt`.
    virtual std::string respond(std::string_view prompt, const GenerationOptions& options,
                                std::stop_token stop) = 0;

    /// A reply that follows `schema`, parsed. With `includeSchemaInPrompt` the schema is also described to
    /// the model in words, for servers that constrain output loosely.
    virtual Json respondGenerating(std::string_view prompt, const GenerationSchema& schema,
                                   bool includeSchemaInPrompt, const GenerationOptions& options,
                                   std::stop_token stop) = 0;
};

/// What `morvane model status` and the preferences show.
struct LanguageModelStatus {
    std::string serverURL;
    bool available = false;
    std::string reason;               ///< why not, when unavailable
    std::vector<std::string> models;  ///< what the server offers
    std::string model;                ///< the model requests will name
    int contextTokens = 0;            ///< the context window requests are sized for
    bool contextReported = false;     ///< false when the server didn't say and the default is assumed
};

class LanguageModelService {
  public:
    virtual ~LanguageModelService() = default;

    /// Whether a model answers, asked with a short timeout.
    virtual bool isAvailable(std::stop_token stop) = 0;
    /// The context window in tokens: the server's own figure, or 4096 when it doesn't report one.
    virtual int contextTokens(std::stop_token stop) = 0;
    /// A fresh session; `instructions` become its system message.
    virtual std::unique_ptr<LanguageModelSession> makeSession(std::optional<std::string> instructions) = 0;
    /// What the server offers and how much context it has, or why nothing answers. Never throws for an
    /// unreachable server; throws `OperationCancelled` on a stop.
    [[nodiscard]] virtual LanguageModelStatus status(std::stop_token stop) = 0;
};

/// Where the server is and which model to ask for.
struct LanguageModelConnection {
    static constexpr std::string_view urlPreference = "morvane.languageModelURL";
    static constexpr std::string_view namePreference = "morvane.languageModelName";
    static constexpr std::string_view defaultURL = "http://127.0.0.1:8080/v1";

    std::string baseURL{defaultURL};  ///< the API root, ending in "/v1"
    std::string model;                ///< empty: the first model the server lists
    int availabilityTimeoutMs = 2000;
    int connectTimeoutMs = 3000;
    int requestTimeoutMs = 180000;  ///< a whole reply; small local models on two cores are slow

    /// The user's server and model from the preferences, with the defaults above.
    [[nodiscard]] static LanguageModelConnection fromPreferences(const PreferencesStore& preferences);
};

/// The language model service over HTTP with libcurl.
class HttpLanguageModelService final : public LanguageModelService {
  public:
    explicit HttpLanguageModelService(LanguageModelConnection connection);
    ~HttpLanguageModelService() override;

    bool isAvailable(std::stop_token stop) override;
    int contextTokens(std::stop_token stop) override;
    std::unique_ptr<LanguageModelSession> makeSession(std::optional<std::string> instructions) override;

    [[nodiscard]] LanguageModelStatus status(std::stop_token stop) override;

    [[nodiscard]] const LanguageModelConnection& connection() const noexcept { return connection_; }

  private:
    class Session;
    std::string resolvedModel(std::stop_token stop);

    LanguageModelConnection connection_;
    std::optional<std::string> model_;  // resolved once
    std::optional<int> contextTokens_;  // read once
};

}  // namespace morvane::intelligence
