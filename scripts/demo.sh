#!/usr/bin/env bash
# Builds Morvane and runs the main job on the bundled sample.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"

bash scripts/build.sh
exec build/bin/morvane demo --output "${MORVANE_DEMO_DIR:-build/demo}" "$@"
