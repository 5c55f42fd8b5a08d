#!/usr/bin/env bash
# Times the space scan against the machine's limit and against du, gdu and
# ncdu, on a home-like tree of 1.5 million entries, warm and cold, in one run.
#
#   bench/space_bench.sh [build-dir]        (default: build/release)
#
# Environment: BENCH_DIR (default ${TMPDIR:-/tmp}/brisko-space-bench) holds the
# tree, built once and kept; BENCH_TREE times an existing tree instead;
# ROUNDS (default 5); THREADS for limitwalk (default 2; 16 runs beside it);
# WIDE=0 leaves out the folder of half a million entries; BRISKO_ENGINE is the
# engine to time; COLD=1 adds COLD_ROUNDS (default 2) runs of each with the
# caches dropped first (root only). gdu and ncdu run beside du when installed.
# Prints the medians, the ratios and the peak memory.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build/release}
bench_dir=${BENCH_DIR:-${TMPDIR:-/tmp}/brisko-space-bench}
rounds=${ROUNDS:-5}
threads=${THREADS:-2}
tools=${BRISKO_TOOLS:-$root/../../shared/tools}
[ -f "$tools/mktree.py" ] || tools=/work/shared/tools

files=1330100
dirs=150000
tree=${BENCH_TREE:-$bench_dir/tree-1.5m}
mkdir -p "$bench_dir"

if [ -n "${BENCH_TREE:-}" ]; then
  entries=$(find "$tree" | wc -l)
else
  if [ ! -f "$tree.manifest.json" ]; then
    echo "Building the tree once under $tree (a few minutes)..." >&2
    python3 "$tools/mktree.py" --out "$tree" --files "$files" --dirs "$dirs" --seed 1 --force >/dev/null
  fi
  entries=$(python3 -c 'import json,sys; print(json.load(open(sys.argv[1]))["entries_including_root"])' "$tree.manifest.json")
fi

limitwalk=$bench_dir/limitwalk
if [ ! -x "$limitwalk" ] || [ "$tools/limitwalk.c" -nt "$limitwalk" ]; then
  cc -O2 -pthread -o "$limitwalk" "$tools/limitwalk.c"
fi

# The cache must not land inside the tree it measures.
export XDG_DATA_HOME=$bench_dir/data
mkdir -p "$XDG_DATA_HOME"

# The engine's space-stream if it has one, else the same library call through
# the bench driver.
engine=${BRISKO_ENGINE:-$build/bin/BriskoEngine}
probe_home=$(mktemp -d)
if [ -x "$engine" ] && HOME=$probe_home "$engine" space-stream 2>/dev/null | grep -q '"kind":"completed"'; then
  space=(env HOME="$tree" "$engine" space-stream)
  space_name="BriskoEngine space-stream"
else
  space=("$build/bin/space_stream_bench" "$tree")
  space_name="space_stream_bench (the engine has no space-stream yet)"
fi
rmdir "$probe_home"

results=$(mktemp)
trap 'rm -f "$results" "$bench_dir"/*.out "$bench_dir"/*.time' EXIT

# measure NAME COMMAND...: appends "NAME wall user sys peak-kB" to the results.
measure() {
  local name=$1
  shift
  /usr/bin/time -o "$bench_dir/$name.time" -f "%e %U %S %M" "$@" >"$bench_dir/$name.out" 2>/dev/null ||
    true
  echo "$name $(tail -1 "$bench_dir/$name.time")" >>"$results"
}

echo "Tree: $tree ($entries entries); $rounds rounds, warm cache; scan: $space_name" >&2
# Warm the cache and check that both walks see the same bytes.
"$limitwalk" -t "$threads" "$tree" >"$bench_dir/limitwalk.out" || true
"${space[@]}" >"$bench_dir/space.out"
limit_bytes=$(sed -n 's/.* bytes=\([0-9]*\).*/\1/p' "$bench_dir/limitwalk.out")
space_bytes=$(tail -1 "$bench_dir/space.out" | python3 -c 'import json,sys; print(json.load(sys.stdin)["report"]["root"]["bytes"])')
du -skP -- "$tree" >/dev/null

if [ "${WIDE:-1}" != 0 ]; then
# One folder of half a million entries: the scan must take it whole.
wide=$bench_dir/wide-500k
if [ ! -f "$wide.done" ]; then
  echo "Building $wide once..." >&2
  rm -rf "$wide"
  python3 - "$wide/huge" <<'PY'
import os, sys
os.makedirs(sys.argv[1])
fd = os.open(sys.argv[1], os.O_RDONLY | os.O_DIRECTORY)
for i in range(500000):
    f = os.open("entry-%06d" % i, os.O_CREAT | os.O_WRONLY, 0o600, dir_fd=fd)
    if i % 1000 == 0:
        os.write(f, b"data")
    os.close(f)
