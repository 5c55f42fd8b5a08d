#!/usr/bin/env bash
# Measures a home folder with the engine's space-stream and tells, in words,
# where its space went: the largest rows of the top level and the large files.
#   scripts/show-space.sh [home-folder] [build-dir]    (default: $HOME, build/release)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
home=${1:-$HOME}
build=${2:-$root/build/release}
HOME=$home "$build/bin/BriskoEngine" space-stream | "$build/bin/brisko-demo" space-summary
