#!/usr/bin/env bash
# Installs what building and testing need on Debian 12. Safe to run again.
#   scripts/install-deps.sh               the PC build and its tests
#   scripts/install-deps.sh --cross-armhf also the 32-bit ARM cross build: cross
#                                         compiler, qemu user mode, mmdebstrap
#   scripts/install-deps.sh --bench       also the benchmarks (scripts/bench.sh):
#                                         Google Benchmark, gnuplot for the plot
#   scripts/install-deps.sh --fuzz        also clang, libFuzzer and the symbolizer
set -euo pipefail
packages=(
    build-essential cmake ninja-build pkg-config git ccache
    qtbase5-dev qtmultimedia5-dev libqt5multimedia5-plugins libuchardet-dev
    # the host playback service (psserver) and its end-to-end media
    libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev
    gstreamer1.0-plugins-base gstreamer1.0-plugins-good gstreamer1.0-plugins-bad
    gstreamer1.0-plugins-ugly gstreamer1.0-libav gstreamer1.0-tools
    # host metadata reader (libplayback.so) and the test media generator
    libtag1-dev libavformat-dev libavcodec-dev libavutil-dev libswscale-dev ffmpeg
    # the Qt Quick test of QML MediaPlayer through the back end plugin
    qtdeclarative5-dev qml-module-qtmultimedia qml-module-qttest
    # the HTML API reference
    doxygen
    # the QML example player (with the modules above)
    qml-module-qtquick2 qml-module-qtquick-window2 qml-module-qtquick-layouts
    qml-module-qtquick-controls2 qml-module-qtquick-templates2
    # video on a screen in the example tests: a virtual X server with OpenGL
    xvfb xauth libgl1-mesa-dri
)
if [ "${1:-}" = "--cross-armhf" ]; then
    packages+=(crossbuild-essential-armhf qemu-user mmdebstrap)
fi
if [ "${1:-}" = "--bench" ]; then
    packages+=(libbenchmark-dev gnuplot-nox)
fi
if [ "${1:-}" = "--fuzz" ]; then
    packages+=(clang libclang-rt-14-dev llvm-14)
fi
missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
    SUDO=""
    [ "$(id -u)" -eq 0 ] || SUDO=sudo
    export DEBIAN_FRONTEND=noninteractive
    $SUDO apt-get update
    $SUDO apt-get install -y --no-install-recommends "${missing[@]}"
fi
