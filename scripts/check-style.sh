#!/usr/bin/env bash
# Checks that every C++ file has the layout that clang-format gives it, that no Windows header is included outside of
# platform/windows, and that each room includes only itself and the rooms below it in CMakeLists.txt.
set -euo pipefail
cd "$(dirname "$0")/.."

git ls-files -z '*.h' '*.cpp' | xargs -0 -r clang-format --dry-run -Werror

leaks=$(git grep -nIE '#\s*include\s*<(windows|winhttp|wininet|wincrypt|bcrypt|urlmon|shellapi|winsock2?|winternl)\.h>' -- \
  '*.h' '*.cpp' ':!platform/windows' ':!wine' ':!tests/wine' ':!bench/wine' || true)
if [ -n "$leaks" ]; then
  echo "Windows headers outside platform/windows:"
  echo "$leaks"
  exit 1
fi

# Reads the lines mddct_room(NAME FOLDER ROOMS-BELOW...), the lowest room first, then lines FILE:#include "HEADER".
# Prints every include of a room that is not below.
upwards=$({ sed -n 's/^mddct_room(\(.*\))$/room \1/p' CMakeLists.txt
  git grep -E '^#include "[a-z]' -- platform core http upload dct main ':!platform/windows' ':!main/entry.cpp'; } | awk '
  function folder(path) { sub(/\/[^\/]*$/, "", path); return path }
  $1 == "room" {
    folders[$2] = $3
    may[$3, $3] = 1
    for (i = 4; i <= NF; i++) {
      for (name in folders) if (may[folders[$i], folders[name]]) may[$3, folders[name]] = 1
    }
    next
  }
  {
    split($0, part, ":")
    split($0, quoted, "\"")
    if (!may[folder(part[1]), folder(quoted[2])]) print
  }')
if [ -n "$upwards" ]; then
  echo "Includes of rooms that are not below:"
  echo "$upwards"
  exit 1
fi
