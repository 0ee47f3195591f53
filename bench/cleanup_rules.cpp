// Clean up on an hour-long tutorial: a generated transcript of about 9,000 words in 1,500 segments, with
// fillers, false starts and retakes, and an hour of audio whose "speech" sits exactly under its words.
//
//   bench_cleanup_rules --generate DIR [MINUTES]   writes DIR/talk.transcript.json, talk.m4a,
//   talk.segments.json bench_cleanup_rules --clean-up DIR             Clean up as the window runs it:
//   segments, transcript and file
//                                                  to a finished run (timed from outside by bench/cleanup.sh)
//   bench_cleanup_rules [benchmark flags]          the rules alone on audio already decoded, from
//                                                  $MORVANE_BENCH_CLEANUP_DIR (default
//                                                  build/bench-cache/cleanup)

#include <benchmark/benchmark.h>
#include <fmt/core.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <numbers>
#include <random>
#include <string>
#include <vector>

#include "json_file.hpp"
#include "morvane/engine/audio/pcm_sample_reader.hpp"
#include "morvane/engine/silence/silence_detector.hpp"
#include "morvane/engine/support/files.hpp"
#include "morvane/intelligence/cleanup/cleanup_composer.hpp"
#include "morvane/intelligence/cleanup/cleanup_evidence.hpp"
#include "morvane/intelligence/routing/model_router.hpp"
#include "morvane/intelligence/segmentation/segmenter.hpp"

namespace {

using namespace morvane;
using namespace morvane::intelligence;

constexpr int kRate = 48000;

// The words of a tutorial, spoken on a clock: each word a voiced sound under its time, pauses near silent.
class TalkGenerator {
  public:
    explicit TalkGenerator(double minutes) : end_(minutes * 60.0) {}

    void run(const std::filesystem::path& dir) {
        const auto audioPath = dir / "talk.m4a";
        const std::string command = fmt::format(
            "ffmpeg -nostdin -y -loglevel error -f f32le -ar {} -ac 1 -i - -c:a aac -b:a 96k '{}'", kRate,
            audioPath.string());
        pipe_ = popen(command.c_str(), "w");
        if (pipe_ == nullptr) throw std::runtime_error("could not start ffmpeg");
        transcript_.sourceURL = audioPath.string();
        transcript_.locale = "en-US";
        while (now_ < end_ - 10.0)
            speakSomething();
        silenceUntil(end_);
        flush();
        if (pclose(pipe_) != 0) throw std::runtime_error("ffmpeg failed to encode the talk");
        transcript_.durationSeconds = end_;
        transcript_.disfluencyHits = TranscriptDocument::disfluencyHitsFor(transcript_.words);
        for (const auto& word : transcript_.words) {
            if (!transcript_.fullText.empty()) transcript_.fullText += ' ';
            transcript_.fullText += word.text;
        }
        std::ofstream(dir / "talk.transcript.json") << dumpJson(Json(transcript_), -1);
    }

    [[nodiscard]] const TranscriptDocument& transcript() const { return transcript_; }

  private:
    static constexpr std::array<const char*, 48> kVocabulary{
        "so",      "the",      "first", "thing",  "you",      "do",        "is",     "drop",
        "your",    "file",     "on",    "window", "then",     "we",        "pick",   "a",
        "cut",     "timeline", "clip",  "export", "settings", "audio",     "track",  "click",
        "here",    "and",      "that",  "button", "opens",    "panel",     "with",   "all",
        "options", "now",      "let's", "look",   "at",       "captions",  "again",  "quickly",
        "this",    "works",    "for",   "every",  "video",    "recording", "screen", "today"};

