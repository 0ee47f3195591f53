#include "morvane/testing/synthetic_media.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <numbers>
#include <random>
#include <stdexcept>
#include <string>

#include "morvane/testing/process.hpp"

namespace morvane::testing {
namespace {

std::size_t sampleCount(double seconds, int sampleRate) {
    return static_cast<std::size_t>(std::llround(seconds * sampleRate));
}

template <class T>
void put(std::ostream& out, T value) {
    // WAV is little-endian, as is every machine Morvane builds on.
    out.write(reinterpret_cast<const char*>(&value), sizeof value);
}

}  // namespace

std::vector<float> tone(double frequencyHz, double amplitude, double seconds, int sampleRate) {
    std::vector<float> out(sampleCount(seconds, sampleRate));
    const double step = 2.0 * std::numbers::pi * frequencyHz / sampleRate;
    for (std::size_t i = 0; i < out.size(); ++i)
        out[i] = static_cast<float>(amplitude * std::sin(step * static_cast<double>(i)));
    return out;
}

std::vector<float> silence(double seconds, int sampleRate) {
    return std::vector<float>(sampleCount(seconds, sampleRate), 0.0f);
}

std::vector<float> noise(double rms, double seconds, int sampleRate, unsigned seed) {
    std::mt19937 engine(seed);
    // A uniform variable on [-a, a] has an RMS of a / sqrt(3).
    std::uniform_real_distribution<double> uniform(-rms * std::sqrt(3.0), rms * std::sqrt(3.0));
    std::vector<float> out(sampleCount(seconds, sampleRate));
    for (auto& sample : out)
        sample = static_cast<float>(uniform(engine));
    return out;
}

std::vector<float> concat(std::initializer_list<std::vector<float>> pieces) {
    std::vector<float> out;
    for (const auto& piece : pieces)
        out.insert(out.end(), piece.begin(), piece.end());
    return out;
}

std::vector<float> interleave(std::span<const float> left, std::span<const float> right) {
    const std::size_t frames = std::max(left.size(), right.size());
    std::vector<float> out(frames * 2, 0.0f);
    for (std::size_t i = 0; i < left.size(); ++i)
        out[2 * i] = left[i];
    for (std::size_t i = 0; i < right.size(); ++i)
        out[2 * i + 1] = right[i];
    return out;
}

std::filesystem::path writeWav(const std::filesystem::path& path, std::span<const float> interleaved,
                               int channels, int sampleRate, WavEncoding encoding) {
    const bool isFloat = encoding == WavEncoding::float32;
    const std::uint16_t bytesPerSample = isFloat ? 4 : 2;
    const auto dataBytes = static_cast<std::uint32_t>(interleaved.size() * bytesPerSample);
    std::ofstream out(path, std::ios::binary);
    out.write("RIFF", 4);
    put<std::uint32_t>(out, 36 + dataBytes);
    out.write("WAVEfmt ", 8);
    put<std::uint32_t>(out, 16);
    put<std::uint16_t>(out, isFloat ? 3 : 1);
    put<std::uint16_t>(out, static_cast<std::uint16_t>(channels));
    put<std::uint32_t>(out, static_cast<std::uint32_t>(sampleRate));
    put<std::uint32_t>(out, static_cast<std::uint32_t>(sampleRate * channels * bytesPerSample));
    put<std::uint16_t>(out, static_cast<std::uint16_t>(channels * bytesPerSample));
    put<std::uint16_t>(out, static_cast<std::uint16_t>(bytesPerSample * 8));
    out.write("data", 4);
    put<std::uint32_t>(out, dataBytes);
    for (float sample : interleaved) {
        if (isFloat) {
            put<float>(out, sample);
        } else {
            const double scaled = std::round(std::clamp(static_cast<double>(sample), -1.0, 1.0) * 32767.0);
            put<std::int16_t>(out, static_cast<std::int16_t>(scaled));
        }
    }
    if (!out) throw std::runtime_error("could not write " + path.string());
    return path;
}

std::filesystem::path writeLongSilentWav(const std::filesystem::path& path, double seconds, int sampleRate) {
    const auto samples = static_cast<std::uint64_t>(std::llround(seconds * sampleRate));
    if (samples * 4 + 36 > 0xFFFFFFFFull) throw std::runtime_error("too long for a WAV");
    writeWav(path, std::vector<float>{}, 1, sampleRate);
    {
        std::fstream out(path, std::ios::binary | std::ios::in | std::ios::out);
        out.seekp(4);
        put<std::uint32_t>(out, static_cast<std::uint32_t>(36 + samples * 4));
        out.seekp(40);
        put<std::uint32_t>(out, static_cast<std::uint32_t>(samples * 4));
    }
    std::filesystem::resize_file(path, 44 + samples * 4);
    return path;
}

void runFfmpeg(const std::vector<std::string>& args) {
    std::vector<std::string> argv{"/usr/bin/ffmpeg", "-nostdin", "-y", "-loglevel", "error"};
    argv.insert(argv.end(), args.begin(), args.end());
    const ProcessResult result = runProcess(argv);
    if (result.exitCode != 0) throw std::runtime_error("ffmpeg failed: " + result.err);
}

std::filesystem::path encodeAudio(const std::filesystem::path& input, const std::filesystem::path& output,
                                  const std::vector<std::string>& codecArgs) {
    std::vector<std::string> args{"-i", input.string()};
    args.insert(args.end(), codecArgs.begin(), codecArgs.end());
    args.push_back(output.string());
    runFfmpeg(args);
    return output;
}

std::filesystem::path speak(const std::filesystem::path& output, const std::string& text, double stretch) {
    const ProcessResult result =
        runProcess({"/usr/bin/flite", "-voice", "slt", "--setf",
                    "duration_stretch=" + std::to_string(stretch), "-t", text, "-o", output.string()});
    if (result.exitCode != 0) throw std::runtime_error("flite failed: " + result.err);
    return output;
}

std::filesystem::path makeMovie(const std::filesystem::path& output, double seconds,
                                const std::optional<std::filesystem::path>& audio) {
    const std::string duration = std::to_string(seconds);
    std::vector<std::string> args{"-f", "lavfi", "-i", "testsrc2=size=320x240:rate=25:duration=" + duration};
    if (audio) args.insert(args.end(), {"-i", audio->string()});
    const std::string extension = output.extension().string();
    if (extension == ".webm") {
        args.insert(args.end(), {"-c:v", "libvpx", "-deadline", "realtime", "-cpu-used", "8"});
        if (audio) args.insert(args.end(), {"-c:a", "libopus"});
    } else {
        args.insert(args.end(), {"-c:v", "libx264", "-preset", "ultrafast", "-pix_fmt", "yuv420p"});
        if (audio && (extension == ".mp4" || extension == ".mov")) args.insert(args.end(), {"-c:a", "aac"});
    }
    args.insert(args.end(), {"-t", duration, output.string()});
    runFfmpeg(args);
    return output;
}

std::filesystem::path makeMovingSquareMovie(const std::filesystem::path& output, double seconds,
                                            const MovingSquareOptions& options) {
    const std::string duration = std::to_string(seconds);
    char grey[16];
    std::snprintf(grey, sizeof grey, "0x%02x%02x%02x", options.background, options.background,
                  options.background);
    const std::string side = std::to_string(options.side);
    std::vector<std::string> args{"-f",
                                  "lavfi",
                                  "-i",
                                  std::string("color=c=") + grey + ":size=" + std::to_string(options.width) +
                                      "x" + std::to_string(options.height) + ":rate=25:duration=" + duration,
                                  "-f",
                                  "lavfi",
                                  "-i",
                                  "color=c=white:size=" + side + "x" + side + ":rate=25"};
    if (options.withTone)
        args.insert(args.end(), {"-f", "lavfi", "-i", "sine=frequency=440:duration=" + duration});
    args.insert(args.end(),
                {"-filter_complex",
                 "[0:v][1:v]overlay=x='(W-w)*t/" + duration + "':y=(H-h)/2:shortest=1,format=yuv420p[v]",
                 "-map", "[v]"});
    if (options.withTone) args.insert(args.end(), {"-map", "2:a", "-c:a", "aac"});
    args.insert(args.end(), {"-c:v", "libx264", "-preset", "ultrafast", "-t", duration, output.string()});
    runFfmpeg(args);
    return output;
}

std::filesystem::path makeCounterMovie(const std::filesystem::path& output, double seconds,
                                       const CounterMovieOptions& options) {
    const int w = options.width;
    const int h = options.height;
    const auto frames = static_cast<int>(std::llround(seconds * options.framesPerSecond));
    // Luma and chroma of an "on" and an "off" cell for each palette (limited-range BT.601).
    const std::uint8_t on[2][3] = {{235, 128, 128}, {210, 16, 146}};
    const std::uint8_t off[2][3] = {{16, 128, 128}, {41, 240, 110}};
    const int palette = std::clamp(options.palette, 0, 1);
    const std::filesystem::path raw = output.string() + ".yuv";
    {
        std::ofstream out(raw, std::ios::binary);
        std::vector<std::uint8_t> picture(static_cast<std::size_t>(w) * h * 3 / 2);
        for (int n = 0; n < frames; ++n) {
            std::uint8_t* y = picture.data();
            std::uint8_t* u = y + static_cast<std::ptrdiff_t>(w) * h;
            std::uint8_t* v = u + static_cast<std::ptrdiff_t>(w / 2) * (h / 2);
            const auto bitAt = [&](int px, int py) {
                const int cell = (py * kCounterRows / h) * kCounterColumns + px * kCounterColumns / w;
                return ((n >> cell) & 1) != 0;
            };
            for (int py = 0; py < h; ++py)
                for (int px = 0; px < w; ++px)
                    y[py * w + px] = (bitAt(px, py) ? on : off)[palette][0];
            for (int py = 0; py < h / 2; ++py) {
                for (int px = 0; px < w / 2; ++px) {
                    const auto& c = bitAt(px * 2, py * 2) ? on[palette] : off[palette];
                    u[py * (w / 2) + px] = c[1];
                    v[py * (w / 2) + px] = c[2];
                }
            }
            out.write(reinterpret_cast<const char*>(picture.data()),
                      static_cast<std::streamsize>(picture.size()));
        }
    }
    std::vector<std::string> args{"-f",       "rawvideo",
                                  "-pix_fmt", "yuv420p",
                                  "-s",       std::to_string(w) + "x" + std::to_string(h),
                                  "-r",       std::to_string(options.framesPerSecond),
                                  "-i",       raw.string()};
    std::filesystem::path wav;
    if (options.toneHz) {
        wav = output.string() + ".wav";
        writeWav(wav, tone(*options.toneHz, 0.5, seconds, 48000), 1, 48000, WavEncoding::pcm16);
        args.insert(args.end(), {"-i", wav.string(), "-c:a", "pcm_s16le"});
    }
    args.insert(args.end(),
                {"-c:v", "libx264", "-preset", "ultrafast", "-qp", "8", "-bf", "2", "-g",
                 std::to_string(options.keyFrameInterval), "-pix_fmt", "yuv420p", output.string()});
    runFfmpeg(args);
    if (options.rotationDegrees != 0) {
        // Only a stream copy writes the turn into the container's display matrix.
        const std::filesystem::path turned = output.string() + ".turned" + output.extension().string();
        runFfmpeg({"-i", output.string(), "-c", "copy", "-metadata:s:v:0",
                   "rotate=" + std::to_string(options.rotationDegrees), turned.string()});
        std::filesystem::rename(turned, output);
    }
    std::filesystem::remove(raw);
    if (!wav.empty()) std::filesystem::remove(wav);
    return output;
}

std::optional<int> readCounter(const std::uint8_t* rgba, int width, int height, double x, double y, double w,
                               double h) {
    int value = 0;
    for (int row = 0; row < kCounterRows; ++row) {
        for (int column = 0; column < kCounterColumns; ++column) {
            const auto px = static_cast<int>(x + (column + 0.5) * w / kCounterColumns);
            const auto py = static_cast<int>(y + (row + 0.5) * h / kCounterRows);
            if (px < 0 || py < 0 || px >= width || py >= height) return std::nullopt;
            const std::uint8_t* p = rgba + (static_cast<std::size_t>(py) * width + px) * 4;
            const int level = (p[0] + p[1] + p[2]) / 3;
            if (level > 110 && level < 140) return std::nullopt;
            if (level >= 140) value |= 1 << (row * kCounterColumns + column);
        }
    }
    return value;
}

std::optional<int> readTurnedCounter(const std::uint8_t* rgba, int width, int height) {
    // Shown turned a quarter counter-clockwise, the stored point (x, y) lands at (y, height - 1 - x): turn
    // it back into a picture `height` wide and `width` tall, and read that.
    std::vector<std::uint8_t> stored(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4);
    for (int y = 0; y < width; ++y) {
        for (int x = 0; x < height; ++x) {
            const std::uint8_t* from = rgba + (static_cast<std::size_t>(height - 1 - x) * width + y) * 4;
            std::copy_n(from, 4, stored.data() + (static_cast<std::size_t>(y) * height + x) * 4);
        }
    }
    return readCounter(stored.data(), height, width, 0, 0, height, width);
}

std::filesystem::path truncateCopy(const std::filesystem::path& path, const std::filesystem::path& output,
                                   std::uintmax_t keepBytes) {
    std::ifstream in(path, std::ios::binary);
    std::string bytes(static_cast<std::size_t>(keepBytes), '\0');
    in.read(bytes.data(), static_cast<std::streamsize>(keepBytes));
    bytes.resize(static_cast<std::size_t>(in.gcount()));
    std::ofstream out(output, std::ios::binary);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!out) throw std::runtime_error("could not write " + output.string());
    return output;
}

