#!/usr/bin/env bash
# Builds the library and runs the test suite.
#   scripts/test.sh                        plain build in build/
#   scripts/test.sh --sanitize             AddressSanitizer + UndefinedBehaviorSanitizer in build-asan/
#   scripts/test.sh --tsan                 ThreadSanitizer in build-tsan/: the library and its
#                                          scripted-platform tests (labels adaptor, session) only
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
if [ "${1:-}" = "--tsan" ]; then
    shift
    cmake -S . -B build-tsan -G Ninja -DORVIC_TSAN=ON -DCMAKE_BUILD_TYPE=Debug
    cmake --build build-tsan -j2 --target orvic_tsan_tests
    exec ctest --test-dir build-tsan --output-on-failure -j2 -L 'adaptor|session' "$@"
fi
cmake -S . -B "$build" -G Ninja "${extra[@]}"
cmake --build "$build" -j2
ctest --test-dir "$build" --output-on-failure -j2 "$@"
