#!/usr/bin/env bash
# Builds the fuzzers with clang (libFuzzer, ASan, UBSan) into build-fuzz/ and fuzzes the edit plan reader
# for SECONDS (default 60). Exits non-zero on any crash, hang, leak or sanitizer report; the input that
# caused it is left in build-fuzz/ as crash-*, timeout-* or leak-*.
#
#   bash fuzz/run.sh 300        # five minutes
set -euo pipefail
seconds="${1:-60}"
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"

bash scripts/setup.sh >&2
cmake -S fuzz -B build-fuzz -G Ninja -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo >&2
cmake --build build-fuzz -j 2 >&2

# What the fuzzer learns goes to build-fuzz/corpus; the seeds in fuzz/corpus are only read.
mkdir -p build-fuzz/corpus
export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"
exec build-fuzz/fuzz_edit_plan -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -max_len=16384 \
  -dict=fuzz/edit_plan.dict -artifact_prefix=build-fuzz/ -print_final_stats=1 \
  build-fuzz/corpus fuzz/corpus/edit_plan
