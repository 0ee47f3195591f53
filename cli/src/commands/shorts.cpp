// morvane shorts (NAME.morvane | FILE --transcript T.json | --transcript T.json [--media FILE]) [--count 5]
// [--json] [--export N -o short.mp4 [--codec C] [--reframe]]: the passages of a recording that stand alone
// as vertical shorts, best first, as the Extract Shorts sheet lists them; with --export, the N-th of them
// rendered on its own as a vertical short, and with --reframe made a short project first, whose crop
// follows the speaker.

#include <fmt/core.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>

#include "cli.hpp"
#include "morvane/app/pipeline/export_pipeline.hpp"
#include "morvane/app/pipeline/project_pipeline.hpp"
#include "morvane/app/pipeline/shorts_project_builder.hpp"
#include "morvane/intelligence/publish/shorts_candidate_scorer.hpp"
#include "progress.hpp"
#include "session_run.hpp"
#include "transcript_input.hpp"

namespace morvane::cli {

using namespace morvane::intelligence;
namespace fs = std::filesystem;

namespace {

struct Options {
    std::optional<std::string> target;
    std::optional<std::string> transcript;
    std::optional<std::string> media;
    int count = ShortsCandidateScorer::sheetMaxCandidates;
    bool json = false;
    std::optional<int> exportIndex;
    std::optional<std::string> output;
    std::string codec = "h264";
    bool reframe = false;
};

// After a rough cut only its kept segments are offered, as the sheet does; with nothing struck, none is
// left out.
std::optional<std::set<int>> keptSegmentsOf(const app::ProjectSession& session) {
    const std::vector<int> accepted = session.acceptedSegmentIDs();
    if (session.cutItems.empty() || accepted.size() == session.cutItems.size()) return std::nullopt;
    return std::set<int>(accepted.begin(), accepted.end());
}

void printCandidates(const std::vector<ShortsCandidate>& candidates, std::size_t segmentCount, bool json) {
    if (json) {
        Json rows = Json::array();
        for (const auto& candidate : candidates) {
            Json row = candidate;
            row["startSeconds"] = candidate.sourceStart.seconds();
            row["endSeconds"] = candidate.sourceEnd.seconds();
            row["durationSeconds"] = candidate.durationSeconds();
            rows.push_back(std::move(row));
        }
        Json out = Json::object();
        out["candidates"] = std::move(rows);
        printJson(out);
        return;
    }
    if (candidates.empty()) {
        fmt::print("No passage of {:g} to {:g} seconds in {} segments.\n",
                   ShortsCandidateScorer::sheetTargetDuration.lower,
                   ShortsCandidateScorer::sheetTargetDuration.upper, segmentCount);
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
}

void exportCandidate(const app::ProjectSession& session, const ShortsCandidate& candidate,
                     const Options& options) {
    const fs::path output = fs::absolute(*options.output);
    std::error_code same;
    if (session.mediaURL && fs::equivalent(*session.mediaURL, output, same))
        throw CLI::ValidationError("--output", "the short must not overwrite the recording");

    const auto codec = exportCodec(options.codec, output);
    std::atomic<double> progress = 0.0;
    std::exception_ptr failure;
    TerminalDelegate delegate;
    const auto exportOptions = [&](app::ExportRequest request) {
        request.videoSettings.codec = codec;
        return app::ExportMP4Options{
            .request = request,
            .progress = [&](double share) { progress = share; },
            .completion = [&](const app::ExportOutcome& outcome) { failure = outcome.error; }};
    };
    if (options.reframe) {
        // The short as a project of its own, as the Extract Shorts sheet makes it: its clip reframed to
        // follow the speaker, then exported on the project's vertical canvas.
        app::ProjectSession project;
        runRequest(project, "reframe", [&](app::MainLoop& loop) {
            return app::ShortsProjectBuilder::populateShortProject(session, candidate, project,
                                                                   {.mainLoop = loop, .delegate = &delegate});
        });
        if (project.errorMessage)
            fmt::print(stderr, "morvane: {} The short shows the whole picture.\n", *project.errorMessage);
        runRequest(
            project, "export",
            [&](app::MainLoop& loop) {
                return app::ProjectPipeline::exportMP4(
                    project, output, {.mainLoop = loop, .delegate = &delegate},
                    exportOptions(app::ExportRequest::defaultFor(project)));
            },
            &progress);
    } else {
        runRequest(
            session, "export",
            [&](app::MainLoop& loop) {
                return app::ProjectPipeline::exportShortCandidate(
                    session, candidate, output, {.mainLoop = loop, .delegate = &delegate}, exportOptions({}));
            },
            &progress);
    }
    // Said as any failure of the command is: "morvane: <reason>", 130 when cancelled.
    if (failure) std::rethrow_exception(failure);
    fmt::print("Short:       {} ({:.1f} s, {})\n", output.string(), candidate.durationSeconds(),
               candidate.title);
}

}  // namespace

void addShortsVerb(CLI::App& app, RunState& /*state*/) {
    auto options = std::make_shared<Options>();
    auto* verb = app.add_subcommand("shorts", "List the passages that stand alone as vertical shorts");
    verb->add_option("target", options->target, "A project, or a recording given with its transcript");
    verb->add_option("--transcript", options->transcript, "The recording's transcript (JSON)");
    verb->add_option("--media", options->media, "The recording: segment edges snap to its pauses");
    verb->add_option("--count", options->count, "How many passages at most")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    verb->add_flag("--json", options->json, "Print the passages as JSON");
    auto* exportIndex =
        verb->add_option("--export", options->exportIndex, "Export the passage of this number as a short")
            ->check(CLI::PositiveNumber);
    auto* output = verb->add_option("-o,--output", options->output, "Where the short goes (with --export)");
    exportIndex->needs(output);
    output->needs(exportIndex);
    verb->add_option("--codec", options->codec, "h264, hevc or prores")
        ->check(CLI::IsMember({"h264", "hevc", "prores"}))
        ->capture_default_str()
        ->needs(exportIndex);
    verb->add_flag("--reframe", options->reframe, "Crop the short to follow the speaker (with --export)")
        ->needs(exportIndex);
    verb->callback([options] {
        const bool project = options->target && isProjectBundle(*options->target);
        if (options->target && options->media)
            throw CLI::ValidationError("--media", "the recording is given already");
        if (project && options->transcript)
            throw CLI::ValidationError("--transcript", "a project keeps its own transcript");
        if (!project && !options->transcript) throw CLI::RequiredError("--transcript");
        const std::optional<std::string> media = options->target ? options->target : options->media;
        if (options->exportIndex && !media)
            throw CLI::ValidationError("--export", "a short is cut from a recording: give it, or a project");

        app::ProjectSession session;
        if (project) {
            openProject(session, *options->target);
            if (!session.segments || !session.transcript)
                throw std::runtime_error("the project has no transcript yet: run morvane project transcribe");
        } else if (media) {
            loadRecording(session, fs::absolute(*media), *options->transcript);
        } else {
            auto input = withProgress("shorts", [&](const auto& progress, std::stop_token stop) {
                return segmentTranscriptFile(*options->transcript, std::nullopt, progress, std::move(stop));
            });
            session.transcript = std::move(input.transcript);
            session.segments = std::move(input.segments);
        }

        // An export picks from the sheet's list, however many are printed.
        const int count =
            options->exportIndex ? std::max(options->count, *options->exportIndex) : options->count;
        const auto candidates =
            ShortsCandidateScorer::propose(*session.segments, &*session.transcript, keptSegmentsOf(session),
                                           count, ShortsCandidateScorer::sheetTargetDuration);
        if (!options->exportIndex) {
            printCandidates(candidates, session.segments->segmentCount, options->json);
            return;
        }
        const auto index = static_cast<std::size_t>(*options->exportIndex);
        if (index > candidates.size()) {
            throw CLI::ValidationError("--export",
                                       fmt::format("there {} only {} passage{} to choose from",
                                                   candidates.size() == 1 ? "is" : "are", candidates.size(),
                                                   candidates.size() == 1 ? "" : "s"));
        }
        exportCandidate(session, candidates[index - 1], *options);
    });
}

}  // namespace morvane::cli
