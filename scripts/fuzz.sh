#!/usr/bin/env bash
# Builds the fuzz targets and runs each for a while, two on each core at once. New inputs go to build/fuzz/corpus/TARGET
# and are taken up again by the next run; inputs that break something go to build/fuzz/crashes.
# Usage: fuzz.sh [SECONDS_PER_TARGET [TARGET...]]
set -euo pipefail

cd "$(dirname "$0")/.."
seconds=${1:-20}
shift || true
build=build/fuzz
programs=build/asan/fuzz

# One target; what it says goes to its log.
run() {
  local target=$1 found=$build/corpus/$1 log=$build/logs/$1.log dictionary=$build/dictionaries/$1.dict
  mkdir -p "$found"
  cat fuzz/json.dict "fuzz/$target.dict" >"$dictionary" 2>/dev/null || true  # most have no words of their own
  # Standard error is the log of the library. The sanitizers' reports and libFuzzer's own words are not lost with it.
  if "$programs/${target}_fuzz" -max_total_time="$seconds" -max_len=4096 -timeout=20 -rss_limit_mb=2560 \
    -close_fd_mask=2 -print_final_stats=1 -dict="$dictionary" -artifact_prefix="$build/crashes/$target-" \
    "$found" "fuzz/corpus/$target" >"$log" 2>&1; then
    printf '%-14s %10s executions, %5s edges\n' "$target" "$(stat_of executed_units "$log")" \
      "$(grep -ao 'cov: [0-9]*' "$log" | tail -n 1 | cut -d' ' -f2)"
  else
    printf '%-14s BROKEN: %s (%s)\n' "$target" "$(grep -aoE 'broken: .*|SUMMARY: .*' "$log" | head -n 1)" "$log"
    grep -ao "$build/crashes/$target-[a-z]*-[0-9a-f]*" "$log" | sort -u |
      sed "s|^|    reproduce: $programs/${target}_fuzz |"
    return 1
  fi
}

stat_of() {
  sed -n "s/^stat::[a-z_]*$1[a-z_]*: *//p" "$2" | tail -n 1
}

if [ "${run_one:-}" ]; then
  run "$1"
  exit
fi

usage() {
  echo "fuzz.sh: $1; usage: fuzz.sh [SECONDS_PER_TARGET [TARGET...]]" >&2
  exit 2
}
[[ $seconds =~ ^[1-9][0-9]*$ ]] || usage "no number of seconds: $seconds"
for target in "$@"; do
  [ -e "fuzz/${target}_fuzz.cpp" ] || usage "no target: $target"
done

cmake --preset asan >/dev/null
cmake --build --preset fuzz --parallel "$(nproc)"
mkdir -p "$build"/{crashes,logs,dictionaries}

targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for source in fuzz/*_fuzz.cpp; do targets+=("$(basename "$source" _fuzz.cpp)"); done
fi
printf '%s\n' "${targets[@]}" | run_one=1 xargs -P "$((2 * $(nproc)))" -I{} "$0" "$seconds" {}
