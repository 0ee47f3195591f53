#include "morvane/intelligence/transcription/pocketsphinx_recognizer.hpp"

#include <err.h>
#include <pocketsphinx.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

#include "morvane/engine/silence/silence_detector.hpp"
#include "morvane/intelligence/support/text.hpp"
#include "morvane/intelligence/transcription/utterance_splitter.hpp"

namespace morvane::intelligence {
namespace {

constexpr std::string_view kLocale = "en-US";
constexpr int kSampleRate = 16000;
constexpr double kFramesPerSecond = 100.0;  // pocketsphinx's default frame rate
constexpr int kMaxThreads = 4;              // each decoder holds its own copy of the language model
constexpr auto kProgressInterval = std::chrono::milliseconds(100);
constexpr const char* kDefaultSearch = "_default";  // what pocketsphinx names the search of "-lm"

// Alternatives: words of the lattice that span most of a recognised word, likely enough to matter.
constexpr double kAlternativeMinPosterior = 0.05;
constexpr std::size_t kMaxAlternatives = 3;

// A hesitation is held at least this long, with at least this much silence on either side. Held past
// the second length, a syllable is a hesitation whatever word it sounded like; below it, only when the
// language model finds the word alone less likely than a hesitation.
constexpr double kHesitationMinSeconds = 0.25;
constexpr double kHesitationSureSeconds = 0.5;
constexpr double kHesitationMinPause = 0.25;

// Words that mean something said on their own between pauses, however long they are held: answers,
// greetings, commands, numbers, questions, and the fillers themselves.
constexpr std::string_view kStandaloneWords[] = {
    "ah",   "bye",   "cool",  "done",  "eight", "er",  "fine", "first", "five", "four",  "go",
    "good", "great", "hey",   "hi",    "hm",    "hmm", "how",  "last",  "look", "mm",    "next",
    "nice", "nine",  "no",    "nope",  "now",   "oh",  "one",  "right", "see",  "seven", "six",
    "stop", "sure",  "ten",   "three", "two",   "uh",  "uhh",  "um",    "umm",  "wait",  "well",
    "what", "when",  "where", "who",   "why",   "wow", "yeah", "yep",   "yes",
};

std::filesystem::path modelFolder(const std::filesystem::path& modelDirectory) {
    return modelDirectory / "en-us";
}
std::filesystem::path acousticModel(const std::filesystem::path& d) {
    return modelFolder(d) / "en-us";
}
std::filesystem::path languageModel(const std::filesystem::path& d) {
    return modelFolder(d) / "en-us.lm.bin";
}
std::filesystem::path dictionary(const std::filesystem::path& d) {
    return modelFolder(d) / "cmudict-en-us.dict";
}

void silenceLibraryLog() {
    static std::once_flag once;
    std::call_once(once, [] { err_set_logfp(nullptr); });
}

// "to(2)" is the second pronunciation of "to".
std::string_view baseWord(std::string_view word) {
    if (word.ends_with(')')) {
        if (const auto open = word.rfind('('); open != std::string_view::npos) return word.substr(0, open);
    }
    return word;
}

bool isSilence(std::string_view word) {
    return word == "<s>" || word == "</s>" || word == "<sil>";
}

// The written form of a decoder word, or nothing for silence, noise and sentence marks.
std::optional<std::string> writtenForm(std::string_view word) {
    if (word.empty() || word.front() == '<' || word.front() == '[' || word.front() == '+')
        return std::nullopt;
    std::string text(baseWord(word));
    // The dictionary writes everything in lower case; the pronoun is written upper case ("I", "I'm").
    if (text == "i" || text.starts_with("i'")) text.front() = 'I';
    return text;
}

bool isVowel(std::string_view phone) {
    static constexpr std::string_view kVowels[] = {"AA", "AE", "AH", "AO", "AW", "AY", "EH", "ER",
                                                   "EY", "IH", "IY", "OW", "OY", "UH", "UW"};
    return std::find(std::begin(kVowels), std::end(kVowels), phone) != std::end(kVowels);
}

struct WordSpan {
    int firstFrame = 0;
    int lastFrame = 0;  // inclusive
};

// A word of the best path before it becomes a run.
struct DecodedWord {
    std::string decoderWord;  // with its pronunciation number, "and(2)"
    std::string text;
    WordSpan span;
    double posterior = 0.0;
    double pauseBefore = 0.0;
    double pauseAfter = 0.0;
};

class Decoder {
  public:
    explicit Decoder(const std::filesystem::path& modelDirectory) {
        silenceLibraryLog();
        const std::string hmm = acousticModel(modelDirectory).string();
        const std::string lm = languageModel(modelDirectory).string();
        const std::string dict = dictionary(modelDirectory).string();
        // Each utterance is decoded whole, its cepstral mean taken from itself: the words don't depend on
        // which utterances the same decoder heard before, so any number of threads gives one transcript.
        std::vector<std::string> arguments{"-hmm", hmm,    "-lm",   lm,          "-dict",
                                           dict,   "-cmn", "batch", "-bestpath", "yes"};
        std::vector<char*> argv;
        for (std::string& a : arguments)
            argv.push_back(a.data());
        config_ = cmd_ln_parse_r(nullptr, ps_args(), static_cast<int32>(argv.size()), argv.data(), FALSE);
        if (config_ != nullptr) decoder_ = ps_init(config_);
        if (decoder_ == nullptr) {
            if (config_ != nullptr) cmd_ln_free_r(config_);
            throw IntelligenceError::decodeFailed("The speech recogniser could not load its model from " +
                                                  modelFolder(modelDirectory).string() + ".");
        }
    }
    ~Decoder() {
        ps_free(decoder_);
        cmd_ln_free_r(config_);
    }
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;

