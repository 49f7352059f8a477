#!/usr/bin/env bash
# Runs the fuzz targets and prints one line for each: "ok NAME: N executions" or "not ok NAME: ...". After a finding the
# exit code is 1, and the input is in build/fuzz/found/. Keep it in fuzz/corpus/NAME/, under a name that says what it
# shows, when the fault is corrected.
#
#   scripts/fuzz.sh [SECONDS] [NAME...]   runs each target fuzz/NAME_fuzz.cpp, or only these, for 5 seconds by default
#
# Each target starts from its seeds in fuzz/corpus/NAME/ and from what earlier runs found, in build/fuzz/corpus/NAME/.
set -euo pipefail
cd "$(dirname "$0")/.."

build=build/fuzz
seconds=5
if [[ ${1-} =~ ^[1-9][0-9]*$ ]]; then
  seconds=$1
  shift
fi
names=("$@")
if [ ${#names[@]} -eq 0 ]; then
  for source in fuzz/*_fuzz.cpp; do
    name=${source##*/}
    names+=("${name%_fuzz.cpp}")
  done
fi

compile() {
  mkdir -p "$build"
  local log=$build/build.log
  if ! { cmake --preset fuzz && cmake --build --preset fuzz --target "${names[@]/%/_fuzz}"; } >"$log" 2>&1; then
    grep -E 'error|Error|undefined reference' "$log" | head -n 20 >&2 || tail -n 20 "$log" >&2
    echo "fuzz.sh: the build failed; all of its output is in $log" >&2
    exit 1
  fi
}

# Fuzzes one target. An input is a finding when it takes 5 seconds or a gigabyte of memory, or when a property fails.
run() {
  local name=$1 log=$build/$1.log executions
  local -a folders=("$build/corpus/$name")
  mkdir -p "${folders[0]}" "$build/found"
  [ ! -d "fuzz/corpus/$name" ] || folders+=("fuzz/corpus/$name")
  if ! timeout -k 10 $((seconds + 120)) "$build/${name}_fuzz" -max_total_time="$seconds" -timeout=5 -rss_limit_mb=1024 \
    -print_final_stats=1 -artifact_prefix="$build/found/$name-" "${folders[@]}" >"$log" 2>&1; then
    echo "not ok $name: a finding; its log is $log"
    grep -vE '^#[0-9]' "$log" | tail -n 40
    return 1
  fi
  executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
  if [ "${executions:-0}" -eq 0 ]; then
    echo "not ok $name: it executed nothing; its log is $log"
    return 1
  fi
  echo "ok $name: $executions executions"
}

compile
findings=0
for name in "${names[@]}"; do
  run "$name" || findings=$((findings + 1))
done
[ "$findings" -eq 0 ]
