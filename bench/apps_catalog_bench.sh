#!/usr/bin/env bash
# Times the application catalog against du over 300 fixture bundles of 50 to
# 4,000 files each (about 375,000 files), warm page cache, in the same run:
# `du -s` of all the bundles, the catalog cold (no size cache: the list, then
# one measuring batch) and the catalog warm (sizes from the cache).
#
#   bench/apps_catalog_bench.sh [build-dir]        (default: build/release)
#
# Environment: BENCH_DIR (default ${TMPDIR:-/tmp}/brisko-apps-bench) holds the
# bundles, built once and kept; ROUNDS (default 5). Prints the medians and the
# ratios; targets: warm at least 20 times faster than du, cold within 1.25
# times du.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build/release}
bench_dir=${BENCH_DIR:-${TMPDIR:-/tmp}/brisko-apps-bench}
rounds=${ROUNDS:-5}
tree=$bench_dir/root
driver=$build/bin/apps_catalog_bench
cache=$bench_dir/application-sizes.json

if [ ! -f "$bench_dir/built" ]; then
  echo "Building 300 bundles once under $tree..." >&2
  rm -rf "$tree"
  python3 - "$tree/Applications" <<'PY'
import os, sys
base = sys.argv[1]
total = 0
for i in range(300):
    # 50 to 4,000 files, most bundles small: about 375,000 in all.
    files = int(50 + 3950 * (i / 299) ** 2.29)
    bundle = os.path.join(base, "Fixture%03d.app" % i, "Contents")
    os.makedirs(os.path.join(bundle, "MacOS"))
    with open(os.path.join(bundle, "Info.plist"), "w") as plist:
        plist.write('<?xml version="1.0" encoding="UTF-8"?>\n<plist version="1.0"><dict>'
                    '<key>CFBundleIdentifier</key><string>dev.brisko.fixture%03d</string>'
                    '<key>CFBundleName</key><string>Fixture %03d</string>'
                    '<key>CFBundleShortVersionString</key><string>1.%d</string>'
                    '</dict></plist>\n' % (i, i, i))
    for f in range(files - 1):
        folder = os.path.join(bundle, "Resources", "r%03d" % (f // 50))
        if f % 50 == 0:
            os.makedirs(folder)
        with open(os.path.join(folder, "f%02d" % (f % 50)), "wb") as out:
            out.write(b"x" * (100 + (f * 37) % 3000))
    total += files
print(total)
PY
  mkdir -p "$tree/home"
  touch "$bench_dir/built"
fi
files=$(find "$tree/Applications" -type f | wc -l)

# Warm the page cache; check that the catalog and du agree on the total.
du_total=$(du -skP -- "$tree"/Applications/*.app | awk '{s += $1} END {print s * 1024}')
rm -f "$cache"
catalog_total=$("$driver" "$tree" "$cache" | python3 -c 'import json,sys; print(json.load(sys.stdin)["bytes"])')

seconds() { # seconds COMMAND...: wall time of one run
  local start end
  start=$(date +%s.%N)
  "$@" >/dev/null
  end=$(date +%s.%N)
  awk -v a="$start" -v b="$end" 'BEGIN {print b - a}'
}
median() { sort -g | awk '{v[NR] = $1} END {print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2}'; }

du_times=() cold_times=() warm_times=()
for _ in $(seq "$rounds"); do
  du_times+=("$(seconds du -skP -- "$tree"/Applications/*.app)")
  rm -f "$cache"
  cold_times+=("$(seconds "$driver" "$tree" "$cache")")
  warm_times+=("$(seconds "$driver" "$tree" "$cache")")
done
du_median=$(printf '%s\n' "${du_times[@]}" | median)
cold_median=$(printf '%s\n' "${cold_times[@]}" | median)
warm_median=$(printf '%s\n' "${warm_times[@]}" | median)

echo "300 bundles, $files files; $rounds rounds, warm page cache"
echo "bytes: du $du_total, catalog $catalog_total"
printf 'du -s (median)          %8.4f s\n' "$du_median"
printf 'catalog cold (median)   %8.4f s   cold / du = %.3f (target <= 1.25)\n' "$cold_median" \
  "$(awk -v a="$cold_median" -v b="$du_median" 'BEGIN {print a / b}')"
printf 'catalog warm (median)   %8.4f s   du / warm = %.1f (target >= 20)\n' "$warm_median" \
  "$(awk -v a="$du_median" -v b="$warm_median" 'BEGIN {print a / b}')"
