#include "preview/preview_player.hpp"

#include <QAudioDevice>
#include <QAudioSink>
#include <QMediaDevices>
#include <QTimer>
#include <algorithm>
#include <cmath>

#include "morvane/engine/audio/audio_finishing_options.hpp"
#include "morvane/engine/composition/composition_builder.hpp"
#include "morvane/engine/composition/composition_renderer.hpp"
#include "morvane/engine/support/cancellation.hpp"
#include "preview/preview_timing.hpp"

namespace morvane::studio {

using engine::RationalTime;
using Clock = std::chrono::steady_clock;

namespace {

constexpr std::size_t kFramesAhead = 6;       // decoded pictures waiting (0.2 s at 30 fps)
constexpr std::size_t kAudioChunksAhead = 4;  // a second of sound waiting
constexpr int kAudioChunkMilliseconds = 250;
constexpr double kAudioLeadSeconds = 0.12;  // how far ahead of the clock the device is fed
constexpr double kLateAudioSeconds = 0.2;   // sound later than this behind the clock is skipped
constexpr int kTickMilliseconds = 8;
constexpr auto kPrerollLimit = std::chrono::milliseconds(250);

// A decoded program frame as a picture the GUI can draw, scaled on this (worker) thread to fit `fit`.
QImage toImage(const engine::VideoFrame& frame, QSize fit) {
    if (frame.empty()) return {};
    auto* rgba = new engine::RGBAImage(frame.toRGBA());
    QImage image(
        rgba->pixels.data(), rgba->width, rgba->height, rgba->width * 4,
        QImage::Format_RGBA8888_Premultiplied,
        [](void* owned) { delete static_cast<engine::RGBAImage*>(owned); }, rgba);
    if (fit.isValid() && (image.width() > fit.width() || image.height() > fit.height())) {
        return image.scaled(fit, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    }
    return image.copy();  // own the pixels: the wrapped buffer goes with `image`
}

}  // namespace

struct PreviewPlayer::Shared {
    std::mutex mutex;
    std::condition_variable wake;
    bool stop = false;
    Request request;
    Clock::time_point anchorTime;  // when the clock of the request's generation started; zero until then
    int audioRate = 48000;

    std::deque<DecodedFrame> frames;
    std::deque<AudioChunk> audio;

