#include "morvane/app/project/project_bundle_io.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include "morvane/app/project/project_autosave_controller.hpp"
#include "morvane/app/project/recent_projects_store.hpp"
#include "morvane/app/session/edit_coordinator.hpp"
#include "morvane/engine/engine_error.hpp"
#include "morvane/engine/support/files.hpp"
#include "morvane/engine/support/preferences_store.hpp"
#include "morvane/testing/scoped_environment.hpp"
#include "morvane/testing/temp_dir.hpp"
#include "session_fixture.hpp"

namespace morvane::app {
namespace {

namespace fs = std::filesystem;
using namespace testing;
using morvane::testing::TempDir;

// The short talk, its recording a real file (its bytes don't matter: nothing here decodes it).
class ProjectBundle : public ::testing::Test {
  protected:
    TempDir dir;
    ProjectSession session;
    fs::path recording;

    void SetUp() override {
        recording = dir.write("talk.mp4", "not really a movie");
        loadShortTalk(session);
        session.projectName = "Talk";
        session.mediaURL = recording;
        session.mediaBin.front().urlPath = recording.string();
        session.syncExtraSourcesFromMediaBin();
    }

    // Everything a save writes, as the next open would read it.
    static std::string stateOf(ProjectSession& s) {
        return ProjectDocument::encode(ProjectDocument::capture(s));
    }
    // The same, less the rough cut: opening lays it down afresh from the cut list.
    static std::string stateBesideRoughCut(ProjectSession& s) {
        ProjectDocument document = ProjectDocument::capture(s);
        document.timeline->track(TimelineTrackIDs::program)->clips.clear();
        return ProjectDocument::encode(document);
    }
};

ino_t inodeOf(const fs::path& file) {
    struct stat info {};
    EXPECT_EQ(::stat(file.c_str(), &info), 0) << file;
    return info.st_ino;
}

TEST(ProjectBundleIO, namesAndPathsOfBundles) {
    struct Case {
        const char* path;
        const char* bundle;
    } cases[] = {
        {"/p/Talk", "/p/Talk.morvane"},
        {"/p/Talk.morvane", "/p/Talk.morvane"},
        {"/p/Talk.morvane/", "/p/Talk.morvane"},
        {"/p/Interview 2024.03", "/p/Interview 2024.03.morvane"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(ProjectBundleIO::normalizedProjectURL(c.path), fs::path(c.bundle)) << c.path;

    struct Name {
        const char* name;
        const char* id;
        const char* safe;
    } names[] = {
        {"My Talk (final).mov", "src1", "My_Talk__final_.mov"},
        {"(1).mov", "src2", "_1_.mov"},
        {"(!).mov", "src2", "src2.mov"},  // nothing but punctuation: the id stands in
        {"()", "src3", "src3"},
        {"café.mp4", "src1", "caf__.mp4"},
        {"clip.tar.gz", "src1", "clip_tar.gz"},
        {".wav", "src4", "_wav"},  // a dot file's name has no extension
    };
    for (const auto& n : names)
        EXPECT_EQ(ProjectBundleIO::safeFilename(n.name, n.id), n.safe) << n.name;
}

TEST(ProjectBundleIO, theProjectsFolderIsInTheUsersDocuments) {
    const TempDir home;
    morvane::testing::ScopedEnvironment env;
    env.set("XDG_DOCUMENTS_DIR", (home.path() / "Docs").c_str());
    const fs::path folder = ProjectBundleIO::defaultProjectsDirectory();
    EXPECT_EQ(folder, home.path() / "Docs" / "Morvane Projects");
    EXPECT_TRUE(fs::is_directory(folder));
}

TEST_F(ProjectBundle, savesAPathWithoutExtensionAsABundleWithItsMediaCopiedIn) {
    ProjectBundleIO::save(session, dir.path() / "Talk");
    const fs::path bundle = dir.path() / "Talk.morvane";
    EXPECT_EQ(session.projectURL, bundle);
    EXPECT_FALSE(session.isDirty);
    // Not asked to copy, yet the file outside the bundle came in: a saved project is whole.
    EXPECT_EQ(session.mediaBin.front().urlPath, "Media/talk.mp4");
    EXPECT_EQ(readWholeFile(bundle / "Media" / "talk.mp4"), "not really a movie");
    EXPECT_EQ(session.mediaURL, bundle / "Media" / "talk.mp4");
    EXPECT_EQ(readWholeFile(recording), "not really a movie");

    // Saving again, copying everything, doesn't copy the file onto itself.
    const ino_t copied = inodeOf(bundle / "Media" / "talk.mp4");
    ProjectBundleIO::save(session, bundle, {.copyMedia = true});
    EXPECT_EQ(inodeOf(bundle / "Media" / "talk.mp4"), copied);

    ProjectSession opened;
    ProjectBundleIO::load(opened, bundle);
    EXPECT_EQ(stateBesideRoughCut(opened), stateBesideRoughCut(session));
    EXPECT_EQ(opened.timeline->clips(TimelineTrackIDs::program).size(), 2u);  // the kept segments, joined
    EXPECT_EQ(opened.projectURL, bundle);
    EXPECT_FALSE(opened.isDirty);
    EXPECT_EQ(opened.statusMessage, "Opened Talk.");
    EXPECT_EQ(opened.mediaURL, bundle / "Media" / "talk.mp4");
    expectConsistent(opened);
}

TEST_F(ProjectBundle, twoSourcesWithOneFileNameKeepTwoCopies) {
    const fs::path other = dir.path() / "b" / "talk.mp4";
    fs::create_directories(other.parent_path());
    writeFileAtomically(other, "the other talk");
    session.mediaBin.push_back({.id = "src2",
                                .label = "talk.mp4",
                                .urlPath = other.string(),
                                .kind = MediaBinKind::broll,
                                .durationSeconds = 3,
                                .hasVideo = true});
    const fs::path bundle = dir.path() / "Talk.morvane";
    ProjectBundleIO::save(session, bundle);
    EXPECT_EQ(session.mediaBin[0].urlPath, "Media/talk.mp4");
    EXPECT_EQ(session.mediaBin[1].urlPath, "Media/talk_src2.mp4");
    EXPECT_EQ(readWholeFile(bundle / "Media" / "talk.mp4"), "not really a movie");
    EXPECT_EQ(readWholeFile(bundle / "Media" / "talk_src2.mp4"), "the other talk");

    // The first file now lives in the bundle; the second arrives from outside under the same name.
    writeFileAtomically(other, "the other talk, re-exported");
    session.mediaBin[1].urlPath = other.string();
    ProjectBundleIO::save(session, bundle);
    EXPECT_EQ(readWholeFile(bundle / "Media" / "talk.mp4"), "not really a movie");
    EXPECT_EQ(readWholeFile(bundle / "Media" / "talk_src2.mp4"), "the other talk, re-exported");
}

TEST_F(ProjectBundle, aFailedSaveLeavesThePreviousManifestAndMarksTheProjectUnsaved) {
    const fs::path bundle = dir.path() / "Talk.morvane";
    ProjectBundleIO::save(session, bundle);
    const std::string before = readWholeFile(bundle / "project.json");

    session.mediaBin.push_back({.id = "src2",
                                .label = "gone.mov",
                                .urlPath = (dir.path() / "gone.mov").string(),
                                .kind = MediaBinKind::broll,
                                .durationSeconds = 3,
                                .hasVideo = true});
    session.isDirty = true;
    session.setSuccess("Trimmed the intro.");
    try {
        ProjectBundleIO::save(session, bundle);
        ADD_FAILURE() << "saved with a missing file";
    } catch (const engine::EngineError& e) {
        EXPECT_EQ(e.kind(), engine::EngineError::Kind::missingFile);
        EXPECT_NE(std::string(e.what()).find("gone.mov"), std::string::npos) << e.what();
    }
    EXPECT_EQ(readWholeFile(bundle / "project.json"), before);
    EXPECT_TRUE(session.isDirty);
    EXPECT_FALSE(session.hasExclusiveLock());
    EXPECT_EQ(session.statusMessage, "Trimmed the intro.");  // no "Saving…" left behind

    // Media is copied whole or not at all, and never through a link.
    fs::create_symlink(recording, dir.path() / "link.mp4");
    try {
        ProjectBundleIO::copyRegularFile(dir.path() / "link.mp4", bundle / "Media" / "link.mp4");
        ADD_FAILURE() << "copied a link";
    } catch (const EnginePathError& e) {
        EXPECT_STREQ(e.what(), "Symbolic links are not allowed in project media.");
    }
    EXPECT_FALSE(fs::exists(bundle / "Media" / "link.mp4"));
    EXPECT_EQ(readWholeFile(bundle / "project.json"), before);
}

TEST_F(ProjectBundle, opensThatFailLeaveTheSessionAndTheBundleAlone) {
    const fs::path bundle = dir.path() / "Talk.morvane";
    ProjectBundleIO::save(session, bundle);
    const std::string good = readWholeFile(bundle / "project.json");
    const fs::path plain = dir.path() / "plain";
    fs::create_directories(plain);
    const fs::path empty = dir.path() / "Empty.morvane";
    fs::create_directories(empty);

    struct Case {
        fs::path url;
        std::string manifest;  // written into the bundle first, when given
        std::string message;
    } cases[] = {
        {plain, "", "Not a Morvane project: plain"},
        {empty, "", "Missing project.json in Empty.morvane"},
        {bundle, good.substr(0, 100), "project.json: not valid JSON: "},
        {bundle, R"({"name": "Talk", "version": 3})",
         "This project requires a newer version of Morvane (format v3)."},
        {bundle, R"({"name": "Talk", "mediaBin": 5})",
         "project.json: /mediaBin: expected an array, found an integer"},
        {bundle,
         R"({"name": "Talk", "mediaBin": [{"id": "src1", "label": "x", "urlPath": "Media/../../etc/x.mp4",
                    "kind": "primary", "durationSeconds": 1, "hasVideo": true, "hasAudio": true}]})",
         "Media path is not allowed."},
    };
    ProjectSession other;
    loadShortTalk(other);
    const std::string untouched = stateOf(other);
    for (const auto& c : cases) {
        if (!c.manifest.empty()) writeFileAtomically(bundle / "project.json", c.manifest);
        try {
            ProjectBundleIO::load(other, c.url);
            ADD_FAILURE() << "opened " << c.url;
        } catch (const std::exception& e) {
            EXPECT_TRUE(std::string(e.what()).starts_with(c.message)) << e.what();
        }
        EXPECT_EQ(stateOf(other), untouched);
        EXPECT_FALSE(other.projectURL.has_value());
        EXPECT_FALSE(other.hasExclusiveLock());
        if (!c.manifest.empty()) {
            EXPECT_EQ(readWholeFile(bundle / "project.json"), c.manifest);
        }
    }
}