    void speakSomething() {
        const double roll = uniform(0.0, 1.0);
        if (roll < 0.04) {
            say({"Um."}, true);
        } else if (roll < 0.09) {
            // A false start: a few words and a filler, a breath, then the whole line.
            auto line = sentence();
            std::vector<std::string> start(line.begin(), line.begin() + 2);
            start.push_back("uh,");
            say(start, false);
            pauseFor(uniform(0.6, 0.9));
            say(line, false);
        } else if (roll < 0.15 && !lastLine_.empty()) {
            // A retake of the line before, with one word changed (not the last, which ends the sentence).
            auto line = lastLine_;
            line[static_cast<std::size_t>(uniform(0.0, static_cast<double>(line.size() - 1)))] = word();
            if (line.back().back() != '.') line.back() += '.';
            say(line, false);
        } else {
            auto line = sentence();
            if (uniform(0.0, 1.0) < 0.12) {
                const auto at = static_cast<std::size_t>(uniform(0.0, static_cast<double>(line.size() - 1)));
                line.insert(line.begin() + static_cast<std::ptrdiff_t>(at),
                            uniform(0.0, 1.0) < 0.5 ? "um," : "like,");
            }
            say(line, false);
            lastLine_ = line;
        }
        const double pause = uniform(0.0, 1.0);
        pauseFor(pause < 0.7 ? uniform(0.2, 0.45) : pause < 0.95 ? uniform(0.6, 1.2) : uniform(1.6, 3.0));
    }

    std::string word() {
        return kVocabulary[static_cast<std::size_t>(uniform(0.0, kVocabulary.size() - 0.001))];
    }

    std::vector<std::string> sentence() {
        std::vector<std::string> line;
        const int count = static_cast<int>(uniform(4.0, 9.999));
        for (int i = 0; i < count; ++i)
            line.push_back(word());
        line.front()[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(line.front()[0])));
        line.back() += '.';
        return line;
    }

    void say(const std::vector<std::string>& words, bool mumbled) {
        for (std::size_t i = 0; i < words.size(); ++i) {
            if (i > 0) pauseFor(uniform(0.03, 0.1));
            const double length = uniform(0.16, 0.32);
            const int id = static_cast<int>(transcript_.words.size());
            transcript_.words.push_back({id,
                                         words[i],
                                         RationalTime::fromSeconds(now_, 60000),
                                         RationalTime::fromSeconds(now_ + length, 60000),
                                         uniform(0.6, 0.99),
                                         {}});
            voice(length, mumbled ? 0.02 : uniform(0.08, 0.2));
        }
    }

    // A voiced sound: three harmonics of a pitch that drifts a little, with 15 ms ramps at both ends.
    void voice(double seconds, double amplitude) {
        const auto count = static_cast<std::size_t>(seconds * kRate);
        const double pitch = uniform(100.0, 180.0);
        for (std::size_t i = 0; i < count; ++i) {
            const double t = static_cast<double>(i) / kRate;
            const double ramp = std::min({1.0, t / 0.015, (seconds - t) / 0.015});
            const double phase = 2.0 * std::numbers::pi * pitch * t;
            const double sample =
                std::sin(phase) + 0.5 * std::sin(2 * phase) + 0.25 * std::sin(3 * phase) + noiseSample();
            write(static_cast<float>(amplitude * ramp * sample / 1.75));
        }
        now_ += seconds;
    }

    void pauseFor(double seconds) { silenceUntil(now_ + seconds); }

    void silenceUntil(double seconds) {
        const auto count = static_cast<std::size_t>(std::max(seconds - now_, 0.0) * kRate);
        for (std::size_t i = 0; i < count; ++i)
            write(static_cast<float>(0.0005 * noiseSample()));
        now_ = seconds;
    }

    double noiseSample() { return noise_(random_); }

    void write(float sample) {
        buffer_.push_back(sample);
        if (buffer_.size() == buffer_.capacity()) flush();
    }

    void flush() {
        std::fwrite(buffer_.data(), sizeof(float), buffer_.size(), pipe_);
        buffer_.clear();
    }

    double uniform(double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(random_); }

    double end_;
    double now_ = 0.5;
    std::mt19937 random_{42};
    std::normal_distribution<double> noise_{0.0, 0.3};
    std::vector<std::string> lastLine_;
    TranscriptDocument transcript_;
    FILE* pipe_ = nullptr;
    std::vector<float> buffer_ = [] {
        std::vector<float> b;
        b.reserve(1 << 16);
        return b;
    }();
};

using bench::readJSON;

