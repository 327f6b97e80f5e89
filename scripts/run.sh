#!/usr/bin/env bash
# The main job: sets up a fresh Debian 12 machine, builds in release mode and runs the demo
# caller of the library's C interface.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh test
cmake --preset host >/dev/null
cmake --build build/host --target zy_demo
build/host/tools/zy_demo
