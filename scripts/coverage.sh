#!/usr/bin/env bash
# Prints a table of the lines and branches of the product that the native tests run, one row per folder, and then every
# place that they do not run, as "file: lines". Leaves out what only Windows runs (platform/windows/, main/entry.cpp):
# the tests under Wine run it in the shipped executable, where coverage is not measured.
#
#   scripts/coverage.sh
#
# docs/coverage.md holds the last table, and says why the rest is not run.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install.sh coverage
build=build/coverage
log=$build/build.log
mkdir -p "$build"
# Without optimisation each line of the source keeps its own code. Branches for exceptions are left out, because the
# compiler adds them.
if ! { cmake --preset debug -B "$build" -DMDDCT_SANITIZE= -DCMAKE_CXX_FLAGS='-O0 --coverage -fprofile-update=atomic' &&
  cmake --build "$build"; } >"$log" 2>&1; then
  tail -n 40 "$log" >&2
  exit 1
fi
find "$build" -name '*.gcda' -delete
ctest --test-dir "$build" -j2 >"$build/tests.log" 2>&1 || { tail -n 40 "$build/tests.log" >&2; exit 1; }

json=$build/coverage.json
gcovr --root . --object-directory "$build" --exclude-throw-branches --exclude-unreachable-branches \
  --filter 'main/' --filter 'dct/' --filter 'upload/' --filter 'http/' --filter 'core/' --filter 'platform/' \
  --json "$json" >"$build/gcovr.log" 2>&1 || { tail -n 20 "$build/gcovr.log" >&2; exit 1; }
node scripts/coverage-table.mjs "$json"
