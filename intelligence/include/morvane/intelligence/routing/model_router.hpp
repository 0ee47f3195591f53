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

#include <filesystem>
#include <optional>
#include <set>
#include <stop_token>
#include <string>
#include <string_view>

#include "morvane/engine/silence/silence_detector.hpp"
#include "morvane/engine/support/cancellation.hpp"
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
    /// The instruction the decider receives: a command's canonical text when its own rule answers (for the
    /// short cut, the canonical text of the length the request names), otherwise the request's text.
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

/// What the language-model arms need: the parser that asks the model, and the size of the local model's
/// context window (which sets how many segments go into one prompt).
struct LanguageModelRoute {
    InstructionParser& parser;
    int onDeviceContextTokens = 4096;
};

/// Everything a request is decided with besides the segments and the instruction.
struct ClassifyRequest {
    const TranscriptDocument* transcript = nullptr;   ///< absent: rules that need one are passed over
    std::optional<std::filesystem::path> mediaPath;   ///< the recording the rules measure
    std::optional<InstructionParserOptions> options;  ///< absent: a model answers in two passes
    std::optional<AssistantCommandID> commandID;      ///< absent: the command is resolved from the text
    std::optional<std::set<int>> candidateKeepIDs;    ///< the active edit's segments, to scope the answer to
    PartialRunCallback onPartial;                     ///< growing results, then the final run once
    const LanguageModelRoute* model = nullptr;        ///< absent: the model arms can't answer
    /// The recording's pauses when already detected at `CleanupEvidence::silenceOptions()`, so that the
    /// silence rule doesn't detect them again.
    std::optional<std::vector<engine::SilenceSpan>> silences;
    ProgressCallback onProgress;  ///< the share of the recording the rules have read
};

namespace ModelRouter {

/// Decides `instruction` over `segments`: routes it, runs the rule or model that answers, scopes the run
/// to the active edit, then hands it to `onPartial` once. The recording is read once whatever the rule.
/// Throws `IntelligenceError::unsupportedInstruction` for commands that aren't cuts;
/// `languageModelUnavailable` when a model must answer and none is given or reachable; model failures;
/// `OperationCancelled`.
ClassificationRun classify(const SegmentDocument& segments, std::string_view instruction,
                           const ClassifyRequest& request, std::stop_token stop = {});

/// The decider for `instruction` over `segments`. Throws `IntelligenceError::unsupportedInstruction`
/// with the command's title for commands that aren't carried out by deciding on segments.
[[nodiscard]] Route route(const SegmentDocument& segments, std::string_view instruction,
                          const RouteRequest& request = {});

/// The backend the router would choose, for showing before a request runs.
[[nodiscard]] ClassificationModelBackend plannedBackend(std::string_view instruction,
                                                        ClassificationMode mode);

/// One model pass in `mode` (two passes count as chunks here), on the backend the options name or the
/// router picks, with their chunk size or one sized to the model's context. A request for the remote model
/// that finds it unavailable runs on this computer's model instead and says so in the run.
ClassificationRun classifyWithLanguageModel(const LanguageModelRoute& model, const SegmentDocument& segments,
                                            std::string_view instruction, ClassificationMode mode,
                                            const std::optional<InstructionParserOptions>& options,
                                            const PartialRunCallback& onPartial, std::stop_token stop);

/// The default model job: every segment judged alone, then the survivors reconciled as one story. Short
/// documents (8 segments or fewer) and single survivors stop after the first pass; a second pass that
/// fails or prunes more than half of the survivors is overruled by the first.
ClassificationRun classifyTwoPass(const LanguageModelRoute& model, const SegmentDocument& segments,
                                  std::string_view instruction,
                                  const std::optional<InstructionParserOptions>& options,
                                  const PartialRunCallback& onPartial, std::stop_token stop);

/// `run` with `note` appended to every document's notes.
[[nodiscard]] ClassificationRun annotate(ClassificationRun run, std::string_view note);

/// Limits a run to the segments of the active edit (`pool`): kept ids outside it are dropped, and if
/// nothing is left the pool itself is kept. A missing, empty or all-covering pool changes nothing.
[[nodiscard]] ClassificationRun constrainToActiveEdit(ClassificationRun run,
                                                      const std::optional<std::set<int>>& pool,
                                                      const SegmentDocument& segments);

}  // namespace ModelRouter

namespace ModelRoutePlanner {

/// An explicit backend as it is; otherwise this computer's model, since the remote model can't be routed to
/// in this build (it would take chunked, whole-video requests when allowed or forced).
[[nodiscard]] ClassificationModelBackend selectBackend(
    std::string_view instruction, ClassificationMode mode,
    std::optional<ClassificationModelBackend> explicitBackend, bool allowRemoteModel);

}  // namespace ModelRoutePlanner

/// Whether an instruction is about a few segments or the whole video.
namespace InstructionScopeClassifier {
[[nodiscard]] InstructionScope scope(std::string_view instruction);
}  // namespace InstructionScopeClassifier

}  // namespace morvane::intelligence
