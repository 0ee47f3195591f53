#include "recording_loader.hpp"

#include <exception>
#include <nlohmann/json.hpp>

#include "morvane/app/session/project_session.hpp"
#include "morvane/app/support/main_loop.hpp"
#include "morvane/app/timeline/timeline_plan_bridge.hpp"
#include "morvane/engine/probe/media_probe.hpp"
#include "morvane/engine/support/cancellation.hpp"
#include "morvane/engine/support/files.hpp"
#include "morvane/engine/support/json.hpp"
#include "morvane/intelligence/models/transcript.hpp"
#include "morvane/intelligence/segmentation/segmenter.hpp"

namespace morvane::studio {

namespace {

struct Loaded {
    engine::MediaProbeReport probe;
    intelligence::TranscriptDocument transcript;
    intelligence::SegmentDocument segments;
};

Loaded readRecording(const std::filesystem::path& media, const std::filesystem::path& transcriptPath,
                     const std::stop_token& stop) {
    Loaded out;
    out.probe = engine::MediaProbe::probe(media, stop);
    const std::string name = transcriptPath.filename().string();
    const Json json = parseJson(readWholeFile(transcriptPath), name);
    out.transcript = JsonReader(json, name).get<intelligence::TranscriptDocument>();
    out.segments = intelligence::Segmenter::segment(out.transcript, media, {}, {}, {}, stop);
    return out;
}

void apply(app::ProjectSession& session, const std::filesystem::path& media, Loaded loaded) {
    const std::string label = media.filename().string();
    session.resetForNewProject(media.stem().string());
    session.mediaURL = media;
    session.mediaTitle = label;
    session.mediaDurationSeconds =
        loaded.probe.durationSeconds > 0 ? loaded.probe.durationSeconds : loaded.transcript.durationSeconds;
    session.mediaHasVideo = loaded.probe.video.has_value();
    session.mediaBin.push_back({.id = "src1",
                                .label = label,
                                .urlPath = media.string(),
                                .kind = app::MediaBinKind::primary,
                                .durationSeconds = *session.mediaDurationSeconds,
                                .hasVideo = loaded.probe.video.has_value(),
                                .hasAudio = loaded.probe.audio.has_value()});
    session.transcript = std::move(loaded.transcript);
    session.segments = std::move(loaded.segments);
    session.transcriptSourceID = "src1";
    app::TimelinePlanBridge::bootstrapSourceTimeline(session, "src1");
    session.seedCutItemsFromSegments("transcript");
    session.commitSourceTranscript();
    session.editPlan = app::TimelinePlanBridge::rebuildEditPlan(session);
    session.rebuildPlaybackMap();
    session.setSuccess("Opened " + label + " — " + std::to_string(session.segments->segments.size()) +
                       " segments. Select words in the transcript, press Delete to cut, then Accept.");
}

}  // namespace

std::shared_ptr<RecordingLoad> RecordingLoader::open(app::ProjectSession& session, app::MainLoop& loop,
                                                     std::filesystem::path media,
                                                     std::filesystem::path transcript) {
    auto load = std::make_shared<RecordingLoad>();
    session.setBusy(true, "Opening " + media.filename().string() + "…", app::MediaJobKind::importMedia);
    std::weak_ptr<RecordingLoad> weak = load;
    load->worker_ = std::jthread([&session, &loop, weak, media = std::move(media),
                                  transcript = std::move(transcript)](std::stop_token stop) {
        std::function<void()> last;
        try {
            auto loaded = std::make_shared<Loaded>(readRecording(media, transcript, stop));
            last = [&session, media, loaded] { apply(session, media, std::move(*loaded)); };
        } catch (const OperationCancelled&) {
            last = [&session] { session.setBusy(false, "Opening cancelled."); };
        } catch (const std::exception& error) {
            last = [&session, description = std::string(error.what())] {
                session.setBusy(false, "Open failed.");
                session.setError("Could not open the recording: " + description);
            };
        }
        loop.post([weak, last = std::move(last)] {
            last();
            if (const auto alive = weak.lock()) alive->finished_ = true;
        });
    });
    return load;
}

}  // namespace morvane::studio
