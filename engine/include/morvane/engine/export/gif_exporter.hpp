#pragma once

/// A plan as an animated GIF: the same composition as a movie export, without sound or animated text,
/// sampled at the GIF's frame rate and scaled to fit its size.
///
///     RenderReport report = GIFExporter::render(plan, AudioFinishingOptions::forExport(), std::nullopt,
///                                               {.framesPerSecond = 12, .maxDimension = 480}, "loop.gif");
///
/// The pictures are made twice, once to choose the 256 colours of the whole GIF and once to write it, so a
/// long GIF costs time but never memory.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <stop_token>

#include "morvane/engine/audio/audio_finishing_options.hpp"
#include "morvane/engine/export/export_settings.hpp"
#include "morvane/engine/export/mp4_exporter.hpp"
#include "morvane/engine/plan/edit_plan.hpp"
#include "morvane/engine/support/cancellation.hpp"

namespace morvane::engine::GIFExporter {

/// The frames of a GIF of `durationSeconds` at `framesPerSecond`: the length, taken as at least 0.1 s,
/// times the rate, rounded up; at least 1.
[[nodiscard]] std::int64_t frameCount(double durationSeconds, int framesPerSecond) noexcept;

/// Writes `plan` over `timeRange` (the whole program when absent or not valid) to `to` as a GIF of `gif`'s
/// rate, loop and size. `audio` shapes the composition as a movie export's would. Progress runs from 0 to
/// 1. The report has the path, the length (the frame count over the rate, at least 0.1 s) and the frame
/// count. Throws `EngineError::decodeFailed` with "GIF frame failed at <time>" when a picture can't be
/// made, `exportFailed` when the file can't be written, and `OperationCancelled`; no partial file is left.
RenderReport render(const EditPlan& plan, const AudioFinishingOptions& audio,
                    std::optional<ExportTimeRange> timeRange, const GIFExportOptions& gif,
                    const std::filesystem::path& to, const ProgressCallback& progress = {},
                    std::stop_token stop = {});

}  // namespace morvane::engine::GIFExporter
