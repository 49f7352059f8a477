#!/usr/bin/env bash
# Installs what is missing, from Debian's packages and the npm registry. Prints nothing when nothing is missing.
#
#   scripts/install.sh run       what ./run.sh needs
#   scripts/install.sh test      what ./test.sh needs (what ./run.sh needs, and more)
#   scripts/install.sh coverage  what scripts/coverage.sh needs
#   scripts/install.sh bench     what bench/run.sh needs
set -euo pipefail
cd "$(dirname "$0")/.."

run_packages=(cmake ninja-build g++-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64 wine wine64 libgnutls30 openssl
  ca-certificates)
test_packages=("${run_packages[@]}" g++ libgtest-dev libssl-dev clang libclang-rt-dev clang-format clang-tidy
  cppcheck git zip unzip tinyproxy-bin)
coverage_packages=(cmake ninja-build g++ libgtest-dev libssl-dev gcovr)
bench_packages=("${run_packages[@]}" g++ libgtest-dev libssl-dev libspdlog-dev nlohmann-json3-dev
  curl rclone)

fail() {
  echo "install.sh: $*" >&2
  exit 1
}

case "${1-}" in
  run) wanted=("${run_packages[@]}") ;;
  test) wanted=("${test_packages[@]}") ;;
  coverage) wanted=("${coverage_packages[@]}") ;;
  bench) wanted=("${bench_packages[@]}") ;;
  *) fail "needs one argument: run, test, coverage or bench" ;;
esac

# Node may be installed without Debian's package. npm then comes with it.
node_is_usable() {
  local version
  version=$(node --version 2>/dev/null) || return 1
  version=${version#v}
  [ "${version%%.*}" -ge 18 ]
}

missing_packages() {
  local have
  have=$'\n'$(dpkg-query -W -f '${Package} ${db:Status-Status}\n' "${wanted[@]}" 2>/dev/null || true)$'\n'
  for package in "${wanted[@]}"; do
    [[ $have == *$'\n'"$package installed"$'\n'* ]] || echo "$package"
  done
  node_is_usable || echo nodejs
  command -v npm >/dev/null || echo npm
}

install_packages() {
  local as_root=()
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || fail "these packages are missing, and only root can install them: $*"
    as_root=(sudo)
  fi
  echo "installing: $*"
  local log
  log=$(mktemp)
  if ! { "${as_root[@]}" apt-get update -q && "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -q -y --no-install-recommends "$@"; } >"$log" 2>&1 </dev/null; then
    tail -n 20 "$log" >&2
    fail "apt-get failed; all of its output is in $log"
  fi
  rm -f "$log"
}

# The copy of the lock file beside the packages shows which packages are installed.
install_node_packages() {
  cmp -s package-lock.json node_modules/.installed-lock && return
  echo "installing: node packages of wine/"
  local log
  log=$(mktemp)
  if ! npm ci --ignore-scripts --no-audit --no-fund >"$log" 2>&1 </dev/null; then
    tail -n 20 "$log" >&2
    fail "npm ci failed; all of its output is in $log"
  fi
  rm -f "$log"
  cp package-lock.json node_modules/.installed-lock
}

mapfile -t missing < <(missing_packages)
[ ${#missing[@]} -eq 0 ] || install_packages "${missing[@]}"
(cd wine && install_node_packages)
