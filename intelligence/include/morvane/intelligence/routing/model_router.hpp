#pragma once

/// Which decider answers a request: a command's own rule, one of the rules that typed text can reach,
/// or a language model.
///
///     Route r = ModelRouter::route(segments, "Remove retakes and keep the best take.", {.transcript = &t});
///     r.arm;        // RouteArm::retakeDetector
///     r.command;    // the retakesOnly command
///
/// Routing order: a command (by id, else resolved from the text) goes to its rule; commands that aren't
/// cuts (captions, picture, audio, capture) are refused. Everything else, and a rule command without the
/// transcript it needs, is tried as typed text: the no-speech filter, clean up, silence, a target
/// length, filler, retakes, in that order; a rule that needs a transcript and has none is passed over.
/// What no rule takes, a language model decides.

#include <optional>
#include <string>
#include <string_view>

#include "morvane/engine/support/enum_table.hpp"
#include "morvane/intelligence/instruction/assistant_command.hpp"
#include "morvane/intelligence/instruction/instruction_parser.hpp"
#include "morvane/intelligence/models/classification.hpp"
#include "morvane/intelligence/models/transcript.hpp"

namespace morvane::intelligence {

enum class RouteArm {
    noSpeechFilter,   ///< DeterministicInstructionRules: the cut without transcription
    cleanupComposer,  ///< silence, filler and retakes together
    silenceRemover,
    disfluencyDetector,
    retakeDetector,
    durationTargetPacker,
    languageModelTwoPass,  ///< a per-segment pass, then a reconciling pass
    languageModel,         ///< one pass in the options' mode
};

inline constexpr auto kRouteArmNames = makeEnumTable<RouteArm>({
    {RouteArm::noSpeechFilter, "noSpeechFilter"},
    {RouteArm::cleanupComposer, "cleanupComposer"},
    {RouteArm::silenceRemover, "silenceRemover"},
    {RouteArm::disfluencyDetector, "disfluencyDetector"},
    {RouteArm::retakeDetector, "retakeDetector"},
    {RouteArm::durationTargetPacker, "durationTargetPacker"},
    {RouteArm::languageModelTwoPass, "languageModelTwoPass"},
    {RouteArm::languageModel, "languageModel"},
});

/// A short description of an arm for people: "Retake detector (rule)".
[[nodiscard]] std::string_view describe(RouteArm arm);

/// Whether an arm decides without a language model.
[[nodiscard]] bool isRule(RouteArm arm);

/// Where a request goes.
struct Route {
    RouteArm arm{};
    /// The command the request named or resolved to, if any.
    const AssistantCommand* command = nullptr;
    /// The instruction the decider receives: a command's canonical text when its own rule answers,
    /// otherwise the request's text.
    std::string instruction;
    /// The silence remover's minimum pause, in seconds, when a command sends it there.
    std::optional<double> minPauseSeconds;
    /// The mode of a one-pass language model arm.
    std::optional<ClassificationMode> mode;
    /// The no-speech filter's answer, which it gives at once.
    std::optional<ClassificationRun> run;
};

struct RouteRequest {
    const TranscriptDocument* transcript = nullptr;   ///< absent: rules that need one are passed over
    std::optional<InstructionParserOptions> options;  ///< absent: a model answers in two passes
    std::optional<AssistantCommandID> commandID;      ///< absent: the command is resolved from the text
};

namespace ModelRouter {

/// The decider for `instruction` over `segments`. Throws `IntelligenceError::unsupportedInstruction`
/// with the command's title for commands that aren't carried out by deciding on segments.
[[nodiscard]] Route route(const SegmentDocument& segments, std::string_view instruction,
                          const RouteRequest& request = {});

}  // namespace ModelRouter

/// Whether an instruction is about a few segments or the whole video.
namespace InstructionScopeClassifier {
[[nodiscard]] InstructionScope scope(std::string_view instruction);
}  // namespace InstructionScopeClassifier

}  // namespace morvane::intelligence
