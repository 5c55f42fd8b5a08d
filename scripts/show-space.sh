#!/usr/bin/env bash
# Measures a home folder with the engine's space-stream and tells, in words,
# where its space went: the largest rows of the top level and the large files.
#   scripts/show-space.sh [home-folder] [build-dir]    (default: $HOME, build/release)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
home=${1:-$HOME}
engine=${2:-$root/build/release}/BriskoEngine/BriskoEngine

program=$(
  cat <<'PY'
import json, sys

def size(n):
    for unit in ("bytes", "KB", "MB", "GB", "TB"):
        if n < 1000 or unit == "TB":
            return f"{n:.0f} {unit}" if unit == "bytes" else f"{n:.1f} {unit}"
        n /= 1000

def name(node):
    if node["name"].startswith("\x01"):  # a keyed text: "%lld more items"
        key, *args = node["name"][1:].split("\x02")
        return key.replace("%lld", args[0]) if args else key
    return node["name"]

kinds = {"directory": "folder", "file": "file", "folded": "folder, measured whole",
         "hiddenGroup": "hidden entries together", "otherGroup": "small items together"}
report = None
for line in sys.stdin:
    event = json.loads(line)
    if event["kind"] == "completed":
        report = event["report"]
if report is None:
    sys.exit("The scan ended without a report.")
root = report["root"]
print(f"The home folder {root['path']} holds {size(root['bytes'])} in {root['itemCount']:,} items.")
for warning in report["warnings"]:
    print(f"Note: {warning}")
print("Largest at the top level:")
for node in root["children"][:8]:
    shared = f", {size(node['sharedBytes'])} of it possibly shared" if node["sharedBytes"] else ""
    print(f"  {name(node)}: {size(node['bytes'])} ({kinds[node['kind']]}{shared})")
if report["largeFiles"]:
    print("Large files:")
    for item in report["largeFiles"][:10]:
        print(f"  {item['path']}: {size(item['bytes'])}")
else:
    print("No file of 100 MB or more.")
PY
)
HOME=$home "$engine" space-stream | python3 -c "$program"
