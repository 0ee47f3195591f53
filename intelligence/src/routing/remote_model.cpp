#include "morvane/intelligence/routing/remote_model.hpp"

#include "morvane/intelligence/support/text.hpp"

namespace morvane::intelligence {

RemoteModelAvailabilityStatus RemoteModelAvailability::status() {
    return {false, "Requires a Morvane build with remote-model support (MORVANE_REMOTE_MODEL=1)"};
}

std::optional<IntelligenceError> RemoteModelSupport::mapError(const std::exception& error) {
    if (const auto* known = dynamic_cast<const IntelligenceError*>(&error)) return *known;
    const std::string text = lowercased(error.what());
    if (text.find("1046") != std::string::npos) {
        return IntelligenceError::remoteModelUnavailable("The remote model refused this build.");
    }
    if (text.find("quota") != std::string::npos) return IntelligenceError::remoteModelQuotaExceeded();
    return std::nullopt;
}

}  // namespace morvane::intelligence
