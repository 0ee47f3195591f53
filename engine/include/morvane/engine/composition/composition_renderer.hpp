#pragma once

/// Plays a built composition: the frame shown at a program time, and the mixed program audio.
///
///     CompositionRenderer renderer(CompositionBuilder::build(plan, AudioFinishingOptions::preview()));
///     for (std::int64_t i = 0; i < renderer.frameCount(); ++i) {
///         VideoFrame frame = renderer.frame(renderer.frameTime(i));   // decoding forward, no seeks
///         consume(frame);
///     }
///     PCMBuffer mix = renderer.renderAudio({.sampleRate = 48000});
///
/// Each source is opened once and decoded forward while frames are asked for in order; a jump back, or
/// forward past a key frame, seeks. A source used by several layers at one time is decoded once for that
/// frame. A frame that is one source at the output size with nothing to do is the decoded picture itself,
/// never converted. Audio is mono: each track's segments are read from their sources, stretched when their
/// speed differs (keeping the pitch), shaped by the mix's envelope and summed.

#include <cstdint>
#include <memory>
#include <optional>
#include <stop_token>

#include "morvane/engine/audio/pcm_sample_reader.hpp"
#include "morvane/engine/composition/composition_builder.hpp"
#include "morvane/engine/render/video_frame.hpp"
#include "morvane/engine/support/cancellation.hpp"

namespace morvane::engine {

/// What part of the program's audio to render, and how.
struct AudioRenderOptions {
    int sampleRate = 48000;
    std::optional<TimeSpan> range;  ///< program time; the whole program when absent
};

/// Renders the frames and sound of one built composition; one thread at a time.
class CompositionRenderer {
  public:
    /// A renderer of `build`. `stop` ends any decode in progress with `OperationCancelled`.
    explicit CompositionRenderer(CompositionBuildResult build, std::stop_token stop = {});
    ~CompositionRenderer();
    CompositionRenderer(const CompositionRenderer&) = delete;
    CompositionRenderer& operator=(const CompositionRenderer&) = delete;

    /// The frame shown at `time`. Outside the program, throws `EngineError::decodeFailed` with "Missing
    /// composition instruction or pixel buffer"; a source that can't be read throws as its reader does
    /// (`missingFile`, `readerFailed`). A failure fails this frame only: the next may be asked for.
    [[nodiscard]] VideoFrame frame(RationalTime time);

    /// The mixed program audio, mono. Throws as the audio readers do, and `OperationCancelled`.
    [[nodiscard]] PCMBuffer renderAudio(const AudioRenderOptions& options = {},
                                        const ProgressCallback& progress = {});

    /// The program's length.
    [[nodiscard]] RationalTime duration() const noexcept;
    /// The number of frames that start inside the program.
    [[nodiscard]] std::int64_t frameCount() const noexcept;
    /// The start of frame `index`.
    [[nodiscard]] RationalTime frameTime(std::int64_t index) const;
    /// What is being rendered.
    [[nodiscard]] const CompositionBuildResult& build() const noexcept;

  private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace morvane::engine
