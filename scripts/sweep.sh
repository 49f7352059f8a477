#!/usr/bin/env bash
# Whole runs on the simulated Windows, of a kind, with a delivery of completions and up to three failing platform calls
# that a seed chooses. For each seed after which something did not hold, prints what, and the command that repeats it.
#
#   scripts/sweep.sh --seeds N [--from S]   N seeds from S (1) on
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
  sed -n 's/^#   //p' "$0" >&2
  exit 2
}

seeds=
from=1
while [ $# -gt 0 ]; do
  [[ ${2-} =~ ^[1-9][0-9]*$ ]] || usage
  case $1 in
    --seeds) seeds=$2 ;;
    --from) from=$2 ;;
    *) usage ;;
  esac
  shift 2
done
[ -n "$seeds" ] || usage

scripts/install.sh test
log=build/sweep.log
mkdir -p build
if ! { cmake --preset debug && cmake --build --preset debug --target main_tests; } >"$log" 2>&1; then
  tail -n 40 "$log" >&2
  exit 1
fi

# The program stops at the first failure, an abort or a hang; the next seeds go on in another process.
last=$((from + seeds - 1))
failures=0
while [ "$from" -le "$last" ]; do
  log=build/sweep-$from.log
  if SWEEP_FROM=$from SWEEP_SEEDS=$((last - from + 1)) timeout -k 10 $((300 + 5 * (last - from + 1))) \
    build/debug/main_tests --gtest_filter='SweepSeeds.*' >"$log" 2>&1; then
    break
  fi
  failed=$(sed -n 's/^seed //p' "$log" | tail -n 1)
  [ -n "$failed" ] || { tail -n 40 "$log" >&2; exit 1; }
  grep -v '^seed ' "$log" | tail -n 60
  echo "seed $failed failed; all of it is in $log; to repeat it: scripts/sweep.sh --seeds 1 --from $failed"
  failures=$((failures + 1))
  from=$((failed + 1))
done
echo "$seeds seeds, $failures failed"
[ "$failures" -eq 0 ]
