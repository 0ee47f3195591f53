#include "morvane/app/project/project_document.hpp"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "morvane/app/pipeline/project_pipeline.hpp"
#include "morvane/app/session/edit_coordinator.hpp"
#include "session_fixture.hpp"

namespace morvane::app {
namespace {

using namespace testing;

// A session with something in every part of the document: a transcript cut, a checkpoint, chat, a
// selection, a marker and a cursor track.
void loadWorkedOnTalk(ProjectSession& session) {
    loadShortTalk(session);
    ProjectPipeline::toggleWords(session, {1}, true);
    session.saveNamedCheckpoint("First pass");
    session.instruction = "tighten it";
    session.selectClip(session.timeline->clips(TimelineTrackIDs::source).front().id);
    session.addMarker(2.5, "Intro ends");
    session.cursorTracks["src1"] = engine::CursorTrack{{{0.5, 0.25, 0.75, {1}}}, 1920, 1080};
    EditCoordinator::finalizeStructuralChange(session);
}

// Where each clip plays from and to, and where it sits.
std::vector<std::string> ranges(const std::vector<TimelineClip>& clips) {
    std::vector<std::string> out;
    for (const auto& clip : clips)
        out.push_back(clip.sourceIn.formatted() + "-" + clip.sourceOut.formatted() + "@" +
                      clip.timelineStart.formatted());
    return out;
}

TEST(ProjectDocument, encodesWithSortedKeysAndReadsBackToTheSameBytes) {
    ProjectSession session;
    loadWorkedOnTalk(session);
    const ProjectDocument document = ProjectDocument::capture(session);
    EXPECT_EQ(document.version, 2);
    EXPECT_EQ(document.removedWordIDs, std::vector<int>{1});
    ASSERT_EQ(document.cutCheckpoints.size(), 1u);
    ASSERT_EQ(document.sourceTranscripts.count("src1"), 1u);  // the working copy was committed

    const std::string text = ProjectDocument::encode(document);
    const std::string again = ProjectDocument::encode(ProjectDocument::decode(text));
    EXPECT_EQ(again, text);

    const Json json = parseJson(text, "project.json");
    std::vector<std::string> keys;
    for (const auto& item : json.items())
        keys.push_back(item.key());
    EXPECT_TRUE(std::is_sorted(keys.begin(), keys.end()));
    EXPECT_EQ(keys.front(), "chatMessages");
    EXPECT_NE(text.find("\n  \"version\": 2\n"), std::string::npos);  // pretty printed
}

TEST(ProjectDocument, applyRestoresTheSessionAndRebuildsWhatIsDerived) {
    ProjectSession original;
    loadWorkedOnTalk(original);
    const ProjectDocument document = ProjectDocument::capture(original);

    ProjectSession opened;
    ProjectDocument::decode(ProjectDocument::encode(document)).apply(opened, std::nullopt);
    EXPECT_EQ(opened.projectName, original.projectName);
    EXPECT_EQ(opened.removedWordIDs, original.removedWordIDs);
    // The rough cut is laid down again from the struck words, as new clips over the same ranges.
    EXPECT_EQ(opened.timeline->clips(TimelineTrackIDs::source),
              original.timeline->clips(TimelineTrackIDs::source));
    EXPECT_EQ(opened.timeline->markers, original.timeline->markers);
    EXPECT_EQ(ranges(opened.timeline->clips(TimelineTrackIDs::program)),
              ranges(original.timeline->clips(TimelineTrackIDs::program)));
    EXPECT_EQ(opened.cutItems, original.cutItems);
    EXPECT_EQ(opened.instruction, "tighten it");
    EXPECT_EQ(opened.cutCheckpoints.size(), 1u);
    EXPECT_EQ(opened.namedCheckpoints.size(), 1u);
    EXPECT_EQ(opened.selectedClipIDs, original.selectedClipIDs);
    EXPECT_EQ(opened.cursorTracks, original.cursorTracks);
    EXPECT_EQ(opened.mediaURL, original.mediaURL);
    EXPECT_EQ(opened.mediaTitle, "talk.mp4");
    EXPECT_EQ(opened.mediaDurationSeconds, 20.0);
    // Derived again rather than stored.
    ASSERT_TRUE(opened.editPlan.has_value());
    EXPECT_EQ(opened.editPlan, original.editPlan);
    EXPECT_EQ(opened.playbackRanges, original.playbackRanges);
    EXPECT_TRUE(opened.editHistory.undoStack().empty());
    EXPECT_TRUE(opened.isDirty);
    expectConsistent(opened);
}

TEST(ProjectDocument, aFirstFormatProjectIsBroughtUpToDateInMemory) {
    ProjectSession original;
    loadShortTalk(original);
    Json json = ProjectDocument::capture(original);
    json.erase("version");
    json.erase("sourceTranscripts");
    for (auto& track : json["timeline"]["tracks"])
        track.erase("role");

    const ProjectDocument document = ProjectDocument::decode(dumpJson(json));
    EXPECT_EQ(document.version, 1);
    ProjectSession opened;
    document.apply(opened, std::nullopt);
    std::vector<std::optional<TimelineTrackRole>> roles;
    for (const auto& track : opened.timeline->tracks)
        roles.push_back(track.role);
    EXPECT_EQ(roles, (std::vector<std::optional<TimelineTrackRole>>{
                         TimelineTrackRole::storyline, TimelineTrackRole::dialogue, TimelineTrackRole::broll,
                         TimelineTrackRole::music, TimelineTrackRole::titles}));
    ASSERT_EQ(opened.sourceTranscripts.count("src1"), 1u);
    EXPECT_EQ(opened.sourceTranscripts.at("src1").transcript, *original.transcript);
}

TEST(ProjectDocument, aManifestWithOnlyANameOpensWithDefaults) {
    const ProjectDocument document = ProjectDocument::decode(R"({"name": "Bare"})");
    EXPECT_EQ(document.version, 1);
    EXPECT_EQ(document.frameDuration, "1001/30000");
    EXPECT_EQ(document.primarySourceID, "src1");
    ProjectSession session;
    document.apply(session, std::nullopt);
    EXPECT_EQ(session.mediaTitle, "Bare");  // no primary entry: the project's name stands in
    EXPECT_FALSE(session.mediaURL.has_value());
    EXPECT_TRUE(session.mediaHasVideo);
}

TEST(ProjectDocument, damagedManifestsSayWhatFailed) {
    ProjectSession session;
    loadShortTalk(session);
    const std::string good = ProjectDocument::encode(ProjectDocument::capture(session));
    Json wrongStart = parseJson(good, "project.json");
    wrongStart["timeline"]["tracks"][0]["clips"][0]["sourceIn"] = "3/600s";
    Json wrongRole = parseJson(good, "project.json");
    wrongRole["chatMessages"] =
        Json::array({Json{{"id", "x"}, {"role", "user"}, {"text", "hi"}, {"date", "now"}}});

    struct Case {
        std::string text;
        std::string message;
    } cases[] = {
        {good.substr(0, good.size() / 2), "project.json: not valid JSON: "},
        {"[1, 2]", "project.json: /: expected an object"},
        {R"({"version": 2})", "project.json: /name: required key is missing"},
        {R"({"name": 7})", "project.json: /name: expected a string, found an integer"},
        {R"({"name": "A", "version": "2"})", "project.json: /version: expected an integer, found a string"},
        {R"({"name": "A", "version": 0})", "project.json: /version: unknown format version 0"},
        {R"({"name": "A", "version": 2.5})", "project.json: /version: expected an integer"},
        {R"({"name": "A", "mediaBin": [{"id": "src1"}]})",
         "project.json: /mediaBin/0/label: required key is missing"},
        {dumpJson(wrongStart), "project.json: /timeline/tracks/0/clips/0/sourceIn"},
        {dumpJson(wrongRole), "project.json: /chatMessages/0/id: expected a UUID"},
    };
    for (const auto& c : cases) {
        try {
            (void)ProjectDocument::decode(c.text);
            ADD_FAILURE() << "decoded: " << c.text.substr(0, 80);
        } catch (const JsonDecodeError& e) {
            EXPECT_TRUE(std::string(e.what()).starts_with(c.message)) << e.what();
        }
    }
}

TEST(ProjectDocument, aNewerFormatIsRefusedAsSuchWhateverItHolds) {
    for (const std::string text : {R"({"name": "A", "version": 3})",
                                   R"({"version": 99999999999, "timeline": "a shape we don't know"})"}) {
        try {
            (void)ProjectDocument::decode(text);
            ADD_FAILURE() << text;
        } catch (const ProjectBundleError& e) {
            EXPECT_EQ(e.kind(), ProjectBundleError::Kind::newerFormat);
            EXPECT_TRUE(std::string(e.what()).starts_with(
                "This project requires a newer version of Morvane (format v"))
                << e.what();
        }
    }
    try {
        (void)ProjectDocument::decode(R"({"name": "A", "version": 3})");
    } catch (const ProjectBundleError& e) {
        EXPECT_STREQ(e.what(), "This project requires a newer version of Morvane (format v3).");
    }
}

}  // namespace
}  // namespace morvane::app
