#!/usr/bin/env bash
# The main job: sets up a fresh Debian 12 machine (OpenCV, ffmpeg and the sample footage among
# the packages), builds in release mode and runs zytrack on the sample pedestrian footage with
# the built-in people detector. Tracks, the annotated video, the summary and the library's log
# lines (library.log; counted on the terminal, shown with --verbose) go to out/zytrack.
# Extra arguments go to zytrack (for example: scripts/run.sh eval).
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh tool
cmake --preset host -DZY_BUILD_TOOLS=ON >/dev/null
cmake --build build/host --target zytrack
if (($#)); then
  build/host/tools/zytrack/zytrack "$@"
else
  build/host/tools/zytrack/zytrack --out out/zytrack
fi
