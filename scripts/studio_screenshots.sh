#!/usr/bin/env bash
# Starts Morvane Studio under a virtual X server on the bundled sample and performs the main job as a user
# would (drop the recording, which is transcribed, play it, Clean up, accept, strike words, split, export),
# saving a PNG of the screen after each step. Prints the time from drop to transcript, the preview's frames
# per second and the export's time.
# Usage: scripts/studio_screenshots.sh [OUTPUT_DIR] (default build/studio-screenshots); MORVANE_SAMPLE picks
# another recording.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"

bash scripts/build.sh
out="${1:-build/studio-screenshots}"
sample="${MORVANE_SAMPLE:-samples/talk.mp4}"
if [ ! -f "$sample" ]; then
  echo "studio_screenshots: no recording at $sample (the build makes samples/talk.mp4)" >&2
  exit 1
fi
rm -rf "$out"
mkdir -p "$out"
# The tour's preferences stay out of the user's own.
config="$(mktemp -d)"
trap 'rm -rf "$config"' EXIT
export XDG_CONFIG_HOME="$config"
# Dropped from a folder of its own, so that no transcript lies beside it and the window transcribes it.
dropped="$config/$(basename "$sample")"
cp "$sample" "$dropped"
xvfb-run -a -s "-screen 0 1440x900x24" build/bin/morvane-studio-tour "$dropped" "$out"
echo "screenshots in $out"
