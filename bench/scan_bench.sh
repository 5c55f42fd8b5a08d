#!/usr/bin/env bash
# How fast "scan-stream" measures a large home folder, as ratios to two
# references timed in the same run on a warm cache:
#   limitwalk  a bare parallel walker that only sums allocated bytes (about as
#              fast as this machine can walk a tree), with one thread per core;
#   du -skP    GNU du over the same rule roots.
# The sample home holds only rule roots, so every walker visits the same files.
# It is built once and cached in /tmp; the timed runs take /tmp/brisko-bench.lock
# so that benchmarks of the team don't overlap.
#
#   bench/scan_bench.sh [ROUNDS]        (default 5; the target is scan <= 1.5 x limitwalk)
# Environment: BRISKO_BENCH_HOME (tree location), BRISKO_BENCH_FILES (default 520000),
# BRISKO_LIMITWALK_SOURCE (limitwalk.c; default ../shared/tools/limitwalk.c beside the repo),
# BRISKO_ENGINE (the engine to time, for example one built from an earlier commit).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
rounds=${1:-5}
files=${BRISKO_BENCH_FILES:-520000}
home=${BRISKO_BENCH_HOME:-/tmp/brisko-scan-bench-home-$files}
limitwalk_source=${BRISKO_LIMITWALK_SOURCE:-$root/../shared/tools/limitwalk.c}
[ -f "$limitwalk_source" ] || limitwalk_source=/work/shared/tools/limitwalk.c
engine=${BRISKO_ENGINE:-$root/build/release/bin/BriskoEngine}
work=$(mktemp -d "${TMPDIR:-/tmp}/brisko-scan-bench.XXXXXX")
trap 'rm -rf "$work"' EXIT

[ -x "$engine" ] || "$root/scripts/build.sh" "$root/build/release" >/dev/null
cc -O2 -pthread -o "$work/limitwalk" "$limitwalk_source"

# The rule roots that the tree fills, relative to the home.
rule_roots=(
  "Library/Caches" "Library/Logs" ".cache" ".npm/_cacache" ".cargo/registry/cache" ".gradle/caches"
  "Library/Developer/Xcode/DerivedData" "Library/Application Support" "Downloads"
)

if [ ! -f "$home/.complete" ]; then
  echo "== building a home of $files files under the rule roots in $home (once)" >&2
  rm -rf "$home"
  python3 - "$home" "$files" <<'PY'
import os, random, sys
home, total = sys.argv[1], int(sys.argv[2])
rng = random.Random(7)
# (share of the files, folders of the area); each folder gets nested subfolders.
areas = [
    ("Library/Caches/com.example.app{0}/Cache.noindex/{1}", 0.30, 240),
    (".cache/tool{0}/objects/{1}", 0.15, 120),
    (".npm/_cacache/content-v2/sha512/{0:02x}/{1:02x}", 0.12, 256),
    (".cargo/registry/cache/index.crates.io-{0}/{1}", 0.05, 20),
    (".gradle/caches/modules-2/files-{0}/{1}", 0.05, 40),
    ("Library/Developer/Xcode/DerivedData/Project{0}-abcdefghijklmnopqrstuvwxyz/Build/{1}", 0.13, 60),
    ("Library/Application Support/Google/Chrome/Profile {0}/Code Cache/js/{1}", 0.07, 12),
    ("Library/Application Support/App{0}/GPUCache/{1}", 0.06, 50),
    ("Library/Logs/com.example.service{0}/{1}", 0.06, 60),
]
data = bytes(rng.getrandbits(8) for _ in range(16384))
made = 0
old = 1_600_000_000
for index, (pattern, share, folders) in enumerate(areas):
    count = total - made if index == len(areas) - 1 else int(total * share)
    for n in range(count):
        folder = rng.randrange(folders)
        sub = rng.randrange(24)
        path = os.path.join(home, pattern.format(folder, sub))
        os.makedirs(path, exist_ok=True)
        u = rng.random()
        size = 0 if u < 0.45 else rng.randrange(1, 4096) if u < 0.9 else rng.randrange(4096, 16384)
        name = os.path.join(path, "f%07d" % n)
        with open(name, "wb") as f:
            f.write(data[:size])
        if "Library/Logs" in pattern and n % 2 == 0:
            os.utime(name, (old, old))
    made += count
