// morvane: drop a file, pick a cut, export, from a terminal.

#include <cstdio>
#include <exception>
#include <thread>

#include "cli.hpp"
#include "morvane/engine/cache/media_cache_store.hpp"
#include "morvane/engine/support/cancellation.hpp"

int main(int argc, char** argv) {
    using namespace morvane::cli;
    // The window and the command line share the media cache; trimming it to its budget costs a listing of
    // its folders and runs beside the verb (joined on the way out).
    const std::jthread evict([] {
        morvane::engine::MediaCacheStore::evictIfNeeded(morvane::engine::MediaCacheStore::launchBudgetBytes);
    });
    CLI::App app{"Morvane: drop a file, pick a cut, export.", "morvane"};
    app.set_version_flag("--version", std::string("morvane ") + MORVANE_VERSION);
    app.require_subcommand(0, 1);
    app.fallthrough(false);
    RunState state;
    addCommandsVerb(app, state);
    addResolveVerb(app, state);
    addDemoVerb(app, state);
    addModelVerb(app, state);
    addCutVerb(app, state);
    addSilencesVerb(app, state);
    addLoudnessVerb(app, state);
    addWaveformVerb(app, state);
    addPlanVerb(app, state);
    addSegmentVerb(app, state);
    addClassifyVerb(app, state);
    addFrameVerb(app, state);
    addRenderAudioVerb(app, state);
    addRenderVerb(app, state);
    addShortsVerb(app, state);
    addReframeVerb(app, state);
    addProbeVerb(app, state);
    addTranscribeVerb(app, state);
    addProjectVerb(app, state);
    addTimelineVerb(app, state);
    addEditVerb(app, state);
    try {
        app.parse(argc, argv);
        if (app.get_subcommands().empty()) {
            std::fputs(app.help().c_str(), stderr);
            return 2;
        }
    } catch (const CLI::Success& e) {
        return app.exit(e);
    } catch (const CLI::Error& e) {
        app.exit(e);
        return 2;
    } catch (const morvane::OperationCancelled& e) {
        std::fprintf(stderr, "morvane: %s\n", e.what());
        return 130;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "morvane: %s\n", e.what());
        return 1;
    }
    return state.exitCode;
}