    // The words of one utterance; no runs when the decoder heard none.
    RecognitionResult decode(const Utterance& utterance, bool markHesitations) {
        // A new stream numbers frames from the utterance's start.
        if (ps_start_stream(decoder_) < 0 || ps_start_utt(decoder_) < 0)
            throw IntelligenceError::decodeFailed("The speech recogniser failed to start.");
        ps_process_raw(decoder_, utterance.samples.data(), utterance.samples.size(), FALSE, TRUE);
        ps_end_utt(decoder_);
        RecognitionResult result;
        int32 score = 0;
        if (ps_get_hyp(decoder_, &score) == nullptr) return result;  // also runs the lattice pass

        std::vector<DecodedWord> words = bestPath();
        ps_lattice_t* lattice = ps_get_lattice(decoder_);
        const double offset = static_cast<double>(utterance.firstSample) / kSampleRate;
        for (DecodedWord& word : words) {
            std::vector<std::string> others =
                lattice != nullptr ? alternatives(lattice, word) : std::vector<std::string>{};
            if (markHesitations) {
                const auto saidAlone = [this](std::string_view text) { return scoreAlone(text); };
                if (auto marked = PocketSphinxRecognizer::hesitation(heard(word), saidAlone)) {
                    // The word it sounded like stays as the first other reading.
                    std::erase(others, *marked);
                    others.insert(others.begin(), std::exchange(word.text, std::move(*marked)));
                }
            }
            result.runs.push_back(
                {.text = " " + word.text,
                 .audioTimeRange =
                     engine::SecondsRange{offset + word.span.firstFrame / kFramesPerSecond,
                                          offset + (word.span.lastFrame + 1) / kFramesPerSecond},
                 .confidence = std::clamp(word.posterior, 0.0, 1.0),
                 .alternatives = std::move(others)});
        }
        return result;
    }

  private:
    // The words of the best path, with the silence around each: the utterance's edges are pauses.
    std::vector<DecodedWord> bestPath() {
        logmath_t* logmath = ps_get_logmath(decoder_);
        std::vector<DecodedWord> words;
        double silence = std::numeric_limits<double>::infinity();
        for (ps_seg_t* segment = ps_seg_iter(decoder_); segment != nullptr; segment = ps_seg_next(segment)) {
            const std::string_view decoderWord = ps_seg_word(segment);
            WordSpan span;
            ps_seg_frames(segment, &span.firstFrame, &span.lastFrame);
            const double seconds = (span.lastFrame + 1 - span.firstFrame) / kFramesPerSecond;
            std::optional<std::string> text = writtenForm(decoderWord);
            if (!text) {
                if (isSilence(decoderWord)) silence += seconds;
                continue;
            }
            if (!words.empty()) words.back().pauseAfter = silence;
            int32 acoustic = 0;
            int32 language = 0;
            int32 backoff = 0;
            const int32 logPosterior = ps_seg_prob(segment, &acoustic, &language, &backoff);
            words.push_back({.decoderWord = std::string(decoderWord),
                             .text = std::move(*text),
                             .span = span,
                             .posterior = logmath_exp(logmath, logPosterior),
                             .pauseBefore = silence});
            silence = 0.0;
        }
        if (!words.empty()) words.back().pauseAfter = std::numeric_limits<double>::infinity();
        return words;
    }

