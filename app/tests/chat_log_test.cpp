#include "morvane/app/session/chat_log.hpp"

#include <gtest/gtest.h>

#include "morvane/app/pipeline/project_pipeline.hpp"
#include "morvane/app/session/edit_coordinator.hpp"
#include "session_fixture.hpp"

namespace morvane::app {
namespace {

using namespace testing;

TEST(ChatLog, restoreFromALineRefusesWhatIsNoCheckpointAndRestoresWhatIs) {
    ProjectSession session;
    loadShortTalk(session);
    const std::string checkpoint = session.saveNamedCheckpoint("Before words");
    ProjectPipeline::toggleWords(session, {1}, true);
    ASSERT_TRUE(session.removedWordIDs.contains(1));
    session.chatMessages.push_back(
        {.id = "plain-line", .role = ChatMessage::Role::assistant, .text = "Hello"});
    session.chatMessages.push_back(
        {.id = "orphan", .role = ChatMessage::Role::system, .text = "Old", .isCutCheckpoint = true});
    const std::string lockJob = "lock";

    struct Case {
        const char* what;
        std::string messageID;
        bool locked;
        std::optional<std::string> error;
    };
    const std::vector<Case> refused{
        {"an ordinary line", "plain-line", false, "This message is not a checkpoint."},
        {"an unknown line", "nothing-here", false, "This message is not a checkpoint."},
        {"a checkpoint without its state", "orphan", false,
         "Checkpoint data is missing for this message. Try Save checkpoint again."},
        {"during a save", checkpoint, true, "Still opening or saving the project — try again in a moment."},
    };
    for (const auto& c : refused) {
        std::string job;
        if (c.locked) job = session.beginJob(MediaJobKind::projectSave, "Saving…");
        const auto undoDepth = session.editHistory.undoStack().size();
        const std::string status = session.statusMessage;
        ChatLog::restoreFromMessage(session, c.messageID);
        EXPECT_EQ(session.errorMessage, c.error) << c.what;
        EXPECT_EQ(session.statusMessage, status) << c.what;
        EXPECT_TRUE(session.removedWordIDs.contains(1)) << c.what;
        EXPECT_EQ(session.editHistory.undoStack().size(), undoDepth) << c.what;
        if (c.locked) session.endJob(job);
        session.setError(std::nullopt);
    }

    ChatLog::restoreFromMessage(session, checkpoint);
    EXPECT_FALSE(session.errorMessage.has_value());
    EXPECT_EQ(session.statusMessage, "Restored checkpoint from chat.");
    EXPECT_FALSE(session.removedWordIDs.contains(1));
    EXPECT_EQ(session.editHistory.undoMenuTitle(), "Undo Restore Cut");
    EditCoordinator::undo(session);  // a restore is itself undone
    EXPECT_TRUE(session.removedWordIDs.contains(1));
}

}  // namespace
}  // namespace morvane::app
