#pragma once

/// The language model as the window asks it. Asking whether a model answers is an HTTP request that may
/// take seconds when a server hangs; the GUI thread must not wait on it. On the GUI thread the last known
/// answer is given (asked afresh in the background each time, and waited for only briefly the very first
/// time); worker threads ask the server directly.
///
///     CachedModelService model(http, [&] { return loop.isMainThread(); });
///     PipelineContext context{.mainLoop = loop, .languageModel = &model};

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>

#include "morvane/intelligence/model/language_model.hpp"

namespace morvane::studio {

class CachedModelService final : public intelligence::LanguageModelService {
  public:
    /// How long the GUI thread waits for the very first answer.
    static constexpr auto firstAnswerWait = std::chrono::milliseconds(300);

    /// Wraps `inner`, which must outlive this; `isGuiThread` says where a call comes from.
    CachedModelService(intelligence::LanguageModelService& inner, std::function<bool()> isGuiThread);
    ~CachedModelService() override;
    CachedModelService(const CachedModelService&) = delete;
    CachedModelService& operator=(const CachedModelService&) = delete;

    bool isAvailable(std::stop_token stop) override;
    int contextTokens(std::stop_token stop) override;
    std::unique_ptr<intelligence::LanguageModelSession> makeSession(
        std::optional<std::string> instructions) override;
    /// On the GUI thread: the last answer (an unavailable one, saying so, before any), and a fresh question
    /// in the background. Elsewhere: the server's answer now.
    [[nodiscard]] intelligence::LanguageModelStatus status(std::stop_token stop) override;

  private:
    void refresh();

    intelligence::LanguageModelService& inner_;
    std::function<bool()> isGuiThread_;
    std::mutex mutex_;
    std::condition_variable answered_;
    std::optional<intelligence::LanguageModelStatus> last_;
    bool asking_ = false;
    std::jthread worker_;
};

}  // namespace morvane::studio
