// Driver of the SIMD equality program: the CPU levels to run every leaf at
// (bench/leaf_bench times the leaves).
#pragma once

#include <stdint.h>

#include <vector>

#include "tests/support/cpu_levels.h"

namespace pvx_test {


// Printable name of a level mask ("c", "ssse3", "avx2", "neon", ...).
const char *cpuLevelName(uint32_t mask);

// Limits the library to the level `mask` for the scope; lifts the limit
// (PVX_CPU_LEVEL_ALL) after.
struct ScopedCpuLevel {
    explicit ScopedCpuLevel(uint32_t mask);
    ~ScopedCpuLevel();
    ScopedCpuLevel(const ScopedCpuLevel &) = delete;
    ScopedCpuLevel &operator=(const ScopedCpuLevel &) = delete;
};

}  // namespace pvx_test

// The contract names these without a namespace as well.
using pvx_test::cpuLevelName;
using pvx_test::ScopedCpuLevel;
using pvx_test::supportedCpuLevels;
