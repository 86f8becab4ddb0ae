#!/usr/bin/env bash
# Cross builds the library and the test suite for 32-bit ARM (armhf) and runs
# the suite under qemu-arm, in build-armhf/.
#   scripts/test-armhf.sh                 ORVIC_CACHE_DIR keeps the sysroot between runs
set -euo pipefail
cd "$(dirname "$0")/.."
sysroot=$(bash scripts/armhf-sysroot.sh)

build=build-armhf
cmake -S . -B "$build" -G Ninja \
    -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/toolchain-armhf.cmake" \
    -DORVIC_SYSROOT="$sysroot"
cmake --build "$build" -j2
ctest --test-dir "$build" --output-on-failure -j2
