#include "morvane/testing/fake_model_server.hpp"

#include <httplib.h>

#include <chrono>
#include <optional>
#include <stdexcept>
#include <thread>

namespace morvane::testing {

struct FakeModelServer::State {
    httplib::Server server;
    std::thread thread;
    mutable std::mutex mutex;
    std::vector<std::string> models;
    ChatHandler chat;
    std::optional<int> llamaContext;
    std::optional<std::string> ollamaParameters;
    std::vector<nlohmann::json> requests;
};

namespace {

void send(const FakeModelServer::Response& response, httplib::Response& out) {
    if (response.delayMs > 0) std::this_thread::sleep_for(std::chrono::milliseconds(response.delayMs));
    if (response.dropConnection) {
        // Promise a body, then give up on it: the client sees the connection end mid-answer.
        out.set_content_provider(1000, "application/json",
                                 [](std::size_t, std::size_t, httplib::DataSink&) { return false; });
        return;
    }
    out.status = response.status;
    out.set_content(response.body, "application/json");
}

}  // namespace

FakeModelServer::FakeModelServer(std::vector<std::string> models) : state_(std::make_unique<State>()) {
    state_->models = std::move(models);
    // Handlers borrow the state: it owns the server that holds them, and outlives it.
    State* state = state_.get();
    state_->server.Get("/v1/models", [state](const httplib::Request&, httplib::Response& res) {
        nlohmann::json data = nlohmann::json::array();
        std::lock_guard lock(state->mutex);
        for (const auto& id : state->models)
            data.push_back({{"id", id}, {"object", "model"}});
        res.set_content(nlohmann::json{{"object", "list"}, {"data", data}}.dump(), "application/json");
    });
    state_->server.Get("/props", [state](const httplib::Request&, httplib::Response& res) {
        std::lock_guard lock(state->mutex);
        if (!state->llamaContext) {
            res.status = 404;
            return;
        }
        res.set_content(
            nlohmann::json{{"default_generation_settings", {{"n_ctx", *state->llamaContext}}}}.dump(),
            "application/json");
    });
    state_->server.Post("/api/show", [state](const httplib::Request&, httplib::Response& res) {
        std::lock_guard lock(state->mutex);
        if (!state->ollamaParameters) {
            res.status = 404;
            return;
        }
        res.set_content(nlohmann::json{{"parameters", *state->ollamaParameters}}.dump(), "application/json");
    });
    state_->server.Post("/v1/chat/completions", [state](const httplib::Request& req, httplib::Response& res) {
        nlohmann::json request = nlohmann::json::parse(req.body, nullptr, false);
        ChatHandler handler;
        {
            std::lock_guard lock(state->mutex);
            state->requests.push_back(request);
            handler = state->chat;
        }
        send(handler ? handler(request) : error(500, "no handler"), res);
    });
    port_ = state_->server.bind_to_any_port("127.0.0.1");
    if (port_ <= 0) throw std::runtime_error("FakeModelServer: cannot bind a loopback port");
    state_->thread = std::thread([state] { state->server.listen_after_bind(); });
    while (!state_->server.is_running())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

FakeModelServer::~FakeModelServer() {
    state_->server.stop();
    if (state_->thread.joinable()) state_->thread.join();
}

std::string FakeModelServer::baseURL() const {
    return "http://127.0.0.1:" + std::to_string(port_) + "/v1";
}

void FakeModelServer::onChat(ChatHandler handler) {
    std::lock_guard lock(state_->mutex);
    state_->chat = std::move(handler);
}

void FakeModelServer::reportLlamaContext(int contextTokens) {
    std::lock_guard lock(state_->mutex);
    state_->llamaContext = contextTokens;
}

void FakeModelServer::reportOllamaParameters(std::string parameters) {
    std::lock_guard lock(state_->mutex);
    state_->ollamaParameters = std::move(parameters);
}

std::vector<nlohmann::json> FakeModelServer::chatRequests() const {
    std::lock_guard lock(state_->mutex);
    return state_->requests;
}

FakeModelServer::Response FakeModelServer::reply(const std::string& content) {
    const nlohmann::json body{{"object", "chat.completion"},
                              {"choices",
                               {{{"index", 0},
                                 {"message", {{"role", "assistant"}, {"content", content}}},
                                 {"finish_reason", "stop"}}}}};
    return {200, body.dump()};
}

FakeModelServer::Response FakeModelServer::refusal(const std::string& text) {
    const nlohmann::json body{
        {"object", "chat.completion"},
        {"choices",
         {{{"index", 0},
           {"message", {{"role", "assistant"}, {"content", nullptr}, {"refusal", text}}},
           {"finish_reason", "stop"}}}}};
    return {200, body.dump()};
}

FakeModelServer::Response FakeModelServer::error(int status, const std::string& message) {
    return {status,
            nlohmann::json{{"error", {{"message", message}, {"type", "invalid_request_error"}}}}.dump()};
}

}  // namespace morvane::testing
