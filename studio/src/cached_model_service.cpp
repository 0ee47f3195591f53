#include "cached_model_service.hpp"

#include "morvane/engine/support/cancellation.hpp"

namespace morvane::studio {

CachedModelService::CachedModelService(intelligence::LanguageModelService& inner,
                                       std::function<bool()> isGuiThread)
    : inner_(inner), isGuiThread_(std::move(isGuiThread)) {
    refresh();
}

CachedModelService::~CachedModelService() {
    worker_.request_stop();
}

void CachedModelService::refresh() {
    {
        const std::lock_guard lock(mutex_);
        if (asking_) return;
        asking_ = true;
    }
    // The previous question has been answered (asking_ was false), so joining its thread doesn't wait.
    worker_ = std::jthread([this](std::stop_token stop) {
        std::optional<intelligence::LanguageModelStatus> answer;
        try {
            answer = inner_.status(stop);
        } catch (const OperationCancelled&) {
        }
        {
            const std::lock_guard lock(mutex_);
            if (answer) last_ = std::move(answer);
            asking_ = false;
        }
        answered_.notify_all();
    });
}

intelligence::LanguageModelStatus CachedModelService::status(std::stop_token stop) {
    if (!isGuiThread_()) return inner_.status(std::move(stop));
    refresh();
    std::unique_lock lock(mutex_);
    if (!last_) answered_.wait_for(lock, firstAnswerWait, [&] { return last_.has_value(); });
    if (last_) return *last_;
    return {.available = false, .reason = "The language model server hasn't answered yet."};
}

bool CachedModelService::isAvailable(std::stop_token stop) {
    if (!isGuiThread_()) return inner_.isAvailable(std::move(stop));
    return status(std::move(stop)).available;
}

int CachedModelService::contextTokens(std::stop_token stop) {
    return inner_.contextTokens(std::move(stop));
}

std::unique_ptr<intelligence::LanguageModelSession> CachedModelService::makeSession(
    std::optional<std::string> instructions) {
    return inner_.makeSession(std::move(instructions));
}

}  // namespace morvane::studio
