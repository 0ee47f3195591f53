#pragma once

// The two ways an export writes a movie: every program frame encoded (H.264, HEVC or ProRes), or, for a
// plain cut of H.264 recordings whose cuts fall on key frames, the recording's video copied packet by
// packet. Both write the program's mixed sound beside the picture.

#include <filesystem>
#include <optional>
#include <stop_token>

#include "ffmpeg/movie_output.hpp"
#include "morvane/engine/composition/composition_renderer.hpp"
#include "morvane/engine/support/cancellation.hpp"

namespace morvane::engine::ffmpeg {

/// What to encode: the frames of `renderer` over `range` (program time), at `settings`, scaled to
/// `outputSize`, and `audio` when the program has sound.
struct EncodeRequest {
    CompositionRenderer& renderer;
    TimeSpan range;
    ExportEncoderSettings settings;
    PixelSize outputSize;
    std::optional<ProgramAudio> audio;
};

/// Encodes `request` into `file`. Throws `EngineError::exportFailed` with FFmpeg's reason, the renderer's
/// errors, and `OperationCancelled`.
void encodeMovie(const EncodeRequest& request, const std::filesystem::path& file,
                 const ProgressCallback& progress, const std::stop_token& stop);

/// Copies the video of `composition` over `range` from its sources into `file` (MPEG-4), with `audio`.
/// Returns false, having written nothing that counts, when the picture is not one unscaled run of H.264
/// recordings of one kind, or a cut falls where a copy can't start or end cleanly; the caller then
/// encodes instead. Throws `EngineError::exportFailed` when writing fails, and `OperationCancelled`.
[[nodiscard]] bool copyMovie(const Composition& composition, TimeSpan range,
                             const std::optional<ProgramAudio>& audio, const std::filesystem::path& file,
                             const ProgressCallback& progress, const std::stop_token& stop);

}  // namespace morvane::engine::ffmpeg
