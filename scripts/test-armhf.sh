#!/usr/bin/env bash
# Cross builds the library and the test suite for 32-bit ARM (armhf) in
# build-armhf/ and runs the suite under qemu-arm.
#   scripts/test-armhf.sh           the whole suite
#   scripts/test-armhf.sh -L unit   further arguments go to ctest
# The sysroot comes from scripts/armhf-sysroot.sh (cached in ORVIC_CACHE_DIR).
set -euo pipefail
cd "$(dirname "$0")/.."
sysroot=$(bash scripts/armhf-sysroot.sh)

build=build-armhf
# A build tree holds the paths of the sysroot it was configured with: a new
# sysroot (another package list) needs a fresh one.
if [ -f "$build/CMakeCache.txt" ] && ! grep -qxF "ORVIC_SYSROOT:PATH=$sysroot" "$build/CMakeCache.txt"; then
    echo "test-armhf: the sysroot changed; configuring $build afresh" >&2
    rm -rf "$build"
fi
cmake -S . -B "$build" -G Ninja \
    -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/toolchain-armhf.cmake" \
    -DORVIC_SYSROOT="$sysroot"
cmake --build "$build" -j2
ctest --test-dir "$build" --output-on-failure -j2 "$@"
