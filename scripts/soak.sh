#!/usr/bin/env bash
# The soak: a long randomised caller (tests/reliability/soak.cpp) run three ways.
#   1. release build, FRAMES frames: results checked every frame, no heap allocation on any
#      tracking frame, resident memory flat after warm-up;
#   2. the same length under the address and undefined-behaviour sanitizers (optimised, so
#      that it finishes), leaks checked at exit;
#   3. VALGRIND_FRAMES frames under valgrind's memcheck, handles rebuilt every 300 frames.
#
#   scripts/soak.sh [frames] [valgrind-frames]     defaults 100000 and 1500
#
# Takes tens of minutes on two cores: run it in the background. Logs go to build/soak-logs.
set -euo pipefail
cd "$(dirname "$0")/.."

frames=${1:-100000}
vframes=${2:-1500}
scripts/setup.sh test

configure() {  # dir, extra cmake arguments
  local dir=$1
  shift
  cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZY_BUILD_TESTS=ON -DZY_WERROR=ON "$@" > /dev/null
  cmake --build "$dir" --target zy_soak
}
configure build/soak
configure build/soak-asan -DZY_SANITIZE=address,undefined
mkdir -p build/soak-logs

run() {  # name, command...
  local name=$1
  shift
  echo "=== soak: $name ==="
  local start=$SECONDS
  "$@" 2>&1 | tee "build/soak-logs/$name.log"
  echo "=== soak: $name: $((SECONDS - start)) s ==="
}
run release build/soak/tests/reliability/zy_soak --frames "$frames" --seed 1
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
  run asan build/soak-asan/tests/reliability/zy_soak --frames "$frames" --seed 2
run valgrind valgrind --error-exitcode=99 --leak-check=full --show-leak-kinds=all \
  build/soak/tests/reliability/zy_soak --frames "$vframes" --seed 3 --recreate-every 300
