#pragma once

/// A check of a whole timeline: what must hold after every edit, undo and redo. Tests call it after each
/// step; a debug build can call it after each edit.
///
///     EXPECT_EQ(checkConsistency(*session.timeline), std::vector<std::string>{});

#include <string>
#include <vector>

#include "morvane/app/timeline/timeline_document.hpp"

namespace morvane::app {

/// The broken rules, each as a sentence naming the clip or track; empty when the timeline is sound:
/// unique track ids, unique clip ids that are UUIDs, valid times, forward source ranges with assembly
/// ranges inside their clip's bounds, and clips on "source" and "program" in time order without overlap.
[[nodiscard]] std::vector<std::string> checkConsistency(const TimelineDocument& timeline);

}  // namespace morvane::app
