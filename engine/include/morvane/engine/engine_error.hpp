#pragma once

/// The engine's typed failure. `what()` is the text the user reads.
///
///     try { auto t = RationalTime::parse("5/0s"); }
///     catch (const EngineError& e) { e.kind();  /* invalidRationalTime */  e.what();  /* "Invalid rational
///     time: 5/0s" */ }

#include <exception>
#include <string>

namespace morvane::engine {

class EngineError : public std::exception {
  public:
    enum class Kind {
        missingFile,          // "Missing file: " + path
        invalidRationalTime,  // "Invalid rational time: " + the text as given
        readerFailed,         // "Media reader failed: " + the reader's reason
        decodeFailed,         // "Decode failed: " + reason
        exportFailed,         // "Export failed: " + reason
        noVideoTrack,         // "Asset has no video track"
        noAudioTrack,         // "Asset has no audio track"
    };

    static EngineError missingFile(std::string path) { return {Kind::missingFile, std::move(path)}; }
    static EngineError invalidRationalTime(std::string text) {
        return {Kind::invalidRationalTime, std::move(text)};
    }
    static EngineError readerFailed(std::string reason) { return {Kind::readerFailed, std::move(reason)}; }
    static EngineError decodeFailed(std::string reason) { return {Kind::decodeFailed, std::move(reason)}; }
    static EngineError exportFailed(std::string reason) { return {Kind::exportFailed, std::move(reason)}; }
    static EngineError noVideoTrack() { return {Kind::noVideoTrack, {}}; }
    static EngineError noAudioTrack() { return {Kind::noAudioTrack, {}}; }

    [[nodiscard]] Kind kind() const noexcept { return kind_; }
    /// The path, text or reason the error carries; empty for the cases without one.
    [[nodiscard]] const std::string& payload() const noexcept { return payload_; }
    [[nodiscard]] const char* what() const noexcept override { return message_.c_str(); }

  private:
    EngineError(Kind kind, std::string payload);

    Kind kind_;
    std::string payload_;
    std::string message_;
};

}  // namespace morvane::engine
