#pragma once

/// What one export is: the preset (canvas and loudness), the codec and its rate, the range of the program,
/// and the settings of an animated image. Plain values, usable from any thread.
///
///     const ExportPreset* preset = ExportPreset::preset("youtube_720");           // nothing for an unknown
///     id ProjectFormat format = preset->projectFormat("1001/30000");                  // 1280 x 720, rec709
///     ExportVideoSettings video{.codec = ExportVideoCodec::hevc, .bitrate = ExportVideoBitrate::high};
///     fileExtension(video.codec);                                                  // "mp4"
///     ExportTimeRange{12.0, 12.05}.isValid();                                      // false: 0.05 s is too
///     short

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "morvane/engine/export/loudness_target.hpp"
#include "morvane/engine/layout/project_format.hpp"
#include "morvane/engine/support/enum_table.hpp"
#include "morvane/engine/support/json.hpp"

namespace morvane::engine {

/// A stretch of the program to export, in program seconds.
struct ExportTimeRange {
    double startSeconds = 0.0;
    double endSeconds = 0.0;

    /// max(end − start, 0).
    [[nodiscard]] double durationSeconds() const noexcept;
    /// Whether the range is longer than 0.05 s.
    [[nodiscard]] bool isValid() const noexcept;

    friend bool operator==(const ExportTimeRange&, const ExportTimeRange&) = default;
};

/// Whether the whole program or a custom range is exported.
enum class ExportRangeMode { fullProgram, inOutMarkers };

/// The stored texts of `ExportRangeMode`.
inline constexpr auto kExportRangeModeNames = makeEnumTable<ExportRangeMode>({
    {ExportRangeMode::fullProgram, "fullProgram"},
    {ExportRangeMode::inOutMarkers, "inOutMarkers"},
});

/// "Full program" or "Custom range…".
[[nodiscard]] std::string_view label(ExportRangeMode mode) noexcept;

/// A named export target: a canvas from the format presets and a loudness norm.
struct ExportPreset {
    std::string id;
    std::string label;
    ProjectFormatPreset formatPreset = ProjectFormatPreset::youtube1080;
    LoudnessTarget loudnessTarget = LoudnessTarget::youtube;

    static const ExportPreset youtube1080;
    static const ExportPreset youtube720;
    static const ExportPreset youtube480;
    static const ExportPreset youtube2K;
    static const ExportPreset youtube4K;
    static const ExportPreset shorts;
    static const ExportPreset square;
    static const ExportPreset podcast;

    /// Every preset, in the order the export panel lists them.
    [[nodiscard]] static std::span<const ExportPreset> all();
    /// The preset whose id is exactly `id`, or nothing.
    [[nodiscard]] static const ExportPreset* preset(std::string_view id);

    /// The canvas of `formatPreset` at `frameDuration`, in rec709.
    [[nodiscard]] ProjectFormat projectFormat(std::string frameDuration) const;

    friend bool operator==(const ExportPreset&, const ExportPreset&) = default;
};

/// The codec (and with it the container) of an export.
enum class ExportVideoCodec { hevc, h264, proRes422, gif };

/// The stored texts of `ExportVideoCodec`.
inline constexpr auto kExportVideoCodecNames = makeEnumTable<ExportVideoCodec>({
    {ExportVideoCodec::hevc, "hevc"},
    {ExportVideoCodec::h264, "h264"},
    {ExportVideoCodec::proRes422, "proRes422"},
    {ExportVideoCodec::gif, "gif"},
});

/// "HEVC (MP4)", "H.264 (MP4)", "ProRes 422 (MOV)", "GIF".
[[nodiscard]] std::string_view label(ExportVideoCodec codec) noexcept;
/// "mp4", "mp4", "mov", "gif": the extension of the file the codec is written in.
[[nodiscard]] std::string_view fileExtension(ExportVideoCodec codec) noexcept;

/// How much data the video may take.
enum class ExportVideoBitrate { automatic, low, medium, high, max };

/// The stored texts of `ExportVideoBitrate`.
inline constexpr auto kExportVideoBitrateNames = makeEnumTable<ExportVideoBitrate>({
    {ExportVideoBitrate::automatic, "automatic"},
    {ExportVideoBitrate::low, "low"},
    {ExportVideoBitrate::medium, "medium"},
    {ExportVideoBitrate::high, "high"},
    {ExportVideoBitrate::max, "max"},
});

/// "Automatic", "Low (~8 Mbps)", "Medium (~12 Mbps)", "High (~20 Mbps)", "Max (~40 Mbps)".
[[nodiscard]] std::string_view label(ExportVideoBitrate bitrate) noexcept;
/// The rate the estimator assumes at 1080p, in Mbps: deliberately below the label's figure.
[[nodiscard]] double estimatorBaseMbps(ExportVideoBitrate bitrate) noexcept;

/// How an animated image is written.
struct GIFExportOptions {
    int framesPerSecond = 12;
    bool loop = true;
    int maxDimension = 480;  ///< pixels on the longer side

    friend bool operator==(const GIFExportOptions&, const GIFExportOptions&) = default;
};

/// The codec, its rate and the animated-image settings of an export. `{}` is the default: H.264 at the
/// automatic rate.
struct ExportVideoSettings {
    ExportVideoCodec codec = ExportVideoCodec::h264;
    ExportVideoBitrate bitrate = ExportVideoBitrate::automatic;
    int gifFramesPerSecond = 12;
    bool gifLoop = true;
    int gifMaxDimension = 480;

    /// The GIF settings with the frame rate clamped to 4…30 and the size to 120…1920.
    [[nodiscard]] GIFExportOptions gifOptions() const noexcept;

    friend bool operator==(const ExportVideoSettings&, const ExportVideoSettings&) = default;
};

/// JSON keys are the field names, all required; enumerations as their stored texts (the format preset as
/// in the project format, "youtube_1080"...).
void to_json(Json& json, const ExportPreset& preset);
void fromJson(const JsonReader& reader, ExportPreset& preset);
void to_json(Json& json, const ExportVideoSettings& settings);
void fromJson(const JsonReader& reader, ExportVideoSettings& settings);

}  // namespace morvane::engine