namespace {

std::vector<std::string> ffprobeLines(const std::vector<std::string>& args) {
    std::vector<std::string> argv{"/usr/bin/ffprobe", "-v", "error"};
    argv.insert(argv.end(), args.begin(), args.end());
    const ProcessResult result = runProcess(argv);
    if (result.exitCode != 0) throw std::runtime_error("ffprobe failed: " + result.err);
    std::vector<std::string> lines;
    std::size_t at = 0;
    while (at < result.out.size()) {
        const auto end = result.out.find('\n', at);
        std::string line = result.out.substr(at, end == std::string::npos ? std::string::npos : end - at);
        while (!line.empty() && (line.back() == '\r' || line.back() == ','))
            line.pop_back();
        if (!line.empty()) lines.push_back(line);
        if (end == std::string::npos) break;
        at = end + 1;
    }
    return lines;
}

}  // namespace

std::vector<std::string> streamCodecs(const std::filesystem::path& path) {
    return ffprobeLines({"-show_entries", "stream=codec_name", "-of", "csv=p=0", path.string()});
}

int countVideoFrames(const std::filesystem::path& path) {
    const auto lines = ffprobeLines({"-count_frames", "-select_streams", "v:0", "-show_entries",
                                     "stream=nb_read_frames", "-of", "csv=p=0", path.string()});
    if (lines.empty()) throw std::runtime_error("no video stream in " + path.string());
    return std::stoi(lines.front());
}

std::string grayThumbnail(const std::filesystem::path& path, double seconds) {
    const ProcessResult result = runProcess({"/usr/bin/ffmpeg", "-nostdin", "-loglevel", "error", "-i",
                                             path.string(), "-ss", std::to_string(seconds), "-frames:v", "1",
                                             "-s", "64x48", "-pix_fmt", "gray", "-f", "rawvideo", "-"});
    if (result.exitCode != 0 || result.out.size() != 64 * 48)
        throw std::runtime_error("no frame at " + std::to_string(seconds) + " s in " + path.string() + ": " +
                                 result.err);
    return result.out;
}

double thumbnailDifference(const std::string& a, const std::string& b) {
    if (a.size() != b.size() || a.empty()) throw std::runtime_error("thumbnails differ in size");
    double sum = 0.0;
    for (std::size_t i = 0; i < a.size(); ++i)
        sum += std::abs(static_cast<int>(static_cast<unsigned char>(a[i])) -
                        static_cast<int>(static_cast<unsigned char>(b[i])));
    return sum / static_cast<double>(a.size());
}

}  // namespace morvane::testing
