#!/usr/bin/env bash
# Peak memory of the engine against what it is given, as ratios measured in
# this run (GNU time's maximum resident set):
#   whitelist  scan-stream of an empty home with a whitelist of LINES lines,
#              less the same scan without a whitelist, over the file's size
#              (target: a small multiple, <= 3);
#   request    create-plan fed a 45 MB request (three million IDs), over the
#              engine's peak on a small request (target: it is refused unread,
#              so <= 2).
#
#   bench/engine_memory.sh [LINES]      (default 1000000)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
lines=${1:-1000000}
engine=${BRISKO_ENGINE:-$root/build/release/bin/BriskoEngine}
work=$(mktemp -d "${TMPDIR:-/tmp}/brisko-memory-bench.XXXXXX")
trap 'rm -rf "$work"' EXIT
[ -x "$engine" ] || "$root/scripts/build.sh" "$root/build/release" >/dev/null

peak() {  # peak resident kilobytes of the command, its output dropped
  /usr/bin/time -f %M -o "$work/time" "$@" >/dev/null 2>&1 || true
  tail -1 "$work/time"
}

mkdir -p "$work/bare" "$work/listed/.config/brisko"
python3 - "$work/listed/.config/brisko/whitelist" "$lines" <<'PY'
import sys
with open(sys.argv[1], "w") as out:
    for i in range(int(sys.argv[2])):
        out.write(f"~/Projects/client-{i:07d}/build/output/*\n")
PY
size_kb=$(( $(stat -c %s "$work/listed/.config/brisko/whitelist") / 1024 ))
bare=$(HOME=$work/bare peak "$engine" scan-stream)
listed=$(HOME=$work/listed peak "$engine" scan-stream)
echo "whitelist: $lines lines, ${size_kb} KB; scan peak ${listed} KB against ${bare} KB without"
awk -v a="$listed" -v b="$bare" -v s="$size_kb" \
  'BEGIN { printf "whitelist ratio (extra memory / file size): %.2f (target <= 3)\n", (a - b) / s }'

python3 - "$work/request.json" <<'PY'
import sys
ids = ",".join('"user-caches:/home/someone/.cache/%07d"' % i for i in range(3000000))
open(sys.argv[1], "w").write('{"findingIDs":[],"itemIDs":[' + ids + ']}')
PY
echo '{"findingIDs":["no-such-rule"],"itemIDs":[]}' >"$work/small.json"
small=$(HOME=$work/bare peak "$engine" create-plan <"$work/small.json")
large=$(HOME=$work/bare peak "$engine" create-plan <"$work/request.json")
echo "request: $(( $(stat -c %s "$work/request.json") / 1048576 )) MB; peak ${large} KB against ${small} KB for a small one"
awk -v a="$large" -v b="$small" 'BEGIN { printf "request ratio: %.2f\n", a / b }'
