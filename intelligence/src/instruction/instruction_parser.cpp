#include "morvane/intelligence/instruction/instruction_parser.hpp"

#include "morvane/intelligence/routing/model_context_limits.hpp"

namespace morvane::intelligence {

InstructionParserOptions InstructionParserOptions::adaptive(InstructionScope /*scope*/,
                                                            std::optional<ClassificationModelBackend> backend,
                                                            bool allowRemoteModel,
                                                            int onDeviceContextTokens) {
    const int chunkSize =
        backend == ClassificationModelBackend::remoteModel
            ? ModelContextLimits::recommendedChunkSize(ModelContextLimits::remoteModelContextTokens)
            : ModelContextLimits::recommendedChunkSize(onDeviceContextTokens);
    return {.chunkSize = chunkSize,
            .mode = ClassificationMode::twoPass,
            .verbose = false,
            .backend = backend,
            .allowRemoteModel = allowRemoteModel};
}

}  // namespace morvane::intelligence
