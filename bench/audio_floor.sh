#!/usr/bin/env bash
# Speed and memory of the audio floor on an hour-long talking-head recording, against FFmpeg's own tools on
# the same file in the same run:
#   morvane silences   vs  ffmpeg ... -af silencedetect=noise=-40dB:d=0.15
#   morvane loudness   vs  ffmpeg decode-only to mono 48 kHz float
#   morvane waveform   vs  the same decode-only run
# Usage: bench/audio_floor.sh [minutes]   (default 60; the file is generated once into the cache folder,
# $MORVANE_BENCH_CACHE or build/bench-cache). Build first (scripts/build.sh).
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
minutes="${1:-60}"
cache="${MORVANE_BENCH_CACHE:-$root/build/bench-cache}"
morvane="$root/build/bin/morvane"
file="$cache/talk-${minutes}min.mp4"
mkdir -p "$cache"
[ -x /usr/bin/time ] || { echo "audio_floor: /usr/bin/time is missing (scripts/setup.sh installs it)" >&2; exit 1; }

generate() {
  local work
  work="$(mktemp -d "$cache/morvane-gen.XXXXXX")"
  trap 'rm -rf "$work"; trap - RETURN' RETURN
  local sentences=(
    "Welcome back to the channel. Today we are looking at a quick way to clean up a recording."
    "First, drop the file onto the window and wait for the transcript."
    "Um, so, the next step is, uh, picking a cut from the assistant."
    "Notice how the pauses between sentences are removed without touching the words."
    "If you do not like the result, reject it and nothing changes."
    "Let me show that again, a little slower this time."
    "Exporting takes a few seconds for a short clip and a few minutes for a long one."
    "That is all for today. Thanks for watching, and see you in the next one."
  )
  # Pauses of various lengths, some shorter than the 0.15 s minimum, some long.
  local gaps=(0.35 0.9 0.12 1.6 0.5 0.08 2.4 0.7)
  local parts=() i=0
  for s in "${sentences[@]}"; do
    flite -t "$s" -o "$work/raw$i.wav"
    sox "$work/raw$i.wav" -r 16000 "$work/s$i.wav"
    sox -n -r 16000 -c 1 "$work/g$i.wav" trim 0 "${gaps[$i]}"
    parts+=("$work/s$i.wav" "$work/g$i.wav")
    i=$((i + 1))
  done
  sox "${parts[@]}" -r 48000 "$work/pattern.wav"
  # Low-motion 720p picture (a still frame with a slowly moving box), fast to encode.
  ffmpeg -nostdin -y -loglevel error \
    -f lavfi -i "color=c=0x3a4a5a:s=1280x720:r=30,drawbox=x='mod(t*20,1100)':y=300:w=180:h=120:c=0xd0b090:t=fill" \
    -stream_loop -1 -i "$work/pattern.wav" -t "$((minutes * 60))" \
    -c:v libx264 -preset ultrafast -tune stillimage -pix_fmt yuv420p \
    -c:a aac -b:a 96k -ac 1 -ar 48000 -movflags +faststart "$work/talk.mp4"
  mv "$work/talk.mp4" "$file"
}

if [ ! -f "$file" ]; then
  echo "audio_floor: generating a ${minutes}-minute recording into $file (once)" >&2
  generate
fi

source "$root/bench/measure.sh"

echo "file: $file ($(du -h "$file" | cut -f1), ${minutes} min); best of $runs runs, load now: $(cut -d' ' -f1-3 /proc/loadavg)"
measure ffmpeg -nostdin -i "$file" -vn -af silencedetect=noise=-40dB:d=0.15 -f null -
ff_silence=$secs; row "ffmpeg silencedetect" "$secs" "$mb"
measure "$morvane" silences "$file" --json
mv_silence=$secs; mv_silence_mb=$mb; row "morvane silences" "$secs" "$mb"
measure ffmpeg -nostdin -i "$file" -vn -ac 1 -ar 48000 -f f32le -y /dev/null
ff_decode=$secs; row "ffmpeg decode-only" "$secs" "$mb"
measure "$morvane" loudness "$file" --json
mv_loudness=$secs; row "morvane loudness" "$secs" "$mb"
measure "$morvane" waveform "$file" --json
mv_waveform=$secs; row "morvane waveform" "$secs" "$mb"
echo
echo "silences / ffmpeg silencedetect: $(ratio "$mv_silence" "$ff_silence")  (target <= 1.00; peak ${mv_silence_mb} MB, target < 150)"
echo "loudness / decode-only:          $(ratio "$mv_loudness" "$ff_decode")  (target <= 1.30)"
echo "waveform / decode-only:          $(ratio "$mv_waveform" "$ff_decode")  (target <= 1.30)"
