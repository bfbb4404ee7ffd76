#!/usr/bin/env bash
# The shared library exports the public functions and nothing else.
set -euo pipefail

library=$1
here=$(cd "$(dirname "$0")" && pwd)
# Small letters stand for local symbols, but for these three.
exported=$(nm -D --defined-only "$library" | awk '$2 ~ /^[A-Zuvw]$/ { print $3 }' | sed 's/@.*//' | grep -v '^__odr_asan' | LC_ALL=C sort)
listed=$(grep -v '^#' "$here/exported_symbols.txt" | LC_ALL=C sort)

if ! diff <(echo "$listed") <(echo "$exported"); then
  echo "exported_symbols: '<' is listed and not exported, '>' is exported and not listed" >&2
  exit 1
fi
echo "$(wc -l <<<"$exported") symbols, as listed"
