#!/usr/bin/env bash
# Runs cppcheck and clang-tidy over the product's sources. cppcheck also reads the simulated Windows and the programs
# that run beside the product under Wine. .clang-tidy lists the checks of clang-tidy. Every finding is an error.
set -euo pipefail
cd "$(dirname "$0")/.."

# passedByValue is off for views and for texts that the callee keeps. internalAstError is off for a placement new that
# this version of cppcheck cannot parse.
git ls-files -z '*.cpp' ':!tests/unit' ':!fuzz' ':!bench' | xargs -0 cppcheck --enable=warning,performance,portability \
  --std=c++20 --language=c++ --quiet -j2 -I. --error-exitcode=1 --suppress=missingInclude --suppress=passedByValue \
  --suppress=internalAstError:platform/windows/windows_crash.cpp

cmake --preset debug >/dev/null
git ls-files '*.cpp' | grep -vE '^(platform/windows|wine|cmake|tests|bench|fuzz)/|^main/entry\.cpp$' |
  xargs -P2 -n4 clang-tidy -p build/debug --quiet
