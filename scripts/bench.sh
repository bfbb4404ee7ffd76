#!/usr/bin/env bash
# Builds and runs the benchmarks. Prints what they found, ours beside the bare libraries, and leaves it in
# build/bench/report.json, growth curves in build/bench/curves, and plots of these in docs.
# Usage: bench.sh [--brief]     --brief runs everything once and quickly: that it works is seen, what it costs is not
set -euo pipefail

cd "$(dirname "$0")/.."
build=build/bench
programs=$build/bench
brief=${1:-}
seconds=0.5
if [ "$brief" = --brief ]; then seconds=0.0001; fi

cmake --preset bench >/dev/null
cmake --build --preset bench --parallel "$(nproc)" \
  --target kestro kestro_bench road kestro-simd kestro-configd kestro-routerd kestroctl >&2
mkdir -p $build/curves
rm -f $build/road.json $build/appliance.json $build/instructions.tsv

# A profiler's counts repeat, other than times. It writes one profile per side and work, in this order.
count_instructions() {
  local profile
  profile=$(mktemp -d)
  valgrind --tool=callgrind --collect-atstart=no --toggle-collect=kestro_bench_counted \
    --dump-after=kestro_bench_counted --callgrind-out-file="$profile/out" \
    $programs/kestro_bench --instructions >"$profile/works" 2>"$profile/log"
  local side=0 times work
  while IFS=$'\t' read -r times work; do
    side=$((side + 2))
    printf '%s\t%s\t%s\n' "$work" "$(instructions_per_time "$profile/out.$((side - 1))" "$times")" \
      "$(instructions_per_time "$profile/out.$side" "$times")"
  done <"$profile/works" >$build/instructions.tsv
  rm -rf "$profile"
}

instructions_per_time() {
  awk -v times="$2" '$1 == "summary:" { print int($2 / times) }' "$1"
}

$programs/kestro_bench --benchmark_min_time=$seconds --benchmark_out=$build/in_process.json \
  --benchmark_out_format=json >/dev/null 2>$build/in_process.log || { cat $build/in_process.log >&2; exit 1; }
if [ "$brief" = --brief ]; then
  $programs/kestro_bench --instructions >/dev/null
elif command -v valgrind >/dev/null; then
  count_instructions
fi

strip -o $build/libkestro.stripped $build/lib/libkestro.so
stat -c %s $build/libkestro.stripped >$build/library_size

if [ "$brief" = --brief ]; then
  bench/road/run $build --starts 1 --rounds 1 --only-small --no-curves
else
  bench/road/run $build
fi
echo
bench/appliance.py $build ${brief:+"$brief"}
echo
bench/report.py $build

$programs/kestro_bench --curves $build/curves
if [ "$brief" != --brief ]; then
  gnuplot -c bench/plot.gp $build/curves docs
fi
