#pragma once

// A test whose every run of `morvane` keeps its preferences, recent projects, launch log and media cache in
// the test's own folders, never the user's.

#include <gtest/gtest.h>

#include "morvane/testing/scoped_environment.hpp"
#include "morvane/testing/temp_dir.hpp"

namespace morvane::testing {

class OwnUserFoldersTest : public ::testing::Test {
  protected:
    TempDir dir;
    ScopedEnvironment env;

    void SetUp() override {
        env.set("XDG_CONFIG_HOME", (dir.path() / "config").c_str());
        env.set("XDG_DATA_HOME", (dir.path() / "data").c_str());
        env.set("XDG_CACHE_HOME", (dir.path() / "cache").c_str());
    }
};

}  // namespace morvane::testing