os.makedirs(os.path.join(home, "Downloads"), exist_ok=True)
for i in range(20):
    with open(os.path.join(home, "Downloads", "installer%d.dmg" % i), "wb") as f:
        f.write(data)
print("files:", made + 20, file=sys.stderr)
PY
  # Every Application Support folder above is a chromium-style application.
  for app in "$home/Library/Application Support/App"*; do mkdir -p "$app/Code Cache"; done
  sync
  touch "$home/.complete"
fi

present_roots=()
for r in "${rule_roots[@]}"; do [ -e "$home/$r" ] && present_roots+=("$home/$r"); done

# Wall seconds, peak resident kilobytes and CPU seconds (user + system) of one
# command; its output goes to $work/out. CPU time says where the work goes even
# when other processes share the cores.
measure() {
  /usr/bin/time -f "%e %M %U %S" -o "$work/time" "$@" >"$work/out" 2>"$work/err" || {
    cat "$work/err" >&2
    return 1
  }
  awk '{printf "%s %s %.2f\n", $1, $2, $3 + $4}' "$work/time"
}

median() { sort -n | awk '{a[NR]=$1} END {print (NR%2 ? a[(NR+1)/2] : (a[NR/2]+a[NR/2+1])/2)}'; }

run_all() {
  echo "== load before the timed runs: $(cut -d' ' -f1-3 /proc/loadavg)"
  # Warm the cache and check that the walkers agree on what they count.
  HOME="$home" "$engine" scan-stream >"$work/events"
  # limitwalk exits 1 when it meets unreadable entries; none are expected here.
  "$work/limitwalk" -t "$(nproc)" "$home" >"$work/limit" || true
  du -skP -- "${present_roots[@]}" >/dev/null
  echo "scan-stream: $(wc -l <"$work/events") event lines; limitwalk: $(cat "$work/limit")"
  for i in $(seq "$rounds"); do
    read -r s sm sc < <(HOME="$home" measure "$engine" scan-stream)
    read -r l lm lc < <(measure "$work/limitwalk" -t "$(nproc)" "$home" || true)
    read -r d dm dc < <(measure du -skP -- "${present_roots[@]}")
    echo "round $i: scan-stream ${s}s (cpu ${sc}s, ${sm} KB)  limitwalk ${l}s (cpu ${lc}s, ${lm} KB)  du ${d}s (cpu ${dc}s, ${dm} KB)"
    echo "$s $sm $sc" >>"$work/scan"
    echo "$l $lc" >>"$work/lw"
    echo "$d $dc" >>"$work/du"
  done
  echo "== load after: $(cut -d' ' -f1-3 /proc/loadavg)"
}

{
  flock 9
  run_all
} 9>/tmp/brisko-bench.lock

scan=$(cut -d' ' -f1 "$work/scan" | median)
scan_cpu=$(cut -d' ' -f3 "$work/scan" | median)
peak=$(cut -d' ' -f2 "$work/scan" | sort -n | tail -n 1)
lw=$(cut -d' ' -f1 "$work/lw" | median)
lw_cpu=$(cut -d' ' -f2 "$work/lw" | median)
du=$(cut -d' ' -f1 "$work/du" | median)
du_cpu=$(cut -d' ' -f2 "$work/du" | median)
awk -v s="$scan" -v l="$lw" -v d="$du" -v sc="$scan_cpu" -v lc="$lw_cpu" -v dc="$du_cpu" \
  -v p="$peak" -v n="$rounds" 'BEGIN {
  printf "\nmedians of %d rounds, wall (cpu): scan-stream %.2fs (%.2fs), limitwalk %.2fs (%.2fs), du -skP %.2fs (%.2fs)\n", n, s, sc, l, lc, d, dc
  printf "scan-stream / limitwalk = %.2f wall, %.2f cpu (target <= 1.5)\n", s / l, sc / lc
  printf "scan-stream / du        = %.2f wall, %.2f cpu\n", s / d, sc / dc
  printf "limitwalk / du          = %.2f wall, %.2f cpu\n", l / d, lc / dc
  printf "peak memory of scan-stream: %.1f MB\n", p / 1024
}'
