#!/usr/bin/env bash
# The layout of every C++ file is what clang-format makes of it, and no Windows header is included above the seam.
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
