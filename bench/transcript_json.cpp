// Reading a long transcript: Morvane's path-aware reader against nlohmann's own typed access on the same
// document, in the same run. Prints the ratio; the reader's bookkeeping should cost little over the parse.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <nlohmann/json.hpp>
#include <string>

#include "morvane/intelligence/models/transcript.hpp"

namespace {

using namespace morvane;
using namespace morvane::intelligence;

// Two hours of speech at about 2.7 words per second.
const std::string& longTranscriptText() {
    static const std::string text = [] {
        TranscriptDocument t{.sourceURL = "/media/talk.mp4", .locale = "en-US", .durationSeconds = 7200};
        const char* words[] = {"So,", "today", "we", "um", "look", "at", "the", "timeline", "again."};
        for (int i = 0; i < 20000; ++i) {
            const std::int64_t start = i * 22000LL;
            t.words.push_back({i, words[i % 9], {start, 60000}, {start + 15000, 60000}, 0.9, {}});
        }
        t.disfluencyHits = TranscriptDocument::disfluencyHitsFor(t.words);
        return dumpJson(Json(t), -1);
    }();
    return text;
}

void readerDecode(benchmark::State& state) {
    const std::string& text = longTranscriptText();
    for (auto _ : state) {
        const Json json = parseJson(text, "t.json");
        auto t = JsonReader(json, "t.json").get<TranscriptDocument>();
        benchmark::DoNotOptimize(t.words.data());
    }
}

engine::RationalTime plainTime(const Json& j) {
    return {j.at("value").get<std::int64_t>(), j.at("timescale").get<std::int32_t>()};
}

void nlohmannDecode(benchmark::State& state) {
    const std::string& text = longTranscriptText();
    for (auto _ : state) {
        const Json json = Json::parse(text);
        TranscriptDocument t;
        t.sourceURL = json.at("sourceURL").get<std::string>();
        t.locale = json.at("locale").get<std::string>();
        t.durationSeconds = json.at("durationSeconds").get<double>();
        for (const auto& w : json.at("words")) {
            TranscriptWord word{w.at("id").get<int>(),
                                w.at("text").get<std::string>(),
                                plainTime(w.at("start")),
                                plainTime(w.at("end")),
                                std::nullopt,
                                {}};
            if (w.contains("confidence")) word.confidence = w.at("confidence").get<double>();
            if (w.contains("alternatives"))
                word.alternatives = w.at("alternatives").get<std::vector<std::string>>();
            t.words.push_back(std::move(word));
        }
        t.fullText = json.at("fullText").get<std::string>();
        for (const auto& h : json.at("disfluencyHits")) {
            t.disfluencyHits.push_back({h.at("token").get<std::string>(), h.at("wordID").get<int>(),
                                        h.at("text").get<std::string>()});
        }
        benchmark::DoNotOptimize(t.words.data());
    }
}

BENCHMARK(nlohmannDecode)->Unit(benchmark::kMillisecond);
BENCHMARK(readerDecode)->Unit(benchmark::kMillisecond);

// Prints each benchmark as usual, then the reader's time as a multiple of the baseline.
class RatioReporter : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const auto& run : runs)
            times_[run.benchmark_name()] = run.GetAdjustedRealTime();
    }
    void Finalize() override {
        ConsoleReporter::Finalize();
        const double baseline = times_["nlohmannDecode"];
        if (baseline > 0)
            std::printf("reader / nlohmann typed access: %.2fx\n", times_["readerDecode"] / baseline);
    }

  private:
    std::map<std::string, double> times_;
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
}
