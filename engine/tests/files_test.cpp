#include <gtest/gtest.h>
#include <stdlib.h>

#include <nlohmann/json.hpp>
#include <optional>
#include <vector>

#include "morvane/engine/engine_error.hpp"
#include "morvane/engine/support/files.hpp"
#include "morvane/engine/support/preferences_store.hpp"
#include "morvane/engine/support/uuid.hpp"
#include "morvane/testing/scoped_environment.hpp"
#include "morvane/testing/temp_dir.hpp"

namespace morvane {
namespace {

namespace fs = std::filesystem;

std::size_t entriesIn(const fs::path& folder) {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

TEST(WriteFileAtomically, replacesWholeFilesAndLeavesNoTemporaries) {
    const testing::TempDir dir;
    const auto file = dir.path() / "nested" / "project.json";
    writeFileAtomically(file, "first");
    writeFileAtomically(file, "second, longer");
    EXPECT_EQ(readWholeFile(file), "second, longer");
    writeFileAtomically(file, "");
    EXPECT_EQ(readWholeFile(file), "");
    EXPECT_EQ(entriesIn(file.parent_path()), 1u);
}

TEST(WriteFileAtomically, aFailedSaveKeepsThePreviousFile) {
    const testing::TempDir dir;
    const auto file = dir.write("project.json", "precious");
    // A folder in the way of the rename: the write fails and the temporary is cleaned up.
    const auto blocked = dir.path() / "blocked";
    fs::create_directories(blocked / "inside");
    EXPECT_THROW(writeFileAtomically(blocked, "new"), fs::filesystem_error);
    EXPECT_TRUE(fs::is_directory(blocked));
    // A file where the folder should be.
    EXPECT_THROW(writeFileAtomically(file / "child.json", "x"), fs::filesystem_error);
    EXPECT_EQ(readWholeFile(file), "precious");
    EXPECT_EQ(entriesIn(dir.path()), 2u);
}

TEST(ReadWholeFile, missingFilesAndFoldersAreMissingFiles) {
    const testing::TempDir dir;
    for (const auto& path : {dir.path() / "absent.json", dir.path()}) {
        try {
            (void)readWholeFile(path);
            ADD_FAILURE() << path;
        } catch (const engine::EngineError& e) {
            EXPECT_EQ(e.kind(), engine::EngineError::Kind::missingFile);
            EXPECT_EQ(std::string(e.what()), "Missing file: " + path.string());
        }
    }
}

TEST(Folders, followXdgVariablesAndFallBackToHome) {
    testing::ScopedEnvironment env;
    env.set("XDG_CONFIG_HOME", "/srv/conf");
    EXPECT_EQ(configDirectory(), fs::path("/srv/conf/morvane"));
    env.set("XDG_CONFIG_HOME", "relative/ignored");  // only absolute paths count
    env.set("HOME", "/home/u");
    EXPECT_EQ(configDirectory(), fs::path("/home/u/.config/morvane"));
    env.set("XDG_DATA_HOME", nullptr);
    EXPECT_EQ(dataDirectory(), fs::path("/home/u/.local/share/Morvane"));
    env.set("XDG_CACHE_HOME", "/var/cache/u");
    EXPECT_EQ(cacheDirectory(), fs::path("/var/cache/u/Morvane"));
}

TEST(Folders, documentsComeFromTheVariableThenUserDirsThenHome) {
    const testing::TempDir dir;
    testing::ScopedEnvironment env;
    env.set("HOME", "/home/u");
    env.set("XDG_CONFIG_HOME", dir.path().c_str());
    env.set("XDG_DOCUMENTS_DIR", nullptr);
    EXPECT_EQ(documentsDirectory(), fs::path("/home/u/Documents"));
    dir.write("user-dirs.dirs",
              "# written by xdg-user-dirs-update\nXDG_DESKTOP_DIR=\"$HOME/Schreibtisch\"\n"
              "XDG_DOCUMENTS_DIR=\"$HOME/Dokumente\"\n");
    EXPECT_EQ(documentsDirectory(), fs::path("/home/u/Dokumente"));
    env.set("XDG_DOCUMENTS_DIR", "/srv/docs");
    EXPECT_EQ(documentsDirectory(), fs::path("/srv/docs"));
}

TEST(FileURL, encodesReservedBytesAndDecodesBack) {
    struct Case {
        const char* path;
        const char* url;
    } cases[] = {
        {"/home/me/My Talk.mov", "file:///home/me/My%20Talk.mov"},
        {"/tmp/caf\xc3\xa9#1?.mp4", "file:///tmp/caf%C3%A9%231%3F.mp4"},
        {"/a/b~c/(d)+e,f;g=h@i:j", "file:///a/b~c/(d)+e,f;g=h@i:j"},
        {"/100%", "file:///100%25"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(fileURL(c.path), c.url);
        EXPECT_EQ(pathFromFileURL(c.url), fs::path(c.path)) << c.url;
    }
    EXPECT_EQ(pathFromFileURL("file://localhost/srv/x.mov"), fs::path("/srv/x.mov"));
    EXPECT_EQ(pathFromFileURL("/plain/path.mov"), fs::path("/plain/path.mov"));
    for (const char* bad :
         {"https://example.com/a.mov", "media/a.mov", "file://host/a.mov", "file:///a%2", "file:///a%zz"}) {
        EXPECT_FALSE(pathFromFileURL(bad).has_value()) << bad;
    }
}

TEST(UUID, isRandomVersionFourInCanonicalForm) {
    const std::string a = makeUUID();
    EXPECT_TRUE(isUUID(a)) << a;
    EXPECT_EQ(a[14], '4');
    EXPECT_NE(std::string("89AB").find(a[19]), std::string::npos) << a;
    EXPECT_NE(makeUUID(), a);
    EXPECT_TRUE(isUUID("e621e1f8-c36c-495a-93fc-0c247a3e6e5f"));
    for (const char* bad : {"", "E621E1F8C36C495A93FC0C247A3E6E5F", "E621E1F8-C36C-495A-93FC-0C247A3E6E5",
                            "G621E1F8-C36C-495A-93FC-0C247A3E6E5F"}) {
        EXPECT_FALSE(isUUID(bad)) << bad;
    }
}

TEST(PreferencesStore, keepsTypedValuesAcrossInstances) {
    const testing::TempDir dir;
    const auto file = dir.path() / "morvane" / "preferences.json";
    {
        PreferencesStore prefs(file);
        EXPECT_FALSE(prefs.string("morvane.languageModelURL").has_value());
        prefs.set("morvane.languageModelURL", "http://127.0.0.1:11434/v1");
        prefs.set("morvane.timelineZoom", 1.5);
        prefs.set("morvane.assistantCollapsed", true);
        prefs.set("morvane.recentProjects", Json::array({"/a.morvane"}));
        prefs.set("morvane.gone", "x");
        prefs.remove("morvane.gone");
    }
    const PreferencesStore prefs(file);
    EXPECT_EQ(prefs.string("morvane.languageModelURL"), "http://127.0.0.1:11434/v1");
    EXPECT_EQ(prefs.number("morvane.timelineZoom"), 1.5);
    EXPECT_EQ(prefs.boolean("morvane.assistantCollapsed"), true);
    EXPECT_EQ(prefs.value("morvane.recentProjects")->size(), 1u);
    EXPECT_FALSE(prefs.value("morvane.gone").has_value());
    EXPECT_FALSE(prefs.number("morvane.languageModelURL").has_value());  // wrong type reads as absent
}

TEST(PreferencesStore, setsAsideAnUnreadableFileInsteadOfLosingIt) {
    const testing::TempDir dir;
    const auto file = dir.write("preferences.json", "{\"morvane.timelineZoom\": 2,");
    PreferencesStore prefs(file);
    EXPECT_FALSE(prefs.number("morvane.timelineZoom").has_value());
    EXPECT_EQ(readWholeFile(file), "{\"morvane.timelineZoom\": 2,");  // reading changes nothing
    prefs.set("morvane.timelineZoom", 3.0);
    EXPECT_EQ(readWholeFile(fs::path(file).concat(".bad")), "{\"morvane.timelineZoom\": 2,");
    EXPECT_EQ(PreferencesStore(file).number("morvane.timelineZoom"), 3.0);
}

}  // namespace
}  // namespace morvane
