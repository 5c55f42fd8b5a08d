#!/usr/bin/env bash
# Brisko's main job from a fresh clone: install, build, ask the engine what it
# can do and how full the home folder's volume is, then scan a sample home
# folder and summarise what could be cleaned.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-packages.sh"
"$root/scripts/build.sh" "$root/build/release"
engine="$root/build/release/bin/BriskoEngine"

echo "== BriskoEngine capabilities"
"$engine" capabilities
echo
echo "== BriskoEngine overview (home folder: ${HOME})"
"$engine" overview
echo

# Brisko's job on a sample home folder: realistic caches, logs, developer and
# browser data, installers, a protected folder, a whitelisted one and links
# into protected places, built in a temporary folder and removed afterwards.
# `brisko` runs with HOME and the XDG folders pointed there, so that its
# plans, receipts and Trash are the sample's; --keep-trash leaves the Trash
# folders of other disks (which are the real user's) alone.
brisko="$root/build/release/bin/brisko"
sample=$(mktemp -d "${TMPDIR:-/tmp}/brisko-demo.XXXXXX")
trap 'rm -rf "$sample"' EXIT
"$root/build/release/bin/brisko-demo" sample-home "$sample/home" 64
in_sample() {
  HOME="$sample/home" XDG_DATA_HOME="$sample/home/.local/share" \
    XDG_CONFIG_HOME="$sample/home/.config" XDG_CACHE_HOME="$sample/home/.cache" "$@"
}

echo "== brisko scan (home folder: $sample/home)"
in_sample "$brisko" scan
echo
echo "== brisko space --depth 1"
in_sample "$brisko" space --depth 1
echo
# The clean road: plan what is recommended (what the window preselects), run
# the plan (every item is checked again at the moment of its deletion), and
# read the receipt.
echo "== brisko clean --recommended --keep-trash --yes"
in_sample "$brisko" clean --recommended --keep-trash --yes || echo "(some items were kept; the receipt says which)"
echo
echo "== brisko history"
in_sample "$brisko" history
