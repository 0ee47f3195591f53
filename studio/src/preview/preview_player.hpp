#pragma once

/// Plays the session's edit plan in the preview. Pictures are decoded, converted and scaled ahead on one
/// worker; the mix is rendered ahead on another and played through the default audio output. One clock
/// (the system's steady clock) runs both: a frame that isn't ready when its time comes is dropped, and
/// late sound is skipped, so the picture never waits for the sound nor the sound for the picture.
///
///     PreviewPlayer player({.frameChanged = [&] { monitor.update(); }});
///     player.setPlan(session.editPlan);      // built on the worker; the frame at the position follows
///     player.play();                         // the GUI thread's timer shows frames as they fall due
///     player.seek(12.5);                     // program seconds
///
/// Every member is called on the GUI thread; the callbacks come on it too.

#include <QAudioFormat>
#include <QImage>
#include <QSize>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "morvane/engine/plan/edit_plan.hpp"

class QAudioSink;
class QIODevice;
class QTimer;

namespace morvane::studio {

class PreviewPlayer {
  public:
    struct Callbacks {
        std::function<void()> frameChanged;              ///< a new picture is in `currentImage`
        std::function<void(double)> positionChanged;     ///< while playing, and after seeks
        std::function<void(bool)> playingChanged;        ///< started or stopped (also at the end)
        std::function<void(const std::string&)> failed;  ///< the plan can't be played, or a frame failed
    };

    /// What playback has done since the last `resetStatistics`.
    struct Statistics {
        long long framesShown = 0;
        long long framesDropped = 0;
        double playedSeconds = 0.0;  ///< wall-clock seconds spent playing
    };

    explicit PreviewPlayer(Callbacks callbacks);
    ~PreviewPlayer();
    PreviewPlayer(const PreviewPlayer&) = delete;
    PreviewPlayer& operator=(const PreviewPlayer&) = delete;

    /// Plays `plan` from now on (none: nothing to show), the sources named in `proxies` (by source id) from
    /// those files instead. An unchanged plan changes nothing; a new one is built on the worker, keeping the
    /// position (clamped to its length).
    void setPlan(const std::optional<engine::EditPlan>& plan,
                 const std::map<std::string, std::string>& proxies = {});
    /// Starts playing at `rate` (1 forward, 2 or 4 faster, −1 backwards), from the start when at the end.
    /// Sound plays at rate 1 only.
    void play(double rate = 1.0);
    void pause();
    void togglePlay();
    /// Goes to `seconds` of program time and shows the frame there.
    void seek(double seconds);
    /// Moves by `count` frames (negative: back) and pauses.
    void stepFrames(int count);

    [[nodiscard]] bool isPlaying() const noexcept { return playing_; }
    [[nodiscard]] double rate() const noexcept { return rate_; }
    /// Program seconds of the picture on show (or of the clock while playing).
    [[nodiscard]] double position() const;
    /// The program's length in seconds; 0 until a plan is built.
    [[nodiscard]] double duration() const noexcept { return duration_; }
    [[nodiscard]] double frameSeconds() const noexcept { return frameSeconds_; }
    /// The picture on show, scaled to fit the display size; null before the first frame.
    [[nodiscard]] const QImage& currentImage() const noexcept { return image_; }
    /// Program seconds of `currentImage`.
    [[nodiscard]] std::optional<double> currentImageTime() const noexcept { return imageTime_; }
    /// Whether a plan is built and ready to play.
    [[nodiscard]] bool isReady() const noexcept { return ready_; }
    /// Whether sound goes to an audio device.
    [[nodiscard]] bool hasAudioOutput() const noexcept { return sink_ != nullptr; }

    /// Frames are scaled on the worker to fit this size (device pixels).
    void setDisplaySize(QSize size);
    /// 0 to 1.
    void setVolume(double volume);

    [[nodiscard]] Statistics statistics() const noexcept { return statistics_; }
    void resetStatistics() noexcept { statistics_ = {}; }

  private:
    struct DecodedFrame {
        std::uint64_t generation = 0;
        double seconds = 0.0;
        QImage image;
    };
    struct AudioChunk {
        std::uint64_t generation = 0;
        double startSeconds = 0.0;
        std::vector<float> samples;  // mono at the player's rate
    };
    // What the workers are asked to do; a new generation drops everything made for an older one.
    struct Request {
        std::uint64_t generation = 0;
        std::uint64_t planVersion = 0;
        std::shared_ptr<const engine::EditPlan> plan;
        std::map<std::string, std::string> proxies;  ///< files played instead of sources, by source id
        double startSeconds = 0.0;
        double rate = 1.0;
        bool playing = false;
        QSize displaySize{960, 540};
    };
    struct Shared;

    void restart(bool playing);
    void tick();
    void feedAudio(double clock);
    void openAudio();
    void startAudio();
    void stopAudio();
    /// Takes what the workers report; true when the plan asked for turned out unplayable.
    bool takeWorkerNews();
    void showFrame(DecodedFrame frame);
    [[nodiscard]] double clockNow() const;

    Callbacks callbacks_;
    std::shared_ptr<Shared> shared_;
    std::jthread videoWorker_;
    std::jthread audioWorker_;
    QTimer* timer_ = nullptr;

    std::optional<engine::EditPlan> plan_;
    std::map<std::string, std::string> proxies_;
    std::uint64_t planVersion_ = 0;
    std::uint64_t generation_ = 0;
    bool playing_ = false;
    bool ready_ = false;
    double rate_ = 1.0;
    double anchorSeconds_ = 0.0;
    std::chrono::steady_clock::time_point anchorTime_;
    double duration_ = 0.0;
    double frameSeconds_ = 1001.0 / 30000.0;
    QImage image_;
    std::optional<double> imageTime_;
    Statistics statistics_;
    std::chrono::steady_clock::time_point lastTick_;

    QAudioSink* sink_ = nullptr;
    QIODevice* audioDevice_ = nullptr;
    QAudioFormat audioFormat_;
    double audioWriteSeconds_ = 0.0;
    double volume_ = 1.0;
};

}  // namespace morvane::studio
