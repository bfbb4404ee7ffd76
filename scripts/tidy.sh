#!/usr/bin/env bash
# clang-tidy, quiet unless it has something to say. Usage: tidy.sh BUILD_DIRECTORY FILE...
set -uo pipefail
build=$1
shift
output=$(clang-tidy -p "$build" --quiet "$@" 2>/dev/null)
status=$?
[ $status -eq 0 ] || printf '%s\n' "$output"
exit $status