TEST_F(ProjectBundle, aManifestOfExactlyTwentyMebibytesOpensAndOneByteMoreDoesNot) {
    const fs::path bundle = dir.path() / "Big.morvane";
    const std::string head = R"({"name": "Big", "version": 2})";
    std::string text = head + std::string(ProjectBundleIO::maxManifestBytes - head.size(), ' ');
    writeFileAtomically(bundle / "project.json", text);
    ProjectSession opened;
    ProjectBundleIO::load(opened, bundle);
    EXPECT_EQ(opened.projectName, "Big");

    writeFileAtomically(bundle / "project.json", text + " ");
    ProjectSession refused;
    try {
        ProjectBundleIO::load(refused, bundle);
        ADD_FAILURE();
    } catch (const ProjectBundleError& e) {
        EXPECT_EQ(e.kind(), ProjectBundleError::Kind::manifestTooLarge);
        EXPECT_STREQ(e.what(), "project.json is too large to open safely.");
    }
}

TEST_F(ProjectBundle, aFolderWithAManifestButNoExtensionOpens) {
    const fs::path folder = dir.path() / "Exported";
    fs::create_directories(folder);
    writeFileAtomically(folder / "project.json", R"({"name": "Exported", "version": 2})");
    EXPECT_EQ(ProjectBundleIO::resolveOpenURL(folder), folder);
    EXPECT_EQ(ProjectBundleIO::resolveOpenURL(dir.path()), std::nullopt);
    ProjectSession opened;
    ProjectBundleIO::load(opened, folder);
    EXPECT_EQ(opened.projectURL, folder);
}

