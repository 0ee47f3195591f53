#pragma once

// What the window tests start from: a generated recording with speech-like bursts where its transcript says
// words are (with a filler-only segment and a sentence said twice), written beside it as
// "talk.transcript.json", and a window with preferences of its own; plus ways to wait on the event loop.

#include <gtest/gtest.h>

#include <QApplication>
#include <QTest>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <tuple>
#include <vector>

#include "morvane/engine/support/files.hpp"
#include "morvane/engine/support/preferences_store.hpp"
#include "morvane/intelligence/models/transcript.hpp"
#include "morvane/testing/synthetic_media.hpp"
#include "morvane/testing/temp_dir.hpp"
#include "studio_window.hpp"

namespace morvane::studio::testing {

/// Serves the event loop until `done` holds; false after `seconds`.
inline bool waitUntil(const std::function<bool()>& done, double seconds = 30.0) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        QTest::qWait(10);
    }
    return true;
}

struct SpokenWord {
    const char* text;
    double start;
    double end;
};

/// "Welcome to the show. Um, uh, Today we cut video. Today we cut video. Thanks for watching." over 10 s.
inline std::vector<SpokenWord> messyTalkWords() {
    return {{"Welcome", 0.0, 0.5},  {"to", 0.6, 0.7},     {"the", 0.8, 0.9},    {"show.", 1.0, 1.5},
            {"Um,", 2.0, 2.4},      {"uh,", 2.5, 2.9},    {"Today", 3.5, 3.9},  {"we", 4.0, 4.1},
            {"cut", 4.2, 4.5},      {"video.", 4.6, 5.0}, {"Today", 6.0, 6.4},  {"we", 6.5, 6.6},
            {"cut", 6.7, 7.0},      {"video.", 7.1, 7.5}, {"Thanks", 8.5, 8.9}, {"for", 9.0, 9.1},
            {"watching.", 9.2, 9.8}};
}

/// Writes `talk.mp4` (10 s, a tone wherever a word is spoken, silence between) and `talk.transcript.json`
/// into `folder`; returns the movie.
inline std::filesystem::path writeMessyTalk(const std::filesystem::path& folder) {
    constexpr int rate = 48000;
    std::vector<float> samples(static_cast<std::size_t>(10.0 * rate), 0.0f);
    intelligence::TranscriptDocument transcript{
        .sourceURL = (folder / "talk.mp4").string(), .locale = "en-US", .durationSeconds = 10.0};
    int id = 0;
    for (const auto& word : messyTalkWords()) {
        const auto tone = morvane::testing::tone(220.0 + 40.0 * (id % 5), 0.4, word.end - word.start, rate);
        std::copy(tone.begin(), tone.end(), samples.begin() + static_cast<std::ptrdiff_t>(word.start * rate));
        transcript.words.push_back({id++,
                                    word.text,
                                    engine::RationalTime::fromSeconds(word.start, 600),
                                    engine::RationalTime::fromSeconds(word.end, 600),
                                    0.9,
                                    {}});
    }
    const auto wav = morvane::testing::writeWav(folder / "talk.wav", samples, 1, rate);
    const auto movie = morvane::testing::makeMovie(folder / "talk.mp4", 10.0, wav);
    Json json = transcript;
    writeFileAtomically(folder / "talk.transcript.json", json.dump(2));
    return movie;
}

/// A window over preferences in a folder of its own, shown (offscreen) at a useful size.
class StudioWindowTest : public ::testing::Test {
  protected:
    morvane::testing::TempDir folder;
    std::unique_ptr<PreferencesStore> preferences =
        std::make_unique<PreferencesStore>(folder.path() / "preferences.json");
    std::unique_ptr<StudioWindow> window;

    void SetUp() override {
        window = std::make_unique<StudioWindow>(StudioServices{.preferences = *preferences});
        window->resize(1280, 800);
        window->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
    }

    void TearDown() override { window.reset(); }

    /// Opens the messy talk (written first unless it is there) and waits until its transcript shows.
    void openMessyTalk() {
        std::filesystem::path movie = folder.path() / "talk.mp4";
        if (!std::filesystem::exists(movie)) movie = writeMessyTalk(folder.path());
        window->openFiles({movie});
        ASSERT_TRUE(waitUntil([&] { return !window->isWorking() && window->session().segments.has_value(); }))
            << window->session().errorMessage.value_or(window->session().statusMessage);
        window->refreshNow();
    }
};

}  // namespace morvane::studio::testing
