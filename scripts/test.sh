#!/usr/bin/env bash
# Builds the library and runs the test suite.
#   scripts/test.sh                        plain build in build/
#   scripts/test.sh --sanitize             AddressSanitizer + UndefinedBehaviorSanitizer in build-asan/
#   scripts/test.sh [--sanitize] -L unit   further arguments go to ctest (here: only the unit tests)
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh

build=build
extra=()
if [ "${1:-}" = "--sanitize" ]; then
    build=build-asan
    extra=(-DORVIC_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug)
    shift
fi
cmake -S . -B "$build" -G Ninja "${extra[@]}"
cmake --build "$build" -j2
ctest --test-dir "$build" --output-on-failure -j2 "$@"
