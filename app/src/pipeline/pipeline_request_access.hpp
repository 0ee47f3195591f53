#pragma once

// What the pipeline's operations reach inside a request they start: its stop token, its worker thread and
// the flag that says its last step has run.

#include "morvane/app/pipeline/project_pipeline.hpp"

namespace morvane::app {

struct PipelineRequestAccess {
    static std::stop_token token(PipelineRequest& r) { return r.stop_.get_token(); }
    static void finish(PipelineRequest& r) { r.finished_ = true; }
    static std::jthread& worker(PipelineRequest& r) { return r.worker_; }
};

}  // namespace morvane::app
