#!/usr/bin/env bash
# Builds the benchmarks and prints every figure of docs/PERFORMANCE.md:
#   1. instructions of one body update (callgrind, fixed input) in the optimised build and in
#      the plain scalar build (the `scalar` preset);
#   2. the Google Benchmark stages and whole frames;
#   3. the comparison with OpenCV's KCF, CSRT, legacy MOSSE and dlib's correlation tracker on
#      the same frames (time, accuracy, box sizes, one and two threads, memory, allocations).
# `scripts/bench.sh quick` runs shorter sequences. Builds go to build/bench and
# build/bench-scalar; nothing else in build/ is touched.
set -euo pipefail
cd "$(dirname "$0")/.."

quick=()
[ "${1:-}" = quick ] && quick=(--quick)

# The peers need OpenCV's tracking module (libopencv-contrib-dev) and dlib (libdlib-dev);
# without them the comparison runs with whichever peers are there.
scripts/setup.sh bench 2>/dev/null || scripts/setup.sh tool

fast=build/bench
scalar=build/bench-scalar
common=(-DZY_BUILD_BENCH=ON -DZY_BUILD_TESTS=OFF -DZY_BUILD_DEMO=OFF -DZY_BUILD_TOOLS=OFF)
cmake --preset host -B "$fast" "${common[@]}" >/dev/null
# zy_bench_micro needs Google Benchmark and zy_bench_compare OpenCV's tracking module; CMake
# leaves out what it did not find.
targets=(zy_bench_icount)
for t in zy_bench_micro zy_bench_compare; do
  cmake --build "$fast" --target help | grep -q "^$t:" && targets+=("$t")
done
cmake --build "$fast" --target "${targets[@]}"
cmake --preset scalar -B "$scalar" "${common[@]}" >/dev/null
cmake --build "$scalar" --target zy_bench_icount

echo
echo "## Machine"
echo
echo "- $(lscpu | sed -n 's/^Model name: *//p'), $(nproc) cores; $(uname -sr)"
echo "- $(c++ --version | head -1); load average $(cut -d' ' -f1-3 /proc/loadavg)"

echo
echo "## Instructions per body update (callgrind, 10 bodies x 5 frames of a 1280x720 scene)"
echo
echo "| build | instructions | updates | per update | box checksum |"
echo "|---|---:|---:|---:|---|"
declare -A per
for build in "$fast" "$scalar"; do
  out=$(valgrind --tool=callgrind --toggle-collect='updateTracker*' \
          --callgrind-out-file=/dev/null "$build/bench/zy_bench_icount" 5 2>&1)
  ir=$(sed -n 's/.*Collected : \([0-9]*\).*/\1/p' <<<"$out")
  updates=$(sed -n 's/^updates: //p' <<<"$out")
  sum=$(sed -n 's/^box checksum: //p' <<<"$out")
  per[$build]=$((ir / updates))
  name=$([ "$build" = "$fast" ] && echo "optimised (host)" || echo "plain scalar (scalar preset)")
  echo "| $name | $ir | $updates | ${per[$build]} | $sum |"
done
awk -v a="${per[$scalar]}" -v b="${per[$fast]}" 'BEGIN { printf "\nscalar / optimised: %.2fx\n", a / b }'

echo
echo "## Instructions per body update against the box side (optimised; 1920x1080, 4 square bodies x 5 frames)"
echo
echo "| box side (px) | per update |"
echo "|---:|---:|"
for side in 20 50 100 200 500 1000; do
  out=$(valgrind --tool=callgrind --toggle-collect='updateTracker*' \
          --callgrind-out-file=/dev/null "$fast/bench/zy_bench_icount" 5 "$side" 2>&1)
  ir=$(sed -n 's/.*Collected : \([0-9]*\).*/\1/p' <<<"$out")
  updates=$(sed -n 's/^updates: //p' <<<"$out")
  echo "| $side | $((ir / updates)) |"
done

if [ -x "$fast/bench/zy_bench_micro" ]; then
  echo
  echo "## Stages and whole frames (Google Benchmark, medians of 5 repetitions)"
  echo
  "$fast/bench/zy_bench_micro" --benchmark_repetitions=5 --benchmark_report_aggregates_only=true \
    --benchmark_min_time=0.1 2>/dev/null | grep -E '^(Benchmark|-{10}|.*_median)'
fi

if [ -x "$fast/bench/zy_bench_compare" ]; then
  echo
  echo "## Against the peer trackers"
  "$fast/bench/zy_bench_compare" "${quick[@]}"
else
  echo
  echo "## Against the peer trackers: not built (OpenCV with the tracking module not found)"
fi
