#include "morvane/engine/export/export_settings.hpp"

#include <algorithm>
#include <array>

#include "support/json_coding.hpp"

namespace morvane::engine {

double ExportTimeRange::durationSeconds() const noexcept {
    return std::max(endSeconds - startSeconds, 0.0);
}

bool ExportTimeRange::isValid() const noexcept {
    return durationSeconds() > 0.05;
}

std::string_view label(ExportRangeMode mode) noexcept {
    return mode == ExportRangeMode::fullProgram ? "Full program" : "Custom range…";
}

const ExportPreset ExportPreset::youtube1080{"youtube_1080", "YouTube 1080p",
                                             ProjectFormatPreset::youtube1080, LoudnessTarget::youtube};
const ExportPreset ExportPreset::youtube720{"youtube_720", "YouTube 720p", ProjectFormatPreset::youtube720,
                                            LoudnessTarget::youtube};
const ExportPreset ExportPreset::youtube480{"youtube_480", "YouTube 480p", ProjectFormatPreset::youtube480,
                                            LoudnessTarget::youtube};
const ExportPreset ExportPreset::youtube2K{"youtube_2k", "YouTube 2K", ProjectFormatPreset::youtube2K,
                                           LoudnessTarget::youtube};
const ExportPreset ExportPreset::youtube4K{"youtube_4k", "YouTube 4K", ProjectFormatPreset::youtube4K,
                                           LoudnessTarget::youtube};
const ExportPreset ExportPreset::shorts{"shorts", "Shorts / Reels / TikTok", ProjectFormatPreset::shorts,
                                        LoudnessTarget::youtube};
const ExportPreset ExportPreset::square{"square", "Square 1:1", ProjectFormatPreset::square,
                                        LoudnessTarget::youtube};
const ExportPreset ExportPreset::podcast{"podcast", "Podcast 1080p", ProjectFormatPreset::youtube1080,
                                         LoudnessTarget::podcast};

std::span<const ExportPreset> ExportPreset::all() {
    static const std::array<ExportPreset, 8> presets{youtube1080, youtube720, youtube480, youtube2K,
                                                     youtube4K,   shorts,     square,     podcast};
    return presets;
}

const ExportPreset* ExportPreset::preset(std::string_view id) {
    const auto presets = all();
    const auto it = std::find_if(presets.begin(), presets.end(), [&](const auto& p) { return p.id == id; });
    return it == presets.end() ? nullptr : &*it;
}

ProjectFormat ExportPreset::projectFormat(std::string frameDuration) const {
    return ProjectFormat::fromPreset(formatPreset, std::move(frameDuration));
}

std::string_view label(ExportVideoCodec codec) noexcept {
    switch (codec) {
        case ExportVideoCodec::hevc:
            return "HEVC (MP4)";
        case ExportVideoCodec::h264:
            return "H.264 (MP4)";
        case ExportVideoCodec::proRes422:
            return "ProRes 422 (MOV)";
        case ExportVideoCodec::gif:
            return "GIF";
    }
    return "H.264 (MP4)";
}

std::string_view fileExtension(ExportVideoCodec codec) noexcept {
    switch (codec) {
        case ExportVideoCodec::proRes422:
            return "mov";
        case ExportVideoCodec::gif:
            return "gif";
        case ExportVideoCodec::hevc:
        case ExportVideoCodec::h264:
            return "mp4";
    }
    return "mp4";
}

std::string_view label(ExportVideoBitrate bitrate) noexcept {
    switch (bitrate) {
        case ExportVideoBitrate::automatic:
            return "Automatic";
        case ExportVideoBitrate::low:
            return "Low (~8 Mbps)";
        case ExportVideoBitrate::medium:
            return "Medium (~12 Mbps)";
        case ExportVideoBitrate::high:
            return "High (~20 Mbps)";
        case ExportVideoBitrate::max:
            return "Max (~40 Mbps)";
    }
    return "Automatic";
}

double estimatorBaseMbps(ExportVideoBitrate bitrate) noexcept {
    switch (bitrate) {
        case ExportVideoBitrate::automatic:
        case ExportVideoBitrate::medium:
            return 8.0;
        case ExportVideoBitrate::low:
            return 5.0;
        case ExportVideoBitrate::high:
            return 16.0;
        case ExportVideoBitrate::max:
            return 35.0;
    }
    return 8.0;
}

GIFExportOptions ExportVideoSettings::gifOptions() const noexcept {
    return {.framesPerSecond = std::clamp(gifFramesPerSecond, 4, 30),
            .loop = gifLoop,
            .maxDimension = std::clamp(gifMaxDimension, 120, 1920)};
}

void to_json(Json& json, const ExportPreset& preset) {
    json = Json::object();
    json["id"] = preset.id;
    json["label"] = preset.label;
    json["formatPreset"] = kProjectFormatPresetNames.text(preset.formatPreset);
    json["loudnessTarget"] = kLoudnessTargetNames.text(preset.loudnessTarget);
}

void fromJson(const JsonReader& reader, ExportPreset& preset) {
    preset.id = reader["id"].get<std::string>();
    preset.label = reader["label"].get<std::string>();
    preset.formatPreset = detail::readEnum(reader["formatPreset"], kProjectFormatPresetNames);
    preset.loudnessTarget = detail::readEnum(reader["loudnessTarget"], kLoudnessTargetNames);
}

void to_json(Json& json, const ExportVideoSettings& settings) {
    json = Json::object();
    json["codec"] = kExportVideoCodecNames.text(settings.codec);
    json["bitrate"] = kExportVideoBitrateNames.text(settings.bitrate);
    json["gifFramesPerSecond"] = settings.gifFramesPerSecond;
    json["gifLoop"] = settings.gifLoop;
    json["gifMaxDimension"] = settings.gifMaxDimension;
}

void fromJson(const JsonReader& reader, ExportVideoSettings& settings) {
    settings.codec = detail::readEnum(reader["codec"], kExportVideoCodecNames);
    settings.bitrate = detail::readEnum(reader["bitrate"], kExportVideoBitrateNames);
    settings.gifFramesPerSecond = reader["gifFramesPerSecond"].get<int>();
    settings.gifLoop = reader["gifLoop"].get<bool>();
    settings.gifMaxDimension = reader["gifMaxDimension"].get<int>();
}

}  // namespace morvane::engine
