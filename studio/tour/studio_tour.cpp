// morvane-studio-tour RECORDING OUTPUT_DIR: drives Morvane Studio through the main job the way a user would
// (drop the recording on the preview, play it, Clean up, accept, strike words, split, export), saving a
// screenshot of the screen after each step as NN-step.png in OUTPUT_DIR and printing what it measured: the
// time to the transcript, the preview's frame rate, and the longest the window froze while work ran. Meant
// to run under a virtual X server (scripts/studio_screenshots.sh); any failure exits non-zero with the step
// that failed.

#include <fmt/core.h>

#include <QApplication>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QStyleFactory>
#include <QTest>
#include <QTimer>
#include <algorithm>
#include <chrono>
#include <clocale>
#include <cmath>
#include <ctime>
#include <filesystem>
#include <functional>
#include <stdexcept>

#include "assistant/assistant_panel.hpp"
#include "morvane/app/timeline/timeline_document.hpp"
#include "morvane/engine/support/preferences_store.hpp"
#include "morvane/intelligence/model/language_model.hpp"
#include "preview/preview_monitor.hpp"
#include "studio_window.hpp"
#include "transcript/transcript_view.hpp"
#include "transcription_language_dialog.hpp"

namespace {

using namespace morvane;
using Clock = std::chrono::steady_clock;

// How long the window froze while work ran: the longest the event loop went without serving a 10 ms timer,
// and the most CPU time the window's own thread spent in one such gap. On a loaded machine a gap can also
// be the thread waiting for a core; the CPU time is then what the window itself was busy with.
class StallMeter {
  public:
    StallMeter() {
        QObject::connect(&timer_, &QTimer::timeout, [this] {
            const auto now = Clock::now();
            const double cpu = threadCpuMilliseconds();
            longest_ = std::max(longest_, now - last_);
            busiest_ = std::max(busiest_, cpu - lastCpu_);
            last_ = now;
            lastCpu_ = cpu;
        });
        timer_.start(10);
    }
    void restart() {
        skip();
        longest_ = {};
        busiest_ = 0;
    }
    [[nodiscard]] std::string text() const {
        return fmt::format("the window stalled at most {:.0f} ms, with at most {:.0f} ms of its own work",
                           std::chrono::duration<double, std::milli>(longest_).count(), busiest_);
    }
    // Leaves out the time since the last tick (what the caller itself held the loop for).
    void skip() {
        last_ = Clock::now();
        lastCpu_ = threadCpuMilliseconds();
    }

  private:
    static double threadCpuMilliseconds() {
        timespec now{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
        return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
    }

    QTimer timer_;
    Clock::time_point last_ = Clock::now();
    double lastCpu_ = threadCpuMilliseconds();
    Clock::duration longest_{};
    double busiest_ = 0;
};

struct Tour {
    studio::StudioWindow& window;
    std::filesystem::path out;
    int shot = 0;

    void screenshot(const std::string& name) {
        QApplication::processEvents();
        QTest::qWait(300);  // let repaints land
        const QPixmap pixels = QGuiApplication::primaryScreen()->grabWindow(0);
        const auto file = out / fmt::format("{:02}-{}.png", ++shot, name);
        if (!pixels.save(QString::fromStdString(file.string())))
            throw std::runtime_error("could not save " + file.string());
        fmt::print("screenshot {}\n", file.string());
    }

    // Waits (serving the event loop) until `done`, or fails the step after `seconds`.
    double waitFor(const std::string& step, const std::function<bool()>& done, double seconds) {
        const auto start = Clock::now();
        while (!done()) {
            if (std::chrono::duration<double>(Clock::now() - start).count() > seconds) {
                throw std::runtime_error(step + ": timed out; status: " + window.session().statusMessage +
                                         "; error: " + window.session().errorMessage.value_or("none"));
            }
            QTest::qWait(20);
        }
        return std::chrono::duration<double>(Clock::now() - start).count();
    }
};

}  // namespace

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    std::setlocale(LC_NUMERIC, "C");
    QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    if (argc != 3) {
        fmt::print(stderr, "usage: morvane-studio-tour RECORDING OUTPUT_DIR\n");
        return 2;
    }
    const std::filesystem::path recording = std::filesystem::absolute(argv[1]);
    const std::filesystem::path out = argv[2];
    std::filesystem::create_directories(out);

