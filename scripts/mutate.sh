#!/usr/bin/env bash
# Mutation run: how many small faults planted in src/ the host test suite catches.
#
#   scripts/mutate.sh [FIRST [LAST]]     mutants FIRST..LAST of scripts/mutants.tsv (default: all)
#   ZY_MUTATE_EXCLUDE='^Tracker\.' scripts/mutate.sh    the same without the tests the regex names
#   ZY_MUTATE_ONLY='2 5 13' scripts/mutate.sh             only the mutants listed (a quick recheck)
#
# Each mutant of the fixed list (scripts/mutants.tsv, made by `scripts/mutants.py generate`) is
# applied to the work tree, built incrementally in build/mutate and run against the host suite
# (every test program; the footage tool's tests need OpenCV builds and are left out). Outcomes:
#   killed      a test failed          survived   every test passed
#   timed out   the suite ran past its limit (counted apart; an endless loop is caught, not proved)
#   unchanged   the library's objects came out byte-identical (code this build does not compile,
#               such as the arm64-only kernels): not a mutant of this build
#   no build    the mutant does not compile          stale   its line is no longer in the file
# The work tree is restored after every mutant, and on interruption. Results go to
# build/mutate/results.tsv; the survivors are printed with file:line at the end.
# A measurement, not part of CI: about an hour on a two-core machine.
set -euo pipefail
cd "$(dirname "$0")/.."

list=scripts/mutants.tsv
build=build/mutate
py=/usr/bin/python3
total=$(grep -vc '^#' "$list")
first=${1:-1}
last=${2:-$total}
suite_limit=${ZY_MUTATE_SUITE_SECONDS:-90}
test_limit=${ZY_MUTATE_TEST_SECONDS:-30}  # per test; raise both on a machine shared with builds
build_limit=${ZY_MUTATE_BUILD_SECONDS:-600}

scripts/setup.sh test
if [ -n "$(git status --porcelain -- src)" ]; then
  echo "mutate: src/ has uncommitted changes; commit or stash them first" >&2
  exit 2
fi

# The host build's optimisation without its debug information, which only slows each rebuild.
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O2 -DNDEBUG" -DCMAKE_C_FLAGS_RELWITHDEBINFO="-O2 -DNDEBUG" \
  -DZY_BUILD_TESTS=ON -DZY_BUILD_TOOLS=OFF -DZY_BUILD_DEMO=OFF -DZY_WERROR=OFF > /dev/null
cmake --build "$build" > /dev/null
# The install test rebuilds a consumer project from scratch; it proves packaging, not behaviour.
# ZY_MUTATE_EXCLUDE (a ctest regex) leaves more tests out: which mutants does the suite still
# catch without them?
suite=(ctest --test-dir "$build" -j2 --stop-on-failure --timeout "$test_limit" -E "^Install\.${ZY_MUTATE_EXCLUDE:+|$ZY_MUTATE_EXCLUDE}")
echo "mutate: baseline suite"
"${suite[@]}" > /dev/null || { echo "mutate: the suite fails without any mutant" >&2; exit 1; }

objects() { find "$build/src" -name '*.o' -print0 | sort -z | xargs -0 sha1sum; }
objects > "$build/objects.base"

restore() { git checkout --quiet -- src; }
trap restore EXIT
trap 'exit 130' INT TERM  # stop the run; the EXIT trap restores src/

results="$build/results.tsv"
: > "$results"
declare -A count=()
if [ -n "${ZY_MUTATE_ONLY:-}" ]; then
  read -r -a chosen <<< "$ZY_MUTATE_ONLY"
else
  chosen=($(seq "$first" "$last"))
fi
for n in "${chosen[@]}"; do
  where=$("$py" scripts/mutants.py apply "$n" "$list") && rc=0 || rc=$?
  if ((rc == 3)); then
    outcome="stale"
  elif ((rc != 0)); then
    echo "mutate: cannot apply mutant $n" >&2; exit 2
  elif ! timeout "$build_limit" cmake --build "$build" > /dev/null 2>&1; then
    outcome="no build"
  elif objects | cmp -s - "$build/objects.base"; then
    outcome="unchanged"
  else
    set +e
    timeout -k 5 "$suite_limit" "${suite[@]}" > "$build/suite.log" 2>&1
    status=$?
    # A test hung by the mutant outlives the killed ctest: end it too.
    pkill -KILL -f "^$PWD/$build/tests/" 2> /dev/null
    set -e
    case $status in
      0) outcome="survived" ;;
      124) outcome="timed out" ;;
      *)
        outcome="killed"
        # The test that caught it (the first to fail), for deciding which tests carry weight.
        catcher=$(grep -oE '[0-9]+ - [A-Za-z0-9_.]+ \(' "$build/suite.log" | head -n 1 | cut -d' ' -f3 || true)
        where="$where [${catcher:-?}]"
        ;;
    esac
  fi
  restore
  count[$outcome]=$((${count[$outcome]:-0} + 1))
  printf '%d\t%s\t%s\n' "$n" "$outcome" "$where" >> "$results"
  printf '[%d/%d] %-9s %s\n' "$n" "$last" "$outcome" "$where"
done
# Leave the build matching the restored tree.
cmake --build "$build" > /dev/null 2>&1 || true

compiled=$((${count[killed]:-0} + ${count[survived]:-0} + ${count["timed out"]:-0}))
echo
echo "mutate: mutants ${ZY_MUTATE_ONLY:-${first}..${last}}: killed ${count[killed]:-0}, survived ${count[survived]:-0}," \
  "timed out ${count["timed out"]:-0} of ${compiled} built and changed;" \
  "unchanged ${count[unchanged]:-0}, no build ${count["no build"]:-0}, stale ${count[stale]:-0}"
if ((compiled)); then
  echo "mutate: score $(awk -v k="${count[killed]:-0}" -v c="$compiled" 'BEGIN{printf "%.1f", 100 * k / c}') %"
fi
if [ -n "${count[survived]:-}" ]; then
  echo "mutate: survivors"
  awk -F'\t' '$2 == "survived" {print "  " $1 ": " $3}' "$results"
fi
