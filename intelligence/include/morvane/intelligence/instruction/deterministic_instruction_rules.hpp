#pragma once

#include <optional>
#include <string_view>

#include "morvane/intelligence/models/classification.hpp"
#include "morvane/intelligence/models/transcript.hpp"

namespace morvane::intelligence::DeterministicInstructionRules {

/// The no-speech filter. When the instruction asks for the cut without transcription ("no speech",
/// "silence only", ...), keeps the segments whose trimmed text has at least 3 characters and a letter or
/// number, with confidence 0.98 and reason "deterministic:no_transcription". Otherwise nothing.
[[nodiscard]] std::optional<ClassificationRun> classify(const SegmentDocument& segments,
                                                        std::string_view instruction);

}  // namespace morvane::intelligence::DeterministicInstructionRules
