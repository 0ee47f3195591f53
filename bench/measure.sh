# Timing helpers for the benchmark scripts, sourced by them.
# Runs a command $runs times (the machine is shared: the fastest run is the one least disturbed) and keeps
# its best elapsed seconds, the CPU seconds of that run (all threads) and the largest peak RSS (MB) in
# $secs, $cpu and $mb.
runs="${MORVANE_BENCH_RUNS:-3}"
measure() {
  local log s user sys kb best="" peak=0
  log="$(mktemp)"
  for _ in $(seq "$runs"); do
    /usr/bin/time -f "%e %U %S %M" -o "$log" "$@" >/dev/null 2>&1
    read -r s user sys kb <"$log"
    if [ -z "$best" ] || awk -v a="$s" -v b="$best" 'BEGIN { exit !(a < b) }'; then
      best=$s
      cpu=$(awk -v u="$user" -v k="$sys" 'BEGIN { print u + k }')
    fi
    [ "$kb" -gt "$peak" ] && peak=$kb
  done
  rm -f "$log"
  secs=$best
  mb=$((peak / 1024))
}

row() { printf '%-24s %7.2f s elapsed %7.2f s CPU %6d MB\n' "$1" "$2" "$cpu" "$3"; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", a / b }'; }
