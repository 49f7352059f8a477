#!/usr/bin/env bash
# Tests the shipped executable under Wine against real servers. Needs build/windows, from scripts/build-windows.sh.
set -euo pipefail
cd "$(dirname "$0")/../tests/wine"

exec timeout 1500 node --test --test-reporter=tap *.test.mjs
