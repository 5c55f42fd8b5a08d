#!/usr/bin/env bash
# Installs the Debian packages that Brisko builds, tests and benchmarks with.
# Idempotent: asks apt only for what is missing, so a ready machine pays nothing.
set -euo pipefail

packages=(
  g++ cmake ninja-build pkg-config
  libgtest-dev libgmock-dev libbenchmark-dev
  nlohmann-json3-dev libicu-dev
  libglib2.0-dev libplist-dev libplist-utils flatpak
  # Raw camera pictures are measured by LibRaw.
  libraw-dev
  clang-format python3 util-linux coreutils findutils time strace
  # Moving into the Trash is GIO's; the Trash tests read it back through the
  # real gio tool and gvfs's trash backend on a session bus of their own, and
  # use an ext4 image on a loop device.
  libglib2.0-bin gvfs gvfs-daemons dbus-daemon e2fsprogs mount
  # Batteries and notices speak D-Bus through sd-bus; their tests run
  # python3-dbusmock's UPower, BlueZ, logind and notification templates on a
  # private bus.
  libsystemd-dev dbus python3-dbusmock
  # The tools' tests install with the real pipx, and set the login shell
  # through nss_wrapper.
  pipx libnss-wrapper
  # The window: Qt 6 Widgets, drawn by its tests on Qt's offscreen platform
  # with a known font; its desktop entry and AppStream file are validated.
  qt6-base-dev qt6-svg-dev libqt6svg6-dev libqt6test6 fonts-dejavu-core
  desktop-file-utils appstream xvfb xauth
  # Real applications that the Linux rules' guards are tested against.
  chromium
)

missing=()
for package in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$package")
  fi
done
# npm, whose tools `brisko tools` lists and removes in its tests: Debian's,
# unless a Node.js of another origin already brings its own.
command -v npm >/dev/null 2>&1 || missing+=(npm)
# The same for Cargo, often installed by rustup instead.
command -v cargo >/dev/null 2>&1 || [ -x "$HOME/.cargo/bin/cargo" ] || missing+=(cargo)
[ ${#missing[@]} -eq 0 ] && exit 0

run_as_root=()
[ "$(id -u)" -eq 0 ] || run_as_root=(sudo)
echo "Installing: ${missing[*]}" >&2
"${run_as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update -qq
"${run_as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >&2