TEST_F(ProjectBundle, anOlderProjectOpensUpgradedAndUnsaved) {
    const fs::path bundle = dir.path() / "Talk.morvane";
    ProjectBundleIO::save(session, bundle);
    Json json = parseJson(readWholeFile(bundle / "project.json"), "project.json");
    json.erase("version");
    writeFileAtomically(bundle / "project.json", dumpJson(json));
    ProjectSession opened;
    ProjectBundleIO::load(opened, bundle);
    EXPECT_TRUE(opened.isDirty);
    EXPECT_EQ(opened.statusMessage, "Project upgraded to format v2. Save to finalize.");
    EXPECT_EQ(opened.statusKind, SessionStatusKind::success);
    ProjectBundleIO::save(opened, bundle);
    EXPECT_EQ(parseJson(readWholeFile(bundle / "project.json"), "project.json")["version"], 2);
}

TEST_F(ProjectBundle, missingMediaReadsAsOfflineAndCursorTracksTravelBesideIt) {
    session.cursorTracks["src1"] =
        engine::CursorTrack{{{0.0, 0.5, 0.5, {0}}, {1.0, 0.6, 0.4, {1}}}, 1280, 720};
    const fs::path bundle = dir.path() / "Talk.morvane";
    ProjectBundleIO::save(session, bundle);
    EXPECT_TRUE(fs::exists(bundle / "Media" / "src1.cursor.json"));
    fs::remove(bundle / "Media" / "talk.mp4");

    ProjectSession opened;
    ProjectBundleIO::load(opened, bundle);
    EXPECT_EQ(opened.statusMessage, "1 media file(s) need relinking.");
    EXPECT_EQ(opened.mediaURL, bundle / "Media" / "talk.mp4");
    EXPECT_EQ(opened.cursorTracks, session.cursorTracks);

    // A damaged cursor track costs its zooms, not the project.
    writeFileAtomically(bundle / "Media" / "src1.cursor.json", "{");
    ProjectSession again;
    ProjectBundleIO::load(again, bundle);
    EXPECT_EQ(again.cursorTracks, session.cursorTracks);  // the manifest's own copy stands
}

