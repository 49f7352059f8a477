#!/usr/bin/env bash
# Builds the shipped executable, build/windows/mdDCT.exe, with its symbols in mdDCT.exe.debug, and the programs that the
# tests under Wine need. Then checks the executable with scripts/check-executable.sh. Prints one line when all is well;
# errors go to the standard error stream.
#
#   scripts/build-windows.sh [TARGET...]   builds everything, or these targets (mdDCT is the program alone)
set -euo pipefail
cd "$(dirname "$0")/.."

targets=("$@")
build=build/windows
log=$build/build.log

fail() {
  echo "build-windows.sh: $*" >&2
  exit 1
}

compile() {
  mkdir -p "$build"
  if ! { { [ -f "$build/build.ninja" ] || cmake --preset windows; } &&
    cmake --build --preset windows ${targets[0]+--target "${targets[@]}"}; } >"$log" 2>&1
  then
    grep -E 'error|Error|undefined reference' "$log" | head -n 20 >&2 || tail -n 20 "$log" >&2
    fail "the build failed; all of its output is in $log"
  fi
}

compile
exec scripts/check-executable.sh "$build"
