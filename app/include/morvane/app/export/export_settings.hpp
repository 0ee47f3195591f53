#pragma once

/// The export panel's request and what it works out from the session before a run: the output format,
/// the range, the estimate, the file name. Main-thread operations: they read the session.
///
///     ExportRequest request = ExportRequest::defaultFor(session);   // the project's preset, whole program
///     request.videoSettings.codec = engine::ExportVideoCodec::hevc;
///     auto estimate = ExportSettings::estimate(session, request);
///     ExportSettings::suggestedFilename(session, request.videoSettings);   // "My-Talk.mp4"
///     ExportSettings::parseTimecode("1:30");                               // 90.0

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "morvane/engine/export/export_estimator.hpp"
#include "morvane/engine/export/export_settings.hpp"
#include "morvane/engine/layout/project_format.hpp"

namespace morvane::app {

class ProjectSession;

/// What the export panel edits.
struct ExportRequest {
    engine::ExportPreset preset = engine::ExportPreset::youtube1080;
    engine::ExportRangeMode rangeMode = engine::ExportRangeMode::fullProgram;
    bool updateProjectFormat = false;  ///< apply the preset's size to the project
    engine::ExportVideoSettings videoSettings;
    std::optional<double> rangeStartSeconds;  ///< the custom range, program seconds
    std::optional<double> rangeEndSeconds;
    bool burnInCaptions = false;  ///< draw the text track's captions into the picture

    /// The request the panel opens with: the preset of the project's canvas (YouTube 1080p when none
    /// matches), the in and out markers as a custom range when both are set in order, the whole program
    /// otherwise, H.264 at the automatic rate, captions burned in when the text track has clips.
    [[nodiscard]] static ExportRequest defaultFor(const ProjectSession& session);

    friend bool operator==(const ExportRequest&, const ExportRequest&) = default;
};

/// One line of the panel's summary: a label and its value.
struct ExportSummaryRow {
    std::string label;
    std::string value;
    friend bool operator==(const ExportSummaryRow&, const ExportSummaryRow&) = default;
};

/// What the panel shows about a request, for whatever user interface is in place.
struct ExportPanelSummary {
    std::vector<ExportSummaryRow> rows;  ///< Output, Codec, Length, Size, Encode, then Range and Source
    std::optional<std::string> note;  ///< "Keeping project format 1920×1080" or "Will resize project to …"
    std::string actionTitle;          ///< "Export MP4…", "Export MOV…", "Export GIF…"
};

namespace ExportSettings {

/// The message that refuses a custom range that comes out as nothing.
inline constexpr std::string_view invalidRangeMessage = "Enter a valid From / To range (e.g. 00:30 – 02:15).";
/// The message that refuses a run with nothing to render.
inline constexpr std::string_view nothingToExportMessage =
    "Nothing to export yet — build a cut or add clips to the timeline first.";

/// The project's canvas (its format, or the default 1080p one) at the session's frame duration; with
/// `updateProjectFormat`, the preset's canvas instead.
[[nodiscard]] engine::ProjectFormat exportOutputFormat(const ProjectSession& session,
                                                       const ExportRequest& request);

/// Nothing for the whole program. For a custom range: its start (else the in marker, else 0, at least 0)
/// to its end (else the out marker, else the program's end, at most the program's end); nothing when
/// that is not more than 0.05 s.
[[nodiscard]] std::optional<engine::ExportTimeRange> exportTimeRange(const ProjectSession& session,
                                                                     const ExportRequest& request);

/// The estimate of a run of `request`; the source size is the primary recording's once known.
[[nodiscard]] engine::ExportEstimate estimate(const ProjectSession& session, const ExportRequest& request,
                                              std::optional<int> sourceWidth = std::nullopt,
                                              std::optional<int> sourceHeight = std::nullopt);

/// Whether the preset's canvas differs in width or height from the project's.
[[nodiscard]] bool presetDiffersFromProject(const ProjectSession& session, const ExportRequest& request);

/// "<project name>.<extension>": the bundle's name (or the project's) with everything but letters, digits,
/// blanks, "_" and "-" removed and blanks made "-"; "morvane-export" when nothing is left.
[[nodiscard]] std::string suggestedFilename(const ProjectSession& session,
                                            const engine::ExportVideoSettings& video);

/// A From or To field: seconds ("90", "12.5"), "m:s" or "h:m:s"; negative totals give 0; nothing for
/// anything else.
[[nodiscard]] std::optional<double> parseTimecode(std::string_view text);

/// The panel's rows, note and button for `request`.
[[nodiscard]] ExportPanelSummary panelSummary(const ProjectSession& session, const ExportRequest& request,
                                              std::optional<int> sourceWidth = std::nullopt,
                                              std::optional<int> sourceHeight = std::nullopt);

}  // namespace ExportSettings

}  // namespace morvane::app
