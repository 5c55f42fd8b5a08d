#!/usr/bin/env bash
# Configures and builds one flavour of Brisko.
#   scripts/build.sh [build-dir] [sanitizers]   e.g. scripts/build.sh build/asan address,undefined
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build_dir=${1:-$root/build/release}
sanitize=${2:-}

cmake_args=(-S "$root" -B "$build_dir" -G Ninja -DBRISKO_SANITIZE="$sanitize")
if [ -n "$sanitize" ]; then
  # Sanitizer runs are about faults, not speed: no benchmarks, light optimisation.
  cmake_args+=(-DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG="-O1 -g" -DBRISKO_BENCHMARKS=OFF)
fi
cmake "${cmake_args[@]}" >/dev/null
cmake --build "$build_dir" -j "$(nproc)"
