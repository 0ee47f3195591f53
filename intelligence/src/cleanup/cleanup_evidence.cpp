#include "morvane/intelligence/cleanup/cleanup_evidence.hpp"

#include <exception>
#include <mutex>
#include <thread>

namespace morvane::intelligence {
namespace {

// Runs `read`, turning any failure but a stop into "no evidence".
template <class Read>
auto orNothing(Read&& read) -> std::optional<decltype(read())> {
    try {
        return read();
    } catch (const OperationCancelled&) {
        throw;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

// Two passes' progress as one share, reported from whichever thread moves.
class SharedProgress {
  public:
    SharedProgress(const ProgressCallback& progress, int passes) : progress_(progress), passes_(passes) {}

    ProgressCallback pass(int index) {
        if (!progress_) return {};
        return [this, index](double share) {
            const std::lock_guard lock(mutex_);
            shares_[index] = share;
            double sum = 0.0;
            for (int i = 0; i < passes_; ++i)
                sum += shares_[i];
            progress_(sum / passes_);
        };
    }

  private:
    const ProgressCallback& progress_;
    int passes_;
    std::mutex mutex_;
    double shares_[2] = {0.0, 0.0};
};

}  // namespace

CleanupEvidence CleanupEvidence::read(const SegmentDocument& segments, const std::filesystem::path& mediaURL,
                                      const CleanupEvidenceNeeds& needs, const ProgressCallback& progress,
                                      std::stop_token stop) {
    CleanupEvidence evidence;
    if (segments.segments.empty()) return evidence;
    SharedProgress shared(progress, (needs.silences ? 1 : 0) + (needs.levels ? 1 : 0));
    const auto detectSilences = [&, onProgress = shared.pass(0)] {
        return engine::SilenceDetector::detect(mediaURL, silenceOptions(), onProgress, stop);
    };
    const auto measureLevels = [&, onProgress = shared.pass(needs.silences ? 1 : 0)] {
        return SegmentAudioMeter::measure(segments.segments, mediaURL, onProgress, stop);
    };
    if (needs.silences && needs.levels) {
        // The passes decode independently and share nothing, so they run side by side.
        std::optional<std::vector<engine::SilenceSpan>> silences;
        std::exception_ptr failure;
        {
            const std::jthread worker([&] {
                try {
                    silences = orNothing(detectSilences);
                } catch (...) {
                    failure = std::current_exception();
                }
            });
            evidence.levels = orNothing(measureLevels);
        }
        if (failure) std::rethrow_exception(failure);
        evidence.silences = std::move(silences).value_or(std::vector<engine::SilenceSpan>{});
    } else if (needs.silences) {
        evidence.silences = orNothing(detectSilences).value_or(std::vector<engine::SilenceSpan>{});
    } else if (needs.levels) {
        evidence.levels = orNothing(measureLevels);
    }
    return evidence;
}

}  // namespace morvane::intelligence
