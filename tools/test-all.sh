#!/usr/bin/env bash
# Builds and runs every test: x86-64 release (g++), x86-64 with
# AddressSanitizer + UndefinedBehaviorSanitizer (clang), the runtime under
# ThreadSanitizer, and 32-bit Arm (NEON) under qemu-arm.
set -euo pipefail
cd "$(dirname "$0")/.."
. tools/ensure-packages.sh
ensure_packages cmake ninja-build g++ clang libclang-rt-14-dev googletest libgtest-dev \
    libbenchmark-dev libpng-dev libjpeg62-turbo-dev pkg-config binutils file \
    g++-arm-linux-gnueabihf qemu-user libopencv-dev g++-aarch64-linux-gnu

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

# --- SIMD leaves on 64-bit Arm: the equality program under qemu-aarch64 ---
build_and_test aarch64 -DCMAKE_BUILD_TYPE=Release -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake \
    -DPVX_BUILD_TOOLS=OFF -DPVX_TEST_MODULES=simd
# --- end of the aarch64 leg ---

echo "All builds passed."
