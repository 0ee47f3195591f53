// Importing, relinking, removing and transcribing sources. The speech recognizer is the one seam stood in
// for here: `ScriptedRecognizer` implements the `TranscriptionProvider` interface the real recognizers
// implement, and answers as a test tells it to. Everything on our side of that interface is the real code.

#include <fmt/core.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>

#include "morvane/app/pipeline/project_pipeline.hpp"
#include "morvane/app/project/project_bundle_io.hpp"
#include "morvane/engine/support/files.hpp"
#include "morvane/engine/support/preferences_store.hpp"
#include "morvane/intelligence/intelligence_error.hpp"
#include "morvane/testing/synthetic_media.hpp"
#include "morvane/testing/temp_dir.hpp"
#include "session_fixture.hpp"

namespace morvane::app {
namespace {

namespace fs = std::filesystem;
using namespace testing;
using intelligence::IntelligenceError;
using intelligence::TranscriptDocument;
using morvane::testing::TempDir;

class ScriptedRecognizer final : public intelligence::TranscriptionProvider {
  public:
    std::optional<TranscriptDocument> answer;  // returned when set
    std::optional<IntelligenceError> failure;  // thrown otherwise
    bool waitForStop = false;                  // blocks until the request is cancelled
    std::vector<std::string> localesAsked;

    TranscriptDocument transcribe(const fs::path& media, const intelligence::TranscriptionOptions& options,
                                  const ProgressCallback& progress, std::stop_token stop) override {
        {
            const std::scoped_lock lock(mutex_);
            localesAsked.push_back(options.locale);
        }
        if (progress) progress(0.5);
        if (waitForStop) {
            std::mutex wait;
            std::condition_variable_any stopped;
            std::unique_lock lock(wait);
            stopped.wait(lock, stop, [] { return false; });
            throw OperationCancelled();
        }
        if (answer) {
            TranscriptDocument document = *answer;
            document.sourceURL = media.string();
            return document;
        }
        throw failure.value_or(IntelligenceError::emptyTranscript());
    }
    std::vector<std::string> supportedLocales() const override { return {"en-US", "de-DE"}; }

  private:
    std::mutex mutex_;
};

struct ChoosingDelegate final : UserInterfaceDelegate {
    std::optional<std::string> choice;
    std::vector<std::string> askedFor;
    std::vector<std::string> offered;
    void showAlert(const std::string&, const std::string&) override {}
    std::optional<std::string> chooseTranscriptionLocale(const std::string& fileLabel,
                                                         const std::vector<std::string>& locales) override {
        askedFor.push_back(fileLabel);
        offered = locales;
        return choice;
    }
};

class MediaPipelineFixture : public ::testing::Test {
  protected:
    TempDir dir;
    ManualMainLoop loop;
    ChoosingDelegate delegate;
    ScriptedRecognizer recognizer;
    PreferencesStore preferences{dir.path() / "preferences.json"};
    ProjectSession session;

