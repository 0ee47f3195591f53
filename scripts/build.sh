#!/usr/bin/env bash
# Installs what is missing, then configures and builds Morvane into build/ (or build-asan/ with
# --sanitize). Every other script starts here. Set MORVANE_WERROR=ON to fail on warnings.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"

build_dir="build"
extra=()
if [ "${1:-}" = "--sanitize" ]; then
  build_dir="build-asan"
  extra+=(-DCMAKE_BUILD_TYPE=Debug -DMORVANE_SANITIZE=ON -DMORVANE_BUILD_BENCH=OFF)
fi

bash scripts/setup.sh >&2
# Compiler cache hits for any checkout of the tree, wherever it lies (CI checks out afresh each time).
export CCACHE_BASEDIR="$root" CCACHE_NOHASHDIR=1
cmake -S . -B "$build_dir" -G Ninja -DMORVANE_WERROR="${MORVANE_WERROR:-OFF}" "${extra[@]}" >&2
cmake --build "$build_dir" -j "$(nproc)" >&2
