#include "morvane/engine/engine_error.hpp"

namespace morvane::engine {
namespace {

std::string describe(EngineError::Kind kind, const std::string& payload) {
    switch (kind) {
        case EngineError::Kind::missingFile:
            return "Missing file: " + payload;
        case EngineError::Kind::invalidRationalTime:
            return "Invalid rational time: " + payload;
        case EngineError::Kind::readerFailed:
            return "Media reader failed: " + payload;
        case EngineError::Kind::decodeFailed:
            return "Decode failed: " + payload;
        case EngineError::Kind::exportFailed:
            return "Export failed: " + payload;
        case EngineError::Kind::noVideoTrack:
            return "Asset has no video track";
        case EngineError::Kind::noAudioTrack:
            return "Asset has no audio track";
    }
    return "Unknown engine error";
}

}  // namespace

EngineError::EngineError(Kind kind, std::string payload)
    : kind_(kind), payload_(std::move(payload)), message_(describe(kind_, payload_)) {}

}  // namespace morvane::engine
