#!/usr/bin/env bash
# Builds the libFuzzer target over the five exports (clang-14 with the address and
# undefined-behaviour sanitizers) and runs it.
#
#   scripts/fuzz.sh [seconds]      default 60, the length CI runs
#
# The stored inputs that once found a fault (tests/fuzz/regressions) run first and must pass.
# Fuzzing then starts from the seed corpus (tests/fuzz/corpus, read only) and keeps what it
# finds in build/fuzz/corpus between runs. A crash, leak, undefined behaviour, timeout or
# violated driver check stops the run with a non-zero exit and leaves the input in
# build/fuzz/artifacts; once fixed, that input goes to tests/fuzz/regressions.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-60}
build=${ZY_FUZZ_BUILD_DIR:-build/fuzz}
scripts/setup.sh test

cmake -S tests/fuzz -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14 > /dev/null
cmake --build "$build"
mkdir -p "$build/corpus" "$build/artifacts"

# Inputs may grow to 4 KB at once (-len_control=0): 30 bodies over several frames take about
# 900 bytes (tests/fuzz/make_seeds.py writes such seeds), and with the default length control
# libFuzzer would stay near the largest seed for the whole run.
fuzzer=("$build/zy_fuzz_process" -timeout=30 -rss_limit_mb=3072 -max_len=4096 -len_control=0)
echo "=== fuzz: stored regressions ==="
"${fuzzer[@]}" tests/fuzz/regressions/*
echo "=== fuzz: ${seconds} s ==="
"${fuzzer[@]}" -max_total_time="$seconds" -print_final_stats=1 \
  -artifact_prefix="$build/artifacts/" "$build/corpus" tests/fuzz/corpus
