#pragma once

// What the pipeline's operations share: the request handle's private parts, one way to run a piece of work
// on a worker and come back to the main loop with its outcome, and the chat lines they write.

#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <stop_token>
#include <string>

#include "morvane/app/pipeline/project_pipeline.hpp"

namespace morvane::app {

struct PipelineRequestAccess {
    static std::stop_token token(PipelineRequest& r) { return r.stop_.get_token(); }
    static void finish(PipelineRequest& r) { r.finished_ = true; }
    static std::jthread& worker(PipelineRequest& r) { return r.worker_; }
};

/// A request that is over before it began: what an operation refused up front returns.
std::shared_ptr<PipelineRequest> finishedRequest();

/// Runs `work` on a worker thread, then `finish` on `loop` with the failure `work` threw (or none); the
/// request counts as finished once `finish` has returned. The request is kept alive until then whoever
/// holds it, so `finish` always runs (when the loop runs) and can end the jobs the caller began. Call on
/// the main thread.
std::shared_ptr<PipelineRequest> runInBackground(MainLoop& loop, std::function<void(std::stop_token)> work,
                                                 std::function<void(std::exception_ptr)> finish);

/// The file source `entry` plays from now: the primary's media, an extra source's file, or the entry's own.
[[nodiscard]] std::filesystem::path sourceFile(const ProjectSession& session, const MediaBinEntry& entry);

/// Whether `failure` is the stop the user asked for (`OperationCancelled`).
[[nodiscard]] bool isCancellation(std::exception_ptr failure);

/// What a caught failure says to the user: its `what()`.
[[nodiscard]] std::string describeFailure(std::exception_ptr failure);

/// Appends a line to the chat log and returns its id; the caller notifies.
std::string appendMessage(ProjectSession& session, ChatMessage::Role role, const std::string& text,
                          bool isThinking = false);

}  // namespace morvane::app
