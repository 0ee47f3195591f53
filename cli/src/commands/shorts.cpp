// morvane shorts --transcript T.json [--media FILE] [--count 5] [--json]: the passages of a recording that
// stand alone as vertical shorts, best first, as the Extract Shorts sheet lists them.

#include <fmt/core.h>

#include <nlohmann/json.hpp>

#include "cli.hpp"
#include "morvane/app/pipeline/project_pipeline.hpp"
#include "morvane/intelligence/publish/shorts_candidate_scorer.hpp"
#include "progress.hpp"
#include "transcript_input.hpp"

namespace morvane::cli {

using namespace morvane::intelligence;

void addShortsVerb(CLI::App& app, RunState& /*state*/) {
    struct Options {
        std::string transcript;
        std::optional<std::string> media;
        int count = ShortsCandidateScorer::sheetMaxCandidates;
        bool json = false;
    };
    auto options = std::make_shared<Options>();
    auto* verb = app.add_subcommand("shorts", "List the passages that stand alone as vertical shorts");
    verb->add_option("--transcript", options->transcript, "The recording's transcript (JSON)")->required();
    verb->add_option("--media", options->media, "The recording: segment edges snap to its pauses");
    verb->add_option("--count", options->count, "How many passages at most")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    verb->add_flag("--json", options->json, "Print the passages as JSON");
    verb->callback([options] {
        const auto input = withProgress("shorts", [&](const auto& progress, std::stop_token stop) {
            return segmentTranscriptFile(options->transcript, options->media, progress, std::move(stop));
        });
        const auto candidates =
            ShortsCandidateScorer::propose(input.segments, &input.transcript, std::nullopt, options->count,
                                           ShortsCandidateScorer::sheetTargetDuration);
        if (options->json) {
            Json rows = Json::array();
            for (const auto& candidate : candidates) {
                Json row = candidate;
                row["startSeconds"] = candidate.sourceStart.seconds();
                row["endSeconds"] = candidate.sourceEnd.seconds();
                row["durationSeconds"] = candidate.durationSeconds();
                rows.push_back(std::move(row));
            }
            Json json = Json::object();
            json["candidates"] = std::move(rows);
            printJson(json);
            return;
        }
        if (candidates.empty()) {
            fmt::print("No passage of {:g} to {:g} seconds in {} segments.\n",
                       ShortsCandidateScorer::sheetTargetDuration.lower,
                       ShortsCandidateScorer::sheetTargetDuration.upper, input.segments.segmentCount);
            return;
        }
        fmt::print("   #     start -      end  length  score  title\n");
        for (std::size_t i = 0; i < candidates.size(); ++i) {
            const auto& candidate = candidates[i];
            fmt::print("{:4}  {:>8} - {:>8}  {:5.1f}s  {:.2f}   {}\n", i + 1,
                       app::ProjectPipeline::formatTimecode(candidate.sourceStart.seconds()),
                       app::ProjectPipeline::formatTimecode(candidate.sourceEnd.seconds()),
                       candidate.durationSeconds(), candidate.score, candidate.title);
            fmt::print("      {}, segments {}-{}\n", candidate.hookSummary, candidate.segmentIDs.front(),
                       candidate.segmentIDs.back());
        }
    });
}

}  // namespace morvane::cli
