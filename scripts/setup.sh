#!/usr/bin/env bash
# Installs every Debian package that Morvane's build, tests and sample need.
# Safe to run again: when everything is present it returns without touching apt.
set -euo pipefail

packages=(
  # toolchain
  g++ cmake ninja-build ccache pkg-config git clang-format
  # foundation: JSON, formatting, text, command line
  nlohmann-json3-dev libfmt-dev libicu-dev libpcre2-dev libcli11-dev
  # tests and benchmarks; clang for the libFuzzer fuzzers (fuzz/run.sh)
  libgtest-dev libgmock-dev libbenchmark-dev time clang libclang-rt-14-dev
  # media: FFmpeg's libraries and tool, DSP
  libavformat-dev libavcodec-dev libavfilter-dev libavdevice-dev libswscale-dev
  libswresample-dev libavutil-dev ffmpeg libfftw3-dev librubberband-dev
  # SHA-256 for the media cache's file fingerprints
  nettle-dev
  # drawing: the pointer of screen recordings
  libcairo2-dev
  # subject detection for auto-reframe: three OpenCV modules and their Haar cascades (not the whole of
  # libopencv-dev, which brings every module and a desktop toolkit)
  libopencv-core-dev libopencv-imgproc-dev libopencv-objdetect-dev opencv-data
  # speech, the local language model client and its test server
  libpocketsphinx-dev pocketsphinx-en-us libcurl4-openssl-dev libcpp-httplib-dev
  # pocketsphinx's own command-line decoder: the baseline bench/transcription.sh measures against
  pocketsphinx
  # synthetic speech and audio fixtures for tests and the bundled sample
  flite espeak-ng sox
  # the project type and the desktop entry, and their checks
  shared-mime-info desktop-file-utils
  # the desktop window (Qt 6 Widgets and Multimedia); Xvfb for its screenshots
  qt6-base-dev qt6-multimedia-dev qt6-qpa-plugins xvfb xauth
  # a German locale built at test time, to check that numbers never follow the user's locale
  locales
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "setup: all ${#packages[@]} packages are installed"
  exit 0
fi

sudo=""
if [ "$(id -u)" -ne 0 ]; then
  if command -v sudo >/dev/null 2>&1; then sudo="sudo"; else
    echo "setup: these packages are missing and installing them needs root: ${missing[*]}" >&2
    exit 1
  fi
fi

echo "setup: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -q
$sudo apt-get install -y -q --no-install-recommends "${missing[@]}"
