#!/usr/bin/env bash
# Speed of short-form candidates and packing on an hour-long talk (the one bench/cleanup.sh generates: about
# 9,000 words in 1,500 segments) against FFmpeg decoding the same talk's audio once, in the same run:
#   morvane shorts --transcript       segmenting and scoring from the transcript alone
#   morvane shorts --media            the same with the segment edges snapped to the recording's pauses
#   the scorer and the packer alone   on segments in memory (Google Benchmark)
# Usage: bench/shorts.sh [minutes]   (default 60; the talk is generated once into the cache folder,
# $MORVANE_BENCH_CACHE or build/bench-cache). Build first (scripts/build.sh).
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
minutes="${1:-60}"
cache="${MORVANE_BENCH_CACHE:-$root/build/bench-cache}"
dir="$cache/cleanup-${minutes}min"
morvane="$root/build/bin/morvane"
[ -x /usr/bin/time ] || { echo "shorts: /usr/bin/time is missing (scripts/setup.sh installs it)" >&2; exit 1; }

if [ ! -f "$dir/talk.segments.json" ]; then
  echo "shorts: generating a ${minutes}-minute talk into $dir (once)" >&2
  "$root/build/bin/bench_cleanup_rules" --generate "$dir" "$minutes" >&2
fi
source "$root/bench/measure.sh"

echo "talk: $dir (${minutes} min); best of $runs runs, load now: $(cut -d' ' -f1-3 /proc/loadavg)"
measure ffmpeg -nostdin -i "$dir/talk.m4a" -vn -ac 1 -ar 48000 -f f32le -y /dev/null
ff_decode=$secs; row "ffmpeg decode-only" "$secs" "$mb"
measure "$morvane" shorts --transcript "$dir/talk.transcript.json" --json
text=$secs; text_mb=$mb; row "shorts --transcript" "$secs" "$mb"
measure "$morvane" shorts --transcript "$dir/talk.transcript.json" --media "$dir/talk.m4a" --json
media=$secs; row "shorts --media" "$secs" "$mb"
echo
echo "shorts --transcript / decode-only:  $(ratio "$text" "$ff_decode") elapsed  (target: well under 1 s; peak ${text_mb} MB)"
echo "shorts --media / decode-only:       $(ratio "$media" "$ff_decode") elapsed  (snapping to pauses decodes once)"
echo
MORVANE_BENCH_CLEANUP_DIR="$dir" "$root/build/bin/bench_shorts"
