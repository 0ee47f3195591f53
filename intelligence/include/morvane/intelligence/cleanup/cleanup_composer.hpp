#pragma once

/// Clean up: the segments that the silence, filler and retake rules all keep.
///
///     auto run = CleanupComposer::classify(segments, transcript, "Remove mistakes...", "talk.mp4");
///     run.reason(7);   // "cleanup_drop:filler+retake"
///
/// The recording is read once for all three rules (`CleanupEvidence`). When the three together would
/// keep nothing, the silence rule's keep list stands, so a clean-up never empties a cut that has speech;
/// the verdicts still say what each rule thought.

#include <filesystem>
#include <optional>
#include <stop_token>
#include <string_view>

#include "morvane/engine/support/cancellation.hpp"
#include "morvane/intelligence/models/classification.hpp"
#include "morvane/intelligence/models/transcript.hpp"

namespace morvane::intelligence {

struct CleanupEvidence;

namespace CleanupComposer {

/// Whether typed text asks for the whole clean-up ("clean up", "remove mistakes", ...), ignoring case.
[[nodiscard]] bool matches(std::string_view instruction);

/// Runs the silence rule (with `instruction` and 1.5 s pauses), the filler rule and the retake rule over
/// `segments`, reading `mediaURL` once when given, and keeps what all three keep. A recording that can't
/// be read is passed over. Throws only `OperationCancelled`.
[[nodiscard]] ClassificationRun classify(const SegmentDocument& segments,
                                         const TranscriptDocument& transcript, std::string_view instruction,
                                         const std::optional<std::filesystem::path>& mediaURL,
                                         const ProgressCallback& progress = {}, std::stop_token stop = {});

/// The same with evidence already read for `segments`.
[[nodiscard]] ClassificationRun classify(const SegmentDocument& segments,
                                         const TranscriptDocument& transcript, std::string_view instruction,
                                         const CleanupEvidence& evidence);

}  // namespace CleanupComposer

}  // namespace morvane::intelligence
