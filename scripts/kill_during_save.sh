#!/usr/bin/env bash
# The long run of the kill-during-save test: a child process saves a large project over and over and is
# killed at random moments ROUNDS times (default 1000); after every kill the bundle must open as the old or
# the new project, its media whole. WORDS sets the transcript's length (default 20000, a manifest of some
# 16 MB, near the 20 MiB a project may have). The test suite runs the same test with 50 rounds on a
# project of 2000 words.
#
#   bash scripts/kill_during_save.sh 5000
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"

bash scripts/build.sh >&2
MORVANE_KILL_ROUNDS="${1:-1000}" MORVANE_KILL_WORDS="${WORDS:-20000}" \
  build/bin/morvane_app_tests --gtest_filter='ProjectSaveKill.*'
