#!/usr/bin/env bash
# cppcheck and clang-tidy (with the list in .clang-tidy) over the product's own sources, cppcheck also over the
# simulated Windows and the programs that stand beside it under Wine; every finding is an error.
set -euo pipefail
cd "$(dirname "$0")/.."

# passedByValue: views, and texts that the callee keeps. internalAstError: a placement new that this version of cppcheck
# cannot read.
git ls-files -z '*.cpp' ':!tests/unit' ':!fuzz' ':!bench' | xargs -0 cppcheck --enable=warning,performance,portability \
  --std=c++20 --language=c++ --quiet -j2 -I. --error-exitcode=1 --suppress=missingInclude --suppress=passedByValue \
  --suppress=internalAstError:platform/windows/windows_crash.cpp

cmake --preset debug >/dev/null
git ls-files '*.cpp' | grep -vE '^(platform/windows|scripts|tests|bench|fuzz)/|^main/entry\.cpp$' |
  xargs -P2 -n4 clang-tidy -p build/debug --quiet
