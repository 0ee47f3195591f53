#pragma once

/// A language-model server on loopback for tests. No model weights exist on the machines that build
/// Morvane, so this server stands for the model: it speaks the OpenAI-compatible chat API and answers
/// however the test tells it to (guided JSON, prose, refusals, errors, slowness, dropped connections),
/// recording every request it receives.
///
///     FakeModelServer server;
///     server.onChat([](const nlohmann::json& request) { return
///     FakeModelServer::reply("{\"keepSegmentIDs\":[1]}"); }); LanguageModelConnection connection{.baseURL =
///     server.baseURL()};

#include <functional>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace morvane::testing {

class FakeModelServer {
  public:
    struct Response {
        int status = 200;
        std::string body;
        int delayMs = 0;
        bool dropConnection = false;  ///< close the connection without an answer
    };
    using ChatHandler = std::function<Response(const nlohmann::json& request)>;

    /// Starts listening on 127.0.0.1 at a free port, listing `models` on /v1/models.
    explicit FakeModelServer(std::vector<std::string> models = {"test-model"});
    ~FakeModelServer();
    FakeModelServer(const FakeModelServer&) = delete;
    FakeModelServer& operator=(const FakeModelServer&) = delete;

    /// "http://127.0.0.1:<port>/v1".
    [[nodiscard]] std::string baseURL() const;
    [[nodiscard]] int port() const noexcept { return port_; }

    void onChat(ChatHandler handler);
    /// Answers GET /props like llama-server started with `-c contextTokens`.
    void reportLlamaContext(int contextTokens);
    /// Answers POST /api/show like Ollama with `parameters` text ("num_ctx 8192").
    void reportOllamaParameters(std::string parameters);

    /// The chat requests received so far, parsed.
    [[nodiscard]] std::vector<nlohmann::json> chatRequests() const;

    /// A chat completion whose first choice says `content`.
    [[nodiscard]] static Response reply(const std::string& content);
    /// A chat completion whose message carries a refusal.
    [[nodiscard]] static Response refusal(const std::string& text);
    /// An error status with an OpenAI-style error body.
    [[nodiscard]] static Response error(int status, const std::string& message);

  private:
    struct State;
    std::unique_ptr<State> state_;
    int port_ = 0;
};

}  // namespace morvane::testing
