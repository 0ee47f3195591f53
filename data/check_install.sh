#!/usr/bin/env bash
# Installs the desktop files of the build in $1 into a scratch prefix, then checks what a desktop would do
# with them: the desktop entry validates, and the MIME database compiled from the package maps "*.morvane"
# to the project type, a kind of folder.
set -euo pipefail
build="$1"
prefix="$(mktemp -d)"
trap 'rm -rf "$prefix"' EXIT

cmake --install "$build" --prefix "$prefix" --component data >/dev/null
desktop-file-validate "$prefix/share/applications/morvane-studio.desktop"
grep -qx 'MimeType=application/x-morvane-project;.*' "$prefix/share/applications/morvane-studio.desktop"
update-mime-database "$prefix/share/mime" 2>/dev/null
grep -qx 'application/x-morvane-project:\*\.morvane' "$prefix/share/mime/globs"
grep -qx 'application/x-morvane-project inode/directory' "$prefix/share/mime/subclasses"
echo "desktop registration: ok"
