#pragma once

/// Operations that change how a clip is framed rather than when it plays. Each finds the clip on any
/// track, stores the value and writes the track back; other clips are left alone. Run them inside the
/// session's mutation wrapper to make them one undoable step:
///
///     EditCoordinator::perform(session, "Auto-Reframe", [&] {
///         LayoutEditor::setReframeKeyframes(session, keyframes, clipID);
///     });

#include <optional>
#include <string_view>
#include <vector>

#include "morvane/engine/layout/reframe_keyframe.hpp"
#include "morvane/engine/presentation/clip_zoom_region.hpp"

namespace morvane::app {

class ProjectSession;

namespace LayoutEditor {

/// Gives clip `clipID` the crop keyframes `keyframes` (program time), replacing any it had. False, with
/// nothing changed, when no track holds the clip.
bool setReframeKeyframes(ProjectSession& session, std::vector<engine::ReframeKeyframe> keyframes,
                         std::string_view clipID);

/// Gives clip `clipID` the zoom regions `regions`, or none. False, with nothing changed, when no track
/// holds the clip.
bool setZoomRegions(ProjectSession& session, std::optional<std::vector<engine::ClipZoomRegion>> regions,
                    std::string_view clipID);

}  // namespace LayoutEditor

}  // namespace morvane::app
