#!/usr/bin/env bash
# clang-tidy, quiet unless it has something to say. Usage: tidy.sh BUILD_DIRECTORY FILE...
set -uo pipefail
build=$1
shift
# The compiler behind it has coroutines and does not say so, which daemons/ need.
coroutines=(--extra-arg=-D__cpp_impl_coroutine=201902L --extra-arg=-DASIO_HAS_CO_AWAIT=1
  --extra-arg=-DASIO_HAS_STD_COROUTINE=1)
output=$(clang-tidy -p "$build" --quiet "${coroutines[@]}" "$@" 2>/dev/null)
status=$?
[ $status -eq 0 ] || printf '%s\n' "$output"
exit $status
