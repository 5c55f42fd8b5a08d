#!/usr/bin/env bash
# Fails when a C++ file of the project differs from .clang-format's layout.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
mapfile -t files < <(git ls-files -co --exclude-standard -- "*.cc" "*.h" 2>/dev/null | while read -r f; do [ -f "$f" ] && echo "$f"; done)
[ ${#files[@]} -eq 0 ] && exit 0
if ! clang-format --dry-run --Werror "${files[@]}" 2>/dev/null; then
  echo "Formatting differs from .clang-format in:" >&2
  for f in "${files[@]}"; do
    clang-format --dry-run --Werror "$f" >/dev/null 2>&1 || echo "  $f" >&2
  done
  exit 1
fi