    // What the video worker built, for the audio worker and the GUI.
    std::uint64_t builtVersion = 0;
    std::shared_ptr<const engine::CompositionBuildResult> built;
    // News for the GUI thread.
    std::optional<std::pair<std::uint64_t, std::optional<engine::CompositionBuildResult>>> buildNews;
    std::vector<std::string> failures;
};

PreviewPlayer::PreviewPlayer(Callbacks callbacks)
    : callbacks_(std::move(callbacks)), shared_(std::make_shared<Shared>()) {
    timer_ = new QTimer();
    timer_->setInterval(kTickMilliseconds);
    timer_->setTimerType(Qt::PreciseTimer);
    QObject::connect(timer_, &QTimer::timeout, [this] { tick(); });
    openAudio();

    auto shared = shared_;
    videoWorker_ = std::jthread([shared](std::stop_token stop) {
        std::unique_ptr<engine::CompositionRenderer> renderer;
        std::uint64_t builtVersion = 0;
        std::uint64_t generation = 0;
        long long next = 0;
        int step = 1;
        bool wantStill = false;
        bool atEnd = true;
        bool reportedFailure = false;
        for (;;) {
            Request request;
            Clock::time_point anchorTime;
            {
                std::unique_lock lock(shared->mutex);
                shared->wake.wait(lock, [&] {
                    const Request& r = shared->request;
                    return shared->stop || r.planVersion != builtVersion || r.generation != generation ||
                           wantStill || (r.playing && !atEnd && shared->frames.size() < kFramesAhead);
                });
                if (shared->stop) return;
                request = shared->request;
                anchorTime = shared->anchorTime;
            }
            if (request.planVersion != builtVersion) {
                builtVersion = request.planVersion;
                renderer.reset();
                std::optional<engine::CompositionBuildResult> build;
                try {
                    if (request.plan) {
                        build = engine::CompositionBuilder::build(
                            *request.plan, engine::AudioFinishingOptions::preview(),
                            {.proxySourceOverrides = request.proxies}, stop);
                        renderer = std::make_unique<engine::CompositionRenderer>(*build, stop);
                    }
                } catch (const OperationCancelled&) {
                    return;
                } catch (const std::exception& error) {
                    const std::lock_guard lock(shared->mutex);
                    shared->failures.emplace_back(error.what());
                }
                {
                    const std::lock_guard lock(shared->mutex);
                    shared->builtVersion = builtVersion;
                    shared->built =
                        build ? std::make_shared<const engine::CompositionBuildResult>(*build) : nullptr;
                    shared->buildNews.emplace(builtVersion, std::move(build));
                }
                shared->wake.notify_all();
                generation = 0;  // start again from the request's position on the new program
                reportedFailure = false;
                continue;
            }
            if (request.generation != generation) {
                generation = request.generation;
                const double frameSeconds =
                    renderer ? renderer->build().frameDuration.seconds() : 1001.0 / 30000.0;
                next = PreviewTiming::frameIndex(request.startSeconds, frameSeconds);
                step = request.rate < 0 ? -1 : std::max(1, static_cast<int>(std::lround(request.rate)));
                wantStill = !request.playing;
                atEnd = false;
            }
            // A still asked for past the end shows the last frame.
            if (renderer && wantStill) next = std::clamp<long long>(next, 0, renderer->frameCount() - 1);
            if (!renderer || next < 0 || next >= renderer->frameCount()) {
                atEnd = true;
                wantStill = false;
                continue;
            }
            const double frameSeconds = renderer->build().frameDuration.seconds();
            // Behind the clock: skip to the frame due now rather than show every late one.
            if (request.playing && anchorTime != Clock::time_point{}) {
                const double elapsed = std::chrono::duration<double>(Clock::now() - anchorTime).count();
                const long long due = PreviewTiming::frameIndex(
                    PreviewTiming::clockPosition(request.startSeconds, request.rate, elapsed,
                                                 renderer->duration().seconds()),
                    frameSeconds);
                if (step > 0 && next < due) next = due;
                if (step < 0 && next > due) next = due;
            }
            const RationalTime time = renderer->frameTime(next);
            QImage image;
            try {
                image = toImage(renderer->frame(time), request.displaySize);
            } catch (const OperationCancelled&) {
                return;
            } catch (const std::exception& error) {
                if (!reportedFailure) {
                    const std::lock_guard lock(shared->mutex);
                    shared->failures.emplace_back(error.what());
                }
                reportedFailure = true;
            }
            {
                const std::lock_guard lock(shared->mutex);
                if (shared->request.generation == generation) {
                    shared->frames.push_back({generation, time.seconds(), std::move(image)});
                }
            }
            next += step;
            wantStill = false;
        }
    });

    audioWorker_ = std::jthread([shared](std::stop_token stop) {
        std::unique_ptr<engine::CompositionRenderer> renderer;
        std::uint64_t builtVersion = 0;
        std::uint64_t generation = 0;
        long long nextSample = 0;
        for (;;) {
            Request request;
            std::shared_ptr<const engine::CompositionBuildResult> built;
            int rate = 48000;
            {
                std::unique_lock lock(shared->mutex);
                shared->wake.wait(lock, [&] {
                    const Request& r = shared->request;
                    if (shared->stop || shared->builtVersion != builtVersion) return true;
                    if (r.generation != generation) return true;
                    const bool wanted = r.playing && r.rate == 1.0 && renderer != nullptr;
                    return wanted && shared->audio.size() < kAudioChunksAhead &&
                           static_cast<double>(nextSample) / shared->audioRate <
                               renderer->duration().seconds();
                });
                if (shared->stop) return;
                request = shared->request;
                built = shared->built;
                rate = shared->audioRate;
                if (shared->builtVersion != builtVersion) {
                    builtVersion = shared->builtVersion;
                    renderer = built ? std::make_unique<engine::CompositionRenderer>(*built, stop) : nullptr;
                    generation = 0;
                    continue;
                }
            }
            if (request.generation != generation) {
                generation = request.generation;
                nextSample = std::llround(std::max(request.startSeconds, 0.0) * rate);
                continue;
            }
            const long long chunk = static_cast<long long>(rate) * kAudioChunkMilliseconds / 1000;
            const RationalTime from{nextSample, rate};
            const double end =
                std::min(static_cast<double>(nextSample + chunk) / rate, renderer->duration().seconds());
            AudioChunk out{generation, from.seconds(), {}};
            try {
                const engine::PCMBuffer pcm = renderer->renderAudio(
                    {.sampleRate = rate,
                     .range = engine::TimeSpan{from, RationalTime::fromSeconds(end, rate)}});
                out.samples = pcm.samples;
            } catch (const OperationCancelled&) {
                return;
            } catch (const std::exception&) {
                // Sound that can't be read plays as silence; the picture reports the source's failure.
                out.samples.assign(static_cast<std::size_t>(std::max<long long>(chunk, 0)), 0.0f);
            }
            nextSample += chunk;
            const std::lock_guard lock(shared->mutex);
            if (shared->request.generation == generation) shared->audio.push_back(std::move(out));
        }
    });
}

PreviewPlayer::~PreviewPlayer() {
    {
        const std::lock_guard lock(shared_->mutex);
        shared_->stop = true;
    }
    shared_->wake.notify_all();
    videoWorker_.request_stop();
    audioWorker_.request_stop();
    videoWorker_ = {};
    audioWorker_ = {};
    stopAudio();
    delete sink_;
    delete timer_;
}

void PreviewPlayer::openAudio() {
    if (qEnvironmentVariable("MORVANE_PREVIEW_AUDIO") == QLatin1String("0")) return;
    const QAudioDevice device = QMediaDevices::defaultAudioOutput();
    if (device.isNull()) return;
    QAudioFormat format;
    format.setSampleRate(48000);
    format.setChannelCount(1);
    format.setSampleFormat(QAudioFormat::Float);
    if (!device.isFormatSupported(format)) {
        format.setChannelCount(2);
        if (!device.isFormatSupported(format)) format = device.preferredFormat();
    }
    if (format.sampleRate() <= 0 || format.bytesPerFrame() <= 0) return;
    audioFormat_ = format;
    sink_ = new QAudioSink(device, format);
    sink_->setBufferSize(format.bytesForDuration(100'000));  // 0.1 s: what the device holds ahead
    sink_->setVolume(static_cast<float>(volume_));
    const std::lock_guard lock(shared_->mutex);
    shared_->audioRate = format.sampleRate();
}

void PreviewPlayer::startAudio() {
    if (!sink_ || rate_ != 1.0) return;
    audioWriteSeconds_ = anchorSeconds_;
    audioDevice_ = sink_->start();
}

void PreviewPlayer::stopAudio() {
    if (!sink_) return;
    sink_->stop();
    audioDevice_ = nullptr;
}

void PreviewPlayer::setPlan(const std::optional<engine::EditPlan>& plan,
                            const std::map<std::string, std::string>& proxies) {
    if (plan == plan_ && proxies == proxies_) return;
    plan_ = plan;
    proxies_ = proxies;
    ++planVersion_;
    ready_ = false;
    {
        const std::lock_guard lock(shared_->mutex);
        shared_->request.planVersion = planVersion_;
        shared_->request.plan = plan ? std::make_shared<const engine::EditPlan>(*plan) : nullptr;
        shared_->request.proxies = proxies;
    }
    restart(playing_);
}

void PreviewPlayer::restart(bool playing) {
    const bool wasPlaying = playing_;
    stopAudio();
    playing_ = playing;
    ++generation_;
    {
        const std::lock_guard lock(shared_->mutex);
        shared_->request.generation = generation_;
        shared_->request.startSeconds = anchorSeconds_;
        shared_->request.rate = rate_;
        shared_->request.playing = playing;
        shared_->anchorTime = {};  // the clock starts when the first frame is ready
        shared_->frames.clear();
        shared_->audio.clear();
    }
    shared_->wake.notify_all();
    anchorTime_ = Clock::now();
    lastTick_ = anchorTime_;
    timer_->start();
    if (wasPlaying != playing && callbacks_.playingChanged) callbacks_.playingChanged(playing);
}

double PreviewPlayer::clockNow() const {
    if (!playing_) return anchorSeconds_;
    const double elapsed = std::chrono::duration<double>(Clock::now() - anchorTime_).count();
    return PreviewTiming::clockPosition(anchorSeconds_, rate_, elapsed, duration_);
}

double PreviewPlayer::position() const {
    return clockNow();
}

void PreviewPlayer::play(double rate) {
    if (!std::isfinite(rate) || rate == 0.0) return;
    const double at = clockNow();
    rate_ = rate;
    anchorSeconds_ = at;
    if (rate > 0 && duration_ > 0 && at >= duration_ - frameSeconds_) anchorSeconds_ = 0.0;
    if (rate < 0 && at <= 0.0) anchorSeconds_ = duration_;
    restart(true);
}

void PreviewPlayer::pause() {
    if (!playing_) return;
    anchorSeconds_ = imageTime_.value_or(clockNow());
    restart(false);
    if (callbacks_.positionChanged) callbacks_.positionChanged(anchorSeconds_);
}

void PreviewPlayer::togglePlay() {
    if (playing_) {
        pause();
    } else {
        play(1.0);
    }
}

void PreviewPlayer::seek(double seconds) {
    if (!std::isfinite(seconds)) return;
    anchorSeconds_ = std::clamp(seconds, 0.0, duration_ > 0 ? duration_ : std::max(seconds, 0.0));
    restart(playing_);
    if (callbacks_.positionChanged) callbacks_.positionChanged(anchorSeconds_);
}

void PreviewPlayer::stepFrames(int count) {
    const double from = imageTime_.value_or(clockNow());
    const long long index = PreviewTiming::frameIndex(from, frameSeconds_) + count;
    const double lastFrame = std::max(duration_ - frameSeconds_, 0.0);
    anchorSeconds_ = std::clamp(static_cast<double>(std::max(index, 0LL)) * frameSeconds_, 0.0, lastFrame);
    restart(false);
    if (callbacks_.positionChanged) callbacks_.positionChanged(anchorSeconds_);
}

void PreviewPlayer::setDisplaySize(QSize size) {
    const std::lock_guard lock(shared_->mutex);
    shared_->request.displaySize = size;
}

void PreviewPlayer::setVolume(double volume) {
    volume_ = std::clamp(volume, 0.0, 1.0);
    if (sink_) sink_->setVolume(static_cast<float>(volume_));
}

bool PreviewPlayer::takeWorkerNews() {
    std::optional<std::pair<std::uint64_t, std::optional<engine::CompositionBuildResult>>> news;
    std::vector<std::string> failures;
    {
        const std::lock_guard lock(shared_->mutex);
        news.swap(shared_->buildNews);
        failures.swap(shared_->failures);
    }
    if (news && news->first == planVersion_) {
        ready_ = news->second.has_value();
        duration_ = ready_ ? news->second->composition.duration().seconds() : 0.0;
        frameSeconds_ = ready_ ? news->second->frameDuration.seconds() : frameSeconds_;
        if (!ready_) {
            image_ = QImage();
            imageTime_.reset();
            if (callbacks_.frameChanged) callbacks_.frameChanged();
        }
        if (anchorSeconds_ > duration_) anchorSeconds_ = duration_;
        if (callbacks_.positionChanged) callbacks_.positionChanged(clockNow());
    }
    for (const auto& failure : failures) {
        if (callbacks_.failed) callbacks_.failed(failure);
    }
    return news && news->first == planVersion_ && !ready_;
}

void PreviewPlayer::showFrame(DecodedFrame frame) {
    image_ = std::move(frame.image);
    imageTime_ = frame.seconds;
    if (callbacks_.frameChanged) callbacks_.frameChanged();
}

void PreviewPlayer::tick() {
    const bool buildFailed = takeWorkerNews();
    std::optional<DecodedFrame> shown;
    std::size_t dropped = 0;
    bool startClock = false;
    {
        const std::lock_guard lock(shared_->mutex);
        auto& frames = shared_->frames;
        if (playing_ && shared_->anchorTime == Clock::time_point{}) {
            // Pre-roll: the clock starts with the first decoded frame (or after a short wait).
            if (!frames.empty() || Clock::now() - anchorTime_ > kPrerollLimit) {
                anchorTime_ = Clock::now();
                shared_->anchorTime = anchorTime_;
                startClock = true;
            }
        }
        if (!playing_) {
            if (!frames.empty()) {
                shown = std::move(frames.back());
                frames.clear();
            }
        } else if (shared_->anchorTime != Clock::time_point{}) {
            std::vector<double> times;
            times.reserve(frames.size());
            for (const auto& f : frames)
                times.push_back(f.seconds);
            const auto pick = PreviewTiming::pickFrame(times, clockNow(), frameSeconds_, rate_ < 0);
            if (pick.show) {
                shown = std::move(frames[*pick.show]);
                frames.erase(frames.begin(), frames.begin() + static_cast<std::ptrdiff_t>(*pick.show) + 1);
                dropped = pick.dropped;
            }
        }
    }
    shared_->wake.notify_all();
    if (startClock) startAudio();

    const auto now = Clock::now();
    if (playing_ && !startClock && shared_->anchorTime != Clock::time_point{}) {
        statistics_.playedSeconds += std::chrono::duration<double>(now - lastTick_).count();
    }
    lastTick_ = now;
    if (shown) {
        if (playing_) ++statistics_.framesShown;
        statistics_.framesDropped += static_cast<long long>(dropped);
        showFrame(std::move(*shown));
    }
    if (!playing_) {
        // Paused: the timer only waits for the still picture, which a failed build or no plan never brings.
        if (shown || buildFailed || !plan_) timer_->stop();
        return;
    }
    const double clock = clockNow();
    feedAudio(clock);
    if (callbacks_.positionChanged) callbacks_.positionChanged(clock);
    const bool ended = rate_ > 0 ? (ready_ && clock >= duration_) : clock <= 0.0;
    if (ended) {
        anchorSeconds_ = rate_ > 0 ? std::max(duration_ - frameSeconds_, 0.0) : 0.0;
        restart(false);
    }
}

void PreviewPlayer::feedAudio(double clock) {
    if (!audioDevice_ || rate_ != 1.0) return;
    const int rate = audioFormat_.sampleRate();
    const int bytesPerFrame = audioFormat_.bytesPerFrame();
    if (audioWriteSeconds_ < clock - kLateAudioSeconds) audioWriteSeconds_ = clock;
    const double target = clock + kAudioLeadSeconds;
    {
        const std::lock_guard lock(shared_->mutex);
        auto& chunks = shared_->audio;
        while (audioWriteSeconds_ < target) {
            while (!chunks.empty() &&
                   chunks.front().startSeconds + static_cast<double>(chunks.front().samples.size()) / rate <=
                       audioWriteSeconds_ + 0.5 / rate) {
                chunks.pop_front();
            }
            if (chunks.empty() || chunks.front().startSeconds > audioWriteSeconds_ + 0.5 / rate) break;
            const AudioChunk& chunk = chunks.front();
            const auto offset = static_cast<std::size_t>(
                std::max(std::llround((audioWriteSeconds_ - chunk.startSeconds) * rate), 0LL));
            const std::size_t free = static_cast<std::size_t>(std::max<qsizetype>(sink_->bytesFree(), 0)) /
                                     static_cast<std::size_t>(bytesPerFrame);
            const auto wanted = static_cast<std::size_t>(std::ceil((target - audioWriteSeconds_) * rate));
            const std::size_t count =
                std::min({chunk.samples.size() - std::min(offset, chunk.samples.size()), free, wanted});
            if (count == 0) break;
            const QByteArray bytes = PreviewTiming::encodeSamples(
                std::span<const float>(chunk.samples).subspan(offset, count), audioFormat_);
            const qint64 written = audioDevice_->write(bytes);
            if (written <= 0) break;
            audioWriteSeconds_ += static_cast<double>(written / bytesPerFrame) / rate;
            if (written < bytes.size()) break;
        }
    }
    shared_->wake.notify_all();
}

}  // namespace morvane::studio