    PipelineContext context() {
        return {.mainLoop = loop,
                .delegate = &delegate,
                .preferences = &preferences,
                .transcription = &recognizer};
    }
    void run(const std::shared_ptr<PipelineRequest>& request) {
        ASSERT_TRUE(loop.runUntil([&] { return request->isFinished(); }));
        loop.runPending();
    }
};

using MediaPipeline = MediaPipelineFixture;

TEST_F(MediaPipeline, theTranscribedSourceIsTheOneInViewThenPrimaryThenAnyWithSound) {
    loadShortTalk(session);
    session.mediaBin.push_back({.id = "src2",
                                .label = "music.wav",
                                .urlPath = "/m/music.wav",
                                .kind = MediaBinKind::audio,
                                .durationSeconds = 9,
                                .hasAudio = true});
    session.mediaBin.push_back({.id = "src3",
                                .label = "still.png",
                                .urlPath = "/m/still.png",
                                .kind = MediaBinKind::broll,
                                .durationSeconds = 5,
                                .hasVideo = true});
    const auto target = [&](std::optional<std::string> preferred) {
        const auto found = ProjectPipeline::resolveTranscribeTarget(session, preferred);
        return found ? found->entry.id + " " + found->reason : std::string("none");
    };
    EXPECT_EQ(target("src2"), "src2 preferred");
    EXPECT_EQ(target("src3"), "src1 transcriptPane");  // a still has no sound
    session.transcriptSourceID.reset();
    session.selectClip(session.timeline->clips(TimelineTrackIDs::source).front().id);
    session.transcriptSourceID.reset();  // selecting synced it; look past it
    EXPECT_EQ(target(std::nullopt), "src1 selectedClip");
    session.selectClip(std::nullopt);
    session.transcriptSourceID.reset();
    EXPECT_EQ(target(std::nullopt), "src1 primary");
    session.mediaBin.front().hasAudio = false;
    EXPECT_EQ(target(std::nullopt), "src2 firstAudio");
    session.mediaBin[1].hasAudio = false;
    EXPECT_EQ(target(std::nullopt), "none");
}

TEST_F(MediaPipeline, withoutATargetTheUserIsToldWhatToDo) {
    run(ProjectPipeline::transcribeMedia(session, context()));
    EXPECT_EQ(session.errorMessage, "Import media first.");
    session.mediaBin.push_back({.id = "src1",
                                .label = "still.png",
                                .urlPath = "/m/still.png",
                                .kind = MediaBinKind::primary,
                                .durationSeconds = 5,
                                .hasVideo = true});
    run(ProjectPipeline::transcribeMedia(session, context()));
    EXPECT_EQ(session.errorMessage,
              "No clip with an audio track to transcribe. Select a clip that has speech, or right-click it → "
              "Transcribe.");
    EXPECT_TRUE(recognizer.localesAsked.empty());
}

TEST_F(MediaPipeline, theLanguageComesFromTheCallerThePreferencesOrTheUser) {
    struct Case {
        const char* mode;
        const char* last;
        std::optional<std::string> given;  // the caller's own choice
        bool prompt;
        std::optional<std::string> userChoice;
        std::optional<std::string> used;  // what the recognizer was asked for; none: skipped
        bool asked;
    } cases[] = {
        {"askEveryTime", "fr-FR", std::nullopt, true, "de-DE", "de-DE", true},
        {"lastSelected", "fr-FR", std::nullopt, true, "de-DE", "fr-FR", false},
        {"lastSelected", "", std::nullopt, true, "de-DE", "de-DE", true},  // nothing stored: asked after all
        {"always", nullptr, std::nullopt, true, "de-DE", "en-US", false},
        {"askEveryTime", "fr-FR", "ja-JP", true, "de-DE", "ja-JP", false},
        {"askEveryTime", "fr-FR", std::nullopt, false, "de-DE", "fr-FR", false},
        {"askEveryTime", nullptr, std::nullopt, false, "de-DE", "en-US", false},
        {"askEveryTime", nullptr, std::nullopt, true, std::nullopt, std::nullopt, true},  // skipped
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.mode) + " " + (c.last ? c.last : "(unset)"));
        ProjectSession fresh;
        loadShortTalk(fresh);
        const auto before = fresh.transcript;
        preferences.set("morvane.transcriptionPromptMode", c.mode);
        if (c.last) {
            preferences.set("morvane.transcriptionLastLocale", c.last);
        } else {
            preferences.remove("morvane.transcriptionLastLocale");
        }
        delegate.choice = c.userChoice;
        delegate.askedFor.clear();
        recognizer.localesAsked.clear();
        run(ProjectPipeline::transcribeMedia(fresh, context(),
                                             {.promptIfNeeded = c.prompt, .locale = c.given}));
        EXPECT_EQ(delegate.askedFor.size(), c.asked ? 1u : 0u);
        if (c.used) {
            EXPECT_EQ(recognizer.localesAsked, std::vector<std::string>{*c.used});
        } else {
            EXPECT_TRUE(recognizer.localesAsked.empty());
            EXPECT_EQ(fresh.statusMessage,
                      "Skipped transcription for talk.mp4. Click Transcribe when you’re ready.");
            EXPECT_FALSE(fresh.errorMessage.has_value());
            EXPECT_EQ(fresh.transcript, before);
        }
    }
    EXPECT_EQ(delegate.offered, (std::vector<std::string>{"en-US", "de-DE"}));  // English before German
}

