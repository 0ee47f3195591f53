#pragma once

/// Scores each segment for filler words and false starts.

#include <array>
#include <optional>
#include <string_view>

namespace morvane::intelligence::DisfluencyDetector {

/// identifyFiller: the disfluent segments are the ones kept ("select segments that are mostly filler");
/// removeFiller: the filler is taken out.
enum class Mode { identifyFiller, removeFiller };

/// The words that count as filler once lowercased and trimmed of punctuation.
inline constexpr std::array<std::string_view, 10> fillerTokens{"um", "uh",   "uhh", "umm", "er",
                                                               "ah", "like", "hmm", "hm",  "mm"};

/// The mode that typed text asks for, ignoring case, or none when it isn't about filler.
[[nodiscard]] std::optional<Mode> mode(std::string_view instruction);

}  // namespace morvane::intelligence::DisfluencyDetector
