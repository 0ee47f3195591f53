#pragma once

/// The remote model: a larger model off this computer that the user may allow. It isn't built into this
/// Morvane, so every route to it ends on this computer's model or in the refusal below.

#include <exception>
#include <optional>
#include <string>

#include "morvane/intelligence/intelligence_error.hpp"

namespace morvane::intelligence {

/// Whether the remote model can be used, and why not.
struct RemoteModelAvailabilityStatus {
    bool available = false;
    std::string reason;  ///< when unavailable
};

namespace RemoteModelAvailability {

/// Whether remote-model support is compiled in: never, in this build.
inline constexpr bool isCompiledIn = false;

/// Whether requests may go to the remote model: never, in this build, whatever MORVANE_FORCE_REMOTE_MODEL
/// says.
[[nodiscard]] constexpr bool canRouteToRemoteModel() noexcept {
    return isCompiledIn;
}

/// Unavailable, with "Requires a Morvane build with remote-model support (MORVANE_REMOTE_MODEL=1)".
[[nodiscard]] RemoteModelAvailabilityStatus status();

}  // namespace RemoteModelAvailability

namespace RemoteModelSupport {

/// What a failure of the remote model means to the user: an `IntelligenceError` as it is; a signing
/// refusal ("1046") as `remoteModelUnavailable`; a quota message as `remoteModelQuotaExceeded`; otherwise
/// nothing.
[[nodiscard]] std::optional<IntelligenceError> mapError(const std::exception& error);

}  // namespace RemoteModelSupport

}  // namespace morvane::intelligence
