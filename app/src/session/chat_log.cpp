#include "morvane/app/session/chat_log.hpp"

#include <algorithm>
#include <exception>

#include "morvane/app/session/edit_coordinator.hpp"
#include "morvane/app/session/project_session.hpp"

namespace morvane::app {

void ChatLog::restoreFromMessage(ProjectSession& session, const std::string& messageID) {
    const auto message = std::find_if(session.chatMessages.begin(), session.chatMessages.end(),
                                      [&](const ChatMessage& m) { return m.id == messageID; });
    if (message == session.chatMessages.end() || !message->isCutCheckpoint) {
        session.setError("This message is not a checkpoint.");
        return;
    }
    if (!session.cutCheckpoints.contains(messageID)) {
        session.setError("Checkpoint data is missing for this message. Try Save checkpoint again.");
        return;
    }
    try {
        EditCoordinator::requireUnlocked(session);
        EditCoordinator::restoreCutCheckpoint(messageID, session);
    } catch (const std::exception& error) {
        session.setError(error.what());
        return;
    }
    session.setSuccess("Restored checkpoint from chat.");
}

}  // namespace morvane::app
