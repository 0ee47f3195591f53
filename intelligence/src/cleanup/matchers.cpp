// The routing tests of the deterministic rules: plain, case-insensitive phrase containment.

#include "morvane/intelligence/cleanup/cleanup_composer.hpp"
#include "morvane/intelligence/cleanup/disfluency_detector.hpp"
#include "morvane/intelligence/cleanup/retake_detector.hpp"
#include "morvane/intelligence/cleanup/silence_remover.hpp"
#include "morvane/intelligence/support/text.hpp"

namespace morvane::intelligence {

bool SilenceRemover::matches(std::string_view instruction) {
    return containsAny(
        lowercased(instruction),
        {"remove silence", "cut silence", "strip silence", "no silence", "remove pauses", "cut pauses",
         "without silence", "spoken segments only", "keep spoken", "silence and long pauses"});
}

bool CleanupComposer::matches(std::string_view instruction) {
    return containsAny(lowercased(instruction),
                       {"remove mistakes", "filler words, and long pauses", "clean up", "mistakes, filler",
                        "false starts, and retakes"});
}

std::optional<DisfluencyDetector::Mode> DisfluencyDetector::mode(std::string_view instruction) {
    const std::string lowered = lowercased(instruction);
    if (containsAny(lowered, {"mostly filler", "false starts"})) return Mode::identifyFiller;
    if (containsAny(lowered, {"disfluenc"}) && containsAny(lowered, {"select segment"})) {
        return Mode::identifyFiller;
    }
    if (containsAny(lowered, {"remove filler", "remove ums", "remove uh", "remove disfluenc", "cut filler",
                              "cut ums", "without filler", "no filler", "clean up filler", "remove the ums",
                              "take out filler", "filler words and disfluencies"})) {
        return Mode::removeFiller;
    }
    return std::nullopt;
}

bool RetakeDetector::matches(std::string_view instruction) {
    return containsAny(lowercased(instruction),
                       {"retake", "re-take", "do that again", "start over", "duplicate take", "best take",
                        "remove retakes", "drop retakes", "dedupe", "de-dupe"});
}

}  // namespace morvane::intelligence
