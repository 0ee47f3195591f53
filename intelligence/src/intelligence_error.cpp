#include "morvane/intelligence/intelligence_error.hpp"

#include "morvane/intelligence/support/text.hpp"

namespace morvane::intelligence {
namespace {

std::string describe(IntelligenceError::Kind kind, const std::string& payload) {
    using Kind = IntelligenceError::Kind;
    switch (kind) {
        case Kind::missingFile:
            return "Couldn’t find that media file (" + payload + ").";
        case Kind::remoteModelUnavailable:
            return "The remote model is unavailable. " + payload;
        case Kind::decodeFailed:
            return payload;
        case Kind::unsupportedInstruction:
            return "“" + payload + "” is not available yet.";
        case Kind::emptyTranscript:
            return "No speech was found to transcribe. You can still edit on the timeline.";
        case Kind::emptySegments:
            return "No speech segments to work with yet. Transcribe a clip that has dialogue.";
        case Kind::languageModelUnavailable:
            return "No language model is available. Start a local model server and set it in Preferences → "
                   "Language Model to use AI rough cuts.";
        case Kind::remoteModelQuotaExceeded:
            return "The remote model's daily quota is used up. Try again tomorrow.";
    }
    return "Unknown assistant error";
}

}  // namespace

IntelligenceError::IntelligenceError(Kind kind, std::string payload)
    : kind_(kind), payload_(std::move(payload)), description_(describe(kind_, payload_)) {}

bool IntelligenceError::isSoftTranscriptionFailure() const {
    if (kind_ == Kind::emptyTranscript) return true;
    if (kind_ != Kind::decodeFailed) return false;
    return containsAny(lowercased(payload_), {"no audio", "no speech", "silent"});
}

}  // namespace morvane::intelligence
