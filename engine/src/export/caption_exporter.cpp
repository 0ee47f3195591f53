#include "morvane/engine/export/caption_exporter.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>

#include "morvane/engine/engine_error.hpp"
#include "morvane/engine/plan/edit_plan_resolver.hpp"
#include "morvane/engine/support/files.hpp"
#include "morvane/engine/support/text.hpp"

namespace morvane::engine::CaptionExporter {
namespace {

constexpr std::string_view kNoCaptions = "Edit plan has no caption clips";

// The length in bytes of the line break starting at `at`, or 0: "\r\n", "\n", "\r", "\v", "\f", U+0085,
// U+2028 and U+2029 all end a line.
std::size_t lineBreakAt(std::string_view text, std::size_t at) {
    const auto rest = text.substr(at);
    if (rest.starts_with("\r\n")) return 2;
    if (rest.starts_with("\n") || rest.starts_with("\r") || rest.starts_with("\v") || rest.starts_with("\f"))
        return 1;
    if (rest.starts_with("\xC2\x85")) return 2;
    if (rest.starts_with("\xE2\x80\xA8") || rest.starts_with("\xE2\x80\xA9")) return 3;
    return 0;
}

std::string replaceAll(std::string text, std::string_view from, std::string_view to) {
    for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
    return text;
}

std::vector<CaptionCue> requiredCues(const EditPlan& plan) {
    auto out = cues(plan);
    if (out.empty()) throw EngineError::decodeFailed(std::string(kNoCaptions));
    return out;
}

}  // namespace

std::vector<CaptionCue> cues(const EditPlan& plan) {
    std::vector<ProgramClip> clips;
    for (auto& clip : EditPlanResolver::programClips(plan)) {
        if (clip.type == kEditPlanOperationTypeNames.text(EditPlanOperationType::text))
            clips.push_back(std::move(clip));
    }
    std::stable_sort(clips.begin(), clips.end(), [](const ProgramClip& a, const ProgramClip& b) {
        return a.timelineStart.seconds() < b.timelineStart.seconds();
    });
    std::vector<CaptionCue> out;
    for (const auto& clip : clips) {
        std::string text;
        if (clip.text) {
            text = trimWhitespaceAndNewlines(clip.text->content);
        } else if (clip.label) {
            text = *clip.label;
        }
        if (text.empty()) continue;
        out.push_back({clip.timelineStart, clip.end, std::move(text)});
    }
    return out;
}

std::string sanitizeCueText(std::string_view text) {
    const std::string cleaned = replaceAll(replaceAll(std::string(text), "-->", "→"), "\r\n", "\n");
    std::string out;
    std::size_t lineStart = 0;
    const auto takeLine = [&](std::size_t end) {
        const auto line =
            trimWhitespaceAndNewlines(std::string_view(cleaned).substr(lineStart, end - lineStart));
        if (line.empty()) return;
        if (!out.empty()) out += '\n';
        out += line;
    };
    for (std::size_t at = 0; at < cleaned.size();) {
        if (const std::size_t length = lineBreakAt(cleaned, at); length > 0) {
            takeLine(at);
            at += length;
            lineStart = at;
        } else {
            ++at;
        }
    }
    takeLine(cleaned.size());
    return out;
}

std::string timestamp(RationalTime time, char separator) {
    const double seconds = time.seconds();
    const long long total =
        std::max<long long>(std::llround(std::isfinite(seconds) ? seconds * 1000.0 : 0.0), 0);
    return fmt::format("{:02}:{:02}:{:02}{}{:03}", total / 3'600'000, (total / 60'000) % 60,
                       (total / 1000) % 60, separator, total % 1000);
}

std::string srt(const EditPlan& plan) {
    std::string out;
    int number = 1;
    for (const auto& cue : requiredCues(plan)) {
        if (number > 1) out += '\n';
        out += fmt::format("{}\n{} --> {}\n{}\n", number++, timestamp(cue.start, ','),
                           timestamp(cue.end, ','), sanitizeCueText(cue.text));
    }
    return out;
}

std::string vtt(const EditPlan& plan) {
    std::string out = "WEBVTT\n\n";
    bool first = true;
    for (const auto& cue : requiredCues(plan)) {
        if (!first) out += '\n';
        first = false;
        out += fmt::format("{} --> {}\n{}\n", timestamp(cue.start, '.'), timestamp(cue.end, '.'),
                           sanitizeCueText(cue.text));
    }
    return out;
}

std::optional<std::filesystem::path> writeSidecar(const EditPlan& plan, const std::filesystem::path& movie) {
    if (cues(plan).empty()) return std::nullopt;
    auto sidecar = movie;
    sidecar.replace_extension("srt");
    writeFileAtomically(sidecar, srt(plan));
    return sidecar;
}

}  // namespace morvane::engine::CaptionExporter
