#include <nlohmann/json.hpp>

#include "morvane/engine/support/json.hpp"
#include "morvane/engine/support/text.hpp"
#include "morvane/intelligence/support/text.hpp"
#include "morvane/intelligence/transcription/whisper_recognizer.hpp"

// Reading whisper.cpp's full JSON output into results, word by word.

namespace morvane::intelligence {
namespace {

// Bytes of a character split across tokens travel through the JSON reader as these private-use code
// points (U+F780 to U+F7FF for bytes 0x80 to 0xFF), and are turned back into bytes afterwards.
constexpr char32_t kRawByteBase = 0xF700;

bool writtenWithoutBlanks(std::string_view locale) {
    const std::string language = WhisperRecognizer::languageCode(locale);
    return language == "ja" || language == "zh" || language == "th";
}

// The length of the well-formed UTF-8 sequence at `text[at]`, or 0.
std::size_t sequenceLength(std::string_view text, std::size_t at) {
    const auto lead = static_cast<unsigned char>(text[at]);
    std::size_t n = 0;
    if (lead < 0x80) return 1;
    if (lead >= 0xC2 && lead <= 0xDF)
        n = 2;
    else if (lead >= 0xE0 && lead <= 0xEF)
        n = 3;
    else if (lead >= 0xF0 && lead <= 0xF4)
        n = 4;
    else
        return 0;
    if (at + n > text.size()) return 0;
    for (std::size_t i = 1; i < n; ++i) {
        if ((static_cast<unsigned char>(text[at + i]) & 0xC0) != 0x80) return 0;
    }
    // No overlong forms, surrogates or code points past U+10FFFF.
    const auto second = static_cast<unsigned char>(text[at + 1]);
    if ((lead == 0xE0 && second < 0xA0) || (lead == 0xED && second > 0x9F) ||
        (lead == 0xF0 && second < 0x90) || (lead == 0xF4 && second > 0x8F))
        return 0;
    return n;
}

// whisper.cpp escapes only quotes and backslashes in its JSON: control characters and bytes of split
// characters arrive raw inside strings. This makes the text JSON a strict reader accepts.
std::string strictJson(std::string_view text) {
    static constexpr char kHex[] = "0123456789abcdef";
    std::string out;
    out.reserve(text.size());
    bool inString = false;
    for (std::size_t i = 0; i < text.size();) {
        const char c = text[i];
        if (!inString) {
            inString = c == '"';
            out += c;
            ++i;
            continue;
        }
        if (c == '\\' && i + 1 < text.size()) {
            out.append(text.substr(i, 2));
            i += 2;
            continue;
        }
        if (c == '"') inString = false;
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20) {
            out += "\\u00";
            out += kHex[byte >> 4];
            out += kHex[byte & 0x0F];
            ++i;
        } else if (byte >= 0x80) {
            const std::size_t n = sequenceLength(text, i);
            if (n > 0) {
                out.append(text.substr(i, n));
                i += n;
            } else {
                const auto point = static_cast<unsigned>(kRawByteBase + byte);
                out += "\\u";
                for (int shift = 12; shift >= 0; shift -= 4)
                    out += kHex[(point >> shift) & 0x0F];
                ++i;
            }
        } else {
            out += c;
            ++i;
        }
    }
    return out;
}

// Undoes `strictJson`'s stand-ins for raw bytes (three-byte UTF-8 sequences EF 9E 80 to EF 9F BF).
std::string rawBytes(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto b0 = static_cast<unsigned char>(text[i]);
        if (b0 == 0xEF && i + 2 < text.size()) {
            const auto b1 = static_cast<unsigned char>(text[i + 1]);
            const auto b2 = static_cast<unsigned char>(text[i + 2]);
            const char32_t point = ((b0 & 0x0Fu) << 12) | ((b1 & 0x3Fu) << 6) | (b2 & 0x3Fu);
            if (point >= kRawByteBase + 0x80 && point <= kRawByteBase + 0xFF && (b1 & 0xC0) == 0x80 &&
                (b2 & 0xC0) == 0x80) {
                out += static_cast<char>(point - kRawByteBase);
                i += 2;
                continue;
            }
        }
        out += text[i];
    }
    return out;
}

// Whether `text` ends inside a character whose remaining bytes are still to come.
bool endsMidCharacter(std::string_view text) {
    std::size_t back = 0;
    while (back < text.size() && back < 4 &&
           (static_cast<unsigned char>(text[text.size() - 1 - back]) & 0xC0) == 0x80)
        ++back;
    if (back == text.size()) return back > 0;
    const auto lead = static_cast<unsigned char>(text[text.size() - 1 - back]);
    std::size_t needed = 1;
    if (lead >= 0xC0 && lead <= 0xDF)
        needed = 2;
    else if (lead >= 0xE0 && lead <= 0xEF)
        needed = 3;
    else if (lead >= 0xF0)
        needed = 4;
    return back + 1 < needed;
}

