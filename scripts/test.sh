#!/usr/bin/env bash
# Sets up a fresh Debian 12 machine, then configures, builds and runs the whole test suite:
# the host build, the address+undefined-behaviour sanitizer build, the thread sanitizer build,
# the aarch64 cross build, whose tests run under qemu-user with the real NEON kernels, and a
# minute of fuzzing the five exports (libFuzzer with address and undefined-behaviour sanitizers).
# `scripts/test.sh host` (or any list of presets) runs only those.
set -euo pipefail
cd "$(dirname "$0")/.."

presets=("$@")
((${#presets[@]})) || presets=(host asan tsan arm64 fuzz)

groups=(test)
for preset in "${presets[@]}"; do
  case "$preset" in
    arm64*) groups+=(arm64) ;;
    host) groups+=(tool) ;;  # the host build also builds and tests zytrack
  esac
done
scripts/setup.sh "${groups[@]}"

log=$(mktemp)
trap 'rm -f "$log"' EXIT
for preset in "${presets[@]}"; do
  echo "=== $preset ==="
  start=$SECONDS
  if [ "$preset" = fuzz ]; then
    scripts/fuzz.sh 60  # the stored crash inputs, then a minute of fuzzing the five exports
  else
    cmake --workflow --preset "$preset" | tee -a "$log"
  fi
  if [ "$preset" = host ]; then  # the Python package's tests, on the package staged in the build
    PYTHONPATH=build/host/python /usr/bin/python3 -m pytest -q -p no:cacheprovider python/tests | tee -a "$log"
  fi
  echo "=== $preset: $((SECONDS - start)) s ==="
done

# One closing line over every build's tests (a failure has already stopped the script).
total=$(grep -Eo 'tests failed out of [0-9]+' "$log" | awk '{s += $5} END {print s + 0}')
total=$((total + $(grep -Eo '^[0-9]+ passed' "$log" | awk '{s += $1} END {print s + 0}')))  # pytest
echo "suite: $total passed, 0 failed"
