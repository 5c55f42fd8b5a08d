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

# A scan of a sample home folder: realistic caches, logs, developer and browser
# data, installers, a protected folder, a whitelisted one and links into
# protected places, built in a temporary folder and removed afterwards.
demo="$root/build/release/bin/brisko-demo"
sample=$(mktemp -d "${TMPDIR:-/tmp}/brisko-demo.XXXXXX")
trap 'rm -rf "$sample"' EXIT
"$demo" sample-home "$sample/home" 64
echo "== BriskoEngine scan-stream (home folder: $sample/home)"
HOME="$sample/home" "$engine" scan-stream >"$sample/events.jsonl"
echo "$(wc -l <"$sample/events.jsonl") event lines; the first and the last:"
head -n 1 "$sample/events.jsonl"
tail -n 1 "$sample/events.jsonl" | cut -c 1-300
echo "..."
echo
"$demo" summarize <"$sample/events.jsonl"

echo
echo "== BriskoEngine space-stream (home folder: $sample/home)"
"$root/scripts/show-space.sh" "$sample/home" "$root/build/release"

# The clean road on the same sample home: plan what is recommended, run the
# plan (every item is checked again at the moment of its deletion), and read
# the receipt.
echo
echo "== BriskoEngine create-plan (the recommended findings of the scan)"
"$demo" plan-request <"$sample/events.jsonl" >"$sample/request.json"
cat "$sample/request.json"
HOME="$sample/home" "$engine" create-plan <"$sample/request.json" >"$sample/plan.json"
"$demo" describe-plan <"$sample/plan.json" >"$sample/execute.json"
echo
echo "== BriskoEngine execute-plan"
HOME="$sample/home" "$engine" execute-plan <"$sample/execute.json" >"$sample/cleanup.jsonl"
"$demo" receipt <"$sample/cleanup.jsonl"
