#!/usr/bin/env bash
# Runs every test on this machine, and first installs what is missing. The last line is "N passed, N failed".
#
#   ./test.sh            runs all stages
#   ./test.sh STAGE...   runs some of them: style docs debug tsan fuzz windows wine tidy
set -uo pipefail
cd "$(dirname "$0")"

stages=("$@")
[ ${#stages[@]} -gt 0 ] || stages=(style docs debug tsan fuzz windows wine tidy)

passed=0
failed=0
logs=build/test-logs
mkdir -p "$logs"

count() {  # count PASSED FAILED
  passed=$((passed + $1))
  failed=$((failed + $2))
}

# Runs a stage whose tests cannot be counted, and counts it as one test: whole_stage STAGE COMMAND...
whole_stage() {
  local name=$1
  shift
  if "$@" >"$logs/$name.log" 2>&1; then
    count 1 0
  else
    tail -n 60 "$logs/$name.log"
    count 0 1
  fi
}

# Builds and runs the native tests with a preset: native PRESET.
native() {
  local preset=$1 log="$logs/$1.log"
  if ! { cmake --preset "$preset" && cmake --build --preset "$preset"; } >"$log" 2>&1; then
    grep -E 'error|FAILED|Error' "$log" | head -n 40
    count 0 1
    return
  fi
  timeout 1500 ctest --preset "$preset" -j2 --no-tests=error >"$log" 2>&1
  local rc=$? summary
  summary=$(grep -E '^[0-9]+% tests passed' "$log")
  if [[ $summary =~ ,\ ([0-9]+)\ tests\ failed\ out\ of\ ([0-9]+) ]]; then
    count $((BASH_REMATCH[2] - BASH_REMATCH[1])) "${BASH_REMATCH[1]}"
  else
    count 0 1
  fi
  [ $rc -eq 0 ] || tail -n 80 "$log"
}

# Runs tests that Node counts: node_tests STAGE COMMAND...
node_tests() {
  local log="$logs/$1.log"
  shift
  "$@" >"$log" 2>&1
  local rc=$? good bad
  good=$(sed -n 's/^# pass \([0-9]*\)$/\1/p' "$log" | tail -n 1)
  bad=$(sed -n 's/^# fail \([0-9]*\)$/\1/p' "$log" | tail -n 1)
  if [ -z "$good" ]; then
    count 0 1
  else
    count "$good" "${bad:-0}"
    [ $rc -eq 0 ] || [ "${bad:-0}" -gt 0 ] || count 0 1
  fi
  [ $rc -eq 0 ] || { grep -E -A 30 '^ *not ok' "$log" | head -n 200 || tail -n 80 "$log"; }
}

# Runs the fuzz targets, and counts each as one test.
fuzz_tests() {
  local log="$logs/fuzz.log"
  scripts/fuzz.sh >"$log" 2>&1
  local rc=$? good bad
  good=$(grep -c '^ok ' "$log")
  bad=$(grep -c '^not ok ' "$log")
  [ $rc -eq 0 ] || [ "$bad" -gt 0 ] || bad=1
  count "$good" "$bad"
  [ $rc -eq 0 ] || tail -n 80 "$log"
}

run_stage() {
  case $1 in
    style) whole_stage style scripts/check-style.sh ;;
    tidy) whole_stage tidy scripts/check-tidy.sh ;;
    debug | tsan) native "$1" ;;
    fuzz) fuzz_tests ;;
    windows) whole_stage windows scripts/build-windows.sh ;;
    docs) node_tests docs node --test --test-reporter=tap tests/docs/*.test.mjs ;;
    wine) node_tests wine scripts/wine-tests.sh ;;
    *)
      echo "test.sh: no stage '$1'" >&2
      exit 2
      ;;
  esac
}

echo "== installing what is missing"
scripts/install.sh test || exit 1
for stage in "${stages[@]}"; do
  start=$SECONDS
  before_failed=$failed
  before_passed=$passed
  echo "== $stage"
  run_stage "$stage"
  echo "   $((passed - before_passed)) passed, $((failed - before_failed)) failed, $((SECONDS - start)) s ($logs/$stage.log)"
done
echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
