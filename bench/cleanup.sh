#!/usr/bin/env bash
# Speed and memory of Clean up on an hour-long tutorial (about 9,000 words in 1,500 segments, with fillers,
# false starts and retakes) against FFmpeg decoding the same audio once, in the same run:
#   Clean up, as the window runs it   segments, transcript and file to a finished run (one decode)
#   morvane classify --media          the same from the transcript alone: segmenting reads the pauses first
#   the rules alone                   on audio already decoded (Google Benchmark)
# Usage: bench/cleanup.sh [minutes]   (default 60; the talk is generated once into the cache folder,
# $MORVANE_BENCH_CACHE or build/bench-cache). Build first (scripts/build.sh).
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
minutes="${1:-60}"
cache="${MORVANE_BENCH_CACHE:-$root/build/bench-cache}"
dir="$cache/cleanup-${minutes}min"
bench="$root/build/bin/bench_cleanup_rules"
morvane="$root/build/bin/morvane"
[ -x /usr/bin/time ] || { echo "cleanup: /usr/bin/time is missing (scripts/setup.sh installs it)" >&2; exit 1; }

if [ ! -f "$dir/talk.segments.json" ]; then
  echo "cleanup: generating a ${minutes}-minute talk into $dir (once)" >&2
  "$bench" --generate "$dir" "$minutes" >&2
fi
source "$root/bench/measure.sh"

echo "talk: $dir ($(du -h "$dir/talk.m4a" | cut -f1) of AAC, ${minutes} min); best of $runs runs, load now: $(cut -d' ' -f1-3 /proc/loadavg)"
measure ffmpeg -nostdin -i "$dir/talk.m4a" -vn -ac 1 -ar 48000 -f f32le -y /dev/null
ff_decode=$secs; ff_cpu=$cpu; row "ffmpeg decode-only" "$secs" "$mb"
measure "$bench" --clean-up "$dir"
app=$secs; app_cpu=$cpu; app_mb=$mb; row "Clean up (segments)" "$secs" "$mb"
measure "$morvane" classify "$dir/talk.transcript.json" --media "$dir/talk.m4a" --command cleanUp --json
cli=$secs; cli_cpu=$cpu; cli_mb=$mb; row "morvane classify --media" "$secs" "$mb"
echo
echo "Clean up / decode-only:          $(ratio "$app" "$ff_decode") elapsed, $(ratio "$app_cpu" "$ff_cpu") CPU  (target < 1.50; peak ${app_mb} MB)"
echo "classify --media / decode-only:  $(ratio "$cli" "$ff_decode") elapsed, $(ratio "$cli_cpu" "$ff_cpu") CPU  (segmenting decodes once more; peak ${cli_mb} MB)"
echo
MORVANE_BENCH_CLEANUP_DIR="$dir" "$bench" --benchmark_filter=rules