TEST_F(MediaPipeline, aRecordingWithoutSpeechIsAnOutcomeAndAFailureIsAnError) {
    loadShortTalk(session);
    const auto transcript = session.transcript;
    recognizer.failure = IntelligenceError::decodeFailed(
        "No speech could be analyzed in this audio — the track may be silent or empty.");
    run(ProjectPipeline::transcribeMedia(session, context(), {.locale = "en-US"}));
    EXPECT_FALSE(session.errorMessage.has_value());
    EXPECT_EQ(session.statusKind, SessionStatusKind::success);
    EXPECT_EQ(session.statusMessage,
              "No speech could be analyzed in this audio — the track may be silent or empty.");
    EXPECT_EQ(chatTexts(session).back(), session.statusMessage);
    EXPECT_EQ(session.transcript, transcript);
    EXPECT_TRUE(session.activeJobs.empty());

    recognizer.failure = IntelligenceError::decodeFailed("Speech assets unavailable for [en-US]");
    run(ProjectPipeline::transcribeMedia(session, context(), {.locale = "en-US"}));
    EXPECT_EQ(session.errorMessage, "Speech assets unavailable for [en-US]");
    EXPECT_EQ(chatTexts(session).back(), "Transcription failed: Speech assets unavailable for [en-US]");
    EXPECT_TRUE(session.activeJobs.empty());
    EXPECT_EQ(session.transcript, transcript);
}

TEST_F(MediaPipeline, aCancelledTranscriptionLeavesTheProjectAsItWas) {
    loadShortTalk(session);
    const auto transcript = session.transcript;
    recognizer.waitForStop = true;
    const auto request = ProjectPipeline::transcribeMedia(session, context(), {.locale = "en-US"});
    ASSERT_TRUE(
        loop.runUntil([&] { return !session.activeJobs.empty() && session.activeJobs.front().progress; }));
    EXPECT_DOUBLE_EQ(*session.activeJobs.front().progress,
                     0.4);  // halfway through recognition, 80 % of the job
    EXPECT_TRUE(session.activeJobs.front().isCancellable);
    EXPECT_EQ(session.activeJobs.front().title, "Transcribing talk.mp4…");
    request->cancel();
    run(request);
    EXPECT_EQ(session.statusMessage, "Transcription cancelled.");
    EXPECT_FALSE(session.errorMessage.has_value());
    EXPECT_EQ(session.transcript, transcript);
    EXPECT_TRUE(session.activeJobs.empty());
}

TEST_F(MediaPipeline, removingThePrimaryPromotesTheFirstSourceWithAPicture) {
    loadShortTalk(session);
    session.mediaBin.push_back({.id = "src2",
                                .label = "voice.wav",
                                .urlPath = "/m/voice.wav",
                                .kind = MediaBinKind::audio,
                                .durationSeconds = 9,
                                .hasAudio = true});
    session.mediaBin.push_back({.id = "src3",
                                .label = "screen.mov",
                                .urlPath = "/m/screen.mov",
                                .kind = MediaBinKind::broll,
                                .durationSeconds = 30,
                                .hasVideo = true});
    session.syncExtraSourcesFromMediaBin();
    session.selectClip(session.timeline->clips(TimelineTrackIDs::source).front().id);

    ProjectPipeline::removeMedia(session, {"src1", "src9"});
    EXPECT_EQ(session.primarySourceID, "src3");
    EXPECT_EQ(session.mediaURL, fs::path("/m/screen.mov"));
    EXPECT_EQ(session.mediaTitle, "screen.mov");
    EXPECT_EQ(session.mediaDurationSeconds, 30.0);
    EXPECT_EQ(session.binEntry("src3")->kind, MediaBinKind::primary);
    EXPECT_TRUE(session.timeline->clips(TimelineTrackIDs::source).empty());
    EXPECT_TRUE(session.selectedClipIDs.empty());
    EXPECT_FALSE(session.sourceTranscripts.count("src1"));
    EXPECT_FALSE(session.transcript.has_value());
    EXPECT_EQ(session.statusMessage, "Removed 1 media file.");
    EXPECT_EQ(session.editHistory.undoMenuTitle(), "Undo Remove Media");
    expectConsistent(session);

    EXPECT_TRUE(ProjectPipeline::renameMedia(session, "src3", "  Screen take 2 "));
    EXPECT_EQ(session.mediaTitle, "Screen take 2");
    EXPECT_FALSE(ProjectPipeline::renameMedia(session, "src3", " "));
    EXPECT_FALSE(ProjectPipeline::renameMedia(session, "src1", "Gone"));

    ProjectPipeline::removeMedia(session, {"src2", "src3"});
    EXPECT_TRUE(session.mediaBin.empty());
    EXPECT_FALSE(session.mediaURL.has_value());
    EXPECT_EQ(session.statusMessage, "Removed 2 media files.");
    ProjectPipeline::removeMedia(session, {"src4"});  // nothing left to remove: nothing happens
    EXPECT_EQ(session.statusMessage, "Removed 2 media files.");
}

