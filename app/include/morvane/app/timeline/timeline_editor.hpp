#pragma once

/// The timeline's editing operations. Each is one undoable step run inside the session's mutation
/// wrapper; a refused edit returns false and changes nothing.

#include "morvane/app/timeline/timeline_document.hpp"

namespace morvane::app {

class ProjectSession;

namespace TimelineEditor {

/// Moves clips from "overlay" to "audio" when their source has no picture (an audio file dropped on the
/// overlay lane plays as sound, not as a black picture).
///
///     overlay: [music.wav] [broll.mov]        overlay: [broll.mov]
///     audio:   -                         ->   audio:   [music.wav]
void healMisplacedAudioOnOverlay(ProjectSession& session);

}  // namespace TimelineEditor

}  // namespace morvane::app