PY
  touch "$wide.done"
fi
if [ "${space[0]}" = env ]; then
  wide_scan=(env HOME="$wide" "${space[@]:2}")
else
  wide_scan=("${space[0]}" "$wide")
fi
wide_seconds=$( { /usr/bin/time -f "%e" "${wide_scan[@]}" >"$bench_dir/wide.out"; } 2>&1 | tail -1)
wide_find=$(find "$wide" -type f -printf '%b\n' | awk '{s += $1} END {print s * 512}')
python3 - "$bench_dir/wide.out" "$wide_find" "$wide_seconds" <<'PY'
import json, sys
report = json.loads(open(sys.argv[1]).read().splitlines()[-1])["report"]
huge = report["root"]["children"][0]
ok = huge["itemCount"] == 500000 and not huge["isPartial"] and huge["bytes"] == int(sys.argv[2])
print(f"one folder of 500000 entries: {huge['itemCount']} items, {huge['bytes']} bytes (find: {sys.argv[2]}), "
      f"{float(sys.argv[3]):.2f} s: {'ok' if ok else 'WRONG'}", file=sys.stderr)
PY

fi

# Cold: the page, dentry and inode caches dropped before every run, as after a
# reboot; only root may, elsewhere the cold table is skipped.
drop_caches() { sync && echo 3 >/proc/sys/vm/drop_caches; }
modes=(warm)
if [ "${COLD:-0}" != 0 ]; then
  if drop_caches 2>/dev/null; then
    modes+=(cold)
  else
    echo "cold runs skipped: dropping the caches is not permitted here" >&2
  fi
fi
peers=()
command -v gdu >/dev/null && peers+=(gdu)
command -v ncdu >/dev/null && peers+=(ncdu)
[ ${#peers[@]} -gt 0 ] || echo "gdu and ncdu are not installed: du is the only peer" >&2

for mode in "${modes[@]}"; do
  mode_rounds=$rounds
  [ "$mode" = cold ] && mode_rounds=${COLD_ROUNDS:-2}
  for ((round = 1; round <= mode_rounds; round++)); do
    for name in space limitwalk-t$threads limitwalk-t16 du "${peers[@]}"; do
      [ "$mode" = cold ] && drop_caches
      case $name in
        space) measure "$mode:$name" "${space[@]}" ;;
        limitwalk-t*) measure "$mode:$name" "$limitwalk" -t "${name#limitwalk-t}" "$tree" ;;
        du) measure "$mode:$name" du -skP -- "$tree" ;;
        gdu) measure "$mode:$name" gdu -n -p -s "$tree" ;;
        ncdu) measure "$mode:$name" ncdu -0 -o /dev/null "$tree" ;;
      esac
    done
    echo "  $mode round $round done" >&2
  done
done

python3 - "$results" "$limit_bytes" "$space_bytes" "$threads" <<'PY'
import statistics, sys
rows = [line.split() for line in open(sys.argv[1]) if line.strip()]
threads = sys.argv[4]
for mode in ("warm", "cold"):
    mine = [r for r in rows if r[0].startswith(mode + ":")]
    if not mine:
        continue
    names = list(dict.fromkeys(r[0].split(":", 1)[1] for r in mine))
    def med(name, column):
        return statistics.median(float(r[column]) for r in mine if r[0] == f"{mode}:{name}")
    wall = {n: med(n, 1) for n in names}
    cpu = {n: med(n, 2) + med(n, 3) for n in names}
    peak = {n: max(int(r[4]) for r in mine if r[0] == f"{mode}:{n}") for n in names}
    print(f"{mode} ({sum(1 for r in mine if r[0] == f'{mode}:space')} runs each, medians)")
    for n in names:
        print(f"  {n:14s} {wall[n]:7.2f} s   cpu {cpu[n]:6.2f} s   peak {peak[n] / 1024:6.1f} MB")
    if mode == "warm":
        ref = f"limitwalk-t{threads}"
        print(f"  space / {ref} = {wall['space'] / wall[ref]:.2f}   (target <= 1.15); "
              f"cpu {cpu['space'] / cpu[ref]:.2f}")
        print(f"  space peak memory = {peak['space'] / 1024:.1f} MB   (target < 64)")
    else:
        print(f"  space / limitwalk-t16 = {wall['space'] / wall['limitwalk-t16']:.2f}   (target <= 1.15)")
    for peer in ("du", "gdu", "ncdu"):
        if peer in wall:
            print(f"  space / {peer} = {wall['space'] / wall[peer]:.2f}   (target < 1)")
same = sys.argv[2] == sys.argv[3]
print(f"bytes: space {sys.argv[3]}, limitwalk {sys.argv[2]}: {'equal' if same else 'DIFFERENT'}")
PY
