#include "morvane/intelligence/transcription/whisper_recognizer.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <fstream>
#include <thread>

#include "morvane/engine/support/child_process.hpp"
#include "morvane/engine/support/files.hpp"
#include "morvane/engine/support/text.hpp"
#include "morvane/engine/support/uuid.hpp"
#include "morvane/intelligence/support/text.hpp"
#include "morvane/intelligence/transcription/transcription_provider.hpp"

namespace morvane::intelligence {
namespace {

constexpr int kSampleRate = 16000;
// Writing the audio out is quick next to recognising it; the program's own progress fills the rest.
constexpr double kWritingShare = 0.05;

constexpr std::string_view kInstallHint =
    "Install whisper.cpp's command-line program (whisper-cli) on your PATH, or name it in Preferences → "
    "Transcription.";

bool isEnglish(std::string_view locale) {
    return WhisperRecognizer::languageCode(locale) == "en";
}

// English-only ggml models are named "ggml-<size>.en.bin" (or "...en-q5_0.bin" when quantised).
bool englishOnly(const std::filesystem::path& model) {
    const std::string name = model.filename().string();
    return name.find(".en.") != std::string::npos || name.find(".en-") != std::string::npos;
}

int threadCount(int asked) {
    if (asked > 0) return asked;
    return std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
}

// A mono 16-bit PCM WAV written as the audio streams in (whisper.cpp reads 16-bit WAV only); the sizes in
// the header are set once the samples are all there.
class PCM16WavFile {
  public:
    PCM16WavFile(const std::filesystem::path& path, int sampleRate)
        : out_(path, std::ios::binary | std::ios::trunc) {
        if (!out_) throw IntelligenceError::decodeFailed("Could not write the audio for whisper.cpp.");
        const auto rate = static_cast<std::uint32_t>(sampleRate);
        out_.write("RIFF\0\0\0\0WAVEfmt ", 16);
        put<std::uint32_t>(16);
        put<std::uint16_t>(1);  // integer PCM
        put<std::uint16_t>(1);  // mono
        put<std::uint32_t>(rate);
        put<std::uint32_t>(rate * 2);
        put<std::uint16_t>(2);
        put<std::uint16_t>(16);
        out_.write("data\0\0\0\0", 8);
    }

    void append(std::span<const float> samples) {
        block_.clear();
        for (const float s : samples)
            block_.push_back(static_cast<std::int16_t>(std::lround(std::clamp(s, -1.0f, 1.0f) * 32767.0f)));
        out_.write(reinterpret_cast<const char*>(block_.data()),
                   static_cast<std::streamsize>(block_.size() * 2));
        dataBytes_ += block_.size() * 2;
    }

    void finish() {
        // The RIFF header holds 32-bit sizes: a longer recording is cut at about 37 hours.
        const auto data = static_cast<std::uint32_t>(std::min<std::uint64_t>(dataBytes_, 0xFFFFFFFFu - 36));
        out_.seekp(4);
        put<std::uint32_t>(36 + data);
        out_.seekp(40);
        put<std::uint32_t>(data);
        out_.flush();
        if (!out_) throw IntelligenceError::decodeFailed("Could not write the audio for whisper.cpp.");
    }

  private:
    template <class T>
    void put(T value) {
        out_.write(reinterpret_cast<const char*>(&value), sizeof value);  // little-endian, as RIFF wants
    }

    std::ofstream out_;
    std::vector<std::int16_t> block_;  // little-endian, as RIFF wants
    std::uint64_t dataBytes_ = 0;
};

// A folder for the audio and the program's output, removed with them whatever happens.
class WorkFolder {
  public:
    WorkFolder() : path_(std::filesystem::temp_directory_path() / ("morvane-intel-" + makeUUID())) {
        std::filesystem::create_directories(path_);
    }
    ~WorkFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    WorkFolder(const WorkFolder&) = delete;
    WorkFolder& operator=(const WorkFolder&) = delete;
    [[nodiscard]] const std::filesystem::path& path() const { return path_; }

  private:
    std::filesystem::path path_;
};

// "whisper_print_progress_callback: progress =  45%" gives 45.
std::optional<int> progressPercent(std::string_view line) {
    const std::size_t at = line.find("progress =");
    if (at == std::string_view::npos) return std::nullopt;
    std::string_view rest = trimWhitespaceAndNewlines(line.substr(at + 10));
    int percent = 0;
    const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), percent);
    if (error != std::errc() || end == rest.data()) return std::nullopt;
    return std::clamp(percent, 0, 100);
}

// What the program said went wrong: its last line that mentions an error (it goes on to print timings
// after some failures), else its last line.
std::string reasonFrom(std::string_view errorOutput) {
    std::string_view last;
    std::string_view rest = errorOutput;
    while (!rest.empty()) {
        const std::size_t newline = rest.rfind('\n');
        const std::string_view line =
            trimWhitespaceAndNewlines(newline == std::string_view::npos ? rest : rest.substr(newline + 1));
        rest = newline == std::string_view::npos ? std::string_view() : rest.substr(0, newline);
        if (line.empty()) continue;
        if (lowercased(line).find("error") != std::string::npos) return std::string(line);
        if (last.empty()) last = line;
    }
    return std::string(last);
}

}  // namespace

WhisperRecognizer::WhisperRecognizer(WhisperOptions options) : options_(std::move(options)) {}

