#!/usr/bin/env bash
# Installs what is missing, builds the measurements with optimisation, runs them natively and under Wine, and writes
# bench/RESULTS.md.
#
#   bench/run.sh             runs all measurements
#   bench/run.sh NAME...     runs these, prints their rows, and leaves RESULTS.md alone. Native: log, masking, bag, digest.
#                            Under Wine: upload, start, lines, configuration
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

compile_windows() {
  scripts/build-windows.sh >/dev/null
  local log=build/windows/bench.log
  if ! cmake --build --preset windows --target mddct_bench_programs >"$log" 2>&1; then
    echo "run.sh: the build for Windows failed; all of its output is in $log" >&2
    exit 1
  fi
}

# Without a name, runs all native measurements.
measure_native() {
  local status=0
  rm -rf "$build/scratch"
  mkdir -p "$build/scratch"
  timeout -k 10 1200 "$build/mddct_bench" "$build/scratch" "$@" || status=$?
  rm -rf "$build/scratch"
  [ "$status" -eq 0 ] || echo "run.sh: the measurements ended with code $status" >&2
  return "$status"
}

measure_wine() { timeout -k 10 3600 node bench/wine/run.mjs "$@"; }

version_of() { dpkg-query -W -f '${Version}' "$1"; }

header() {
  cat <<END
# Results

Measured $(date -u +%F) by \`bench/run.sh\` on $(nproc) cores of "$(sed -n 's/^model name[^:]*: //p;T;q' /proc/cpuinfo)",
$(g++ --version | sed -n 1p), release build. Beside: spdlog $(version_of libspdlog-dev), nlohmann/json
$(version_of nlohmann-json3-dev), OpenSSL $(version_of libssl-dev); under $(wine --version 2>/dev/null): curl
$(version_of curl), rclone $(version_of rclone), Node $(node --version).

Both sides of a row run in rounds: natively in one process, under Wine in one prefix against one server. The figures are
medians over the rounds. The ratio is the median of each round's ratio, ours divided by the peer's. One round before the
first does not count. \`bench/notes.md\` says what each row measures and where the time goes.

| what | ours | peer | ratio | wanted | met |
|---|---|---|---|---|---|
END
}

native=()
wine=()
for name in "$@"; do
  case $name in
    upload | start | lines | configuration) wine+=("$name") ;;
    *) native+=("$name") ;;
  esac
done

scripts/install.sh bench
if [ $# -gt 0 ]; then
  [ ${#native[@]} -eq 0 ] || { compile && measure_native "${native[@]}"; }
  [ ${#wine[@]} -eq 0 ] || { compile_windows && measure_wine "${wine[@]}"; }
  exit
fi
compile
compile_windows
new=$build/RESULTS.md
header >"$new"
measure_native | tee -a "$new"
measure_wine | tee -a "$new"
cp "$new" "$results"
