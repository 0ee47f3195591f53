#pragma once

// Transcripts for tests, spoken word by word on a clock: say() lays out words of a fixed length with a
// fixed gap, pause() moves the clock on. Times land on timescale 60000.

#include <sstream>
#include <string>
#include <string_view>

#include "morvane/intelligence/models/transcript.hpp"

namespace morvane::intelligence::testing {

class TranscriptBuilder {
  public:
    TranscriptBuilder& say(std::string_view text, double wordSeconds = 0.3, double gapSeconds = 0.1,
                           std::optional<double> confidence = std::nullopt) {
        std::istringstream words{std::string(text)};
        for (std::string word; words >> word;) {
            if (!document_.words.empty()) now_ += gapSeconds;
            document_.words.push_back({static_cast<int>(document_.words.size()),
                                       word,
                                       at(now_),
                                       at(now_ + wordSeconds),
                                       confidence,
                                       {}});
            now_ += wordSeconds;
        }
        return *this;
    }

    TranscriptBuilder& pause(double seconds) {
        now_ += seconds;
        return *this;
    }

    [[nodiscard]] double now() const { return now_; }

    [[nodiscard]] TranscriptDocument build() const {
        TranscriptDocument document = document_;
        document.sourceURL = "talk.mp4";
        document.locale = "en-US";
        document.durationSeconds = now_ + 0.5;
        for (const auto& word : document.words) {
            if (!document.fullText.empty()) document.fullText += ' ';
            document.fullText += word.text;
        }
        document.disfluencyHits = TranscriptDocument::disfluencyHitsFor(document.words);
        return document;
    }

    static RationalTime at(double seconds) { return RationalTime::fromSeconds(seconds, 60000); }

  private:
    TranscriptDocument document_;
    double now_ = 0.0;
};

// A segment by hand: its text, its times in seconds and its word ids.
inline TranscriptSegment segmentOf(int id, std::string text, double start, double end, int wordStartID = 0,
                                   int wordEndID = -1) {
    return {id,          std::move(text), TranscriptBuilder::at(start), TranscriptBuilder::at(end),
            wordStartID, wordEndID};
}

inline SegmentDocument documentOf(std::vector<TranscriptSegment> segments) {
    const auto count = static_cast<int>(segments.size());
    return {.sourceTranscript = "talk.mp4", .segmentCount = count, .segments = std::move(segments)};
}

// A transcript and its segments.
struct Takes {
    TranscriptDocument transcript;
    SegmentDocument segments;
};

// One segment per line of text, each word 0.3 s long, 0.1 s apart, the lines a second apart.
inline Takes takes(std::initializer_list<const char*> lines) {
    TranscriptBuilder builder;
    std::vector<TranscriptSegment> segments;
    int words = 0;
    for (const char* line : lines) {
        const double start = builder.now();
        builder.say(line);
        const int count = static_cast<int>(builder.build().words.size());
        segments.push_back(
            segmentOf(static_cast<int>(segments.size()), line, start, builder.now(), words, count - 1));
        words = count;
        builder.pause(1.0);
    }
    return {builder.build(), documentOf(std::move(segments))};
}

}  // namespace morvane::intelligence::testing
