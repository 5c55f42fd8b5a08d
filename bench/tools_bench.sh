#!/usr/bin/env bash
# The command-line tools inventory against a shell reader of the same files,
# medians of RUNS warm runs each, in one run:
#   brisko    `brisko tools --json` over a home of 2,100 npm packages in three
#             nvm versions (a tenth scoped, package.json of a real size, a
#             command each), 200 Homebrew kegs, 100 crates and 100 pipx tools;
#   reader    `cat` of every manifest by glob and `find -maxdepth 1 -type l
#             -printf '%l'` of each command folder: what the inventory has to
#             read, and nothing more.
# Target: brisko / reader <= 1.0.
#
#   bench/tools_bench.sh [RUNS]      (default 9)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
runs=${1:-9}
brisko=${BRISKO:-$root/build/release/bin/brisko}
work=$(mktemp -d "${TMPDIR:-/tmp}/brisko-tools-bench.XXXXXX")
trap '[ -n "${KEEP:-}" ] || rm -rf "$work"' EXIT
[ -x "$brisko" ] || "$root/scripts/build.sh" "$root/build/release" >/dev/null
home=$work/home

python3 - "$home" <<'PY'
import json, os, sys
home = sys.argv[1]
def write(path, text):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "w") as out:
        out.write(text)
def link(path, target):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    os.symlink(target, path)
# About 1.5 KB, as a small package's manifest is.
filler = {"description": "A package that does one thing well. " * 4,
          "keywords": ["cli", "tool", "bench"], "license": "MIT",
          "repository": {"type": "git", "url": "git+https://example.com/pkg.git"},
          "dependencies": {f"dep-{i}": f"^{i}.0.0" for i in range(20)}}
for major in (18, 20, 22):
    runtime = f"{home}/.nvm/versions/node/v{major}.1.0"
    for i in range(700):
        name = f"@scope{i % 7}/pkg-{i}" if i % 10 == 0 else f"pkg-{i}"
        manifest = dict(filler, name=name, version=f"1.{i}.0", bin={f"cmd-{i}": "cli.js"})
        write(f"{runtime}/lib/node_modules/{name}/package.json", json.dumps(manifest, indent=2))
        link(f"{runtime}/bin/cmd-{i}", f"../lib/node_modules/{name}/cli.js")
write(f"{home}/.nvm/alias/default", "20\n")
brew = f"{home}/.linuxbrew"
write(f"{brew}/bin/brew", "#!/bin/sh\n")
os.chmod(f"{brew}/bin/brew", 0o755)
for i in range(200):
    keg = f"{brew}/Cellar/formula-{i}/1.{i}"
    deps = [{"full_name": f"formula-{j}"} for j in range(max(0, i - 3), i)]
    write(f"{keg}/INSTALL_RECEIPT.json", json.dumps(
        {"installed_on_request": i % 2 == 0, "time": 1700000000 + i, "runtime_dependencies": deps}))
    write(f"{keg}/bin/formula-{i}", "")
    link(f"{brew}/bin/formula-{i}", f"../Cellar/formula-{i}/1.{i}/bin/formula-{i}")
installs = {}
for i in range(100):
    installs[f"crate-{i} 0.{i}.0 (registry+https://github.com/rust-lang/crates.io-index)"] = {
        "bins": [f"crate-{i}"], "features": [], "profile": "release"}
    write(f"{home}/.cargo/bin/crate-{i}", "x" * 4096)
write(f"{home}/.cargo/.crates2.json", json.dumps({"installs": installs}))
for i in range(100):
    venv = f"{home}/.local/pipx/venvs/tool-{i}"
    write(f"{venv}/pipx_metadata.json", json.dumps(
        {"main_package": {"package": f"tool-{i}", "package_version": f"2.{i}"}}))
    write(f"{venv}/bin/tool-{i}", "")
    link(f"{home}/.local/bin/tool-{i}", f"{venv}/bin/tool-{i}")
PY

reader() {
  cat "$home"/.nvm/versions/node/*/lib/node_modules/*/package.json \
      "$home"/.nvm/versions/node/*/lib/node_modules/@*/*/package.json \
      "$home"/.linuxbrew/Cellar/*/*/INSTALL_RECEIPT.json "$home"/.cargo/.crates2.json \
      "$home"/.local/pipx/venvs/*/pipx_metadata.json >/dev/null
  for folder in "$home"/.nvm/versions/node/*/bin "$home"/.linuxbrew/bin "$home"/.local/bin; do
    find "$folder" -maxdepth 1 -type l -printf '%l\n' >/dev/null
  done
}
inventory() { HOME=$home "$brisko" tools --json >/dev/null; }

median() {  # median wall seconds of RUNS runs of the function named
  local times=()
  for _ in $(seq "$runs"); do
    local start end
    start=$(date +%s.%N)
    "$1"
    end=$(date +%s.%N)
    times+=("$(echo "$end - $start" | bc)")
  done
  printf '%s\n' "${times[@]}" | sort -n | awk '{ a[NR] = $1 } END { print a[int((NR + 1) / 2)] }'
}

reader && inventory  # warm the caches
tools=$(HOME=$home "$brisko" tools --json | wc -l)
brisko_time=$(median inventory)
reader_time=$(median reader)
echo "inventory: $tools tools; brisko ${brisko_time} s, shell reader ${reader_time} s (medians of $runs)"
awk -v a="$brisko_time" -v b="$reader_time" 'BEGIN { printf "ratio: %.2f (target <= 1.0)\n", a / b }'
