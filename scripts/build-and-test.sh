#!/usr/bin/env bash
# Installs what is missing, builds everything (library, tools, tests, benchmarks) and
# runs the whole test suite. Usage: scripts/build-and-test.sh [build-dir] [cmake args...]
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${1:-$root/build}"
shift || true

"$root/scripts/install-deps.sh"
cmake -S "$root" -B "$build" -G Ninja -DRUX_WERROR=ON "$@"
cmake --build "$build" -j "$(nproc)"
ctest --test-dir "$build" -j "$(nproc)" --output-on-failure
