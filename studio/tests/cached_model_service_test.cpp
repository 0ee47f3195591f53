#include "cached_model_service.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <mutex>

#include "studio_fixture.hpp"

namespace morvane::studio {
namespace {

using intelligence::LanguageModelStatus;
using testing::waitUntil;

// A server that answers only while its gate is open.
class GatedService final : public intelligence::LanguageModelService {
  public:
    bool isAvailable(std::stop_token stop) override { return status(std::move(stop)).available; }
    int contextTokens(std::stop_token) override { return 8192; }
    std::unique_ptr<intelligence::LanguageModelSession> makeSession(std::optional<std::string>) override {
        return nullptr;
    }
    LanguageModelStatus status(std::stop_token stop) override {
        std::unique_lock lock(mutex_);
        std::condition_variable_any& wake = opened_;
        wake.wait(lock, stop, [&] { return open_; });
        return {.available = available_, .models = {"m"}};
    }
    void set(bool open, bool available) {
        const std::lock_guard lock(mutex_);
        open_ = open;
        available_ = available;
        opened_.notify_all();
    }

  private:
    std::mutex mutex_;
    std::condition_variable_any opened_;
    bool open_ = false;
    bool available_ = false;
};

TEST(CachedModelService, theGuiThreadNeverWaitsOnAServerThatDoesntAnswer) {
    GatedService server;
    std::atomic<bool> onGui{true};
    CachedModelService model(server, [&] { return onGui.load(); });

    // Nothing has answered yet: "unavailable", rather than hanging with the server.
    const LanguageModelStatus first = model.status({});
    EXPECT_FALSE(first.available);
    EXPECT_EQ(first.reason, "The language model server hasn't answered yet.");

    server.set(true, true);
    ASSERT_TRUE(waitUntil([&] { return model.status({}).available; }));
    EXPECT_TRUE(model.isAvailable({}));

    // The server stops answering: the GUI thread keeps the last answer.
    server.set(false, false);
    EXPECT_TRUE(model.status({}).available);

    // Once it answers again, the news arrives.
    server.set(true, false);
    ASSERT_TRUE(waitUntil([&] { return !model.status({}).available; }));

    // Off the GUI thread the server itself is asked.
    onGui = false;
    server.set(true, true);
    EXPECT_TRUE(model.status({}).available);
    EXPECT_EQ(model.contextTokens({}), 8192);
    server.set(false, false);  // a question left waiting ends with the service
}

}  // namespace
}  // namespace morvane::studio
