#pragma once

/// What the cleanup rules measure in a recording, read once per request and shared by every rule of it:
/// the pauses (for the silence rule) and each segment's level and steadiness (for the filler and retake
/// rules). Each rule given this gets the same answer as it would reading the file itself.
///
///     CleanupEvidence evidence = CleanupEvidence::read(segments, "talk.mp4");   // one decode for both
///     auto run = CleanupComposer::classify(segments, transcript, instruction, evidence);
///
/// A recording that can't be read gives no evidence of that kind, never an error: the rules then decide
/// from the transcript alone.

#include <filesystem>
#include <optional>
#include <stop_token>
#include <vector>

#include "morvane/engine/silence/silence_detector.hpp"
#include "morvane/engine/support/cancellation.hpp"
#include "morvane/intelligence/cleanup/segment_audio_meter.hpp"
#include "morvane/intelligence/models/transcript.hpp"

namespace morvane::intelligence {

/// Which measures to read.
struct CleanupEvidenceNeeds {
    bool silences = true;
    bool levels = true;
};

/// The rules' evidence about one recording. Empty: no recording, or none that could be read.
struct CleanupEvidence {
    /// The pauses, found at -40 dB with 0.02 s windows, 0.15 s minimum and 0.05 s padding.
    std::vector<engine::SilenceSpan> silences;
    /// One per segment of the document it was read for, in document order; none without audio.
    std::optional<std::vector<SegmentAudioLevel>> levels;

    /// The settings the rules detect silence with.
    [[nodiscard]] static engine::SilenceDetectionOptions silenceOptions() { return {}; }

    /// Reads what `needs` asks for from `mediaURL` for `segments`, decoding the track once: at 48 kHz for
    /// the levels, converted to 44.1 kHz beside that for the silences. No recording, or one that can't be
    /// read, gives nothing; progress is the share of the track read. Throws only `OperationCancelled`.
    /// Nothing is read for a document without segments.
    [[nodiscard]] static CleanupEvidence read(const SegmentDocument& segments,
                                              const std::optional<std::filesystem::path>& mediaURL,
                                              const CleanupEvidenceNeeds& needs = {},
                                              const ProgressCallback& progress = {},
                                              std::stop_token stop = {});
};

}  // namespace morvane::intelligence
