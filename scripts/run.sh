#!/usr/bin/env bash
# Brisko's main job from a fresh clone: install, build, and ask the engine
# what it can do and how full the home folder's volume is.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-packages.sh"
"$root/scripts/build.sh" "$root/build/release"
engine="$root/build/release/BriskoEngine/BriskoEngine"

echo "== BriskoEngine capabilities"
"$engine" capabilities
echo
echo "== BriskoEngine overview (home folder: ${HOME})"
"$engine" overview
echo
