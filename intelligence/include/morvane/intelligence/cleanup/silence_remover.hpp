#pragma once

/// Keeps the spoken segments and drops those that sit in long pauses.
///
///     auto run = SilenceRemover::classify(segments, "Remove silence.", "talk.mp4");
///     run.mergedKeepSegmentIDs;   // segments with text that aren't 70 % inside pauses of 1.5 s or more
///
/// A segment is spoken when its trimmed text has at least two characters and a letter or number. One that
/// is longer than 0.2 s and lies at least 70 % inside long pauses is dropped ("long_silence_overlap"); a
/// segment that isn't spoken is dropped ("no_speech"). If that would keep nothing, the spoken segments are
/// kept instead (or every segment, when none is spoken), all with "silence_remover_fallback".

#include <filesystem>
#include <optional>
#include <span>
#include <stop_token>
#include <string_view>

#include "morvane/engine/silence/silence_detector.hpp"
#include "morvane/engine/support/cancellation.hpp"
#include "morvane/intelligence/models/classification.hpp"
#include "morvane/intelligence/models/transcript.hpp"

namespace morvane::intelligence::SilenceRemover {

/// Pauses at least this long (seconds) count against a segment.
inline constexpr double defaultMinPauseSeconds = 1.5;

/// Whether typed text asks for silence removal ("cut pauses", "keep spoken", ...), ignoring case.
[[nodiscard]] bool matches(std::string_view instruction);

/// Decides every segment against the pauses of `mediaURL` that last at least `minPauseSeconds`. Without a
/// recording, or with one that can't be read, there are no pauses and only the text decides. Throws only
/// `OperationCancelled`.
[[nodiscard]] ClassificationRun classify(const SegmentDocument& segments, std::string_view instruction,
                                         const std::optional<std::filesystem::path>& mediaURL,
                                         double minPauseSeconds = defaultMinPauseSeconds,
                                         const ProgressCallback& progress = {}, std::stop_token stop = {});

/// The same decision against pauses already found (at the settings `CleanupEvidence` names).
[[nodiscard]] ClassificationRun classify(const SegmentDocument& segments, std::string_view instruction,
                                         std::span<const engine::SilenceSpan> silences,
                                         double minPauseSeconds = defaultMinPauseSeconds);

}  // namespace morvane::intelligence::SilenceRemover
