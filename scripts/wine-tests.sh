#!/usr/bin/env bash
# The shipped executable under Wine against real servers. Needs build/windows (scripts/build-windows.sh).
set -euo pipefail
cd "$(dirname "$0")/../tests/wine"

exec timeout 1500 node --test --test-reporter=tap *.test.mjs
