#!/usr/bin/env bash
# Instructions per body update of the arm64 build, counted under qemu-user.
#
#   scripts/arm64-icount.sh            # the arm64 preset (NEON kernels) and the plain scalar kernels
#   scripts/arm64-icount.sh fast       # the NEON kernels only (half the time)
#
# qemu-aarch64 here has no plugins and callgrind cannot run arm64 code, so the count comes from
# qemu's own trace: every translated block is logged once with its instructions (in_asm) and
# every execution of a block once (exec, with chaining off); their product summed over the run
# is the number of guest instructions executed. The fixed-input driver runs twice, with 1 and
# with 2 tracking frames of its 10-body scene, rendering the same 3 frames both times: the two
# counts differ by exactly 10 updates, whose instructions (library and the C library calls it
# makes) are the difference divided by 10. Each run streams about 3 GB of trace through awk
# (a few minutes on two cores); nothing is written to disk.
set -euo pipefail
cd "$(dirname "$0")/.."

sysroot=/usr/aarch64-linux-gnu
build() {  # build <dir> <preset> [cmake args...]
  local dir=$1 preset=$2
  shift 2
  cmake --preset "$preset" -B "$dir" -DZY_BUILD_BENCH=ON -DZY_BUILD_TESTS=OFF -DZY_BUILD_DEMO=OFF \
    -DZY_BUILD_TOOLS=OFF "$@" >/dev/null
  cmake --build "$dir" --target zy_bench_icount -j2 >/dev/null
}

# count <driver> <frames>: guest instructions of one run, and its box checksum on stderr.
count() {
  local fifo
  fifo=$(mktemp -u /tmp/zy-qemu-trace.XXXXXX)
  mkfifo "$fifo"
  awk '
    /^IN:/ { inblock = 1; n = 0; pc = ""; next }
    inblock && /^0x[0-9a-f]+:/ { if (pc == "") pc = substr($1, 3, length($1) - 3); n++; next }
    inblock && /^$/ { if (pc != "") size[pc] = n; inblock = 0; next }
    /^Trace / {
      split($0, f, "/"); p = f[2]; sub(/^0+/, "", p)
      total += size[p]
    }
    END { printf "%.0f\n", total }
  ' "$fifo" &
  local reader=$!
  qemu-aarch64 -L "$sysroot" -E LD_LIBRARY_PATH="$sysroot/lib" -d in_asm,exec,nochain -D "$fifo" \
    "$1" "$2" 0 3 | grep checksum >&2
  wait "$reader"
  rm -f "$fifo"
}

per_update() {  # per_update <driver>
  local one two
  one=$(count "$1" 1)
  two=$(count "$1" 2)
  echo "$(( (two - one) / 10 ))"
}

build build/bench-arm64 arm64
fast=$(per_update build/bench-arm64/bench/zy_bench_icount)
if [ "${1:-}" = fast ]; then
  echo "arm64 instructions per update: NEON kernels $fast"
  exit 0
fi
build build/bench-arm64-scalar arm64 -DZY_SCALAR_ONLY=ON
scalar=$(per_update build/bench-arm64-scalar/bench/zy_bench_icount)
echo "arm64 instructions per update: NEON kernels $fast, plain scalar $scalar," \
  "ratio $(awk -v a="$scalar" -v b="$fast" 'BEGIN { printf "%.2f", a / b }')x"