// Real recordings from here on.

// A checksum of a file's bytes (FNV-1a).
std::uint64_t checksum(const fs::path& file) {
    std::uint64_t hash = 1469598103934665603ull;
    for (const unsigned char c : readWholeFile(file))
        hash = (hash ^ c) * 1099511628211ull;
    return hash;
}

// Four phrases of tone with pauses between them, as a movie, and the transcript a recognizer would give.
struct Talk {
    fs::path movie;
    TranscriptDocument transcript;
};

Talk makeTalk(const fs::path& folder, const std::string& name) {
    using namespace morvane::testing;
    std::vector<float> samples;
    TranscriptDocument transcript{.locale = "en-US", .durationSeconds = 8.0};
    int id = 0;
    for (int phrase = 0; phrase < 4; ++phrase) {
        const double start = phrase * 2.0;
        samples = concat({samples, tone(220, 0.5, 1.4, 48000), silence(0.6, 48000)});
        for (int w = 0; w < 3; ++w) {
            const std::string text = w == 2 ? "word" + std::to_string(id) + "." : "word" + std::to_string(id);
            transcript.words.push_back(
                {id++, text, seconds(start + w * 0.45), seconds(start + w * 0.45 + 0.4), 0.9, {}});
        }
    }
    const fs::path wav = writeWav(folder / (name + ".wav"), samples, 1, 48000);
    return {makeMovie(folder / (name + ".mp4"), 8.0, wav), transcript};
}

class MediaPipelineMedia : public MediaPipelineFixture {};

TEST_F(MediaPipelineMedia, theFirstImportIsPrimaryTheOthersGoToTheBin) {
    const Talk talk = makeTalk(dir.path(), "talk");
    const fs::path voice = morvane::testing::writeWav(dir.path() / "voice.wav",
                                                      morvane::testing::tone(300, 0.5, 3.0, 48000), 1, 48000);
    const fs::path still = dir.path() / "title.png";
    morvane::testing::runFfmpeg(
        {"-f", "lavfi", "-i", "color=c=red:s=64x48", "-frames:v", "1", still.string()});

    run(ProjectPipeline::importMedia(session, talk.movie, context()));
    ASSERT_FALSE(session.errorMessage.has_value()) << *session.errorMessage;
    EXPECT_EQ(session.primarySourceID, "src1");
    EXPECT_EQ(session.mediaURL, talk.movie);
    EXPECT_TRUE(session.mediaHasVideo);
    EXPECT_EQ(session.frameDuration, "1/25");
    ASSERT_EQ(session.timeline->clips(TimelineTrackIDs::source).size(), 1u);
    EXPECT_NEAR(session.timeline->clips(TimelineTrackIDs::source).front().sourceOut.seconds(), 8.0, 0.05);
    EXPECT_TRUE(session.editPlan.has_value());
    EXPECT_TRUE(session.isDirty);

    run(ProjectPipeline::importMedia(session, voice, context()));
    run(ProjectPipeline::importMedia(session, still, context()));
    ASSERT_EQ(session.mediaBin.size(), 3u);
    EXPECT_EQ(session.mediaBin[1].kind, MediaBinKind::audio);
    EXPECT_FALSE(session.mediaBin[1].hasVideo);
    EXPECT_EQ(session.mediaBin[2].kind, MediaBinKind::broll);
    EXPECT_EQ(session.mediaBin[2].durationSeconds, 5.0);
    EXPECT_EQ(session.mediaBin[2].urlPath, still.string());  // no bundle: referenced where it is
    EXPECT_EQ(session.primarySourceID, "src1");
    EXPECT_EQ(session.extraSources.at("src3"), still);
    const auto chat = chatTexts(session);
    EXPECT_EQ(chat[0], "Primary media: talk.mp4 (00:08).");
    EXPECT_EQ(chat[1], "Media bin: voice.wav (00:03).");
    EXPECT_EQ(chat[2], "Image: title.png (00:05).");
    EXPECT_EQ(session.statusMessage, "Image: title.png (00:05).");

    // Another project whose first file has only sound, and one whose first file is a still.
    ProjectSession audioOnly;
    run(ProjectPipeline::importMedia(audioOnly, voice, context()));
    EXPECT_EQ(audioOnly.primarySourceID, "src1");
    EXPECT_FALSE(audioOnly.mediaHasVideo);
    ProjectSession titleCard;
    run(ProjectPipeline::importMedia(titleCard, still, context()));
    EXPECT_EQ(titleCard.statusMessage, "Primary image: title.png (00:05).");
    EXPECT_EQ(titleCard.mediaDurationSeconds, 5.0);

    // A file that isn't media, and one whose length can't be read.
    const fs::path text = dir.write("notes.txt", "hello");
    run(ProjectPipeline::importMedia(session, text, context()));
    EXPECT_EQ(session.errorMessage, "Import failed: Unsupported media type.");
    const fs::path empty =
        morvane::testing::writeWav(dir.path() / "empty.wav", std::vector<float>{}, 1, 48000);
    ProjectSession emptyProject;
    run(ProjectPipeline::importMedia(emptyProject, empty, context()));
    ASSERT_TRUE(emptyProject.errorMessage.has_value());
    EXPECT_TRUE(emptyProject.errorMessage->starts_with("Could not read empty.wav's duration.") ||
                emptyProject.errorMessage->starts_with("Import failed: "))
        << *emptyProject.errorMessage;
    EXPECT_TRUE(emptyProject.mediaBin.empty());
    EXPECT_FALSE(emptyProject.mediaURL.has_value());
}