int generate(const std::filesystem::path& dir, double minutes) {
    std::filesystem::create_directories(dir);
    TalkGenerator generator(minutes);
    generator.run(dir);
    // The segments as the window has them once a recording is imported: snapped to its pauses.
    const auto silences = engine::SilenceDetector::detect(dir / "talk.m4a");
    const auto segments = Segmenter::segment(generator.transcript(), silences);
    std::ofstream(dir / "talk.segments.json") << dumpJson(Json(segments), -1);
    fmt::print("{} words, {} segments, {} pauses over {} minutes in {}\n",
               generator.transcript().words.size(), segments.segmentCount, silences.size(), minutes,
               dir.string());
    return 0;
}

int cleanUp(const std::filesystem::path& dir) {
    const auto transcript = readJSON<TranscriptDocument>(dir / "talk.transcript.json");
    const auto segments = readJSON<SegmentDocument>(dir / "talk.segments.json");
    const auto run = ModelRouter::classify(
        segments, "",
        {.transcript = &transcript, .mediaPath = dir / "talk.m4a", .commandID = AssistantCommandID::cleanUp});
    fmt::print("Clean up kept {} of {} segments\n", run.mergedKeepSegmentIDs.size(), segments.segmentCount);
    return 0;
}

// The hour, decoded once at both rates the rules read, with its transcript and segments.
struct DecodedTalk {
    TranscriptDocument transcript;
    SegmentDocument segments;
    engine::PCMBuffer pcm48;
    engine::PCMBuffer pcm44;
};

const DecodedTalk* decodedTalk() {
    static const std::unique_ptr<DecodedTalk> talk = []() -> std::unique_ptr<DecodedTalk> {
        const char* env = std::getenv("MORVANE_BENCH_CLEANUP_DIR");
        const std::filesystem::path dir = env != nullptr ? env : "build/bench-cache/cleanup";
        if (!std::filesystem::exists(dir / "talk.segments.json")) return nullptr;
        auto decoded = std::make_unique<DecodedTalk>();
        decoded->transcript = readJSON<TranscriptDocument>(dir / "talk.transcript.json");
        decoded->segments = readJSON<SegmentDocument>(dir / "talk.segments.json");
        decoded->pcm48 =
            engine::PCMSampleReader::readMonoFloat(dir / "talk.m4a", SegmentAudioMeter::sampleRate);
        decoded->pcm44 =
            engine::PCMSampleReader::readMonoFloat(dir / "talk.m4a", engine::SilenceScanner::sampleRate);
        return decoded;
    }();
    return talk.get();
}

// Silence detection, segment levels and the three rules, from samples in memory.
void rulesOnDecodedAudio(benchmark::State& state) {
    const DecodedTalk* talk = decodedTalk();
    if (talk == nullptr) return state.SkipWithError("no generated talk: run with --generate first");
    for (auto _ : state) {
        CleanupEvidence evidence{.silences = engine::SilenceDetector::detect(talk->pcm44.samples),
                                 .levels = SegmentAudioMeter::measure(talk->segments.segments, talk->pcm48)};
        auto run = CleanupComposer::classify(talk->segments, talk->transcript, "Clean up", evidence);
        benchmark::DoNotOptimize(run.mergedKeepSegmentIDs.data());
    }
}

// The decisions alone, once the evidence is measured.
void rulesOnMeasuredEvidence(benchmark::State& state) {
    const DecodedTalk* talk = decodedTalk();
    if (talk == nullptr) return state.SkipWithError("no generated talk: run with --generate first");
    const CleanupEvidence evidence{
        .silences = engine::SilenceDetector::detect(talk->pcm44.samples),
        .levels = SegmentAudioMeter::measure(talk->segments.segments, talk->pcm48)};
    for (auto _ : state) {
        auto run = CleanupComposer::classify(talk->segments, talk->transcript, "Clean up", evidence);
        benchmark::DoNotOptimize(run.mergedKeepSegmentIDs.data());
    }
}

BENCHMARK(rulesOnDecodedAudio)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(rulesOnMeasuredEvidence)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    try {
        if (argc >= 3 && std::string(argv[1]) == "--generate") {
            return generate(argv[2], argc >= 4 ? std::atof(argv[3]) : 60.0);
        }
        if (argc >= 3 && std::string(argv[1]) == "--clean-up") return cleanUp(argv[2]);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "bench_cleanup_rules: %s\n", e.what());
        return 1;
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
