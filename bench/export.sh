#!/usr/bin/env bash
# Speed of `morvane render` on a 10-minute 1280x720 30 fps H.264 talk (AAC, a key frame every 2 s) cut into
# 60 keep spans, against FFmpeg making the same cut in the same run:
#   cuts between key frames, every frame encoded   vs  ffmpeg trim/atrim + concat, libx264 at the same
#                                                      preset and quality   target: at most 1.10x ffmpeg
#   cuts on key frames, the picture copied         vs  the same cut encoded  target: at least 5x faster
# Prints the ratios and each output's probed duration beside the kept length.
# Usage: bench/export.sh   (the source is generated once into $MORVANE_BENCH_CACHE or build/bench-cache;
# MORVANE_BENCH_RUNS sets the runs per command, default 3). Build first (scripts/build.sh).
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cache="${MORVANE_BENCH_CACHE:-$root/build/bench-cache}"
morvane="$root/build/bin/morvane"
source_file="$cache/talk-720p-10min-gop2s.mp4"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
mkdir -p "$cache"
[ -x /usr/bin/time ] || { echo "export: /usr/bin/time is missing (scripts/setup.sh installs it)" >&2; exit 1; }

if [ ! -f "$source_file" ]; then
  echo "export: generating a 10-minute 720p talk into $source_file (once)" >&2
  ffmpeg -nostdin -y -loglevel error \
    -f lavfi -i "testsrc2=size=1280x720:rate=30" -f lavfi -i "sine=frequency=220:sample_rate=48000" -t 600 \
    -c:v libx264 -preset veryfast -g 60 -keyint_min 60 -sc_threshold 0 -pix_fmt yuv420p \
    -c:a aac -b:a 96k -ac 1 -movflags +faststart "$cache/tmp.mp4"
  mv "$cache/tmp.mp4" "$source_file"
fi

# 60 spans, one every 10 s: 0.37 s to 7.67 s into each (between key frames), or 2 s to 8 s (on them).
spans() {  # offset length -> "start end" lines
  for k in $(seq 0 59); do awk -v k="$k" -v o="$1" -v l="$2" 'BEGIN { printf "%.2f %.2f\n", k * 10 + o, k * 10 + o + l }'; done
}
plan() {  # offset length -> plan JSON on stdout
  local ops="" start end
  while read -r start end; do
    ops+="${ops:+,}{\"type\":\"keep\",\"source_id\":\"src1\",\"start\":\"$(awk -v s="$start" 'BEGIN { printf "%d", s * 600 }')/600\",\"end\":\"$(awk -v s="$end" 'BEGIN { printf "%d", s * 600 }')/600\"}"
  done < <(spans "$1" "$2")
  printf '{"version":"0.3","timeline":{"frame_duration":"1/30","render_size":"1280x720"},"sources":[{"id":"src1","url":"%s","frame_duration":"1/30","vfr":false}],"operations":[%s]}\n' \
    "$source_file" "$ops"
}
plan 0.37 7.30 >"$work/between.json"
plan 2.00 6.00 >"$work/on.json"

# FFmpeg's own cut of the same spans: trim and atrim per span, joined by the concat filter.
graph=""
inputs=""
n=0
while read -r start end; do
  graph+="[0:v]trim=start=$start:end=$end,setpts=PTS-STARTPTS[v$n];[0:a]atrim=start=$start:end=$end,asetpts=PTS-STARTPTS[a$n];"
  inputs+="[v$n][a$n]"
  n=$((n + 1))
done < <(spans 0.37 7.30)
graph+="${inputs}concat=n=$n:v=1:a=1[v][a]"

source "$root/bench/measure.sh"
probe() { ffprobe -v error -show_entries format=duration -of csv=p=0 "$1"; }

echo "source: $source_file; best of $runs runs; load now: $(cut -d' ' -f1-3 /proc/loadavg)"
measure ffmpeg -nostdin -y -loglevel error -i "$source_file" -filter_complex "$graph" -map "[v]" -map "[a]" \
  -c:v libx264 -preset fast -crf 20 -c:a aac -b:a 192k -ac 1 "$work/ffmpeg.mp4"
ff=$secs; ff_cpu=$cpu; row "ffmpeg concat + libx264" "$secs" "$mb"
measure "$morvane" render "$work/between.json" -o "$work/between.mp4"
mv_encode=$secs; mv_encode_cpu=$cpu; row "morvane render (encode)" "$secs" "$mb"
measure "$morvane" render "$work/on.json" -o "$work/on-encoded.mp4" --bitrate medium
mv_full=$secs; mv_full_cpu=$cpu; row "morvane, on key frames, encoded" "$secs" "$mb"
measure "$morvane" render "$work/on.json" -o "$work/on-copied.mp4"
mv_copy=$secs; mv_copy_cpu=$cpu; row "morvane, on key frames, copied" "$secs" "$mb"

echo
echo "kept: 60 x 7.30 s = 438.00 s between key frames; 60 x 6.00 s = 360.00 s on them"
echo "probed durations: ffmpeg $(probe "$work/ffmpeg.mp4") s, morvane $(probe "$work/between.mp4") s;" \
  "encoded $(probe "$work/on-encoded.mp4") s, copied $(probe "$work/on-copied.mp4") s"
echo "morvane encode / ffmpeg:        $(ratio "$mv_encode" "$ff") elapsed, $(ratio "$mv_encode_cpu" "$ff_cpu") CPU  (target <= 1.10)"
echo "copy speed-up over encoding:    $(ratio "$mv_full" "$mv_copy")x elapsed, $(ratio "$mv_full_cpu" "$mv_copy_cpu")x CPU  (target >= 5)"