TEST_F(MediaPipelineMedia, originalsAreNeverChangedByImportTranscriptionCutOrSave) {
    const Talk talk = makeTalk(dir.path(), "talk");
    const Talk second = makeTalk(dir.path(), "second");
    const std::vector<fs::path> originals{talk.movie, second.movie};
    std::vector<std::uint64_t> sums;
    std::vector<fs::file_time_type> times;
    for (const auto& file : originals) {
        sums.push_back(checksum(file));
        times.push_back(fs::last_write_time(file));
    }
    const auto expectUntouched = [&](const char* step) {
        for (std::size_t i = 0; i < originals.size(); ++i) {
            EXPECT_EQ(checksum(originals[i]), sums[i]) << step << ": " << originals[i];
            EXPECT_EQ(fs::last_write_time(originals[i]), times[i]) << step << ": " << originals[i];
        }
    };

    const fs::path bundle = dir.path() / "Talk.morvane";
    ProjectPipeline::createUntitledProject(session);
    session.projectName = "Talk";  // as the save panel names it
    ProjectBundleIO::save(session, bundle);
    run(ProjectPipeline::importMedia(session, talk.movie, context()));
    run(ProjectPipeline::importMedia(session, second.movie, context()));
    ASSERT_FALSE(session.errorMessage.has_value()) << *session.errorMessage;
    EXPECT_EQ(session.mediaBin[0].urlPath, "Media/talk.mp4");
    EXPECT_EQ(session.mediaBin[1].urlPath, "Media/second.mp4");
    EXPECT_EQ(session.mediaURL, bundle / "Media" / "talk.mp4");
    EXPECT_EQ(checksum(bundle / "Media" / "talk.mp4"), sums[0]);
    expectUntouched("import");

    recognizer.answer = talk.transcript;
    run(ProjectPipeline::transcribeMedia(session, context(), {.locale = "en-US"}));
    ASSERT_FALSE(session.errorMessage.has_value()) << *session.errorMessage;
    ASSERT_TRUE(session.segments.has_value());
    EXPECT_EQ(session.statusMessage,
              fmt::format(
                  "Transcription complete for talk.mp4 — {} segments. Select words in the transcript, press "
                  "Delete to cut, then Accept.",
                  session.segments->segments.size()));
    EXPECT_EQ(session.transcriptSourceID, "src1");
    EXPECT_EQ(session.cutItems.size(), session.segments->segments.size());
    EXPECT_TRUE(session.mediaEvidence.has_value());
    EXPECT_EQ(session.sourceTranscripts.at("src1").segments, session.segments);
    EXPECT_TRUE(session.activeJobs.empty());
    expectUntouched("transcription");

    run(ProjectPipeline::applyCommand(session, intelligence::AssistantCommandID::removeSilence, context()));
    if (session.isReviewingProposal()) ProjectPipeline::acceptRoughCut(session);
    expectUntouched("cut");

    ProjectBundleIO::save(session, bundle, {.copyMedia = true});
    expectUntouched("save");
    ProjectSession opened;
    ProjectBundleIO::load(opened, bundle);
    EXPECT_EQ(opened.transcript, session.transcript);
    EXPECT_EQ(opened.timeline, session.timeline);
    EXPECT_EQ(opened.statusMessage, "Opened Talk.");
}

