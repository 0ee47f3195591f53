#!/usr/bin/env bash
# Speed of Auto-reframe's analysis on a 10-minute 720p recording against FFmpeg pulling out the same
# sample frames, in the same run:
#   ffmpeg fps=1/interval        decodes the recording and keeps one picture per sample, as RGBA
#   morvane reframe              decodes the same samples, then looks for people, faces and salient
#                                regions in each and lays out the crops
# The recording is a noisy grey picture over which a bright square wanders (generated once into
# $MORVANE_BENCH_CACHE or build/bench-cache). Usage: bench/reframe.sh [minutes] [interval]  (default 10 and
# 0.5). Build first (scripts/build.sh).
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
minutes="${1:-10}"
interval="${2:-0.5}"
cache="${MORVANE_BENCH_CACHE:-$root/build/bench-cache}"
movie="$cache/reframe-${minutes}min-720p.mp4"
morvane="$root/build/bin/morvane"
[ -x /usr/bin/time ] || { echo "reframe: /usr/bin/time is missing (scripts/setup.sh installs it)" >&2; exit 1; }

if [ ! -f "$movie" ]; then
  echo "reframe: generating a ${minutes}-minute 720p recording into $movie (once)" >&2
  mkdir -p "$cache"
  seconds=$((minutes * 60))
  ffmpeg -nostdin -loglevel error -y \
    -f lavfi -i "color=c=0x505050:size=1280x720:rate=30:duration=$seconds" \
    -f lavfi -i "color=c=white:size=120x120:rate=30" \
    -filter_complex "[0:v]noise=alls=12:allf=t[bg];[bg][1:v]overlay=x='(W-w)*(0.5+0.45*sin(t/7))':y='(H-h)*(0.5+0.3*sin(t/5))':shortest=1,format=yuv420p[v]" \
    -map "[v]" -c:v libx264 -preset veryfast -g 60 "$movie.tmp.mp4"
  mv "$movie.tmp.mp4" "$movie"
fi
source "$root/bench/measure.sh"

echo "recording: $movie (${minutes} min, 1280x720, 30 fps); a sample every ${interval} s; best of $runs runs,"
echo "load now: $(cut -d' ' -f1-3 /proc/loadavg)"
rate=$(awk -v i="$interval" 'BEGIN { printf "%.6f", 1 / i }')
measure ffmpeg -nostdin -i "$movie" -an -vf "fps=$rate,format=rgba" -f null -
ff=$secs; row "ffmpeg sample frames" "$secs" "$mb"
measure "$morvane" reframe "$movie" --interval "$interval" --json
ours=$secs; row "morvane reframe" "$secs" "$mb"
samples=$(awk -v m="$minutes" -v i="$interval" 'BEGIN { printf "%d", m * 60 / i }')
echo
echo "morvane reframe / ffmpeg sample frames: $(ratio "$ours" "$ff") elapsed"
echo "per sample: $(awk -v s="$ours" -v n="$samples" 'BEGIN { printf "%.1f", 1000 * s / n }') ms ($samples samples)"
