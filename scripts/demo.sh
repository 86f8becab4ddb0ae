#!/usr/bin/env bash
# Sets up a fresh Debian 12 machine, builds the library, the host platform
# (psserver and its engine) and orvic-play, generates the sample media and
# plays the sample with legacy-encoded tags and a cover through the session.
#
#   scripts/demo.sh                              plays build/samples/tagged-gbk.mp3
#   scripts/demo.sh [orvic-play options] [FILE|URL]
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake -S . -B build -G Ninja
cmake --build build -j2 --target orvic-play psserver orvic-samples
if [ $# -eq 0 ] || [[ "${*: -1}" == -* ]]; then
    set -- "$@" build/samples/tagged-gbk.mp3
fi
exec build/apps/orvic-play "$@"
