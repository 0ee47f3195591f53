#pragma once

/// From an edit plan to a movie file: the composition is built, its frames encoded (or, for a plain cut
/// whose cuts fall on the source's key frames, its H.264 copied as it is), its mixed sound finished to the
/// loudness target and encoded, and the written file read back for the report.
///
///     RenderReport report = MP4Exporter::render(plan, "talk-cut.mp4",
///                                               {.audio = AudioFinishingOptions::forExport(),
///                                                .videoSettings = {.codec = ExportVideoCodec::hevc}},
///                                               [](double share) { bar.set(share); }, stop);
///     report.durationSeconds;   // as the written file says
///
/// Progress runs 0 → 0.34 while the composition is built, then 0.34 → 1 while the encoder works, polled
/// every 100 ms. The output is replaced from the start: any old file at the path is removed first, the new
/// one is written beside it under a temporary name and renamed when complete, so a failed or cancelled
/// export leaves nothing at the path.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "morvane/engine/audio/audio_finishing_options.hpp"
#include "morvane/engine/composition/composition_builder.hpp"
#include "morvane/engine/export/export_settings.hpp"
#include "morvane/engine/plan/edit_plan.hpp"
#include "morvane/engine/support/cancellation.hpp"
#include "morvane/engine/support/json.hpp"

namespace morvane::engine {

/// What an exporter wrote.
struct RenderReport {
    std::string outputPath;
    double durationSeconds = 0.0;  ///< as read back from the written file
    std::int64_t frameCount = 0;   ///< whole frames of the plan's frame duration in that length

    friend bool operator==(const RenderReport&, const RenderReport&) = default;
};

/// JSON keys are the field names.
void to_json(Json& json, const RenderReport& report);
void fromJson(const JsonReader& reader, RenderReport& report);

/// The encoder setups an export picks from.
enum class ExportPresetName {
    passthrough,         ///< the source's streams as they are
    preset640x480,       ///< H.264 within 640 x 480
    preset1280x720,      ///< H.264 within 1280 x 720
    preset1920x1080,     ///< H.264 within 1920 x 1080
    preset3840x2160,     ///< H.264 within 3840 x 2160
    highestQuality,      ///< H.264 at any size, finer quality
    hevc1920x1080,       ///< HEVC within 1920 x 1080
    hevcHighestQuality,  ///< HEVC at any size, finer quality
    proRes422LPCM,       ///< ProRes 422 with PCM sound, in a QuickTime movie
};

/// The stored texts of `ExportPresetName`.
inline constexpr auto kExportPresetNames = makeEnumTable<ExportPresetName>({
    {ExportPresetName::passthrough, "passthrough"},
    {ExportPresetName::preset640x480, "640x480"},
    {ExportPresetName::preset1280x720, "1280x720"},
    {ExportPresetName::preset1920x1080, "1920x1080"},
    {ExportPresetName::preset3840x2160, "3840x2160"},
    {ExportPresetName::highestQuality, "highestQuality"},
    {ExportPresetName::hevc1920x1080, "hevc1920x1080"},
    {ExportPresetName::hevcHighestQuality, "hevcHighestQuality"},
    {ExportPresetName::proRes422LPCM, "proRes422LPCM"},
});

/// The container an export is written in.
enum class ExportFileType { mpeg4, quickTimeMovie };

/// What a preset name stands for at the encoder. The picture is scaled down, keeping its shape, to fit
/// `maxSize` when it is larger; it is never scaled up.
struct ExportEncoderSettings {
    ExportVideoCodec codec = ExportVideoCodec::h264;
    std::optional<PixelSize> maxSize;
    int quality = 20;        ///< the encoder's constant-quality value (lower is finer); unused by ProRes
    std::string_view speed;  ///< the encoder's speed preset ("fast"...); empty for ProRes
    bool pcmAudio = false;   ///< 16-bit PCM sound instead of AAC
    ExportFileType fileType = ExportFileType::mpeg4;