    PreferencesStore preferences;
    intelligence::HttpLanguageModelService model(
        intelligence::LanguageModelConnection::fromPreferences(preferences));
    studio::StudioWindow window({.preferences = preferences, .languageModel = &model});
    window.resize(1440, 900);
    window.show();
    window.move(0, 0);
    Tour tour{window, out};
    try {
        window.activateWindow();
        if (!QTest::qWaitForWindowActive(&window)) throw std::runtime_error("the window never became active");
        tour.screenshot("welcome");

        // A recording without a transcript beside it is transcribed: answer the language question with
        // the language it starts on, as a user pressing Return would.
        QTimer answer;
        QObject::connect(&answer, &QTimer::timeout, [&answer] {
            if (auto* dialog =
                    dynamic_cast<studio::TranscriptionLanguageDialog*>(QApplication::activeModalWidget())) {
                answer.stop();
                dialog->accept();
            }
        });
        answer.start(20);
        StallMeter stalls;
        window.openFiles({recording});
        const double toTranscript = tour.waitFor(
            "open and transcribe",
            [&] { return !window.isWorking() && window.session().segments.has_value(); }, 600);
        fmt::print("drop to transcript: {:.2f} s ({})\n", toTranscript, stalls.text());
        tour.screenshot("transcript");

        window.player().resetStatistics();
        QTest::keyClick(&window, Qt::Key_Space);
        QTest::qWait(4000);
        const auto stats = window.player().statistics();
        tour.screenshot("playing");
        QTest::keyClick(&window, Qt::Key_Space);
        if (stats.playedSeconds > 0) {
            fmt::print("preview: {} frames shown, {} dropped in {:.2f} s: {:.1f} frames/s\n",
                       stats.framesShown, stats.framesDropped, stats.playedSeconds,
                       stats.framesShown / stats.playedSeconds);
        }

        QPushButton* cleanUp =
            window.assistantPanel()->commandButton(intelligence::AssistantCommandID::cleanUp);
        if (!cleanUp) throw std::runtime_error("no Clean up button");
        stalls.restart();
        QTest::mouseClick(cleanUp, Qt::LeftButton);
        tour.waitFor(
            "Clean up",
            [&] { return window.session().isReviewingProposal() || window.session().errorMessage; }, 300);
        if (!window.session().isReviewingProposal())
            throw std::runtime_error("Clean up: " + *window.session().errorMessage);
        fmt::print("Clean up: {}\n", stalls.text());
        tour.screenshot("proposal");

        QTest::mouseClick(window.assistantPanel()->acceptButton(), Qt::LeftButton);
        tour.waitFor(
            "accept", [&] { return !window.session().isReviewingProposal(); }, 10);
        tour.screenshot("accepted");

        studio::TranscriptView* transcript = window.transcriptView();
        const auto& words = window.session().transcript->words;
        const std::size_t first = std::min<std::size_t>(words.size() / 3, words.size() - 1);
        const std::size_t last = std::min(first + 3, words.size() - 1);
        int firstID = -1;
        int lastID = -1;
        // Strike four words that the cut still plays.
        for (std::size_t i = first; i < words.size(); ++i) {
            if (transcript->isStruck(words[i].id)) continue;
            if (firstID < 0) firstID = words[i].id;
            lastID = words[i].id;
            if (i >= last && lastID - firstID >= 3) break;
        }
        const QRect from = transcript->wordBox(firstID);
        const QRect to = transcript->wordBox(lastID);
        QTest::mousePress(transcript->viewport(), Qt::LeftButton, {}, from.center());
        QMouseEvent move(QEvent::MouseMove, to.center(), transcript->viewport()->mapToGlobal(to.center()),
                         Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(transcript->viewport(), &move);
        QTest::mouseRelease(transcript->viewport(), Qt::LeftButton, {}, to.center());
        QTest::keyClick(transcript, Qt::Key_Delete);
        tour.waitFor(
            "strike words", [&] { return transcript->isStruck(firstID); }, 10);
        tour.screenshot("struck");

        // The timeline: split the storyline at the playhead with the S key.
        const double middle = window.player().duration() / 2;
        window.session().requestSeekToComposition(middle);
        // The seek lands on a later turn of the event loop; S splits where the playhead is then.
        tour.waitFor(
            "seek", [&] { return std::abs(window.player().position() - middle) < 0.05; }, 10);
        const auto before = window.session().timeline->clips(app::TimelineTrackIDs::source).size();
        QTest::keyClick(&window, Qt::Key_S);
        tour.waitFor(
            "split",
            [&] { return window.session().timeline->clips(app::TimelineTrackIDs::source).size() > before; },
            10);
        tour.screenshot("split");

        // Export the cut with the Export panel's suggestion, next to the screenshots.
        stalls.restart();
        const auto exportStart = Clock::now();
        window.exportTo(app::ExportRequest::defaultFor(window.session()), out / "cut.mp4");
        QTest::qWait(1500);
        tour.screenshot("exporting");
        stalls.skip();  // grabbing the screen holds the loop itself
        tour.waitFor(
            "export", [&] { return !window.isWorking(); }, 600);
        if (window.session().errorMessage)
            throw std::runtime_error("export: " + *window.session().errorMessage);
        fmt::print("export: {:.2f} s ({})\n",
                   std::chrono::duration<double>(Clock::now() - exportStart).count(), stalls.text());
        tour.screenshot("exported");
        fmt::print("done: {}\n", window.session().statusMessage);
    } catch (const std::exception& error) {
        fmt::print(stderr, "morvane-studio-tour: {}\n", error.what());
        tour.screenshot("failed");
        return 1;
    }
    return 0;
}
