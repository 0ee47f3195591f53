#pragma once

// The main job, shared by `morvane edit` and `morvane demo`.

#include <optional>
#include <string>

#include "morvane/intelligence/instruction/assistant_command.hpp"

namespace morvane::cli {

/// What `morvane edit` is asked to do.
struct EditJob {
    std::string media;
    std::optional<std::string> command;
    std::optional<std::string> instruction;
    std::optional<double> targetSeconds;
    std::string output;
    std::optional<std::string> project;
    std::optional<std::string> preset;
    std::string codec = "h264";
    std::optional<std::string> locale;
    std::string modelURL;
    bool burnIn = false;
    bool json = false;
};

/// Imports `job.media`, transcribes it, runs the command (or the instruction), accepts the rough cut,
/// exports it with its captions and prints a summary. Throws with the failing step's message.
void runMainJob(const EditJob& job, std::optional<intelligence::AssistantCommandID> commandID);

}  // namespace morvane::cli
