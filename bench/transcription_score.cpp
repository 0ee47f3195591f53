// Scores a transcript against the script it was spoken from, for bench/transcription.sh:
//   bench_transcription_score reference.tsv transcript.json|decoder.txt
// The reference has one row per spoken word: "word<TAB>start<TAB>end<TAB>filler" (times "-" when unknown;
// filler 1 for a hesitation). The hypothesis is a Morvane transcript, or pocketsphinx's "word start end
// probability" lines. Words are compared lower case without punctuation, after a minimum-edit alignment.
// Prints the word error rate (substitutions, deletions, insertions), the hesitations that came out as
// fillers, fillers heard where none was said, and how far the start times of correctly heard words fall
// from the spoken word boundaries.

#include <fmt/core.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "morvane/engine/support/files.hpp"
#include "morvane/intelligence/models/transcript.hpp"

namespace {

using namespace morvane;
using namespace morvane::intelligence;

struct Word {
    std::string text;
    std::optional<double> start;
    bool filler = false;
};

std::string normalized(std::string_view text) {
    std::string out;
    for (const char c : text) {
        if (c >= 'A' && c <= 'Z')
            out += static_cast<char>(c - 'A' + 'a');
        else if ((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '\'')
            out += c;
    }
    return out;
}

bool isFillerToken(const std::string& word) {
    return word == "um" || word == "uh" || word == "umm" || word == "uhh" || word == "er" || word == "ah" ||
           word == "hmm";
}

std::vector<Word> readReference(const std::string& path) {
    std::ifstream in(path);
    std::vector<Word> words;
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream fields(line);
        std::string text, start, end;
        int filler = 0;
        if (!(fields >> text >> start >> end >> filler)) continue;
        words.push_back(
            {normalized(text), start == "-" ? std::nullopt : std::optional(std::stod(start)), filler == 1});
    }
    return words;
}

std::vector<Word> readHypothesis(const std::string& path) {
    std::vector<Word> words;
    const std::string text = readWholeFile(path);
    if (text.starts_with('{')) {
        const Json json = parseJson(text, path);
        const auto transcript = JsonReader(json, path).get<TranscriptDocument>();
        for (const TranscriptWord& w : transcript.words)
            words.push_back({normalized(w.text), w.start.seconds(), false});
        return words;
    }
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        std::istringstream fields(line);
        std::string word;
        double start = 0;
        double end = 0;
        if (!(fields >> word >> start >> end)) continue;
        if (word.starts_with('<') || word.starts_with('[') || word.starts_with('+')) continue;
        if (const auto open = word.find('('); open != std::string::npos) word.erase(open);
        words.push_back({normalized(word), start, false});
    }
    return words;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        fmt::print(stderr, "usage: {} reference.tsv transcript.json|decoder.txt\n", argv[0]);
        return 2;
    }
    const std::vector<Word> ref = readReference(argv[1]);
    const std::vector<Word> hyp = readHypothesis(argv[2]);
    const std::size_t n = ref.size();
    const std::size_t m = hyp.size();
    std::vector<std::vector<std::size_t>> cost(n + 1, std::vector<std::size_t>(m + 1, 0));
    for (std::size_t i = 0; i <= n; ++i)
        cost[i][0] = i;
    for (std::size_t j = 0; j <= m; ++j)
        cost[0][j] = j;
    for (std::size_t i = 1; i <= n; ++i) {
        for (std::size_t j = 1; j <= m; ++j) {
            const std::size_t substitute = cost[i - 1][j - 1] + (ref[i - 1].text == hyp[j - 1].text ? 0 : 1);
            cost[i][j] = std::min({cost[i - 1][j] + 1, cost[i][j - 1] + 1, substitute});
        }
    }

    std::size_t substitutions = 0, deletions = 0, insertions = 0, fillersSaid = 0, fillersKept = 0;
    std::size_t fillersInvented = 0;
    std::vector<double> startErrors;
    std::map<std::string, int> hesitationsHeardAs;  // "" when nothing was heard there
    for (const Word& w : ref)
        fillersSaid += w.filler ? 1 : 0;
    std::size_t i = n;
    std::size_t j = m;
    while (i > 0 || j > 0) {
        if (i > 0 && j > 0 &&
            cost[i][j] == cost[i - 1][j - 1] + (ref[i - 1].text == hyp[j - 1].text ? 0 : 1)) {
            const Word& r = ref[i - 1];
            const Word& h = hyp[j - 1];
            if (r.text != h.text) ++substitutions;
            if (r.filler && isFillerToken(h.text)) ++fillersKept;
            if (r.filler) ++hesitationsHeardAs[h.text];
            if (!r.filler && !isFillerToken(r.text) && isFillerToken(h.text)) ++fillersInvented;
            if (r.text == h.text && r.start && h.start) startErrors.push_back(std::abs(*h.start - *r.start));
            --i;
            --j;
        } else if (i > 0 && cost[i][j] == cost[i - 1][j] + 1) {
            if (ref[i - 1].filler) ++hesitationsHeardAs[""];
            ++deletions;
            --i;
        } else {
            if (isFillerToken(hyp[j - 1].text)) ++fillersInvented;
            ++insertions;
            --j;
        }
    }
    const std::size_t errors = substitutions + deletions + insertions;
    fmt::print("  word error rate      {:5.1f}%  ({} of {} words: {} substituted, {} deleted, {} inserted)\n",
               100.0 * static_cast<double>(errors) / static_cast<double>(std::max<std::size_t>(n, 1)), errors,
               n, substitutions, deletions, insertions);
    fmt::print("  hesitations kept     {} of {}; fillers where none was said: {}\n", fillersKept, fillersSaid,
               fillersInvented);
    std::string heardAs;
    for (const auto& [word, count] : hesitationsHeardAs)
        heardAs += fmt::format("{}\"{}\" {}", heardAs.empty() ? "" : ", ", word.empty() ? "(nothing)" : word, count);
    fmt::print("  hesitations heard as {}\n", heardAs);
    if (!startErrors.empty()) {
        std::sort(startErrors.begin(), startErrors.end());
        double sum = 0;
        for (const double e : startErrors)
            sum += e;
        const auto within =
            std::count_if(startErrors.begin(), startErrors.end(), [](double e) { return e <= 0.15; });
        fmt::print(
            "  word start error     median {:.3f} s, mean {:.3f} s, 90th percentile {:.3f} s; {:.1f}% within "
            "0.15 s ({} words timed)\n",
            startErrors[startErrors.size() / 2], sum / static_cast<double>(startErrors.size()),
            startErrors[startErrors.size() * 9 / 10],
            100.0 * static_cast<double>(within) / static_cast<double>(startErrors.size()),
            startErrors.size());
    }
    return 0;
}
