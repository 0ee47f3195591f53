#!/usr/bin/env bash
# Builds Morvane and runs every test (unit, media and end-to-end). With --sanitize, the same tests under
# AddressSanitizer and UndefinedBehaviorSanitizer in build-asan/.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"

bash scripts/build.sh "$@"
build_dir="build"
[ "${1:-}" = "--sanitize" ] && build_dir="build-asan"
export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=0}"
export LSAN_OPTIONS="${LSAN_OPTIONS:-suppressions=$root/scripts/lsan.supp:print_suppressions=0}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"
ctest --test-dir "$build_dir" --output-on-failure -j "$(nproc)"
