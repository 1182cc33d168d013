#!/usr/bin/env bash
# Builds the parvex Python module for Debian's /usr/bin/python3 and installs
# it into that interpreter's site-packages (/usr/local/lib/python3.X/dist-packages),
# installing the Debian packages it needs first. Needs nothing beyond Debian's
# archive. Run as root, or as a user with sudo.
set -euo pipefail
cd "$(dirname "$0")/.."
. tools/ensure-packages.sh
ensure_packages cmake ninja-build g++ python3 python3-dev python3-numpy pybind11-dev \
    libopencv-dev nlohmann-json3-dev libpugixml-dev

sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
cmake -S . -B build/python-install -G Ninja -DCMAKE_BUILD_TYPE=Release -DPVX_BUILD_PYTHON=ON \
    -DPVX_BUILD_TESTS=OFF -DPVX_BUILD_TOOLS=OFF -DPython_EXECUTABLE=/usr/bin/python3
cmake --build build/python-install --target parvex_python
$sudo cmake --install build/python-install --component python
cd / && /usr/bin/python3 -c "import parvex; print('installed:', parvex.__file__, '-', parvex.version)"
