#include "morvane/engine/text/caption_burn_in_builder.hpp"

#include <algorithm>
#include <cmath>

#include "morvane/engine/plan/edit_plan_resolver.hpp"

namespace morvane::engine::CaptionBurnInBuilder {
namespace {

constexpr double kBoundaryTolerance = 0.001;
constexpr double kShortestCaption = 0.05;

double seconds(std::string_view time) {
    return EditPlanResolver::parseTime(time).seconds();
}

double milliseconds(double value) {
    return std::round(value * 1000.0) / 1000.0;
}

bool isKaraoke(const EditPlanOperation& operation) {
    return operation.text && operation.text->preset == "karaoke" && operation.text->captionWords &&
           !operation.text->captionWords->empty();
}

}  // namespace

std::vector<EditPlanOperation> textOperations(const EditPlan& plan, std::optional<ExportTimeRange> range) {
    std::vector<EditPlanOperation> out;
    for (const auto& op : plan.operations) {
        if (op.knownType() != EditPlanOperationType::text) continue;
        const std::string track = op.trackID.value_or("");
        if (track != "text" && track != "captions") continue;
        if (range && !(seconds(op.end) > range->startSeconds && seconds(op.start) < range->endSeconds))
            continue;
        out.push_back(op);
    }
    return out;
}

std::vector<double> karaokeBoundaries(const EditPlanOperation& operation) {
    // A text operation's times are program times.
    const double start = seconds(operation.start);
    const double end = std::max(seconds(operation.end), start + kShortestCaption);
    std::vector<double> times{start, end};
    if (operation.text && operation.text->captionWords) {
        for (const auto& word : *operation.text->captionWords) {
            for (const double t :
                 {milliseconds(start + seconds(word.start)), milliseconds(start + seconds(word.end))}) {
                if (t >= start - kBoundaryTolerance && t <= end + kBoundaryTolerance) times.push_back(t);
            }
        }
    }
    std::sort(times.begin(), times.end());
    std::vector<double> merged;
    for (const double t : times) {
        if (merged.empty() || t - merged.back() >= kBoundaryTolerance) merged.push_back(t);
    }
    return merged;
}

int estimatedJobCount(const EditPlan& plan, std::optional<ExportTimeRange> range) {
    int jobs = 0;
    for (const auto& op : textOperations(plan, range))
        jobs += isKaraoke(op) ? std::max(static_cast<int>(karaokeBoundaries(op).size()) - 1, 1) : 1;
    return jobs;
}

}  // namespace morvane::engine::CaptionBurnInBuilder