TEST_F(MediaPipelineMedia, aMovedFileIsFoundAgainByRelinkWithItsTranscriptAndCut) {
    const Talk talk = makeTalk(dir.path(), "talk");
    const fs::path bundle = dir.path() / "Talk.morvane";
    ProjectPipeline::createUntitledProject(session);
    session.projectName = "Talk";  // as the save panel names it
    ProjectBundleIO::save(session, bundle);
    run(ProjectPipeline::importMedia(session, talk.movie, context()));
    recognizer.answer = talk.transcript;
    run(ProjectPipeline::transcribeMedia(session, context(), {.locale = "en-US"}));
    ProjectPipeline::toggleWords(session, {0, 1}, true);
    ProjectBundleIO::save(session, bundle);

    // The copy in the bundle goes elsewhere; the project still opens and says what is missing.
    const fs::path moved = dir.path() / "elsewhere" / "talk-moved.mp4";
    fs::create_directories(moved.parent_path());
    fs::rename(bundle / "Media" / "talk.mp4", moved);
    ProjectSession opened;
    ProjectBundleIO::load(opened, bundle);
    EXPECT_EQ(opened.statusMessage, "1 media file(s) need relinking.");
    EXPECT_FALSE(fs::exists(*opened.mediaURL));

    const auto removed = opened.removedWordIDs;
    const auto timeline = opened.timeline;
    run(ProjectPipeline::relinkMedia(opened, "src1", moved, context()));
    ASSERT_FALSE(opened.errorMessage.has_value()) << *opened.errorMessage;
    EXPECT_EQ(opened.statusMessage, "Relinked talk-moved.mp4.");
    EXPECT_EQ(opened.mediaURL, moved);
    EXPECT_EQ(opened.binEntry("src1")->label, "talk-moved.mp4");
    EXPECT_EQ(opened.removedWordIDs, removed);
    EXPECT_EQ(opened.timeline, timeline);
    ASSERT_TRUE(opened.editPlan.has_value());
    EXPECT_EQ(opened.editPlan->sources.front().url, fileURL(moved));
    EXPECT_TRUE(opened.isDirty);

    ProjectBundleIO::save(opened, bundle);
    EXPECT_EQ(opened.binEntry("src1")->urlPath, "Media/talk_moved.mp4");
    ProjectSession again;
    ProjectBundleIO::load(again, bundle);
    EXPECT_EQ(again.statusMessage, "Opened Talk.");
    EXPECT_EQ(checksum(*again.mediaURL), checksum(talk.movie));

    // A relink to something that isn't there is refused and changes nothing.
    run(ProjectPipeline::relinkMedia(again, "src1", dir.path() / "nowhere.mp4", context()));
    EXPECT_EQ(again.errorMessage, "Relink failed: Media file is missing.");
    EXPECT_EQ(again.binEntry("src1")->urlPath, "Media/talk_moved.mp4");
}

TEST_F(MediaPipelineMedia, onlyASourceWithAPictureCanBecomePrimary) {
    const Talk talk = makeTalk(dir.path(), "talk");
    const Talk other = makeTalk(dir.path(), "other");
    const fs::path voice = morvane::testing::writeWav(dir.path() / "voice.wav",
                                                      morvane::testing::tone(300, 0.5, 3.0, 48000), 1, 48000);
    run(ProjectPipeline::importMedia(session, talk.movie, context()));
    run(ProjectPipeline::importMedia(session, voice, context()));
    run(ProjectPipeline::importMedia(session, other.movie, context()));

    run(ProjectPipeline::setPrimaryMedia(session, "src2", context()));
    EXPECT_EQ(session.errorMessage,
              "voice.wav has no picture. Choose a video or an image as the primary media.");
    EXPECT_EQ(session.primarySourceID, "src1");

    run(ProjectPipeline::setPrimaryMedia(session, "src3", context()));
    EXPECT_FALSE(session.errorMessage.has_value());
    EXPECT_EQ(session.statusMessage, "other.mp4 is now primary.");
    EXPECT_EQ(session.primarySourceID, "src3");
    EXPECT_EQ(session.binEntry("src1")->kind, MediaBinKind::broll);
    EXPECT_EQ(session.binEntry("src3")->kind, MediaBinKind::primary);
    EXPECT_EQ(session.timeline->clips(TimelineTrackIDs::source).front().sourceID, "src3");
    EXPECT_EQ(session.transcriptSourceID, "src3");
}

}  // namespace
}  // namespace morvane::app
