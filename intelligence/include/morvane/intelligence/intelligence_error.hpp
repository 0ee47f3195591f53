#pragma once

/// The assistant's and transcription's typed failure. `what()` is the text the user reads.
///
///     throw IntelligenceError::unsupportedInstruction("Green screen");
///     // what(): "“Green screen” is not available yet."

#include <exception>
#include <string>

namespace morvane::intelligence {

class IntelligenceError : public std::exception {
  public:
    enum class Kind {
        missingFile,               // "Couldn’t find that media file (" + path + ")."
        remoteModelUnavailable,    // "The remote model is unavailable. " + reason
        decodeFailed,              // the message as it stands
        unsupportedInstruction,    // "“" + name + "” is not available yet."
        emptyTranscript,           // no speech found; the caller may carry on without a transcript
        emptySegments,             // nothing to decide on yet
        languageModelUnavailable,  // no local model server answers
        remoteModelQuotaExceeded,  // the remote model's daily quota is used up
    };

    static IntelligenceError missingFile(std::string path) { return {Kind::missingFile, std::move(path)}; }
    static IntelligenceError remoteModelUnavailable(std::string reason) {
        return {Kind::remoteModelUnavailable, std::move(reason)};
    }
    static IntelligenceError decodeFailed(std::string message) {
        return {Kind::decodeFailed, std::move(message)};
    }
    static IntelligenceError unsupportedInstruction(std::string name) {
        return {Kind::unsupportedInstruction, std::move(name)};
    }
    static IntelligenceError emptyTranscript() { return {Kind::emptyTranscript, {}}; }
    static IntelligenceError emptySegments() { return {Kind::emptySegments, {}}; }
    static IntelligenceError languageModelUnavailable() { return {Kind::languageModelUnavailable, {}}; }
    static IntelligenceError remoteModelQuotaExceeded() { return {Kind::remoteModelQuotaExceeded, {}}; }

    [[nodiscard]] Kind kind() const noexcept { return kind_; }
    /// The path, reason, message or name the error carries; empty for the cases without one.
    [[nodiscard]] const std::string& payload() const noexcept { return payload_; }
    [[nodiscard]] const char* what() const noexcept override { return description_.c_str(); }
    [[nodiscard]] const std::string& description() const noexcept { return description_; }

    /// True when transcription found nothing to work with (no speech, no audio, silence): the caller goes
    /// on without a transcript instead of failing.
    [[nodiscard]] bool isSoftTranscriptionFailure() const;

  private:
    IntelligenceError(Kind kind, std::string payload);

    Kind kind_;
    std::string payload_;
    std::string description_;
};

}  // namespace morvane::intelligence
