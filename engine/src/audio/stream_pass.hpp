#pragma once

// One pass over a stream, block by block, reporting the share of the expected samples read.

#include "audio/progress_throttle.hpp"
#include "morvane/engine/audio/pcm_sample_reader.hpp"

namespace morvane::engine {

template <class Consume>
void forEachBlock(PCMStream& stream, const ProgressCallback& progress, Consume&& consume) {
    ProgressThrottle throttle(progress);
    const auto expected = static_cast<double>(stream.expectedSamples());
    for (auto block = stream.read(); !block.empty(); block = stream.read()) {
        consume(block);
        if (expected > 0) throttle.report(static_cast<double>(stream.samplesRead()) / expected);
    }
    throttle.finish();
}

}  // namespace morvane::engine
