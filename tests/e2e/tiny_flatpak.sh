#!/usr/bin/env bash
# Builds a tiny Flatpak runtime and application offline and installs both for
# the user whose home is given: the application's command is a copy of sleep.
#   tiny_flatpak.sh WORK-FOLDER HOME
set -euo pipefail
work=$1
export HOME=$2
mkdir -p "$work"
cd "$work"
rm -rf runtime app repo

# The runtime: the host's C library, mounted at /usr in the sandbox.
mkdir -p runtime/files runtime/var runtime/usr/lib/x86_64-linux-gnu runtime/usr/lib64
cp /lib/x86_64-linux-gnu/libc.so.6 runtime/usr/lib/x86_64-linux-gnu/
cp /lib64/ld-linux-x86-64.so.2 runtime/usr/lib64/
cat >runtime/metadata <<METADATA
[Runtime]
name=org.brisko.TestPlatform
runtime=org.brisko.TestPlatform/x86_64/1
sdk=org.brisko.TestPlatform/x86_64/1
METADATA
flatpak build-export --runtime repo runtime 1 >/dev/null
flatpak --user remote-add --no-gpg-verify --if-not-exists brisko-test "file://$work/repo"
flatpak --user install -y --noninteractive brisko-test org.brisko.TestPlatform//1 >/dev/null

flatpak build-init app org.brisko.TestApp org.brisko.TestPlatform org.brisko.TestPlatform 1
mkdir -p app/files/bin
cp /bin/sleep app/files/bin/brisko-test-app
flatpak build-finish app --command=brisko-test-app >/dev/null
flatpak build-export repo app 1 >/dev/null
flatpak --user install -y --noninteractive brisko-test org.brisko.TestApp//1 >/dev/null
