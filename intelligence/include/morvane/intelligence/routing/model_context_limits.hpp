#pragma once

/// How much a language model sees at once, and so how many segments go into one prompt. The local model
/// server reports its own context window; the remote model's is fixed.

namespace morvane::intelligence::ModelContextLimits {

/// Assumed when the local server doesn't say.
inline constexpr int defaultOnDeviceContextTokens = 4096;
inline constexpr int remoteModelContextTokens = 32768;

/// Segments per prompt for a context window: (tokens - 900) / 55, leaving room for instructions and the
/// answer; 14 for windows under 1700 tokens. 58 at 4096, 132 at 8192, 579 at 32768.
[[nodiscard]] constexpr int recommendedChunkSize(int contextTokens) noexcept {
    const int room = contextTokens - 900;
    return room < 800 ? 14 : room / 55;
}

}  // namespace morvane::intelligence::ModelContextLimits
