#!/usr/bin/env bash
# Every test of Brisko from a fresh clone: install, then build and run the
# whole suite plainly and under AddressSanitizer with UndefinedBehaviorSanitizer,
# and the concurrent walkers' tests under ThreadSanitizer. Exits non-zero on
# any failure.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-packages.sh"

# The tests whose code runs on several threads at once: the walkers, the
# engine client's readers and the store's workers.
concurrent_tests='Walker|ConcurrentScan|SpaceTree|SpaceStream|ScanStream|EventStream|ManualExecutor|RealEngine|StandInEngine|AppStore|Battery'

status=0
"$root/scripts/check-format.sh" || status=1

# GLib's process-wide state is no leak of ours. The list goes where the
# tests' ordinary user can read it too.
lsan_suppressions=$(mktemp "${TMPDIR:-/tmp}/brisko-lsan.XXXXXX")
trap 'rm -f "$lsan_suppressions"' EXIT
cp "$root/scripts/lsan-suppressions.txt" "$lsan_suppressions"
chmod 644 "$lsan_suppressions"

run_suite() {
  local build_dir=$1 sanitize=$2 only=${3:-}
  local targets=("${@:4}")
  echo "== build ${build_dir#$root/} ${sanitize:+(sanitizers: $sanitize)}"
  "$root/scripts/build.sh" "$build_dir" "$sanitize" "${targets[@]}"
  echo "== test ${build_dir#$root/}"
  ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 LSAN_OPTIONS=suppressions=$lsan_suppressions \
    UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 \
    ctest --test-dir "$build_dir" --output-on-failure -j "$(nproc)" --timeout 900 ${only:+-R "$only"}
}

run_suite "$root/build/release" "" || status=1
run_suite "$root/build/asan" "address,undefined" || status=1
# Only the binaries that hold those tests, and the programs they start.
run_suite "$root/build/tsan" "thread" "$concurrent_tests" \
  BriskoCoreTests BriskoEngineTests BriskoAppTests BriskoEngine brisko || status=1
exit $status
