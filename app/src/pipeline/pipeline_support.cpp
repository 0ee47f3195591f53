#include "pipeline/pipeline_support.hpp"

#include <chrono>
#include <map>

#include "morvane/engine/support/uuid.hpp"

namespace morvane::app {

namespace {

// Requests whose last step hasn't run yet; touched only on the main thread.
std::map<const PipelineRequest*, std::shared_ptr<PipelineRequest>>& pendingRequests() {
    static std::map<const PipelineRequest*, std::shared_ptr<PipelineRequest>> requests;
    return requests;
}

}  // namespace

std::shared_ptr<PipelineRequest> finishedRequest() {
    auto request = std::make_shared<PipelineRequest>();
    PipelineRequestAccess::finish(*request);
    return request;
}

std::shared_ptr<PipelineRequest> runInBackground(MainLoop& loop, std::function<void(std::stop_token)> work,
                                                 std::function<void(std::exception_ptr)> finish) {
    auto request = std::make_shared<PipelineRequest>();
    const PipelineRequest* key = request.get();
    pendingRequests()[key] = request;
    const std::stop_token stop = PipelineRequestAccess::token(*request);
    // The worker holds no reference to its own request: the last reference is always let go on the main
    // thread, after the worker has posted its last task, so joining it never waits on itself.
    PipelineRequestAccess::worker(*request) =
        std::jthread([&loop, key, stop, work = std::move(work), finish = std::move(finish)]() mutable {
            std::exception_ptr failure;
            try {
                work(stop);
            } catch (...) {
                failure = std::current_exception();
            }
            loop.post([key, failure, finish = std::move(finish)] {
                finish(failure);
                auto& pending = pendingRequests();
                if (const auto entry = pending.find(key); entry != pending.end()) {
                    PipelineRequestAccess::finish(*entry->second);
                    pending.erase(entry);
                }
            });
        });
    return request;
}

std::filesystem::path sourceFile(const ProjectSession& session, const MediaBinEntry& entry) {
    if (entry.id == session.primarySourceID && session.mediaURL) return *session.mediaURL;
    if (const auto it = session.extraSources.find(entry.id); it != session.extraSources.end())
        return it->second;
    return entry.resolvedURL(session.projectURL);
}

std::string describeFailure(std::exception_ptr failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const std::exception& e) {
        return e.what();
    } catch (...) {
        return "unknown error";
    }
}

std::string appendMessage(ProjectSession& session, ChatMessage::Role role, const std::string& text,
                          bool isThinking) {
    ChatMessage message{.id = makeUUID(),
                        .role = role,
                        .text = text,
                        .date = std::chrono::system_clock::now(),
                        .isThinking = isThinking};
    session.chatMessages.push_back(message);
    return message.id;
}

}  // namespace morvane::app
