#pragma once

/// The records that carry speech through Morvane: the word-level transcript of one media file and the
/// segments it is cut into. A segment is the unit of every assistant decision; a word the unit of a
/// transcript cut. Times are exact `RationalTime`s in source time.
///
///     Json json = parseJson(text, "talk.transcript.json");
///     auto transcript = JsonReader(json, "talk.transcript.json").get<TranscriptDocument>();
///     for (const auto& hit : transcript.disfluencyHits) ...        // "um", "uh", "like"...
///     Json out = transcript;                                        // keys in field order

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "morvane/engine/support/json.hpp"
#include "morvane/engine/time/rational_time.hpp"

namespace morvane::intelligence {

using engine::RationalTime;

/// One recognised word.
struct TranscriptWord {
    int id = 0;                             ///< unique in the document and rising with time
    std::string text;                       ///< as recognised, punctuation attached
    RationalTime start;                     ///< source time
    RationalTime end;                       ///< source time
    std::optional<double> confidence;       ///< recogniser confidence; omitted from JSON when absent
    std::vector<std::string> alternatives;  ///< other readings; always written, absent reads as empty

    friend bool operator==(const TranscriptWord&, const TranscriptWord&) = default;
};

/// The whole transcript of one media file.
struct TranscriptDocument {
    /// A spoken filler noticed while transcribing.
    struct DisfluencyHit {
        std::string token;  ///< the word lowercased, punctuation trimmed from its ends
        int wordID = 0;
        std::string text;  ///< the word as recognised

        friend bool operator==(const DisfluencyHit&, const DisfluencyHit&) = default;
    };

    /// The fillers that transcription records as hits. Deliberately shorter than the cleanup detector's
    /// list, which adds "hmm", "hm" and "mm".
    static constexpr std::array<std::string_view, 7> hitTokens{"um", "uh", "uhh", "umm", "er", "ah", "like"};

    std::string sourceURL;  ///< file path of the media
    std::string locale;     ///< locale identifier used for recognition
    double durationSeconds = 0.0;
    std::vector<TranscriptWord> words;  ///< in time order
    std::string fullText;               ///< the recogniser's running text, as it spaced and punctuated it
    std::vector<DisfluencyHit> disfluencyHits;

    /// One hit per word whose token (lowercased, punctuation trimmed) is in `hitTokens`, in word order.
    [[nodiscard]] static std::vector<DisfluencyHit> disfluencyHitsFor(
        const std::vector<TranscriptWord>& words);

    friend bool operator==(const TranscriptDocument&, const TranscriptDocument&) = default;
};

/// A run of words; the unit of assistant decisions.
struct TranscriptSegment {
    int id = 0;        ///< from 0 in document order
    std::string text;  ///< its words' texts joined with one blank
    RationalTime start;
    RationalTime end;
    int wordStartID = 0;  ///< id of its first word
    int wordEndID = 0;    ///< id of its last word

    friend bool operator==(const TranscriptSegment&, const TranscriptSegment&) = default;
};

/// The segments of one transcript, in time order.
struct SegmentDocument {
    std::string sourceTranscript;  ///< `sourceURL` of the transcript it came from
    int segmentCount = 0;
    std::vector<TranscriptSegment> segments;

    friend bool operator==(const SegmentDocument&, const SegmentDocument&) = default;
};

/// How far a kept range may run past its last word, so that the word's decay isn't clipped.
namespace TranscriptKeepRangePadding {

inline constexpr double tailSeconds = 0.15;

/// The end of a kept range whose last word ends at `lastWordEnd` (seconds): padded by `padSeconds`
/// (negative counts as 0) but never into the next kept word, and never before `lastWordEnd`.
[[nodiscard]] double paddedEnd(double lastWordEnd, std::optional<double> nextKeptWordStart,
                               double padSeconds);

}  // namespace TranscriptKeepRangePadding

// JSON: keys are the field names, in field order. Every key is required on reading except a word's
// "confidence" (omitted when absent) and "alternatives" (empty when absent).
void to_json(Json& json, const TranscriptWord& word);
void fromJson(const JsonReader& reader, TranscriptWord& word);
void to_json(Json& json, const TranscriptDocument::DisfluencyHit& hit);
void fromJson(const JsonReader& reader, TranscriptDocument::DisfluencyHit& hit);
void to_json(Json& json, const TranscriptDocument& document);
void fromJson(const JsonReader& reader, TranscriptDocument& document);
void to_json(Json& json, const TranscriptSegment& segment);
void fromJson(const JsonReader& reader, TranscriptSegment& segment);
void to_json(Json& json, const SegmentDocument& document);
void fromJson(const JsonReader& reader, SegmentDocument& document);

}  // namespace morvane::intelligence
