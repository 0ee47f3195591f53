#!/usr/bin/env bash
# Builds the fuzzers with clang (libFuzzer, ASan, UBSan) into build-fuzz/ and fuzzes the edit plan reader
# and the project manifest reader for SECONDS in all (default 60), split between them. Exits non-zero on
# any crash, hang, leak or sanitizer report; the input that caused it is left in build-fuzz/ as crash-*,
# timeout-* or leak-*.
#
#   bash fuzz/run.sh 300        # five minutes
set -euo pipefail
seconds="${1:-60}"
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"

bash scripts/setup.sh >&2
cmake -S fuzz -B build-fuzz -G Ninja -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo >&2
cmake --build build-fuzz -j 2 >&2

# What the fuzzers learn goes to build-fuzz/corpus/<name>; the seeds in fuzz/corpus are only read.
export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"
share=$(( seconds / 2 > 0 ? seconds / 2 : 1 ))
fuzz() {
  local name="$1" max_len="$2"
  mkdir -p "build-fuzz/corpus/$name"
  "build-fuzz/fuzz_$name" -max_total_time="$share" -timeout=10 -rss_limit_mb=2048 -max_len="$max_len" \
    -dict="fuzz/$name.dict" -artifact_prefix=build-fuzz/ -print_final_stats=1 \
    "build-fuzz/corpus/$name" "fuzz/corpus/$name"
}
fuzz edit_plan 16384
fuzz project 65536
