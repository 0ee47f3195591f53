#pragma once

/// Caption sidecars: the text clips of an edit plan read back as cues, written as SRT or WebVTT. What is
/// on the text track at export time is the caption, whoever put it there.
///
///     std::string srt = CaptionExporter::srt(plan);
///     //  1
///     //  00:00:01,250 --> 00:00:03,000
///     //  Hi everyone,
///     std::string vtt = CaptionExporter::vtt(plan);   // "WEBVTT\n\n00:00:01.250 --> 00:00:03.000\n..."

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "morvane/engine/plan/edit_plan.hpp"
#include "morvane/engine/time/rational_time.hpp"

namespace morvane::engine {

/// One caption: its text over a stretch of program time.
struct CaptionCue {
    RationalTime start;
    RationalTime end;
    std::string text;

    friend bool operator==(const CaptionCue&, const CaptionCue&) = default;
};

namespace CaptionExporter {

/// The plan's text clips in program order (stable by start): each clip's payload content trimmed, or
/// without a payload its label as it is; clips without text are left out. Throws
/// `EngineError::invalidRationalTime` on a plan time that does not parse.
[[nodiscard]] std::vector<CaptionCue> cues(const EditPlan& plan);

/// The cues as SubRip text. Throws `EngineError::decodeFailed` "Edit plan has no caption clips" when there
/// are none, and as `cues`.
[[nodiscard]] std::string srt(const EditPlan& plan);

/// The cues as WebVTT text. Throws as `srt`.
[[nodiscard]] std::string vtt(const EditPlan& plan);

/// Writes the SRT of `plan` beside `movie` (same name, extension "srt"), atomically, and returns its path;
/// nothing, and nothing written, when the plan has no captions. Throws `std::filesystem::filesystem_error`
/// when the file can't be written.
std::optional<std::filesystem::path> writeSidecar(const EditPlan& plan, const std::filesystem::path& movie);

/// Cue text made safe for a sidecar: "-->" becomes "→" (no text can fake a timing line), line ends become
/// "\n", and blank lines and the blanks around each line go.
[[nodiscard]] std::string sanitizeCueText(std::string_view text);

/// "01:02:03,450" (`separator` ','), or "01:02:03.450" ('.'): a time rounded to whole milliseconds.
[[nodiscard]] std::string timestamp(RationalTime time, char separator);

}  // namespace CaptionExporter

}  // namespace morvane::engine
