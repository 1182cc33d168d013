#!/usr/bin/env bash
# Builds the GStreamer plugin (element parvexcorrect) into build/gst/gst and
# checks that GStreamer finds it. Installs the Debian packages it needs.
set -euo pipefail
cd "$(dirname "$0")/.."
. tools/ensure-packages.sh
ensure_packages cmake ninja-build g++ pkg-config libpng-dev libjpeg62-turbo-dev libopencv-dev \
    nlohmann-json3-dev libpugixml-dev libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev \
    gstreamer1.0-tools gstreamer1.0-plugins-base gstreamer1.0-plugins-good
cmake -S . -B build/gst -G Ninja -DCMAKE_BUILD_TYPE=Release -DPVX_BUILD_TESTS=OFF > /dev/null
cmake --build build/gst -j "$(nproc)" --target gstparvex parvex
GST_PLUGIN_PATH="$PWD/build/gst/gst" gst-inspect-1.0 parvexcorrect > /dev/null
echo "parvexcorrect is ready: export GST_PLUGIN_PATH=$PWD/build/gst/gst"
