#!/usr/bin/env bash
# The window's waveform cache on a long recording's sound, against FFmpeg decoding the same audio in the
# same run:
#   cold (decoded and saved as peaks.bin)  vs  ffmpeg decode-only to mono 44.1 kHz float
#   warm (loaded from peaks.bin)           vs  cold
# Usage: bench/waveform_cache.sh [minutes]   (default 60; the recording is generated once into
# $MORVANE_BENCH_CACHE or build/bench-cache; the media cache goes to a temporary folder). Build first.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
minutes="${1:-60}"
cache="${MORVANE_BENCH_CACHE:-$root/build/bench-cache}"
bench="$root/build/bin/bench_waveform_cache"
file="$cache/voice-${minutes}min.m4a"
mkdir -p "$cache"
[ -x /usr/bin/time ] || { echo "waveform_cache: /usr/bin/time is missing (scripts/setup.sh installs it)" >&2; exit 1; }

if [ ! -f "$file" ]; then
  echo "waveform_cache: generating ${minutes} minutes of sound into $file (once)" >&2
  # A voice-like tone that swells and fades every few seconds, as AAC like a recording's track.
  ffmpeg -nostdin -y -loglevel error \
    -f lavfi -i "sine=frequency=180:sample_rate=48000,volume='0.2+0.6*abs(sin(t*0.7))':eval=frame" \
    -t "$((minutes * 60))" -c:a aac -b:a 96k -ac 1 "$cache/tmp-voice.m4a"
  mv "$cache/tmp-voice.m4a" "$file"
fi

XDG_CACHE_HOME="$(mktemp -d)"
export XDG_CACHE_HOME
trap 'rm -rf "$XDG_CACHE_HOME"' EXIT
source "$root/bench/measure.sh"

echo "file: $file ($(du -h "$file" | cut -f1), ${minutes} min); best of $runs runs, load now: $(cut -d' ' -f1-3 /proc/loadavg)"
measure ffmpeg -nostdin -i "$file" -vn -ac 1 -ar 44100 -f f32le -y /dev/null
ff_decode=$secs; row "ffmpeg decode-only" "$secs" "$mb"
measure "$bench" "$file" cold
cold=$secs; row "waveform cache, cold" "$secs" "$mb"
"$bench" "$file" cold >/dev/null  # leaves peaks.bin for the warm runs
measure "$bench" "$file" warm
warm=$secs; row "waveform cache, warm" "$secs" "$mb"
"$bench" "$file" warm
echo
echo "cold / decode-only: $(ratio "$cold" "$ff_decode")"
echo "warm / cold:        $(ratio "$warm" "$cold")"
