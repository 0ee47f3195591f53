#include "morvane/app/pipeline/project_pipeline.hpp"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "morvane/app/session/edit_coordinator.hpp"
#include "morvane/app/timeline/transcript_cut.hpp"
#include "morvane/intelligence/model/language_model.hpp"
#include "morvane/testing/fake_model_server.hpp"
#include "session_fixture.hpp"

namespace morvane::app {
namespace {

using namespace testing;
using ID = intelligence::AssistantCommandID;
using morvane::testing::FakeModelServer;

struct RecordingDelegate final : UserInterfaceDelegate {
    std::vector<std::string> titles;
    void showAlert(const std::string& title, const std::string&) override { titles.push_back(title); }
};

std::vector<std::string> chatTexts(const ProjectSession& session) {
    std::vector<std::string> texts;
    for (const auto& m : session.chatMessages)
        texts.push_back(m.text);
    return texts;
}

class ProjectPipelineFlow : public ::testing::Test {
  protected:
    ManualMainLoop loop;
    RecordingDelegate delegate;
    ProjectSession session;

    PipelineContext context(intelligence::LanguageModelService* model = nullptr) {
        return {.mainLoop = loop, .languageModel = model, .delegate = &delegate};
    }

    void run(const std::shared_ptr<PipelineRequest>& request) {
        ASSERT_TRUE(loop.runUntil([&] { return request->isFinished(); }));
        loop.runPending();
    }
};

TEST_F(ProjectPipelineFlow, cleanUpProposesARoughCutThenAcceptPromotesIt) {
    loadMessyTalk(session);
    run(ProjectPipeline::applyCommand(session, ID::cleanUp, context()));
    ASSERT_TRUE(session.isReviewingProposal()) << session.errorMessage.value_or("");
    EXPECT_EQ(session.pendingProposal->keepSegmentIDs, (std::vector{0, 2, 4}));  // filler and a retake go
    EXPECT_EQ(session.statusKind, SessionStatusKind::success);
    EXPECT_TRUE(session.statusMessage.starts_with("Clean up — kept 3 of 5 segments (0:20 → 0:0"))
        << session.statusMessage;
    EXPECT_TRUE(session.statusMessage.ends_with("Preview it now, then tap Accept Cut or Reject."))
        << session.statusMessage;
    const auto texts = chatTexts(session);
    ASSERT_EQ(texts.size(), 3u);
    EXPECT_EQ(texts[0], "Clean up");
    EXPECT_EQ(texts[1],
              "Checkpoint before cut — tap Restore checkpoint below to return to the timeline as it was.");
    EXPECT_EQ(texts[2], session.statusMessage);  // the thinking line became the result
    EXPECT_FALSE(session.chatMessages[2].isThinking);
    const auto& program = session.timeline->clips(TimelineTrackIDs::program);
    EXPECT_FALSE(program.empty());
    expectConsistent(session);
    EXPECT_EQ(session.editHistory.undoStack().back().label, "Propose Cut");

    ProjectPipeline::acceptRoughCut(session);
    EXPECT_FALSE(session.isReviewingProposal());
    EXPECT_TRUE(session.timeline->clips(TimelineTrackIDs::program).empty());
    ASSERT_EQ(session.timeline->clips(TimelineTrackIDs::source).size(), 1u);
    const auto& storyline = session.timeline->clips(TimelineTrackIDs::source).front();
    EXPECT_EQ(storyline.originSegmentIDs, (std::vector{0, 2, 4}));
    EXPECT_EQ(session.statusMessage,
              "Cut accepted — Storyline updated. Restore checkpoint to return to the Rough Cut.");
    EXPECT_TRUE(chatTexts(session)[1].starts_with("Cut accepted — 3/5 segments")) << chatTexts(session)[1];
    expectConsistent(session);

    // Restore now brings back the rough cut as it was reviewed, not the timeline from before the cut.
    EditCoordinator::restoreCutCheckpoint(session.chatMessages[1].id, session);
    EXPECT_FALSE(session.timeline->clips(TimelineTrackIDs::program).empty());
    EXPECT_TRUE(session.pendingProposal.has_value());
}

TEST_F(ProjectPipelineFlow, rejectRestoresTheExactPreviousState) {
    loadMessyTalk(session);
    TranscriptCutMaterializer::setWordsRemoved(session, {16}, true);  // some work before asking
    EditCoordinator::finalizeStructuralChange(session);
    const std::string before = EditableStateSnapshot::capture(session).encoded();
    run(ProjectPipeline::applyCommand(session, ID::retakesOnly, context()));
    ASSERT_TRUE(session.isReviewingProposal()) << session.errorMessage.value_or("");
    EXPECT_NE(EditableStateSnapshot::capture(session).encoded(), before);
    ProjectPipeline::rejectRoughCut(session);
    EXPECT_EQ(EditableStateSnapshot::capture(session).encoded(), before);
    EXPECT_EQ(session.statusMessage, "Rough cut discarded. Storyline restored.");
    EXPECT_EQ(chatTexts(session)[1],
              "Rough cut rejected — restored your previous timeline. Describe another cut when ready.");
    ProjectPipeline::rejectRoughCut(session);
    EXPECT_EQ(session.errorMessage, "No rough cut proposal to reject.");
}

TEST_F(ProjectPipelineFlow, refusesWhatCantRunWithTheRightWordsAndChangesNothing) {
    // No transcript yet.
    session.mediaURL = "/media/talk.mp4";
    run(ProjectPipeline::applyCommand(session, ID::removeSilence, context()));
    EXPECT_EQ(session.errorMessage, "Segment the transcript first.");
    EXPECT_FALSE(session.isBusy());

    loadMessyTalk(session);
    const std::string before = EditableStateSnapshot::capture(session).encoded();
    const auto chatBefore = session.chatMessages.size();
    const std::string deadURL = [] {
        const FakeModelServer gone;  // a port nothing listens on once this server is gone
        return gone.baseURL();
    }();
    intelligence::HttpLanguageModelService nowhere({.baseURL = deadURL, .availabilityTimeoutMs = 500});
    run(ProjectPipeline::applyCommand(session, ID::makeConcise, context(&nowhere)));
    EXPECT_EQ(session.errorMessage,
              "AI rough cuts need a language model server on this computer, and Morvane can't reach one.");
    EXPECT_EQ(EditableStateSnapshot::capture(session).encoded(), before);
    EXPECT_EQ(session.chatMessages.size(), chatBefore + 1);  // only the user's own line

    session.instruction = "Keep the parts about cats";  // free text, no model, no rule takes it
    run(ProjectPipeline::applyInstruction(session, context()));
    EXPECT_EQ(session.errorMessage,
              "AI rough cuts need a language model server on this computer, and Morvane can't reach one.");

    // A server that answers but has no model loaded asks the user to load one.
    FakeModelServer empty(std::vector<std::string>{});
    intelligence::HttpLanguageModelService idle({.baseURL = empty.baseURL()});
    run(ProjectPipeline::applyInstruction(session, context(&idle)));
    EXPECT_EQ(session.errorMessage,
              "Load a model in your local model server (Preferences → Language Model) to use AI rough cuts.");
    EXPECT_EQ(delegate.titles, (std::vector<std::string>{"Language Model Required"}));

    session.instruction = "   ";
    run(ProjectPipeline::applyInstruction(session, context()));
    EXPECT_EQ(session.errorMessage, "Enter an instruction.");
    run(ProjectPipeline::applyCommand(session, ID::objectMask, context()));
    EXPECT_EQ(session.errorMessage, "“Object mask” is coming soon.");
    run(ProjectPipeline::applyCommand(session, ID::reduceNoise, context()));
    EXPECT_EQ(session.errorMessage, "“Reduce noise” is not available yet.");
    EXPECT_EQ(EditableStateSnapshot::capture(session).encoded(), before);

    run(ProjectPipeline::applyCommand(session, ID::fillerOnly, context()));
    ASSERT_TRUE(session.isReviewingProposal());
    run(ProjectPipeline::applyCommand(session, ID::reduceNoise, context()));
    EXPECT_EQ(session.errorMessage, "Accept or Reject the current rough cut before proposing another.");
}

TEST_F(ProjectPipelineFlow, aTypedInstructionReachesTheModelAndReportsProgress) {
    loadMessyTalk(session);
    FakeModelServer server;
    server.onChat([](const nlohmann::json& request) {
        const std::string prompt = request["messages"].back()["content"];
        // Keep every segment that mentions "Today" or "Thanks".
        if (prompt.find("Does this segment match") != std::string::npos) {
            const auto open = prompt.find("Segment [") + 9;
            const std::string id = prompt.substr(open, prompt.find(']', open) - open);
            const auto transcript = prompt.substr(prompt.rfind("<transcript>"));
            const bool keep = transcript.find("Today") != std::string::npos ||
                              transcript.find("Thanks") != std::string::npos;
            return FakeModelServer::reply(keep ? "{\"keepSegmentIDs\":[" + id + "]}"
                                               : "{\"keepSegmentIDs\":[]}");
        }
        return FakeModelServer::reply("{\"keepSegmentIDs\":[]}");
    });
    intelligence::HttpLanguageModelService model({.baseURL = server.baseURL()});
    session.instruction = "Keep the parts about what we do today";
    run(ProjectPipeline::applyInstruction(session, context(&model)));
    ASSERT_TRUE(session.isReviewingProposal()) << session.errorMessage.value_or("");
    EXPECT_EQ(session.pendingProposal->keepSegmentIDs, (std::vector{2, 3, 4}));  // 5 segments: one pass only
    EXPECT_TRUE(session.statusMessage.starts_with("Proposed rough cut — kept 3 of 5 segments"))
        << session.statusMessage;
    EXPECT_EQ(server.chatRequests().size(), 5u);
}

TEST_F(ProjectPipelineFlow, cancellingARequestPutsEverythingBack) {
    loadMessyTalk(session);
    FakeModelServer server;
    server.onChat([](const nlohmann::json&) {
        auto slow = FakeModelServer::reply("{\"keepSegmentIDs\":[]}");
        slow.delayMs = 300;
        return slow;
    });
    intelligence::HttpLanguageModelService model({.baseURL = server.baseURL()});
    const std::string before = EditableStateSnapshot::capture(session).encoded();
    session.instruction = "Keep the parts about what we do today";
    auto request = ProjectPipeline::applyInstruction(session, context(&model));
    request->cancel();
    run(request);
    EXPECT_FALSE(session.isBusy());
    EXPECT_FALSE(session.isReviewingProposal());
    EXPECT_EQ(session.chatMessages.back().text, "Cut cancelled — your timeline is as it was.");
    EXPECT_EQ(EditableStateSnapshot::capture(session).encoded(), before);
}

TEST_F(ProjectPipelineFlow, transcriptCutAcceptAndResetAndToggles) {
    loadMessyTalk(session);
    ProjectPipeline::acceptTranscriptCut(session);
    EXPECT_EQ(session.errorMessage,
              "Nothing to accept — remove transcript words first, or use Accept on an AI rough cut.");

    ProjectPipeline::toggleWords(session, {4, 5}, true);
    EXPECT_EQ(session.statusMessage, "Removed 2 word(s). 15 words remain in the cut.");
    ProjectPipeline::toggleCut(session, 3, false);
    EXPECT_EQ(session.statusMessage, "Segment 03 removed. 3/5 in cut.");
    ProjectPipeline::toggleCut(session, 99, false);  // unknown: nothing, silently
    EXPECT_EQ(session.statusMessage, "Segment 03 removed. 3/5 in cut.");
    expectConsistent(session);
    EXPECT_EQ(session.editHistory.undoStack().size(), 2u);

    ProjectPipeline::resetTranscriptCut(session);
    EXPECT_TRUE(session.removedWordIDs.empty());
    EXPECT_EQ(session.statusMessage, "Transcript cut reset — all words kept.");

    std::set<int> all;
    for (int i = 0; i < 17; ++i)
        all.insert(i);
    ProjectPipeline::toggleWords(session, all, true);
    ProjectPipeline::acceptTranscriptCut(session);
    EXPECT_EQ(session.errorMessage, "Keep at least one word before accepting.");

    ProjectPipeline::toggleWords(session, {0, 1, 2, 3}, false);
    ProjectPipeline::acceptTranscriptCut(session);
    EXPECT_EQ(session.statusMessage,
              "Transcript cut applied — Storyline stitched. Restore checkpoint to undo.");
    ASSERT_EQ(session.timeline->clips(TimelineTrackIDs::source).size(), 1u);
    EXPECT_EQ(session.timeline->clips(TimelineTrackIDs::source)[0].originWordIDs, (std::vector{0, 1, 2, 3}));
    expectConsistent(session);
}

}  // namespace
}  // namespace morvane::app
