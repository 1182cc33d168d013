#!/usr/bin/env bash
# Builds and runs every test: x86-64 release (g++), x86-64 with
# AddressSanitizer + UndefinedBehaviorSanitizer (clang), the runtime under
# ThreadSanitizer, 32-bit Arm (NEON) under qemu-arm and 64-bit Arm (NEON)
# under qemu-aarch64. The calibration import (calib/, with OpenCV,
# nlohmann-json and pugixml) and its tests (label calib, among them the
# agreement with OpenCV's undistortion) run in the x86-64 legs that build the
# tool, as do the GStreamer element's tests (label gst).
# Then the fuzz targets briefly, and the engine under ThreadSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
. tools/ensure-packages.sh
ensure_packages cmake ninja-build g++ clang libclang-rt-14-dev googletest libgtest-dev \
    libbenchmark-dev libpng-dev libjpeg62-turbo-dev pkg-config binutils file \
    g++-arm-linux-gnueabihf g++-aarch64-linux-gnu qemu-user \
    libopencv-dev nlohmann-json3-dev libpugixml-dev \
    libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev gstreamer1.0-tools gstreamer1.0-plugins-base

jobs=$(nproc)
build_and_test() {
    local name=$1; shift
    echo "=== $name ==="
    cmake -S . -B "build/$name" -G Ninja -DPVX_WERROR=ON "$@" > "build-$name.log" 2>&1 || { cat "build-$name.log"; exit 1; }
    rm -f "build-$name.log"
    cmake --build "build/$name" -j "$jobs"
    (cd "build/$name" && ctest --output-on-failure -j "$jobs")
}
mkdir -p build
build_and_test release -DCMAKE_BUILD_TYPE=Release -DPVX_BUILD_BENCH=ON
build_and_test sanitize -DCMAKE_BUILD_TYPE=RelWithDebInfo -DPVX_SANITIZE=address \
    -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++
build_and_test tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DPVX_SANITIZE=thread \
    -DPVX_TEST_MODULES=runtime -DPVX_BUILD_TOOLS=OFF
build_and_test arm -DCMAKE_BUILD_TYPE=Release -DCMAKE_TOOLCHAIN_FILE=cmake/arm-linux-gnueabihf.cmake \
    -DPVX_BUILD_TOOLS=OFF

# --- 64-bit Arm (AArch64, NEON) under qemu-aarch64 ---
build_and_test aarch64 -DCMAKE_BUILD_TYPE=Release -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake \
    -DPVX_BUILD_TOOLS=OFF

# ---- Python module -------------------------------------------------------
# Built in the release tree (its library objects are already compiled) for
# Debian's /usr/bin/python3; pytest checks it against the release parvex tool.
ensure_packages python3-dev python3-numpy python3-pytest python3-opencv pybind11-dev \
    libopencv-dev nlohmann-json3-dev libpugixml-dev
echo "=== python ==="
cmake -S . -B build/release -DPVX_BUILD_PYTHON=ON -DPython_EXECUTABLE=/usr/bin/python3 > build-python.log 2>&1 \
    || { cat build-python.log; exit 1; }
rm -f build-python.log
cmake --build build/release -j "$jobs" --target parvex_python parvex
pytest_rc=0
PYTHONPATH=build/release/python PARVEX_TOOL=build/release/tools/parvex PYTHONDONTWRITEBYTECODE=1 \
    /usr/bin/python3 -m pytest -q -p no:cacheprovider tests/python || pytest_rc=$?
case $pytest_rc in
    0) ;;
    5) echo "python: pytest collected no tests"; exit 1 ;;
    *) echo "python: pytest failed (exit code $pytest_rc)"; exit 1 ;;
esac

# --- GStreamer element: gst-launch-1.0 through parvexcorrect of the sanitizer
# build (its gst-check tests ran in the release and sanitize legs above). The
# host program is not instrumented, so the sanitizer runtime is preloaded and
# the registry is scanned in-process.
echo "=== gst-launch-1.0 (sanitize) ==="
asan_rt=$(clang -print-file-name=libclang_rt.asan-x86_64.so)
for f in NV12 NV21 I420 RGB BGR; do
    zoom=1.25; [ "$f" = BGR ] && zoom=1
    GST_PLUGIN_PATH="$PWD/build/sanitize/gst" GST_REGISTRY="$PWD/build/sanitize/gst/registry.bin" \
    GST_REGISTRY_FORK=no LD_PRELOAD="$asan_rt" ASAN_OPTIONS=detect_leaks=0 \
        gst-launch-1.0 -q videotestsrc num-buffers=8 ! "video/x-raw,format=$f,width=1282,height=722" ! \
        parvexcorrect k1=0.2 k2=0.05 zoom=$zoom crop=8,8,1200,700 ! fakesink
done

# --- Robustness: fuzz targets and ThreadSanitizer over the whole engine ---
# Each fuzz target runs briefly over its seed corpus in the sanitizer build
# (longer runs: bash tools/fuzz.sh api 3600).
echo "=== fuzz ==="
PVX_FUZZ_BUILD=build/sanitize bash tools/fuzz.sh api 35
PVX_FUZZ_BUILD=build/sanitize bash tools/fuzz.sh reader 25
# Frames at 1, 2, 3, 16 and more workers, zoomed and in place, under TSan:
# the engine's robustness suite only, added to the tsan tree.
echo "=== tsan engine ==="
cmake -S . -B build/tsan -DPVX_TEST_MODULES="runtime;engine" > /dev/null
tsan_engine=robustness_test
if ninja -C build/tsan -t targets all | grep -q '^engine_test:'; then tsan_engine=engine_test; fi
cmake --build build/tsan -j "$jobs" --target "$tsan_engine"
"build/tsan/tests/$tsan_engine" --gtest_filter='Robustness.Frames*:Robustness.FailedFinalize*'

echo "All builds passed."
