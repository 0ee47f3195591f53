#!/usr/bin/env bash
# Installs the project type of the build in $1 into a scratch prefix, then checks what a desktop would do
# with it: the MIME database compiled from the package maps "*.morvane" to the project type, a kind of
# folder, and the desktop entry $2 validates and opens that type.
set -euo pipefail
build="$1"
desktop="$2"
prefix="$(mktemp -d)"
trap 'rm -rf "$prefix"' EXIT

cmake --install "$build" --prefix "$prefix" --component data >/dev/null
update-mime-database "$prefix/share/mime" 2>/dev/null
grep -qx 'application/x-morvane-project:\*\.morvane' "$prefix/share/mime/globs"
grep -qx 'application/x-morvane-project inode/directory' "$prefix/share/mime/subclasses"
desktop-file-validate "$desktop"
grep -qx 'MimeType=application/x-morvane-project;.*' "$desktop"
echo "desktop registration: ok"
