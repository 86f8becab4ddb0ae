#!/usr/bin/env bash
# Random walks of engine calls on the real psserver (tests/e2e/tst_e2e_enginewalk.cpp):
#   scripts/enginewalk.sh [WALKS] [CALLS]    defaults: 20 walks of 300 calls
# Builds what it needs in build/ and makes the e2e media first.
set -euo pipefail
cd "$(dirname "$0")/.."
walks=${1:-20}
calls=${2:-300}
cmake -S . -B build -G Ninja > /dev/null
cmake --build build -j2 --target tst_e2e_enginewalk
bash tests/e2e/make-e2e-media.sh build/tests/e2e/media
QT_QPA_PLATFORM=offscreen ORVIC_PROPCTL=build/tests/e2e/orvic-propctl \
ORVIC_E2E_WALK_SEEDS=$walks ORVIC_E2E_WALK_STEPS=$calls \
    exec build/tests/e2e/tst_e2e_enginewalk
