#include "morvane/intelligence/routing/model_router.hpp"

#include "morvane/intelligence/cleanup/cleanup_composer.hpp"
#include "morvane/intelligence/cleanup/cleanup_evidence.hpp"
#include "morvane/intelligence/cleanup/disfluency_detector.hpp"
#include "morvane/intelligence/cleanup/duration_target_packer.hpp"
#include "morvane/intelligence/cleanup/retake_detector.hpp"
#include "morvane/intelligence/cleanup/silence_remover.hpp"
#include "morvane/intelligence/instruction/deterministic_instruction_rules.hpp"
#include "morvane/intelligence/intelligence_error.hpp"
#include "morvane/intelligence/support/text.hpp"

namespace morvane::intelligence {
namespace {

using ID = AssistantCommandID;

Route ruleRoute(RouteArm arm, const AssistantCommand* command, std::string_view instruction) {
    return {.arm = arm, .command = command, .instruction = std::string(instruction)};
}

// The rules that typed text can reach, then the model.
Route routeFreeText(const SegmentDocument& segments, std::string_view instruction,
                    const RouteRequest& request, const AssistantCommand* command) {
    const bool hasTranscript = request.transcript != nullptr;
    if (auto run = DeterministicInstructionRules::classify(segments, instruction)) {
        Route route = ruleRoute(RouteArm::noSpeechFilter, command, instruction);
        route.run = std::move(run);
        return route;
    }
    if (hasTranscript && CleanupComposer::matches(instruction)) {
        return ruleRoute(RouteArm::cleanupComposer, command, instruction);
    }
    if (SilenceRemover::matches(instruction))
        return ruleRoute(RouteArm::silenceRemover, command, instruction);
    if (DurationTargetPacker::matches(instruction)) {
        return ruleRoute(RouteArm::durationTargetPacker, command, instruction);
    }
    if (hasTranscript && DisfluencyDetector::mode(instruction)) {
        return ruleRoute(RouteArm::disfluencyDetector, command, instruction);
    }
    if (hasTranscript && RetakeDetector::matches(instruction)) {
        return ruleRoute(RouteArm::retakeDetector, command, instruction);
    }
    if (!request.options || request.options->mode == ClassificationMode::twoPass) {
        return ruleRoute(RouteArm::languageModelTwoPass, command, instruction);
    }
    Route route = ruleRoute(RouteArm::languageModel, command, instruction);
    route.mode = request.options->mode;
    return route;
}

}  // namespace

std::string_view describe(RouteArm arm) {
    switch (arm) {
        case RouteArm::noSpeechFilter:
            return "No-speech filter (rule)";
        case RouteArm::cleanupComposer:
            return "Clean-up rules: silence, filler and retakes";
        case RouteArm::silenceRemover:
            return "Silence remover (rule)";
        case RouteArm::disfluencyDetector:
            return "Filler detector (rule)";
        case RouteArm::retakeDetector:
            return "Retake detector (rule)";
        case RouteArm::durationTargetPacker:
            return "Duration packer (rule)";
        case RouteArm::languageModelTwoPass:
            return "Language model, two passes";
        case RouteArm::languageModel:
            return "Language model, one pass";
    }
    return "";
}

bool isRule(RouteArm arm) {
    return arm != RouteArm::languageModelTwoPass && arm != RouteArm::languageModel;
}

Route ModelRouter::route(const SegmentDocument& segments, std::string_view instruction,
                         const RouteRequest& request) {
    const AssistantCommand* command =
        request.commandID ? AssistantCommandCatalog::command(*request.commandID) : nullptr;
    if (command == nullptr) command = AssistantCommandCatalog::resolve(instruction);
    if (command != nullptr) {
        const bool hasTranscript = request.transcript != nullptr;
        switch (command->id) {
            case ID::cleanUp:
                if (hasTranscript) return ruleRoute(RouteArm::cleanupComposer, command, command->instruction);
                break;
            case ID::removeSilence: {
                Route route = ruleRoute(RouteArm::silenceRemover, command, command->instruction);
                route.minPauseSeconds = SilenceRemover::defaultMinPauseSeconds;
                return route;
            }
            case ID::fillerOnly:
                if (hasTranscript)
                    return ruleRoute(RouteArm::disfluencyDetector, command, command->instruction);
                break;
            case ID::retakesOnly:
                if (hasTranscript) return ruleRoute(RouteArm::retakeDetector, command, command->instruction);
                break;
            case ID::shortCut60s:
                // The short cut's canonical text carries its length: a request for 90 s packs to 90 s.
                return ruleRoute(RouteArm::durationTargetPacker, command,
                                 DurationTargetPacker::instruction(
                                     DurationTargetPacker::targetSeconds(instruction)
                                         .value_or(DurationTargetPacker::defaultTargetSeconds)));
            case ID::makeConcise:
            case ID::mainStory:
                break;
            case ID::generateCaptions:
            case ID::chapterTitles:
            case ID::autoReframe:
            case ID::personBackground:
            case ID::reduceNoise:
            case ID::voiceEnhancer:
            case ID::voiceChanger:
            case ID::voiceover:
            case ID::greenScreen:
            case ID::objectMask:
            case ID::screenCapture:
                throw IntelligenceError::unsupportedInstruction(std::string(command->title));
        }
    }
    return routeFreeText(segments, instruction, request, command);
}

ClassificationRun ModelRouter::classify(const SegmentDocument& segments, std::string_view instruction,
                                        const ClassifyRequest& request, std::stop_token stop) {
    Route route = ModelRouter::route(
        segments, instruction,
        {.transcript = request.transcript, .options = request.options, .commandID = request.commandID});
    // What the rule of this route needs from the recording, read once for it.
    const auto evidence = [&](CleanupEvidenceNeeds needs) {
        needs.silences = needs.silences && !request.silences;
        CleanupEvidence read =
            CleanupEvidence::read(segments, request.mediaPath, needs, request.onProgress, stop);
        if (request.silences) read.silences = *request.silences;
        return read;
    };
    const auto model = [&]() -> const LanguageModelRoute& {
        if (request.model == nullptr) throw IntelligenceError::languageModelUnavailable();
        return *request.model;
    };

    ClassificationRun run;
    switch (route.arm) {
        case RouteArm::noSpeechFilter:
            run = std::move(*route.run);
            break;
        case RouteArm::cleanupComposer:
            run = CleanupComposer::classify(segments, *request.transcript, route.instruction, evidence({}));
            break;
        case RouteArm::silenceRemover:
            run = SilenceRemover::classify(
                segments, route.instruction, evidence({.silences = true, .levels = false}).silences,
                route.minPauseSeconds.value_or(SilenceRemover::defaultMinPauseSeconds));
            break;
        case RouteArm::disfluencyDetector:
            run = DisfluencyDetector::classify(segments, *request.transcript, route.instruction,
                                               evidence({.silences = false, .levels = true}));
            break;
        case RouteArm::retakeDetector:
            run = RetakeDetector::classify(segments, *request.transcript, route.instruction,
                                           evidence({.silences = false, .levels = true}));
            break;
        case RouteArm::durationTargetPacker:
            run = DurationTargetPacker::classify(segments, request.transcript, route.instruction);
            break;
        case RouteArm::languageModelTwoPass:
            run = classifyTwoPass(model(), segments, route.instruction, request.options, request.onPartial,
                                  stop);
            break;
        case RouteArm::languageModel:
            run = classifyWithLanguageModel(model(), segments, route.instruction, *route.mode,
                                            request.options, request.onPartial, stop);
            break;
    }
    run = constrainToActiveEdit(std::move(run), request.candidateKeepIDs, segments);
    if (request.onPartial) request.onPartial(run);
    return run;
}

InstructionScope InstructionScopeClassifier::scope(std::string_view instruction) {
    const std::string lowered = lowercased(instruction);
    if (containsAny(lowered,
                    {"cut the tangents", "tighten to", "strongest", "best five minutes", "whole video",
                     "entire talk", "chapter", "shorts", "story order", "global", "overall", "throughout",
                     "60-second", "60 second", "main story", "strong hook"})) {
        return InstructionScope::global;
    }
    if (RetakeDetector::matches(instruction) || DurationTargetPacker::targetSeconds(instruction)) {
        return InstructionScope::global;
    }
    if (containsAny(lowered, {"short version with a strong hook", "short cut", "pack to a target"})) {
        return InstructionScope::global;
    }
    return InstructionScope::local;
}

}  // namespace morvane::intelligence
