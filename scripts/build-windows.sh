#!/usr/bin/env bash
# Builds the shipped executable into build/windows/mdDCT.exe (its symbols beside it in mdDCT.exe.debug) with the
# programs that the tests under Wine need, and proves from the file itself that it is fit to ship. The first line of
# trouble goes to the standard error stream; without trouble there is one line.
#
#   scripts/build-windows.sh [TARGET...]   everything, or those targets (mdDCT is the program alone)
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
