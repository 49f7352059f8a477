#!/usr/bin/env bash
# Makes whole runs on the simulated Windows. A seed chooses the kind of each run, how completions are delivered, and up
# to three platform calls that fail. For each seed whose run breaks a property, prints the failure and the command that
# repeats it.
#
#   scripts/sweep.sh --seeds N [--from S]   makes N runs, with the seeds from S on (1 by default)
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

# The test program ends at the first failure, abort or hang. Another process then goes on with the next seed.
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
  echo "seed $failed failed; its log is $log; to repeat it: scripts/sweep.sh --seeds 1 --from $failed"
  failures=$((failures + 1))
  from=$((failed + 1))
done
echo "$seeds seeds, $failures failed"
[ "$failures" -eq 0 ]
