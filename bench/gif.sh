#!/usr/bin/env bash
# GIF export: `morvane render --codec gif` of a whole 60-second 720p talk at 12 frames a second and 480
# pixels wide, against the ffmpeg command making the same GIF the usual way (fps, scale, palettegen and
# paletteuse in one graph), in the same run.
# Usage: bench/gif.sh   (the source is generated once into $MORVANE_BENCH_CACHE or build/bench-cache)
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
morvane="$root/build/bin/morvane"
cache="${MORVANE_BENCH_CACHE:-$root/build/bench-cache}"
source_file="$cache/talk-720p-60s.mp4"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
mkdir -p "$cache"

if [ ! -f "$source_file" ]; then
  ffmpeg -nostdin -y -loglevel error -f lavfi -i "testsrc2=size=1280x720:rate=30:duration=60" \
    -f lavfi -i "sine=frequency=220:duration=60" -c:v libx264 -preset fast -g 60 -pix_fmt yuv420p \
    -c:a aac -ac 1 "$cache/tmp.mp4"
  mv "$cache/tmp.mp4" "$source_file"
fi
printf '{"version":"0.3","timeline":{"frame_duration":"1/30","render_size":"1280x720"},"sources":[{"id":"src1","url":"%s","frame_duration":"1/30","vfr":false}],"operations":[{"type":"keep","source_id":"src1","start":"0/600","end":"36000/600"}]}\n' \
  "$source_file" >"$work/plan.json"

source "$root/bench/measure.sh"
echo "source: $source_file; best of $runs runs; load now: $(cut -d' ' -f1-3 /proc/loadavg)"
measure ffmpeg -nostdin -y -loglevel error -i "$source_file" \
  -filter_complex "fps=12,scale=480:-2:flags=bicubic,split[a][b];[a]palettegen=stats_mode=full[p];[b][p]paletteuse=dither=sierra2_4a" \
  "$work/ffmpeg.gif"
ff=$secs; ff_cpu=$cpu; ff_mb=$mb; row "ffmpeg palettegen+use" "$secs" "$mb"
measure "$morvane" render "$work/plan.json" -o "$work/morvane.gif" --gif-size 480
mv=$secs; mv_cpu=$cpu; row "morvane render gif" "$secs" "$mb"
echo
echo "frames: ffmpeg $(ffprobe -v error -count_frames -show_entries stream=nb_read_frames -of csv=p=0 "$work/ffmpeg.gif")," \
  "morvane $(ffprobe -v error -count_frames -show_entries stream=nb_read_frames -of csv=p=0 "$work/morvane.gif")"
echo "sizes: ffmpeg $(stat -c %s "$work/ffmpeg.gif") bytes, morvane $(stat -c %s "$work/morvane.gif") bytes"
echo "morvane / ffmpeg: $(ratio "$mv" "$ff") elapsed, $(ratio "$mv_cpu" "$ff_cpu") CPU; peak memory ffmpeg $ff_mb MB"
