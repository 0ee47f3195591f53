#pragma once

/// One record of what is known about a recording before the assistant cuts it: its silences, doubtful and
/// filler words, how the speech divides into phrases, sentences and topics, and which frames are worth
/// seeing. Proposals carry its notes as warnings. JSON keys are the field names.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "morvane/engine/support/enum_table.hpp"
#include "morvane/engine/support/json.hpp"

namespace morvane::intelligence {

struct EvidenceSilenceSpan {
    double startSeconds = 0.0;
    double endSeconds = 0.0;
    friend bool operator==(const EvidenceSilenceSpan&, const EvidenceSilenceSpan&) = default;
};

enum class EvidenceSpanLevel { phrase, sentence, topic };

inline constexpr auto kEvidenceSpanLevelNames = makeEnumTable<EvidenceSpanLevel>({
    {EvidenceSpanLevel::phrase, "phrase"},
    {EvidenceSpanLevel::sentence, "sentence"},
    {EvidenceSpanLevel::topic, "topic"},
});

/// A phrase, sentence or topic of the speech.
struct EvidenceSpan {
    int id = 0;  ///< number within its level, from 0
    EvidenceSpanLevel level = EvidenceSpanLevel::phrase;
    std::string text;
    double startSeconds = 0.0;
    double endSeconds = 0.0;
    int wordStartID = 0;
    int wordEndID = 0;
    std::vector<int> segmentIDs;  ///< empty for phrases
    friend bool operator==(const EvidenceSpan&, const EvidenceSpan&) = default;
};

/// Why a frame is worth seeing. `highEnergy` is reserved: nothing makes it yet.
enum class EvidenceFrameRole { opener, midpoint, closer, topicBoundary, highEnergy };

inline constexpr auto kEvidenceFrameRoleNames = makeEnumTable<EvidenceFrameRole>({
    {EvidenceFrameRole::opener, "opener"},
    {EvidenceFrameRole::midpoint, "midpoint"},
    {EvidenceFrameRole::closer, "closer"},
    {EvidenceFrameRole::topicBoundary, "topicBoundary"},
    {EvidenceFrameRole::highEnergy, "highEnergy"},
});

struct EvidenceFrameSample {
    double seconds = 0.0;
    EvidenceFrameRole role = EvidenceFrameRole::opener;
    std::optional<std::string> note;  ///< omitted from JSON when absent
    friend bool operator==(const EvidenceFrameSample&, const EvidenceFrameSample&) = default;
};

struct MediaEvidenceDocument {
    std::string sourceURL;
    std::string locale;
    double durationSeconds = 0.0;
    std::string generatedAt;  ///< ISO 8601
    std::vector<EvidenceSilenceSpan> silenceSpans;
    std::vector<int> disfluencyWordIDs;
    std::vector<int> lowConfidenceWordIDs;  ///< words with a confidence under 0.55
    std::vector<EvidenceSpan> phraseSpans;
    std::vector<EvidenceSpan> sentenceSpans;
    std::vector<EvidenceSpan> topicSpans;
    std::vector<EvidenceFrameSample> frameSamples;
    std::vector<std::string> notes;  ///< warnings, shown with a proposal
    friend bool operator==(const MediaEvidenceDocument&, const MediaEvidenceDocument&) = default;
};

void to_json(Json& json, const EvidenceSilenceSpan& span);
void fromJson(const JsonReader& reader, EvidenceSilenceSpan& span);
void to_json(Json& json, const EvidenceSpan& span);
void fromJson(const JsonReader& reader, EvidenceSpan& span);
void to_json(Json& json, const EvidenceFrameSample& sample);
void fromJson(const JsonReader& reader, EvidenceFrameSample& sample);
void to_json(Json& json, const MediaEvidenceDocument& document);
void fromJson(const JsonReader& reader, MediaEvidenceDocument& document);

}  // namespace morvane::intelligence
