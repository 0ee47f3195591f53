#pragma once

/// Media made by the tests themselves: signals with known levels and gaps, written as WAV and, through
/// the `ffmpeg` tool, as any container or codec a test needs. No binary fixtures live in the repository.
///
///     auto samples = concat({tone(440, 0.5, 1.0, 48000), silence(0.5, 48000), tone(440, 0.5, 1.0, 48000)});
///     auto wav = writeWav(dir.path() / "gap.wav", samples, 1, 48000);
///     auto movie = makeMovie(dir.path() / "talk.mp4", 2.5, wav);   // H.264 picture + AAC audio
///     auto mp3 = encodeAudio(wav, dir.path() / "gap.mp3");

#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace morvane::testing {

/// A sine of `frequencyHz` at peak `amplitude` (1.0 is full scale), starting at phase 0.
[[nodiscard]] std::vector<float> tone(double frequencyHz, double amplitude, double seconds, int sampleRate);

/// Digital silence: exact zeros.
[[nodiscard]] std::vector<float> silence(double seconds, int sampleRate);

/// White noise, uniform, with root mean square `rms`; the same seed gives the same samples.
[[nodiscard]] std::vector<float> noise(double rms, double seconds, int sampleRate, unsigned seed = 1);

/// The pieces one after another.
[[nodiscard]] std::vector<float> concat(std::initializer_list<std::vector<float>> pieces);

/// Two channels interleaved from `left` and `right` (the shorter one padded with zeros).
[[nodiscard]] std::vector<float> interleave(std::span<const float> left, std::span<const float> right);

enum class WavEncoding { pcm16, float32 };

/// Writes `interleaved` samples of `channels` channels as a WAV file and returns `path`.
std::filesystem::path writeWav(const std::filesystem::path& path, std::span<const float> interleaved,
                               int channels, int sampleRate, WavEncoding encoding = WavEncoding::float32);

/// A mono 32-bit float WAV of `seconds` of digital silence at `sampleRate`, made in an instant: the samples
/// are a hole in a sparse file. For runs that must last a while whatever the machine (at most ~6 h at 48
/// kHz).
std::filesystem::path writeLongSilentWav(const std::filesystem::path& path, double seconds,
                                         int sampleRate = 48000);

/// Runs `ffmpeg -nostdin -y -loglevel error <args>`. Throws std::runtime_error with its stderr on failure.
void runFfmpeg(const std::vector<std::string>& args);

/// `input` re-encoded to `output`, the codec chosen by the output's extension unless `codecArgs` say
/// otherwise (".m4a" AAC, ".mp3" MP3, ".flac", ".opus", ".ogg" Vorbis...). Returns `output`.
std::filesystem::path encodeAudio(const std::filesystem::path& input, const std::filesystem::path& output,
                                  const std::vector<std::string>& codecArgs = {});

/// `text` spoken by flite's "slt" voice as a 16 kHz mono WAV at `output`, `stretch` times slower than its
/// natural pace (a drawn-out "uh" is "uh" at 2). Returns `output`.
std::filesystem::path speak(const std::filesystem::path& output, const std::string& text,
                            double stretch = 1.0);

/// A movie of `seconds` with a low-motion 320x240 test picture at 25 fps, and the audio of `audio`
/// when given (AAC in MP4 and MOV, Opus in WebM, the default codec otherwise). Returns `output`.
std::filesystem::path makeMovie(const std::filesystem::path& output, double seconds,
                                const std::optional<std::filesystem::path>& audio = std::nullopt);

/// How a moving-square movie looks.
struct MovingSquareOptions {
    int width = 640;
    int height = 360;
    int side = 60;          ///< the square's side in pixels
    int background = 0x40;  ///< the grey level around it (the square is white)
    bool withTone = false;  ///< a 440 Hz sine on an AAC track, for tests that export
};

/// A 25 fps H.264 movie of `seconds` in which a white square crosses a grey picture at mid-height, from
/// touching the left edge at the start to touching the right edge at the end: its left side is at
/// (width - side) × t / seconds. Returns `output`.
std::filesystem::path makeMovingSquareMovie(const std::filesystem::path& output, double seconds,
                                            const MovingSquareOptions& options = {});

/// How a counter movie looks and sounds.
struct CounterMovieOptions {
    int width = 320;
    int height = 240;
    int framesPerSecond = 30;
    int keyFrameInterval = 30;     ///< frames between key frames
    int palette = 0;               ///< 0: black and white cells; 1: blue and yellow (another source)
    std::optional<double> toneHz;  ///< a sine at half scale on the audio track, when given
    /// FFmpeg's "rotate" tag, written into the display matrix: 90 has players show the picture turned a
    /// quarter counter-clockwise.
    int rotationDegrees = 0;
};

/// The cells of a counter frame: 4 across, 3 down, covering the picture, bit 0 top left, row by row.
inline constexpr int kCounterColumns = 4;
inline constexpr int kCounterRows = 3;

/// A movie whose frame n shows n in binary in large cells, readable after scaling and compression
/// (H.264, a key frame every `keyFrameInterval`, B-frames), with 16-bit PCM audio when a tone is asked for
/// (MOV), so that sample-exact tests see the samples as they were made. Returns `output`.
std::filesystem::path makeCounterMovie(const std::filesystem::path& output, double seconds,
                                       const CounterMovieOptions& options = {});

/// The frame number shown by a counter picture of 8-bit RGBA (`rgba`, `width` × `height`), placed on it
/// at the rectangle `x`, `y`, `w`, `h` (pixels); nothing when a cell is neither clearly on nor off.
[[nodiscard]] std::optional<int> readCounter(const std::uint8_t* rgba, int width, int height, double x,
                                             double y, double w, double h);

/// The frame number shown by a whole counter picture (`rgba`, `width` × `height`) of a movie made with a
/// `rotationDegrees` of 90 and shown as players show it, turned a quarter counter-clockwise.
[[nodiscard]] std::optional<int> readTurnedCounter(const std::uint8_t* rgba, int width, int height);

/// The bytes of `path` from the start, `keepBytes` of them, written to `output` (a file cut short).
std::filesystem::path truncateCopy(const std::filesystem::path& path, const std::filesystem::path& output,
                                   std::uintmax_t keepBytes);

/// The codec of each stream of `path`, in order ("h264", "aac"...), as ffprobe names them.
[[nodiscard]] std::vector<std::string> streamCodecs(const std::filesystem::path& path);

/// The number of frames of the first video stream of `path`, decoded and counted by ffprobe.
[[nodiscard]] int countVideoFrames(const std::filesystem::path& path);

/// The frame of `path` shown at `seconds`, as 64x48 grey bytes, for comparing pictures loosely.
[[nodiscard]] std::string grayThumbnail(const std::filesystem::path& path, double seconds);

/// The mean absolute difference of two thumbnails of the same size, 0 to 255.
[[nodiscard]] double thumbnailDifference(const std::string& a, const std::string& b);

}  // namespace morvane::testing
