#!/usr/bin/env bash
# Builds the library and the parvex tool, then runs its demo.
set -euo pipefail
cd "$(dirname "$0")/.."
. tools/ensure-packages.sh
ensure_packages cmake ninja-build g++ libpng-dev libjpeg62-turbo-dev pkg-config \
    libopencv-dev nlohmann-json3-dev libpugixml-dev
cmake -S . -B build/demo -G Ninja -DCMAKE_BUILD_TYPE=Release -DPVX_BUILD_TESTS=OFF > /dev/null
cmake --build build/demo -j "$(nproc)" --target parvex
./build/demo/tools/parvex demo "${1:-parvex-demo.png}"
