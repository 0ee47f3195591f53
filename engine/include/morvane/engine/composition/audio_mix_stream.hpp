#pragma once

/// The mixed program sound of a built composition, made in order a block at a time, so that an hour of
/// program costs the memory of a block and of the clips sounding in it, not of the hour.
///
///     AudioMixStream mix(build, {.sampleRate = 48000});
///     for (auto block = mix.read(); !block.empty(); block = mix.read())
///         meter.process(block);
///
/// Each track's segments are read from their sources, stretched when their speed differs (keeping the pitch
/// unless the track's envelope asks for tape speed), shaped by the mix's envelope and summed in track
/// order: a block holds exactly the samples a whole-program mix holds at those places, whatever the block
/// size. A source is opened when its first segment starts to sound and its reader is reused by later
/// segments; a segment at another speed is stretched whole when it starts, since a stretch can't be cut.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <stop_token>

#include "morvane/engine/composition/composition_builder.hpp"
#include "morvane/engine/composition/composition_renderer.hpp"

namespace morvane::engine {

/// Streams the mix of one built composition; one thread at a time. `build` must outlive the stream.
class AudioMixStream {
  public:
    /// Samples a block holds when none is asked for: about 1.4 s at 48 kHz.
    static constexpr std::size_t defaultBlockSamples = 65536;

    /// The mix of `build` over `options.range` (the whole program when absent) at `options.sampleRate`.
    /// `stop` ends a read with `OperationCancelled`.
    AudioMixStream(const CompositionBuildResult& build, const AudioRenderOptions& options,
                   std::stop_token stop = {}, std::size_t blockSamples = defaultBlockSamples);
    ~AudioMixStream();
    AudioMixStream(AudioMixStream&&) noexcept;
    AudioMixStream& operator=(AudioMixStream&&) noexcept;

    /// The next block of mono samples; empty once the range is done. The span stays valid until the next
    /// call. Throws as the audio readers do (`missingFile`, `readerFailed`) and `OperationCancelled`.
    [[nodiscard]] std::span<const float> read();

    /// Samples the whole range holds.
    [[nodiscard]] std::int64_t totalSamples() const noexcept;
    /// Samples handed out so far.
    [[nodiscard]] std::int64_t position() const noexcept;
    /// The rate samples are made at.
    [[nodiscard]] int sampleRate() const noexcept;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace morvane::engine
