// morvane transcribe FILE [-o transcript.json] [--locale en-US] [--engine pocketsphinx|whisper] [--json]:
// the words spoken in a recording, with their times.

#include <fmt/core.h>

#include <map>
#include <nlohmann/json.hpp>

#include "cli.hpp"
#include "morvane/engine/support/files.hpp"
#include "morvane/engine/support/preferences_store.hpp"
#include "morvane/intelligence/transcription/speech_recognizer_transcription_provider.hpp"
#include "progress.hpp"

namespace morvane::cli {

using namespace morvane::intelligence;

namespace {

std::string minutesAndSeconds(double seconds) {
    const auto whole = static_cast<long>(seconds);
    return fmt::format("{}:{:02d}", whole / 60, whole % 60);
}

void printSummary(const TranscriptDocument& transcript) {
    fmt::print("{}\n\n", transcript.fullText);
    std::map<std::string, int> fillers;
    for (const auto& hit : transcript.disfluencyHits)
        ++fillers[hit.token];
    std::string counted;
    for (const auto& [token, count] : fillers)
        counted += fmt::format("{}{} \"{}\"", counted.empty() ? "" : ", ", count, token);
    fmt::print("{} words, {} fillers{}{}{}; {} of audio; {}\n", transcript.words.size(),
               transcript.disfluencyHits.size(), counted.empty() ? "" : " (", counted,
               counted.empty() ? "" : ")", minutesAndSeconds(transcript.durationSeconds), transcript.locale);
}

}  // namespace

void addTranscribeVerb(CLI::App& app, RunState& /*state*/) {
    struct Options {
        std::string file;
        std::string output;
        std::string locale;
        std::string engine;
        bool json = false;
    };
    auto options = std::make_shared<Options>();
    std::map<std::string, TranscriptionEngine> engines;
    for (const auto& [engine, name] : kTranscriptionEngineNames)
        engines.emplace(name, engine);

    auto* verb = app.add_subcommand("transcribe", "Transcribe the speech of a recording, word by word");
    verb->add_option("file", options->file, "A video or audio file")->required();
    verb->add_option("-o,--output", options->output, "Write the transcript here as JSON");
    verb->add_option(
        "--locale", options->locale,
        "The language spoken, such as en-US (default: the one chosen in Preferences, else en-US)");
    verb->add_option(
            "--engine", options->engine,
            "pocketsphinx (built in, US English) or whisper (a whisper.cpp program and model named in "
            "Preferences or found on PATH and in ~/.local/share/Morvane/models)")
        ->check(CLI::IsMember(engines));
    verb->add_flag("--json", options->json, "Print the whole transcript as JSON");
    verb->callback([options, engines] {
        const PreferencesStore preferences;
        TranscriptionEngineChoice choice;
        if (!options->engine.empty()) choice.engine = engines.at(options->engine);
        const std::unique_ptr<TranscriptionProvider> provider =
            makeTranscriptionProvider(preferences, choice);
        const std::string locale = !options->locale.empty()
                                       ? options->locale
                                       : TranscriptionLocale::resolvedLocaleWithoutPrompt(preferences)
                                             .value_or(std::string(TranscriptionLocale::fallback));

        const TranscriptDocument transcript = withProgress(
            "transcribe",
            [&](const auto& progress, std::stop_token stop) {
                return provider->transcribe(options->file, {.locale = locale}, progress, std::move(stop));
            },
            {.timeLeft = true});

        if (!options->output.empty())
            writeFileAtomically(options->output, dumpJson(Json(transcript), 2) + "\n");
        if (options->json) {
            printJson(Json(transcript));
            return;
        }
        printSummary(transcript);
        if (!options->output.empty()) fmt::print("Written to {}\n", options->output);
    });
}

}  // namespace morvane::cli
