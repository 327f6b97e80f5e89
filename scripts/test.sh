#!/usr/bin/env bash
# Sets up a fresh Debian 12 machine, then configures, builds and runs the whole test suite:
# the host build, the address+undefined-behaviour sanitizer build and the thread sanitizer
# build. `scripts/test.sh host` runs only the host build.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh test

presets=("$@")
((${#presets[@]})) || presets=(host asan tsan)
for preset in "${presets[@]}"; do
  echo "=== $preset ==="
  cmake --workflow --preset "$preset"
done
