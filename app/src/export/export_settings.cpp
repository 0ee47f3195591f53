#include "morvane/app/export/export_settings.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <charconv>
#include <cmath>

#include "morvane/app/pipeline/project_pipeline.hpp"
#include "morvane/app/session/project_session.hpp"
#include "morvane/app/timeline/timeline_plan_bridge.hpp"
#include "morvane/engine/support/text.hpp"
#include "morvane/engine/text/caption_burn_in_builder.hpp"

namespace morvane::app {

using engine::ExportRangeMode;
using engine::ExportTimeRange;
using engine::ProjectFormat;

namespace {

ProjectFormat projectFormat(const ProjectSession& session) {
    if (session.timeline && session.timeline->projectFormat) return *session.timeline->projectFormat;
    return ProjectFormat::defaultYouTube1080();
}

double programLength(const ProjectSession& session) {
    return std::max(TimelinePlanBridge::programDurationSeconds(session), 0.1);
}

bool textTrackHasClips(const ProjectSession& session) {
    return session.timeline && !session.timeline->clips(TimelineTrackIDs::text).empty();
}

// A decimal number and nothing else ("+" allowed, as for any typed number); nothing for other text.
std::optional<double> parseNumber(std::string_view text) {
    if (text.starts_with('+')) text.remove_prefix(1);
    if (text.empty()) return std::nullopt;
    double value = 0.0;
    const auto* end = text.data() + text.size();
    const auto [ptr, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc{} || ptr != end || !std::isfinite(value)) return std::nullopt;
    return value;
}

std::string sizeText(int width, int height) {
    return fmt::format("{}×{}", width, height);
}

std::string_view withoutPrefix(std::string_view text, std::string_view prefix) {
    return text.starts_with(prefix) ? text.substr(prefix.size()) : text;
}

}  // namespace

ExportRequest ExportRequest::defaultFor(const ProjectSession& session) {
    ExportRequest request;
    const ProjectFormat format = projectFormat(session);
    const auto presets = engine::ExportPreset::all();
    const auto match = std::find_if(presets.begin(), presets.end(),
                                    [&](const auto& p) { return p.formatPreset == format.preset; });
    request.preset = match != presets.end() ? *match : engine::ExportPreset::youtube1080;
    const auto in = session.inPointSeconds;
    const auto out = session.outPointSeconds;
    request.rangeMode =
        in && out && *in < *out ? ExportRangeMode::inOutMarkers : ExportRangeMode::fullProgram;
    const double start = in.value_or(0.0);
    double end = out.value_or(programLength(session));
    if (!(end > start + 0.1)) end = start + 0.1;
    request.rangeStartSeconds = start;
    request.rangeEndSeconds = end;
    request.burnInCaptions = textTrackHasClips(session);
    return request;
}

namespace ExportSettings {

ProjectFormat exportOutputFormat(const ProjectSession& session, const ExportRequest& request) {
    if (request.updateProjectFormat) return request.preset.projectFormat(session.frameDuration);
    ProjectFormat format = projectFormat(session);
    format.frameDuration = session.frameDuration;
    return format;
}

std::optional<ExportTimeRange> exportTimeRange(const ProjectSession& session, const ExportRequest& request) {
    if (request.rangeMode == ExportRangeMode::fullProgram) return std::nullopt;
    const double length = programLength(session);
    const double start =
        std::max(request.rangeStartSeconds.value_or(session.inPointSeconds.value_or(0.0)), 0.0);
    const double end =
        std::min(request.rangeEndSeconds.value_or(session.outPointSeconds.value_or(length)), length);
    if (!(start + 0.05 < end)) return std::nullopt;
    return ExportTimeRange{start, std::max(start, end)};
}

engine::ExportEstimate estimate(const ProjectSession& session, const ExportRequest& request,
                                std::optional<int> sourceWidth, std::optional<int> sourceHeight) {
    const ProjectFormat format = exportOutputFormat(session, request);
    const auto range = exportTimeRange(session, request);
    int clipCount = 0;
    if (session.timeline) {
        const TimelineTrack* track = session.timeline->track(TimelineTrackIDs::source);
        if (track == nullptr) track = session.timeline->track(TimelineTrackIDs::program);
        if (track != nullptr) {
            clipCount =
                static_cast<int>(std::count_if(track->clips.begin(), track->clips.end(),
                                               [](const TimelineClip& c) { return !c.isTextLike(); }));
        }
    }
    int burnInJobs = 0;
    if (request.burnInCaptions) {
        if (const auto plan = TimelinePlanBridge::rebuildEditPlan(session))
            burnInJobs = engine::CaptionBurnInBuilder::estimatedJobCount(*plan, range);
    }
    return engine::ExportEstimator::estimate(
        {.durationSeconds = range ? range->durationSeconds() : programLength(session),
         .outputWidth = format.width,
         .outputHeight = format.height,
         .videoSettings = request.videoSettings,
         .sourceWidth = sourceWidth,
         .sourceHeight = sourceHeight,
         .clipCount = clipCount,
         .captionBurnInJobs = burnInJobs});
}

bool presetDiffersFromProject(const ProjectSession& session, const ExportRequest& request) {
    const ProjectFormat project = projectFormat(session);
    const ProjectFormat preset = request.preset.projectFormat(session.frameDuration);
    return preset.width != project.width || preset.height != project.height;
}

std::string suggestedFilename(const ProjectSession& session, const engine::ExportVideoSettings& video) {
    const std::string name = session.projectURL ? session.projectURL->stem().string() : session.projectName;
    std::string kept;
    for (const char c : name) {
        const bool allowed = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
                             c == ' ' || c == '_' || c == '-';
        if (allowed) kept += c;
    }
    std::string stem(trimWhitespaceAndNewlines(kept));
    std::replace(stem.begin(), stem.end(), ' ', '-');
    if (stem.empty()) stem = "morvane-export";
    return stem + "." + std::string(engine::fileExtension(video.codec));
}

std::optional<double> parseTimecode(std::string_view text) {
    text = trimWhitespaceAndNewlines(text);
    if (text.empty()) return std::nullopt;
    if (text.find(':') == std::string_view::npos) {
        const auto value = parseNumber(text);
        if (!value) return std::nullopt;
        return std::max(*value, 0.0);
    }
    std::vector<double> pieces;
    for (std::size_t at = 0; at <= text.size();) {
        const auto colon = std::min(text.find(':', at), text.size());
        const auto piece = text.substr(at, colon - at);
        at = colon + 1;
        if (piece.empty()) continue;
        const auto value = parseNumber(piece);
        if (!value) return std::nullopt;
        pieces.push_back(*value);
    }
    double total = 0.0;
    if (pieces.size() == 2) {
        total = pieces[0] * 60.0 + pieces[1];
    } else if (pieces.size() == 3) {
        total = pieces[0] * 3600.0 + pieces[1] * 60.0 + pieces[2];
    } else {
        return std::nullopt;
    }
    return std::max(total, 0.0);
}

ExportPanelSummary panelSummary(const ProjectSession& session, const ExportRequest& request,
                                std::optional<int> sourceWidth, std::optional<int> sourceHeight) {
    const ProjectFormat format = exportOutputFormat(session, request);
    const auto estimated = estimate(session, request, sourceWidth, sourceHeight);
    const auto& video = request.videoSettings;
    ExportPanelSummary summary;
    auto& rows = summary.rows;
    rows.push_back({"Output", sizeText(format.width, format.height) + " · " +
                                  std::string(engine::label(request.preset.loudnessTarget))});
    rows.push_back(
        {"Codec", fmt::format("{} · {}", engine::label(video.codec), engine::label(video.bitrate))});
    rows.push_back({"Length", std::string(withoutPrefix(estimated.durationLabel(), "Export length "))});
    rows.push_back({"Size", std::string(withoutPrefix(estimated.fileSizeLabel(), "Est. file size "))});
    rows.push_back({"Encode", std::string(withoutPrefix(estimated.encodeTimeLabel(), "Est. encode "))});
    if (const auto range = exportTimeRange(session, request)) {
        const engine::ExportEstimate length{.durationSeconds = range->durationSeconds()};
        rows.push_back(
            {"Range", fmt::format("{} – {} ({})", ProjectPipeline::formatTimecode(range->startSeconds),
                                  ProjectPipeline::formatTimecode(range->endSeconds),
                                  withoutPrefix(length.durationLabel(), "Export length "))});
    }
    if (sourceWidth && sourceHeight &&
        (std::abs(*sourceWidth - format.width) >= 3 || std::abs(*sourceHeight - format.height) >= 3)) {
        rows.push_back({"Source", sizeText(*sourceWidth, *sourceHeight) + " → scale/re-encode"});
    }
    if (presetDiffersFromProject(session, request)) {
        const ProjectFormat project = projectFormat(session);
        const ProjectFormat preset = request.preset.projectFormat(session.frameDuration);
        summary.note = request.updateProjectFormat
                           ? "Will resize project to " + sizeText(preset.width, preset.height)
                           : "Keeping project format " + sizeText(project.width, project.height);
    }
    switch (video.codec) {
        case engine::ExportVideoCodec::proRes422:
            summary.actionTitle = "Export MOV…";
            break;
        case engine::ExportVideoCodec::gif:
            summary.actionTitle = "Export GIF…";
            break;
        default:
            summary.actionTitle = "Export MP4…";
            break;
    }
    return summary;
}

}  // namespace ExportSettings

}  // namespace morvane::app