TEST_F(ProjectBundle, editsAreRefusedWhileABackgroundSaveRuns) {
    ManualMainLoop loop;
    std::exception_ptr outcome = std::make_exception_ptr(std::runtime_error("not finished"));
    const auto request = ProjectBundleIO::saveInBackground(
        session, dir.path() / "Talk", loop, {}, [&](std::exception_ptr failure) { outcome = failure; });
    EXPECT_TRUE(session.hasExclusiveLock());
    try {
        EditCoordinator::perform(session, "Trim", [] {});
        ADD_FAILURE() << "an edit went through during the save";
    } catch (const EditRejection& e) {
        EXPECT_EQ(e.reason(), EditRejection::Reason::documentLocked);
    }
    EXPECT_THROW(ProjectBundleIO::save(session, dir.path() / "Other"), EditRejection);
    ASSERT_TRUE(loop.runUntil([&] { return request->isFinished(); }));
    EXPECT_EQ(outcome, nullptr);
    EXPECT_FALSE(session.hasExclusiveLock());
    EXPECT_EQ(session.projectURL, dir.path() / "Talk.morvane");
    EditCoordinator::perform(session, "Trim", [] {});

    ProjectSession opened;
    const auto open =
        ProjectBundleIO::loadInBackground(opened, dir.path() / "Talk.morvane", loop, {},
                                          [&](std::exception_ptr failure) { outcome = failure; });
    EXPECT_TRUE(opened.hasExclusiveLock());
    ASSERT_TRUE(loop.runUntil([&] { return open->isFinished(); }));
    EXPECT_EQ(outcome, nullptr);
    EXPECT_EQ(opened.projectName, "Talk");
}

