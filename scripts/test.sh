#!/usr/bin/env bash
# Sets up a fresh Debian 12 machine, then configures, builds and runs the whole test suite:
# the host build, the address+undefined-behaviour sanitizer build, the thread sanitizer build
# and the aarch64 cross build, whose tests run under qemu-user with the real NEON kernels.
# `scripts/test.sh host` (or any list of presets) runs only those.
set -euo pipefail
cd "$(dirname "$0")/.."

presets=("$@")
((${#presets[@]})) || presets=(host asan tsan arm64)

groups=(test)
for preset in "${presets[@]}"; do
  case "$preset" in
    arm64*) groups+=(arm64) ;;
    host) groups+=(tool) ;;  # the host build also builds and tests zytrack
  esac
done
scripts/setup.sh "${groups[@]}"

for preset in "${presets[@]}"; do
  echo "=== $preset ==="
  start=$SECONDS
  cmake --workflow --preset "$preset"
  echo "=== $preset: $((SECONDS - start)) s ==="
done
