#!/usr/bin/env bash
# Installs a built tree into a temporary prefix and builds the consumer on it, by CMake package and by pkg-config.
# Usage: run.sh BUILD_DIRECTORY CC CXX SANITIZERS
set -euo pipefail

build=$1 cc=$2 cxx=$3 sanitizers=$4
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
flags=${sanitizers:+-fsanitize=$sanitizers}
# A program in C gets what the library in C++ needs of clang's sanitizers, too.
case $sanitizers,$cc in
  ?*,*clang*) flags+=" -fsanitize-link-c++-runtime -lstdc++" ;;
esac

cmake --install "$build" --prefix "$work/prefix" >"$work/install.log"
test -f "$(find "$work/prefix" -name libkestro.so.1 | head -1)" || { echo "no libkestro.so.1" >&2; exit 1; }

cmake -G Ninja -S "$here/cmake" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$work/prefix" -DCMAKE_C_COMPILER="$cc" \
  -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_C_FLAGS="$flags" -DCMAKE_CXX_FLAGS="$flags" >"$work/configure.log"
cmake --build "$work/cmake" >"$work/build.log" || { cat "$work/build.log" >&2; exit 1; }
"$work/cmake/with_shared"
"$work/cmake/with_static"

# The file names the prefix that the tree was configured with; the one it really lies in is given here.
pc=$(dirname "$(find "$work/prefix" -name kestro.pc)")
libdir=$(dirname "$pc")
export PKG_CONFIG_PATH=$pc
eval "cflags=($(pkg-config --define-variable=prefix="$work/prefix" --cflags kestro))"
libs=$(pkg-config --define-variable=prefix="$work/prefix" --libs kestro)
# shellcheck disable=SC2086
"$cc" -std=c11 $flags "${cflags[@]}" "$here/consumer.c" -o "$work/with_pkg_config" $libs
LD_LIBRARY_PATH=$libdir "$work/with_pkg_config"