const std::vector<std::string>& WhisperRecognizer::programNames() {
    static const std::vector<std::string> names{"whisper-cli", "whisper-cpp", "whisper.cpp"};
    return names;
}

std::filesystem::path WhisperRecognizer::defaultModelFolder() {
    return dataDirectory() / "models";
}

std::string WhisperRecognizer::languageCode(std::string_view locale) {
    std::string language = lowercased(locale.substr(0, locale.find_first_of("-_")));
    if (language == "nb" || language == "nn") return "no";
    return language;
}

std::vector<std::string> WhisperRecognizer::supportedLocales() const {
    return TranscriptionLocale::fixedLocales();
}

int WhisperRecognizer::sampleRate() const {
    return kSampleRate;
}

WhisperRecognizer::Resolved WhisperRecognizer::resolve(std::string_view locale) const {
    Resolved resolved;
    if (!options_.executable.empty()) {
        const auto program = findExecutable(options_.executable.string());
        if (!program) {
            throw speechAssetsUnavailable(locale, "The whisper.cpp program " + options_.executable.string() +
                                                      " was not found. " + std::string(kInstallHint));
        }
        resolved.program = *program;
    } else {
        for (const std::string& name : programNames()) {
            if (auto program = findExecutable(name)) {
                resolved.program = *program;
                break;
            }
        }
        if (resolved.program.empty()) throw speechAssetsUnavailable(locale, kInstallHint);
    }

    std::error_code error;
    if (!options_.modelPath.empty()) {
        if (!std::filesystem::is_regular_file(options_.modelPath, error)) {
            throw speechAssetsUnavailable(locale,
                                          "The whisper model " + options_.modelPath.string() +
                                              " is missing. Choose a ggml model file in Preferences → "
                                              "Transcription.");
        }
        resolved.model = options_.modelPath;
    } else {
        std::vector<std::filesystem::path> models;
        for (const auto& entry : std::filesystem::directory_iterator(defaultModelFolder(), error)) {
            const std::string name = entry.path().filename().string();
            if (entry.is_regular_file(error) && name.starts_with("ggml") && name.ends_with(".bin") &&
                (isEnglish(locale) || !englishOnly(entry.path())))
                models.push_back(entry.path());
        }
        if (models.empty()) {
            throw speechAssetsUnavailable(locale,
                                          "Put a ggml whisper model file (such as ggml-base.bin, "
                                          "multilingual) in " +
                                              defaultModelFolder().string() +
                                              ", or choose one in Preferences → Transcription.");
        }
        resolved.model = *std::min_element(models.begin(), models.end());
    }
    if (!isEnglish(locale) && englishOnly(resolved.model)) {
        throw speechAssetsUnavailable(locale, "The whisper model " + resolved.model.filename().string() +
                                                  " knows English only. Choose a multilingual model.");
    }
    return resolved;
}

void WhisperRecognizer::ensureModel(std::string_view locale) {
    (void)resolve(locale);
}

std::vector<RecognitionResult> WhisperRecognizer::recognize(engine::PCMStream& audio, std::string_view locale,
                                                            const ProgressCallback& progress,
                                                            std::stop_token stop) {
    const Resolved resolved = resolve(locale);
    const WorkFolder folder;
    const std::filesystem::path wav = folder.path() / "audio.wav";
    const std::filesystem::path outputStem = folder.path() / "transcript";
    {
        PCM16WavFile file(wav, kSampleRate);
        const std::int64_t expected = audio.expectedSamples();
        for (auto block = audio.read(); !block.empty(); block = audio.read()) {
            file.append(block);
            if (progress && expected > 0)
                progress(kWritingShare * std::min(1.0, static_cast<double>(audio.samplesRead()) / expected));
        }
        file.finish();
    }

    // Full JSON (token times and probabilities) to the output stem, and progress lines on stderr.
    std::vector<std::string> arguments{resolved.program.string(), "-m", resolved.model.string(), "-f",
                                       wav.string()};
    arguments.insert(arguments.end(),
                     {"-l", languageCode(locale), "-t", std::to_string(threadCount(options_.threads))});
    arguments.insert(arguments.end(), {"-ojf", "-of", outputStem.string(), "-pp"});
    ChildProcessResult run;
    try {
        run = runChildProcess(arguments,
                              {.onErrorLine =
                                   [&](std::string_view line) {
                                       const std::optional<int> percent = progressPercent(line);
                                       if (percent && progress)
                                           progress(kWritingShare + (1.0 - kWritingShare) * *percent / 100.0);
                                   }},
                              stop);
    } catch (const std::system_error& e) {
        throw IntelligenceError::decodeFailed(std::string("The whisper.cpp program could not be started: ") +
                                              e.what());
    }
    const std::string reason = reasonFrom(run.err);
    if (run.exitCode != 0) {
        throw IntelligenceError::decodeFailed(
            "The whisper.cpp program failed: " +
            (reason.empty() ? "exit code " + std::to_string(run.exitCode) : reason));
    }
    const std::filesystem::path output = outputStem.string() + ".json";
    std::error_code error;
    if (!std::filesystem::is_regular_file(output, error)) {
        throw IntelligenceError::decodeFailed("The whisper.cpp program wrote no transcript" +
                                              (reason.empty() ? std::string(".") : ": " + reason));
    }
    std::vector<RecognitionResult> results = parseOutput(readWholeFile(output), locale);
    if (progress) progress(1.0);
    return results;
}

}  // namespace morvane::intelligence
