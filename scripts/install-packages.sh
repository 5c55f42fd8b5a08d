#!/usr/bin/env bash
# Installs the Debian packages that Brisko builds, tests and benchmarks with.
# Idempotent: asks apt only for what is missing, so a ready machine pays nothing.
set -euo pipefail

packages=(
  g++ cmake ninja-build pkg-config
  libgtest-dev libgmock-dev libbenchmark-dev
  nlohmann-json3-dev libicu-dev
  clang-format python3 util-linux coreutils findutils time
)

missing=()
for package in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$package")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

run_as_root=()
[ "$(id -u)" -eq 0 ] || run_as_root=(sudo)
echo "Installing: ${missing[*]}" >&2
"${run_as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update -qq
"${run_as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >&2
