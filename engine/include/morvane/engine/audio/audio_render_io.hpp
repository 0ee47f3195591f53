#pragma once

/// Writing processed audio back: a WAV of the samples, and a movie that pairs a source's picture with new
/// sound.
///
///     auto wav = AudioRenderIO::outputURL(folder, "My talk", "_cleaned", ".wav");  //
///     folder/My_talk_cleaned_1a2b3c4d.wav AudioRenderIO::writeWAV(cleaned.samples, cleaned.sampleRate, wav);
///     auto movie = AudioRenderIO::outputURL(folder, "My talk", "_cleaned", ".mp4");
///     AudioRenderIO::remux("talk.mp4", wav, movie, keptRanges);   // the kept ranges' picture, the new sound
///
/// Movies are MPEG-4. A stream that MP4 can hold is copied as it is; any other is re-encoded (H.264 at
/// CRF 18, AAC at 192 kb/s), and so is video cut to ranges, which can only be exact when re-encoded. On any
/// failure or a stop, nothing is left at the destination.

#include <filesystem>
#include <span>
#include <stop_token>
#include <string_view>

#include "morvane/engine/audio/pcm_sample_reader.hpp"
#include "morvane/engine/support/cancellation.hpp"

namespace morvane::engine::AudioRenderIO {

/// A fresh path in `directory`: the cleaned `basename` (path separators, control characters and blanks
/// become "_"; "audio" when nothing is left), `suffix`, "_" and eight hexadecimal digits of a random
/// 32-bit number, then `extension` (with its dot).
[[nodiscard]] std::filesystem::path outputURL(const std::filesystem::path& directory,
                                              std::string_view basename, std::string_view suffix,
                                              std::string_view extension);

/// Writes `samples` as they are to a mono, 32-bit float, little-endian WAV at `sampleRate` (rounded to a
/// whole rate). Throws `EngineError::exportFailed` with "Could not write processed audio." when the file
/// can't be written or the audio is too long for a WAV (4 GiB).
void writeWAV(std::span<const float> samples, double sampleRate, const std::filesystem::path& to);

/// `source`'s first video and first audio stream as an MP4 at `to`. Throws `EngineError::missingFile`,
/// `exportFailed` with "No compatible export preset." when the source has neither stream, or with FFmpeg's
/// reason, and `OperationCancelled`.
void exportMovie(const std::filesystem::path& source, const std::filesystem::path& to,
                 const ProgressCallback& progress = {}, std::stop_token stop = {});

/// The video of `videoFrom` (its `videoRanges` laid end to end, in the given order, when there are any)
/// with the audio of `audioFrom`, as an MP4 at `to`. Throws `EngineError::exportFailed` with "Could not
/// build a composition for the processed audio." when either file lacks its stream or can't be read, with
/// FFmpeg's reason when writing fails; `missingFile`; `OperationCancelled`.
void remux(const std::filesystem::path& videoFrom, const std::filesystem::path& audioFrom,
           const std::filesystem::path& to, std::span<const SecondsRange> videoRanges = {},
           const ProgressCallback& progress = {}, std::stop_token stop = {});

}  // namespace morvane::engine::AudioRenderIO
