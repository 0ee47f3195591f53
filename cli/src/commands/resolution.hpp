#pragma once

// A typed instruction's command and decider, shared by `resolve` and `demo`.

#include <optional>
#include <string>
#include <string_view>

#include "morvane/engine/support/json.hpp"
#include "morvane/intelligence/instruction/assistant_command.hpp"
#include "morvane/intelligence/models/transcript.hpp"
#include "morvane/intelligence/routing/model_router.hpp"

namespace morvane::cli {

struct Resolution {
    const intelligence::AssistantCommand* command = nullptr;
    std::optional<intelligence::RouteArm> arm;  ///< absent when routing refused
    std::optional<std::string> refusal;         ///< the refusal's text
};

Resolution resolveInstruction(std::string_view instruction,
                              const intelligence::TranscriptDocument* transcript);
Json resolutionJson(std::string_view instruction, const Resolution& resolution, bool hasTranscript);
/// "retakesOnly (Retakes only); answered by Retake detector (rule)".
std::string resolutionLine(const Resolution& resolution);

}  // namespace morvane::cli