    // The language model's log probability of `text` as a whole utterance.
    double scoreAlone(std::string_view text) {
        // The search made from "-lm" is the decoder's default one. Asked by name, since ps_get_search leaks
        // the hash iterator it walks on every call.
        ngram_model_t* model = ps_get_lm(decoder_, kDefaultSearch);
        if (model == nullptr) return 0.0;
        const std::string word = lowercased(text);
        return static_cast<double>(ngram_score(model, word.c_str(), "<s>", nullptr)) +
               static_cast<double>(ngram_score(model, "</s>", word.c_str(), "<s>", nullptr));
    }

    PocketSphinxRecognizer::HeardWord heard(const DecodedWord& word) {
        std::string phones;
        if (char* pronunciation = ps_lookup_word(decoder_, word.decoderWord.c_str())) {
            phones = pronunciation;
            std::free(pronunciation);
        }
        return {.text = word.text,
                .phones = std::move(phones),
                .seconds = (word.span.lastFrame + 1 - word.span.firstFrame) / kFramesPerSecond,
                .pauseBefore = word.pauseBefore,
                .pauseAfter = word.pauseAfter};
    }

    // The other words of the lattice that cover most of `word`, by their best posterior.
    std::vector<std::string> alternatives(ps_lattice_t* lattice, const DecodedWord& word) {
        logmath_t* logmath = ps_get_logmath(decoder_);
        std::map<std::string, double> best;
        for (ps_latnode_iter_t* it = ps_latnode_iter(lattice); it != nullptr; it = ps_latnode_iter_next(it)) {
            ps_latnode_t* node = ps_latnode_iter_node(it);
            int16 firstEnd = 0;
            int16 lastEnd = 0;
            const int start = ps_latnode_times(node, &firstEnd, &lastEnd);
            const int end = (firstEnd + lastEnd) / 2;
            const int overlap = std::min(word.span.lastFrame, end) - std::max(word.span.firstFrame, start);
            const int joint = std::max(word.span.lastFrame, end) - std::min(word.span.firstFrame, start);
            if (joint <= 0 || 2 * overlap < joint) continue;
            const std::optional<std::string> text = writtenForm(ps_latnode_word(lattice, node));
            if (!text || *text == word.text) continue;
            ps_latlink_t* link = nullptr;
            double& kept = best[*text];
            kept = std::max(kept, logmath_exp(logmath, ps_latnode_prob(lattice, node, &link)));
        }
        std::vector<std::pair<double, std::string>> ranked;
        for (auto& [text, posterior] : best) {
            if (posterior >= kAlternativeMinPosterior) ranked.emplace_back(posterior, text);
        }
        std::sort(ranked.begin(), ranked.end(),
                  [](const auto& a, const auto& b) { return a.first > b.first; });
        std::vector<std::string> texts;
        for (std::size_t i = 0; i < ranked.size() && i < kMaxAlternatives; ++i)
            texts.push_back(std::move(ranked[i].second));
        return texts;
    }

    cmd_ln_t* config_ = nullptr;
    ps_decoder_t* decoder_ = nullptr;
};

// Utterances handed from the reading thread to the decoders, at most `capacity` waiting at once so that
// reading never runs far ahead of decoding.
class UtteranceQueue {
  public:
    explicit UtteranceQueue(std::size_t capacity) : capacity_(capacity) {}

