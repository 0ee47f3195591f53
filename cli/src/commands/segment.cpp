// morvane segment TRANSCRIPT.json [--media FILE] [--json]: the segments a transcript is cut into, snapped to
// the recording's pauses when it is given, with the phrases, sentences and topics of the speech.

#include <fmt/core.h>

#include <nlohmann/json.hpp>

#include "cli.hpp"
#include "morvane/intelligence/segmentation/hierarchical_segmenter.hpp"
#include "morvane/intelligence/support/text.hpp"
#include "progress.hpp"
#include "transcript_input.hpp"

namespace morvane::cli {

using namespace morvane::intelligence;

void addSegmentVerb(CLI::App& app, RunState& /*state*/) {
    struct Options {
        std::string transcript;
        std::optional<std::string> media;
        bool json = false;
    };
    auto options = std::make_shared<Options>();
    auto* verb =
        app.add_subcommand("segment", "Cut a transcript into segments, phrases, sentences and topics");
    verb->add_option("transcript", options->transcript, "A transcript (JSON)")->required();
    verb->add_option("--media", options->media, "Its recording: segment edges snap to its pauses");
    verb->add_flag("--json", options->json, "Print the segments and the hierarchy as JSON");
    verb->callback([options] {
        const auto input = withProgress("segment", [&](const auto& progress, std::stop_token stop) {
            return segmentTranscriptFile(options->transcript, options->media, progress, std::move(stop));
        });
        const auto hierarchy = HierarchicalSegmenter::build(input.transcript, input.segments.segments);
        if (options->json) {
            Json json = Json::object();
            json["segments"] = input.segments;
            json["hierarchy"] = Json::object();
            json["hierarchy"]["phraseSpans"] = hierarchy.phraseSpans;
            json["hierarchy"]["sentenceSpans"] = hierarchy.sentenceSpans;
            json["hierarchy"]["topicSpans"] = hierarchy.topicSpans;
            printJson(json);
            return;
        }
        fmt::print("{} segments from {} words", input.segments.segmentCount, input.transcript.words.size());
        if (input.silences) {
            fmt::print(", edges snapped to {} pauses\n", input.silences->size());
        } else {
            fmt::print(" (no recording given: edges at the words)\n");
        }
        for (const auto& segment : input.segments.segments) {
            fmt::print("{:4}  {:8.2f} - {:8.2f}  {}\n", segment.id, segment.start.seconds(),
                       segment.end.seconds(), segment.text);
        }
        fmt::print("\n{} phrases, {} sentences, {} topics\n", hierarchy.phraseSpans.size(),
                   hierarchy.sentenceSpans.size(), hierarchy.topicSpans.size());
        for (const auto& topic : hierarchy.topicSpans) {
            fmt::print("  topic {} at {:.2f} s, segments {}-{}: {}\n", topic.id, topic.startSeconds,
                       topic.segmentIDs.front(), topic.segmentIDs.back(), firstCharacters(topic.text, 60));
        }
    });
}

}  // namespace morvane::cli
