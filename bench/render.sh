#!/usr/bin/env bash
# Speed of the render engine on a 10-minute talking-head plan (200 keep spans of one 1280x720 30 fps source
# with AAC audio), against `ffmpeg -i SOURCE -f null -` decoding the same source in the same run:
#   every frame to raw frames (no encode)     target: at least 0.90 of ffmpeg's speed
#   the framed look on every frame            target: under 10 ms a frame
#   the mixed audio                           target: at least 50x real time
# Usage: bench/render.sh   (the 12-minute source is generated once into $MORVANE_BENCH_CACHE or
# build/bench-cache). Build first (scripts/build.sh).
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cache="${MORVANE_BENCH_CACHE:-$root/build/bench-cache}"
bench="$root/build/bin/bench_render"
file="$cache/talk-720p-12min.mp4"
mkdir -p "$cache"

if [ ! -f "$file" ]; then
  echo "render: generating a 12-minute 720p recording into $file (once)" >&2
  ffmpeg -nostdin -y -loglevel error \
    -f lavfi -i "testsrc2=size=1280x720:rate=30" -f lavfi -i "sine=frequency=220:sample_rate=48000" -t 720 \
    -c:v libx264 -preset veryfast -pix_fmt yuv420p -c:a aac -b:a 96k -ac 1 -movflags +faststart "$cache/tmp.mp4"
  mv "$cache/tmp.mp4" "$file"
fi

runs="${MORVANE_BENCH_RUNS:-2}"
best() {  # the fastest of $runs runs of a command, in seconds
  local b="" s log
  log="$(mktemp)"
  for _ in $(seq "$runs"); do
    /usr/bin/time -f "%e" -o "$log" "$@" >/dev/null 2>&1
    s=$(tail -1 "$log")
    if [ -z "$b" ] || awk -v a="$s" -v c="$b" 'BEGIN { exit !(a < c) }'; then b=$s; fi
  done
  rm -f "$log"
  echo "$b"
}

echo "file: $file; best of $runs runs; load now: $(cut -d' ' -f1-3 /proc/loadavg)"
ff=$(best ffmpeg -nostdin -i "$file" -f null -)
mv=$(best "$bench" "$file" frames)
echo "ffmpeg -f null (whole 12-min source):     ${ff} s"
echo "morvane, every frame of the 10-min plan:   ${mv} s"
echo "speed / ffmpeg: $(awk -v a="$ff" -v b="$mv" 'BEGIN { printf "%.2f", a / b }')  (target >= 0.90)"
"$bench" "$file" frames 1800
"$bench" "$file" framed 1800
"$bench" "$file" audio