    // Waits for room; false when the wait timed out (the caller reports progress and tries again).
    bool push(Utterance& utterance, std::chrono::milliseconds timeout) {
        std::unique_lock lock(mutex_);
        if (!changed_.wait_for(lock, timeout, [&] { return waiting_.size() < capacity_ || stopping_; }))
            return false;
        waiting_.push_back(std::move(utterance));
        changed_.notify_all();
        return true;
    }

    // The next utterance, or nothing once the queue is closed and empty, or stopping.
    std::optional<Utterance> pop() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return !waiting_.empty() || closed_ || stopping_; });
        if (stopping_ || waiting_.empty()) return std::nullopt;
        Utterance next = std::move(waiting_.front());
        waiting_.pop_front();
        changed_.notify_all();
        return next;
    }

    void close() {
        const std::lock_guard lock(mutex_);
        closed_ = true;
        changed_.notify_all();
    }

    void stop() {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
        changed_.notify_all();
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Utterance> waiting_;
    std::size_t capacity_;
    bool closed_ = false;
    bool stopping_ = false;
};

// The decoding threads and what they found.
class DecoderPool {
  public:
    DecoderPool(const PocketSphinxOptions& options, int threads)
        : queue_(static_cast<std::size_t>(threads) * 2) {
        for (int i = 0; i < threads; ++i)
            workers_.emplace_back([this, options] { work(options); });
    }
    ~DecoderPool() {
        queue_.stop();
        for (std::thread& worker : workers_)
            worker.join();
    }
    DecoderPool(const DecoderPool&) = delete;
    DecoderPool& operator=(const DecoderPool&) = delete;

    // Hands `utterance` over, waiting for room while reporting progress; rethrows a decoder's failure.
    void add(Utterance& utterance, const std::function<void()>& whileWaiting) {
        while (!queue_.push(utterance, kProgressInterval)) {
            rethrowFailure();
            whileWaiting();
        }
        rethrowFailure();
    }

    // Waits for every utterance to be decoded, and returns the results in stream order.
    std::vector<RecognitionResult> finish(const std::function<void()>& whileWaiting) {
        queue_.close();
        {
            std::unique_lock lock(mutex_);
            while (
                !allDone_.wait_for(lock, kProgressInterval, [&] { return finished_ == workers_.size(); })) {
                lock.unlock();
                whileWaiting();
                lock.lock();
            }
        }
        rethrowFailure();
        std::vector<RecognitionResult> results;
        for (auto& [index, result] : results_) {
            if (!result.runs.empty()) results.push_back(std::move(result));
        }
        return results;
    }

    void stop() { queue_.stop(); }

    // The stream samples accounted for by the utterances decoded so far.
    [[nodiscard]] std::int64_t coveredSamples() const { return covered_.load(); }

  private:
    void work(const PocketSphinxOptions& options) {
        try {
            std::optional<Decoder> decoder;
            while (std::optional<Utterance> utterance = queue_.pop()) {
                if (!decoder)
                    decoder.emplace(options.modelDirectory);  // only threads given work load a model
                RecognitionResult result = decoder->decode(*utterance, options.markHesitations);
                covered_ += utterance->coveredSamples;
                const std::lock_guard lock(mutex_);
                results_.emplace(utterance->index, std::move(result));
            }
        } catch (...) {
            const std::lock_guard lock(mutex_);
            if (!failure_) failure_ = std::current_exception();
            queue_.stop();
        }
        const std::lock_guard lock(mutex_);
        ++finished_;
        allDone_.notify_all();
    }

    void rethrowFailure() {
        const std::lock_guard lock(mutex_);
        if (failure_) std::rethrow_exception(failure_);
    }

    UtteranceQueue queue_;
    std::atomic<std::int64_t> covered_ = 0;
    std::mutex mutex_;
    std::condition_variable allDone_;
    std::map<int, RecognitionResult> results_;
    std::exception_ptr failure_;
    std::size_t finished_ = 0;
    std::vector<std::thread> workers_;
};

int threadCount(int asked) {
    if (asked > 0) return asked;
    const auto cores = static_cast<int>(std::thread::hardware_concurrency());
    return std::clamp(cores, 1, kMaxThreads);
}

}  // namespace

PocketSphinxRecognizer::PocketSphinxRecognizer(PocketSphinxOptions options) : options_(std::move(options)) {
    if (options_.modelDirectory.empty()) options_.modelDirectory = defaultModelDirectory();
}

