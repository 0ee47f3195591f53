#include "morvane/app/export/export_runner.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>

#include "morvane/app/pipeline/export_pipeline.hpp"
#include "morvane/app/session/project_session.hpp"
#include "pipeline/pipeline_support.hpp"

namespace morvane::app {

ExportProgressText ExportProgressHUD::texts(double progress) {
    const double value = std::clamp(std::isfinite(progress) ? progress : 0.0, 0.0, 1.0);
    const int percent = static_cast<int>(std::lround(value * 100.0));
    if (percent <= 2) return {value, percent, "Exporting…", "Preparing composition…"};
    const std::string detail = percent <= 33 ? fmt::format("Rendering captions… {}%", percent)
                                             : fmt::format("Encoding… {}%", percent);
    return {value, percent, fmt::format("Exporting… {}%", percent), detail};
}

bool ExportStatusThrottle::admit(int percent) {
    const std::lock_guard lock(mutex_);
    if (percent == lastPercent_ || !(percent > 98 || percent % 5 == 0)) return false;
    lastPercent_ = percent;
    return true;
}

std::shared_ptr<PipelineRequest> ExportRunner::run(ProjectSession& session, const ExportRequest& request,
                                                   const std::filesystem::path& to, PipelineContext context,
                                                   ExportRunOptions options) {
    const std::string runTitle = options.publish ? "Preparing YouTube upload…" : "Exporting video…";
    ExportProgressDisplay* display = options.display;
    if (display != nullptr) display->show(runTitle, "Starting encode…");
    session.setBusy(true, runTitle, MediaJobKind::exportMovie);

    try {
        ProjectPipeline::refreshEditPlan(session);
        session.rebuildPlaybackMap();
        session.notifyChange();
    } catch (const std::exception& e) {
        if (display != nullptr) display->dismiss();
        session.setError(e.what());
        return finishedRequest();
    }

    auto throttle = std::make_shared<ExportStatusThrottle>();
    const std::string preparing = options.publish ? "Preparing YouTube upload…" : "Preparing export…";
    MainLoop& loop = context.mainLoop;
    const auto onProgress = [&loop, &session, display, throttle, preparing](double value) {
        loop.post([&session, display, throttle, preparing, value] {
            const ExportProgressText text = ExportProgressHUD::texts(value);
            if (display != nullptr) display->update(text);
            if (!throttle->admit(text.percent)) return;
            session.setBusy(true, text.percent < 3 ? preparing : fmt::format("Exporting… {}%", text.percent));
        });
    };
    const auto onCompletion = [&session, display, to, publish = options.publish,
                               open = options.openUploadFlow](const ExportOutcome& outcome) {
        if (display != nullptr) display->dismiss();
        if (outcome.error) {
            std::string message = "Video export failed";
            try {
                std::rethrow_exception(outcome.error);
            } catch (const std::exception& e) {
                message = e.what();
            } catch (...) {
            }
            session.notifyChange();
            session.setError(message);
            return;
        }
        session.setSuccess(ProjectPipeline::exportSuccessMessage(to, publish));
        if (publish && open) open(to);
    };
    return ProjectPipeline::exportMP4(
        session, to, context, {.request = request, .progress = onProgress, .completion = onCompletion});
}

}  // namespace morvane::app