// "[_BEG_]", "[_TT_150]", "<|endoftext|>": timing and control tokens, not text.
bool isSpecialToken(std::string_view text) {
    return (text.starts_with("[_") && text.ends_with("]")) ||
           (text.starts_with("<|") && text.ends_with("|>"));
}

// "[BLANK_AUDIO]", "(music)": what the model says of sounds that aren't speech.
bool isAnnotation(std::string_view word) {
    const std::string_view trimmed = trimWhitespaceAndNewlines(word);
    if (trimmed.size() < 2) return false;
    return (trimmed.front() == '[' && trimmed.back() == ']') ||
           (trimmed.front() == '(' && trimmed.back() == ')');
}

struct WordBuilder {
    std::string text;
    double start = 0.0;
    double end = 0.0;
    double probabilitySum = 0.0;
    int tokens = 0;
    bool timed = true;
};

// `text` with every byte that isn't part of a well-formed character replaced by U+FFFD, so that a
// character the model never finished can't spoil the transcript's JSON.
std::string wellFormed(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t n = sequenceLength(text, i);
        if (n == 0) {
            out += "\xEF\xBF\xBD";
            ++i;
        } else {
            out.append(text.substr(i, n));
            i += n;
        }
    }
    return out;
}

RecognizedRun runOf(const WordBuilder& word) {
    RecognizedRun run{.text = wellFormed(word.text)};
    if (word.timed) run.audioTimeRange = engine::SecondsRange{word.start, word.end};
    if (word.tokens > 0) run.confidence = word.probabilitySum / word.tokens;
    return run;
}

std::optional<engine::SecondsRange> offsetsOf(const JsonReader& item) {
    if (!item.has("offsets")) return std::nullopt;
    const JsonReader offsets = item["offsets"];
    return engine::SecondsRange{offsets["from"].get<double>() / 1000.0, offsets["to"].get<double>() / 1000.0};
}

RecognitionResult segmentResult(const JsonReader& segment, bool tokenIsWord) {
    RecognitionResult result;
    const std::optional<engine::SecondsRange> segmentRange = offsetsOf(segment);
    std::optional<WordBuilder> word;
    const auto flush = [&] {
        if (word && !isAnnotation(word->text) && !trimWhitespaceAndNewlines(word->text).empty())
            result.runs.push_back(runOf(*word));
        word.reset();
    };
    if (!segment.has("tokens")) {
        // Output without tokens: the segment's text over the segment's time.
        word = WordBuilder{.text = rawBytes(segment["text"].get<std::string>())};
        word->timed = segmentRange.has_value();
        if (segmentRange) {
            word->start = segmentRange->lower;
            word->end = segmentRange->upper;
        }
        flush();
        return result;
    }
    const JsonReader tokens = segment["tokens"];
    for (std::size_t i = 0; i < tokens.size(); ++i) {
        const JsonReader token = tokens.at(i);
        const std::string text = rawBytes(token["text"].get<std::string>());
        if (text.empty() || isSpecialToken(text)) continue;
        const bool startsWord = tokenIsWord || text.front() == ' ';
        if (word && startsWord && !endsMidCharacter(word->text)) flush();
        const std::optional<engine::SecondsRange> range = offsetsOf(token);
        if (!word) {
            word = WordBuilder{.text = {}, .timed = range.has_value()};
            if (range) word->start = range->lower;
        }
        word->text += text;
        if (range) word->end = range->upper;
        word->timed = word->timed && range.has_value();
        if (token.has("p")) {
            word->probabilitySum += token["p"].get<double>();
            ++word->tokens;
        }
    }
    flush();
    return result;
}

}  // namespace

std::vector<RecognitionResult> WhisperRecognizer::parseOutput(std::string_view json,
                                                              std::string_view locale) {
    const bool tokenIsWord = writtenWithoutBlanks(locale);
    std::vector<RecognitionResult> results;
    try {
        const Json root = parseJson(strictJson(json), "whisper.cpp output");
        const JsonReader document(root, "whisper.cpp output");
        const JsonReader transcription = document["transcription"];
        for (std::size_t i = 0; i < transcription.size(); ++i) {
            RecognitionResult result = segmentResult(transcription.at(i), tokenIsWord);
            if (!result.runs.empty()) results.push_back(std::move(result));
        }
    } catch (const JsonDecodeError& e) {
        throw IntelligenceError::decodeFailed(
            std::string("The whisper.cpp program's output could not be read: ") + e.what());
    }
    if (!results.empty()) {
        std::string& first = results.front().runs.front().text;
        first.erase(0, first.find_first_not_of(' '));
    }
    return results;
}

}  // namespace morvane::intelligence
