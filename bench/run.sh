#!/usr/bin/env bash
# Installs what is missing, builds the measurements natively, optimised, runs them and writes bench/RESULTS.md.
#
#   bench/run.sh [NAME...]   all of them, or those (log, masking, bag, digest, configuration): then only their rows are
#                            printed and RESULTS.md stays as it is
set -euo pipefail
cd "$(dirname "$0")/.."

build=build/bench
results=bench/RESULTS.md

compile() {
  mkdir -p "$build"
  local log=$build/build.log
  if ! { cmake --preset release -B "$build" -DMDDCT_BENCH=ON && cmake --build "$build" --target mddct_bench; } \
    >"$log" 2>&1; then
    grep -E 'error|Error|undefined reference' "$log" | head -n 20 >&2 || tail -n 20 "$log" >&2
    echo "run.sh: the build failed; all of its output is in $log" >&2
    exit 1
  fi
}

measure() {
  local status=0
  rm -rf "$build/scratch"
  mkdir -p "$build/scratch"
  timeout -k 10 1200 "$build/mddct_bench" "$build/scratch" "$@" || status=$?
  rm -rf "$build/scratch"
  [ "$status" -eq 0 ] || echo "run.sh: the measurements ended with code $status" >&2
  return "$status"
}

version_of() { dpkg-query -W -f '${Version}' "$1"; }

header() {
  cat <<END
# Results

Measured $(date -u +%F) by \`bench/run.sh\` on $(nproc) cores of "$(sed -n 's/^model name[^:]*: //p;T;q' /proc/cpuinfo)",
$(g++ --version | sed -n 1p), release build. Beside: spdlog $(version_of libspdlog-dev), nlohmann/json
$(version_of nlohmann-json3-dev), OpenSSL $(version_of libssl-dev).

Both sides of a row run in turns in one process; the figures are medians over the turns, the ratio is the median of the
turns' ratios: for a rate, ours divided by the peer's; for a time of a call, ours divided by the peer's. One turn
before the first is not counted. \`bench/notes.md\` says what each row measures and where the time goes.

| what | ours | peer | ratio | wanted | met |
|---|---|---|---|---|---|
END
}

scripts/install.sh bench
compile
if [ $# -gt 0 ]; then
  measure "$@"
  exit
fi
new=$build/RESULTS.md
header >"$new"
measure | tee -a "$new"
cp "$new" "$results"
