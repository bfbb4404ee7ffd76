#!/usr/bin/env bash
# Installs the Debian 12 packages that building, testing and running this system needs.
# Does nothing when all are there, so it may be called before every build.
# With the word "bench": also the other buses that the benchmarks compare with, where they are installed.
set -euo pipefail

packages=(
  # the libraries that the system stands on
  libjansson-dev libnanomsg-dev libpcre3-dev libsqlite3-dev uthash-dev
  # tests, benchmarks, programs
  libgtest-dev libgmock-dev libbenchmark-dev libcli11-dev libasio-dev libsystemd-dev
  # build
  make cmake ninja-build pkg-config g++ gcc ccache git
  # second compiler and checks
  clang clang-format clang-tidy cppcheck gcovr binutils
  # what the tests call for
  procps iputils-ping strace sqlite3 python3 faketime
  # plots of the benchmarks
  gnuplot-nox
)
if [ "${1:-}" = bench ]; then
  packages+=(dbus-daemon dbus-broker redis-server libhiredis-dev)
fi

missing=()
for package in "${packages[@]}"; do
  state=$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null || true)
  [ "$state" = installed ] || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "installing: ${missing[*]}" >&2
as_root=()
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || { echo "deps.sh: needs root (or sudo) to install: ${missing[*]}" >&2; exit 1; }
  as_root=(sudo)
fi
"${as_root[@]}" apt-get update -qq
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >&2
