#pragma once

/// What the chat panel does with its lines: the Restore of a checkpoint line, with the messages the user
/// reads when it can't.
///
///     ChatLog::restoreFromMessage(session, message.id);   // "Restored checkpoint from chat."

#include <string>

namespace morvane::app {

class ProjectSession;

namespace ChatLog {

/// Returns to the state filed under the chat line `messageID`, as a step that can be undone. A line that
/// isn't a checkpoint, a checkpoint whose state is gone, and a failing restore (during a save, or a plan
/// that can't be rebuilt) each show their message in the error banner and change nothing else.
void restoreFromMessage(ProjectSession& session, const std::string& messageID);

}  // namespace ChatLog

}  // namespace morvane::app