    friend bool operator==(const ExportEncoderSettings&, const ExportEncoderSettings&) = default;
};

/// The encoder setup of `name`. `passthrough` describes only the container (its streams are copied).
[[nodiscard]] ExportEncoderSettings encoderSettings(ExportPresetName name) noexcept;

/// `size` scaled down to fit `maxSize` keeping its shape (never up), each side then made even (at least 2)
/// as 4:2:0 pictures require.
[[nodiscard]] PixelSize fittedOutputSize(PixelSize size, std::optional<PixelSize> maxSize) noexcept;

/// What `MP4Exporter::render` is asked for beside the plan.
struct MP4RenderOptions {
    AudioFinishingOptions audio = AudioFinishingOptions::forExport();
    std::optional<ExportTimeRange> timeRange;  ///< the whole program when absent or not valid
    ExportVideoSettings videoSettings;
    bool burnInCaptions = false;
};

/// What `MP4Exporter::exportComposition` is asked for beside the composition.
struct MP4ExportOptions {
    std::optional<ExportTimeRange> timeRange;
    ExportVideoSettings videoSettings;
    LoudnessTarget loudnessTarget = LoudnessTarget::none;  ///< the mixed sound is brought to it
    /// Encoder settings to use instead of those `videoSettings` name; no copy of the source is tried.
    std::optional<ExportEncoderSettings> encoderOverride;
};

namespace MP4Exporter {

/// Renders `plan` (source URLs resolved) to `to`. Throws `EngineError` as `CompositionBuilder::build`
/// does (a missing source is `missingFile`), as `exportComposition` does, `readerFailed` when the written
/// file can't be read back, and `OperationCancelled`.
RenderReport render(const EditPlan& plan, const std::filesystem::path& to,
                    const MP4RenderOptions& options = {}, const ProgressCallback& progress = {},
                    std::stop_token stop = {});

/// Encodes a built composition to `to`. A plain cut (H.264 at the automatic rate, no video composition)
/// is first tried as a copy of the source's video; when its cuts don't allow that, it is encoded at the
/// preset the bitrate names. Throws `EngineError::exportFailed` when the old file can't be removed or the
/// folder can't be made; `readerFailed` with the encoder's or the file system's reason (or "Video export
/// failed") when the export itself fails; `OperationCancelled` when stopped.
void exportComposition(const CompositionBuildResult& build, const std::filesystem::path& to,
                       const MP4ExportOptions& options = {}, const ProgressCallback& progress = {},
                       std::stop_token stop = {});

/// The preset for `codec`: by the rounded height of a known `renderSize` (both sides positive), else by
/// `bitrate`. H.264 up to 480, 720, 1080 lines, above; HEVC up to 1080 lines, above; ProRes always the
/// same; any other codec the smallest preset.
[[nodiscard]] ExportPresetName exportPresetName(ExportVideoCodec codec, ExportVideoBitrate bitrate,
                                                std::optional<RenderSize> renderSize);

/// The plan's "text" operations that carry a text payload; with a range longer than 0.05 s, only those
/// that overlap it (end after its start, start before its end, in seconds). Throws
/// `EngineError::invalidRationalTime`.
[[nodiscard]] std::vector<EditPlanOperation> textOperations(const EditPlan& plan,
                                                            std::optional<ExportTimeRange> range);

/// A copy of `plan` without its "text" operations, `keptText` appended at the end instead.
[[nodiscard]] EditPlan trimmedPlanKeepingText(const EditPlan& plan,
                                              const std::vector<EditPlanOperation>& keptText);

/// The program span a range stands for: from its start to the smaller of its end and the composition's
/// length, both at timescale 600; nothing when `range` is absent or not valid, or when the end isn't
/// after the start.
[[nodiscard]] std::optional<TimeSpan> exportTimeSpan(std::optional<ExportTimeRange> range,
                                                     RationalTime compositionDuration);

/// Whole frames of `frameDuration` ("1001/30000") in `durationSeconds`: the length on timescale 60000
/// (half away from zero), then on the frame duration's timescale (toward zero), divided by its value;
/// 0 when that value isn't positive. Throws `EngineError::invalidRationalTime`.
[[nodiscard]] std::int64_t frameCount(double durationSeconds, std::string_view frameDuration);

}  // namespace MP4Exporter

}  // namespace morvane::engine
