#!/usr/bin/env bash
# Installs what the project needs on a Debian 12 machine, skipping what is already there.
#   scripts/setup.sh test   compilers, CMake, GoogleTest, Benchmark, liblog, SIMDe, FFTW, clang
#   scripts/setup.sh tool   the above plus OpenCV, ffmpeg and the sample footage (opencv-doc), and
#                           Python's numpy, pytest, OpenCV and venv for the Python package
#   scripts/setup.sh bench  the 'test' set plus OpenCV's contributed trackers and dlib (peers)
#   scripts/setup.sh arm64  the above 'test' set plus the aarch64 cross compiler and qemu-user
#                           (GoogleTest is then built from the sources in /usr/src/googletest)
set -euo pipefail

want=(build-essential cmake ninja-build pkg-config libgtest-dev libbenchmark-dev
      android-liblog-dev libsimde-dev libfftw3-dev clang-14 libclang-rt-14-dev valgrind)
for group in "$@"; do
  case "$group" in
    test) ;;
    tool) want+=(libopencv-dev ffmpeg opencv-doc python3-numpy python3-pytest python3-opencv python3-venv
                 python3-setuptools python3-wheel) ;;
    bench) want+=(libopencv-dev libopencv-contrib-dev libdlib-dev opencv-doc) ;;
    arm64) want+=(g++-aarch64-linux-gnu qemu-user googletest) ;;
    *) echo "setup.sh: unknown group '$group' (test, tool, bench, arm64)" >&2; exit 2 ;;
  esac
done

missing=()
for p in "${want[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if ((${#missing[@]})); then
  echo "setup: installing ${missing[*]}"
  SUDO=""
  [ "$(id -u)" -eq 0 ] || SUDO="sudo"
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
