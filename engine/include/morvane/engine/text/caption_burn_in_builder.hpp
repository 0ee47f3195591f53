#pragma once

/// How much text an export has to draw into the picture: the text operations in a range and the pictures
/// they need. A plain caption is one picture for its whole length; a karaoke caption is one picture per
/// state of its word highlight, cut at every word's start and end.
///
///     auto operations = CaptionBurnInBuilder::textOperations(plan, ExportTimeRange{30, 90});
///     int jobs = CaptionBurnInBuilder::estimatedJobCount(plan, ExportTimeRange{30, 90});

#include <optional>
#include <vector>

#include "morvane/engine/export/export_settings.hpp"
#include "morvane/engine/plan/edit_plan.hpp"

namespace morvane::engine::CaptionBurnInBuilder {

/// The "text" operations on the tracks "text" and "captions" that overlap `range` (end after its start,
/// start before its end, in seconds); all of them without a range. Throws `EngineError::invalidRationalTime`.
[[nodiscard]] std::vector<EditPlanOperation> textOperations(const EditPlan& plan,
                                                            std::optional<ExportTimeRange> range);

/// The program seconds at which a karaoke caption's picture changes: its start, every word's start and
/// end (relative to the caption, rounded to milliseconds) that lies within it give or take 0.001 s, and
/// its end; sorted, neighbours closer than 0.001 s merged. The end is never nearer than 0.05 s to the start.
/// Throws `EngineError::invalidRationalTime`.
[[nodiscard]] std::vector<double> karaokeBoundaries(const EditPlanOperation& operation);

/// The pictures to render for the overlapping text operations: one per plain caption, one per slice
/// between boundaries for a karaoke caption with words.
[[nodiscard]] int estimatedJobCount(const EditPlan& plan, std::optional<ExportTimeRange> range);

}  // namespace morvane::engine::CaptionBurnInBuilder
