#pragma once

/// A small, easy-to-decode copy of a very large recording (4K and up) that the preview plays instead, so
/// scrubbing stays smooth. Written with the export's own encoder: H.264 fitted within 960 x 540 keeping the
/// picture's shape (a 16:9 source gives exactly 960 x 540), with the sound as mono AAC, in a QuickTime
/// movie.
///
///     ProxyGenerator::generate("/videos/talk-4k.mov", folder / "proxy.mov",
///                              [](double share) { bar.set(share); }, stop);

#include <filesystem>
#include <stop_token>
#include <string_view>

#include "morvane/engine/layout/project_format.hpp"
#include "morvane/engine/support/cancellation.hpp"

namespace morvane::engine::ProxyGenerator {

/// The proxy's file name in a fingerprint folder.
inline constexpr std::string_view fileName = "proxy.mov";

/// The box a proxy's picture is fitted in.
inline constexpr PixelSize proxyMaxSize{960, 540};

/// Writes the proxy of `url` to `to`, replacing any old file; on any failure or a stop nothing is left at
/// `to`. Throws `EngineError::missingFile`; `exportFailed` with "Source is not compatible with the proxy
/// preset" (no picture, a turned picture, or not a movie), "Could not create proxy export session" (the output can't be
/// prepared) or "Proxy generation failed: " and the reason; and `OperationCancelled`.
void generate(const std::filesystem::path& url, const std::filesystem::path& to,
              const ProgressCallback& progress = {}, std::stop_token stop = {});

}  // namespace morvane::engine::ProxyGenerator