TEST(RecentProjectsStore, keepsTheEightLatestThatStillExist) {
    const TempDir dir;
    PreferencesStore preferences(dir.path() / "preferences.json");
    RecentProjectsStore recent(preferences);
    std::vector<fs::path> bundles;
    for (int i = 1; i <= 9; ++i) {
        bundles.push_back(dir.path() / ("P" + std::to_string(i) + ".morvane"));
        fs::create_directories(bundles.back());
        recent.noteOpened(bundles.back());
    }
    auto all = recent.all();
    ASSERT_EQ(all.size(), 8u);
    EXPECT_EQ(all.front(), bundles[8]);
    EXPECT_EQ(all.back(), bundles[1]);  // the first one was pushed out

    recent.noteOpened(bundles[4]);  // again: moves to the front, no duplicate
    fs::remove(bundles[8]);
    all = recent.all();
    EXPECT_EQ(all, (std::vector<fs::path>{bundles[4], bundles[7], bundles[6], bundles[5], bundles[3],
                                          bundles[2], bundles[1]}));
    EXPECT_EQ(PreferencesStore(dir.path() / "preferences.json").value("morvane.recentProjects")->size(), 8u);
}

TEST_F(ProjectBundle, autosaveWritesOnlySavedProjectsWithChanges) {
    ManualMainLoop loop;
    ProjectAutosaveController autosave(loop);
    autosave.attach(session);
    const auto settle = [&] { ASSERT_TRUE(loop.runUntil([&] { return !session.hasExclusiveLock(); })); };

    session.isDirty = true;
    loop.advance(ProjectAutosaveController::intervalMilliseconds);
    EXPECT_FALSE(session.hasExclusiveLock());  // never saved: nothing to write over
    EXPECT_FALSE(session.lastAutosaveAt.has_value());

    const fs::path bundle = dir.path() / "Talk.morvane";
    ProjectBundleIO::save(session, bundle);
    const auto written = fs::last_write_time(bundle / "project.json");
    loop.advance(ProjectAutosaveController::intervalMilliseconds);
    settle();
    EXPECT_FALSE(session.lastAutosaveAt.has_value());  // clean
    EXPECT_EQ(fs::last_write_time(bundle / "project.json"), written);

    session.instruction = "changed";
    session.isDirty = true;
    loop.advance(ProjectAutosaveController::intervalMilliseconds);
    settle();
    EXPECT_TRUE(session.lastAutosaveAt.has_value());
    EXPECT_FALSE(session.isDirty);
    EXPECT_EQ(ProjectDocument::decode(readWholeFile(bundle / "project.json")).instruction, "changed");
}

TEST_F(ProjectBundle, aFailedAutosaveSaysSoAndKeepsTheChanges) {
    const TempDir data;
    morvane::testing::ScopedEnvironment env;
    env.set("XDG_DATA_HOME", data.path().c_str());
    const fs::path bundle = dir.path() / "Talk.morvane";
    ProjectBundleIO::save(session, bundle);
    fs::remove(bundle / "Media" / "talk.mp4");
    session.isDirty = true;

    ManualMainLoop loop;
    ProjectAutosaveController autosave(loop);
    autosave.attach(session);
    autosave.tick();
    ASSERT_TRUE(loop.runUntil([&] { return !session.hasExclusiveLock(); }));
    ASSERT_TRUE(session.errorMessage.has_value());
    EXPECT_TRUE(session.errorMessage->starts_with("Autosave failed: Missing file: "))
        << *session.errorMessage;
    EXPECT_TRUE(session.isDirty);
    const std::string log = readWholeFile(data.path() / "Morvane" / "launch.log");
    EXPECT_NE(log.find("Z Autosave failed: Missing file: "), std::string::npos) << log;
}

}  // namespace
}  // namespace morvane::app
