#pragma once

/// How a language model is asked to decide on segments, and the seam to the model that does it.
///
///     auto options = InstructionParserOptions::adaptive(InstructionScope::global, std::nullopt,
///                                                       /*allowRemoteModel=*/false, serverContextTokens);
///     ClassificationRun run = parser.classify(segments, "Keep the main story.", options, {}, stop);

#include <functional>
#include <optional>
#include <stop_token>
#include <string_view>

#include "morvane/engine/support/enum_table.hpp"
#include "morvane/intelligence/models/classification.hpp"
#include "morvane/intelligence/models/transcript.hpp"

namespace morvane::intelligence {

/// chunk: groups of segments in one prompt each; single: one prompt per segment; twoPass: a per-segment
/// pass, then one reconciling pass over the survivors.
enum class ClassificationMode { chunk, single, twoPass };

inline constexpr auto kClassificationModeNames = makeEnumTable<ClassificationMode>({
    {ClassificationMode::chunk, "chunk"},
    {ClassificationMode::single, "single"},
    {ClassificationMode::twoPass, "twoPass"},
});

/// Whether an instruction is about a few segments or about the whole video.
enum class InstructionScope { local, global };

struct InstructionParserOptions {
    int chunkSize = 12;  ///< segments per chunk
    ClassificationMode mode = ClassificationMode::twoPass;
    bool verbose = false;                               ///< log each chunk
    std::optional<ClassificationModelBackend> backend;  ///< absent: the router chooses
    bool allowRemoteModel = true;                       ///< the user permits the remote model

    /// Two passes, quiet, the given backend and permission, and as many segments per chunk as the model's
    /// context holds: 579 for the remote model, otherwise by the local server's context window
    /// (58 at 4096 tokens, 132 at 8192). `scope` is accepted and deliberately unused.
    [[nodiscard]] static InstructionParserOptions adaptive(InstructionScope scope,
                                                           std::optional<ClassificationModelBackend> backend,
                                                           bool allowRemoteModel, int onDeviceContextTokens);

    friend bool operator==(const InstructionParserOptions&, const InstructionParserOptions&) = default;
};

/// Receives growing results while a model works through the chunks.
using PartialRunCallback = std::function<void(const ClassificationRun&)>;

/// A language model that decides which segments an instruction keeps.
class InstructionParser {
  public:
    virtual ~InstructionParser() = default;

    /// Decides `instruction` over `segments`. Throws `IntelligenceError` when the model can't answer;
    /// a requested stop ends the work with an error as well.
    virtual ClassificationRun classify(const SegmentDocument& segments, std::string_view instruction,
                                       const InstructionParserOptions& options,
                                       const PartialRunCallback& onPartial, std::stop_token stop) = 0;
};

}  // namespace morvane::intelligence