std::filesystem::path PocketSphinxRecognizer::defaultModelDirectory() {
    return MORVANE_POCKETSPHINX_MODELDIR;
}

std::optional<std::string> PocketSphinxRecognizer::hesitation(
    const HeardWord& word, const std::function<double(std::string_view)>& saidAlone) {
    if (word.seconds < kHesitationMinSeconds || word.pauseBefore < kHesitationMinPause ||
        word.pauseAfter < kHesitationMinPause)
        return std::nullopt;
    const std::vector<std::string_view> phones = splitAtWhitespace(word.phones);
    if (phones.empty() || phones.size() > 3 || std::count_if(phones.begin(), phones.end(), isVowel) != 1)
        return std::nullopt;
    const std::string text = lowercased(word.text);
    if (std::find(std::begin(kStandaloneWords), std::end(kStandaloneWords), text) !=
        std::end(kStandaloneWords))
        return std::nullopt;
    // A nasal after the vowel ("am", "and", "then") is the hum of "um".
    const auto vowel = std::find_if(phones.begin(), phones.end(), isVowel);
    const bool hummed = std::any_of(vowel, phones.end(),
                                    [](std::string_view p) { return p == "M" || p == "N" || p == "NG"; });
    std::string filler = hummed ? "um" : "uh";
    // Held briefly, "so", "and" or "the" alone are likelier than a hesitation; "am" or "bad" alone are not.
    if (word.seconds < kHesitationSureSeconds && saidAlone(filler) <= saidAlone(text)) return std::nullopt;
    return filler;
}

std::vector<std::string> PocketSphinxRecognizer::supportedLocales() const {
    return {std::string(kLocale)};
}

int PocketSphinxRecognizer::sampleRate() const {
    return kSampleRate;
}

void PocketSphinxRecognizer::ensureModel(std::string_view locale) {
    if (locale != kLocale) {
        throw speechAssetsUnavailable(
            locale,
            "The built-in recogniser knows US English only. For other languages, "
            "install a whisper.cpp program and a multilingual ggml model, and choose "
            "whisper as the transcription engine.");
    }
    const std::filesystem::path& d = options_.modelDirectory;
    for (const std::filesystem::path& needed : {acousticModel(d) / "mdef", languageModel(d), dictionary(d)}) {
        std::error_code error;
        if (!std::filesystem::exists(needed, error)) {
            throw speechAssetsUnavailable(
                locale, "Install Debian's pocketsphinx-en-us package (" + needed.string() + " is missing).");
        }
    }
}

std::vector<RecognitionResult> PocketSphinxRecognizer::recognize(engine::PCMStream& audio,
                                                                 std::string_view /*locale*/,
                                                                 const ProgressCallback& progress,
                                                                 std::stop_token stop) {
    UtteranceSplitter splitter(kSampleRate, {.maxSeconds = options_.maxUtteranceSeconds});
    engine::SilenceScanner pauses(splitter.pauseDetection());
    audio.alsoAtRate(engine::SilenceScanner::sampleRate,
                     [&pauses](std::span<const float> samples) { pauses.process(samples); });

    DecoderPool pool(options_, threadCount(options_.threads));

    const std::int64_t expected = audio.expectedSamples();
    std::int64_t total = expected;
    const auto report = [&] {
        if (stop.stop_requested()) {
            pool.stop();
            throw OperationCancelled();
        }
        if (progress && total > 0)
            progress(std::min(0.99, static_cast<double>(pool.coveredSamples()) / total));
    };
    const auto emit = [&](Utterance&& utterance) { pool.add(utterance, report); };

    for (auto block = audio.read(); !block.empty(); block = audio.read()) {
        splitter.process(block, pauses.closedSpans(), emit);
        report();
    }
    total = audio.samplesRead();
    splitter.finish(pauses.finish(), emit);
    std::vector<RecognitionResult> results = pool.finish(report);
    if (!results.empty()) {
        std::string& first = results.front().runs.front().text;
        first.erase(0, 1);  // no blank before the first word of the transcript
    }
    if (progress) progress(1.0);
    return results;
}

}  // namespace morvane::intelligence
