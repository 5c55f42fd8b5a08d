#!/usr/bin/env bash
# Configures and builds one flavour of Brisko.
#   scripts/build.sh [build-dir] [sanitizers] [targets...]
#   e.g. scripts/build.sh build/asan address,undefined
#        scripts/build.sh build/tsan thread BriskoCoreTests
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build_dir=${1:-$root/build/release}
sanitize=${2:-}
targets=("${@:3}")

# Line tables only (-g1): stack traces, perf and sanitizer reports still name
# file and line, and a build is a fifth quicker than with full debug data.
cmake_args=(-S "$root" -B "$build_dir" -G Ninja -DBRISKO_SANITIZE="$sanitize"
  -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O2 -g1 -DNDEBUG")
if [ -n "$sanitize" ]; then
  # Sanitizer runs are about faults, not speed: no benchmarks, light
  # optimisation.
  cmake_args+=(-DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG="-O1 -g1" -DBRISKO_BENCHMARKS=OFF)
fi
cmake "${cmake_args[@]}" >/dev/null
cmake --build "$build_dir" -j "$(nproc)" ${targets[@]:+--target "${targets[@]}"}
