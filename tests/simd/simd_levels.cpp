#include "tests/simd/simd_levels.h"

#include <gtest/gtest.h>

#include <cstdio>

#include "runtime/pvx_cpu.h"

namespace pvx_test {


const char *cpuLevelName(uint32_t mask) { return pvx_Cpu_levelName(mask); }

ScopedCpuLevel::ScopedCpuLevel(uint32_t mask) { pvx_Cpu_setMask(mask); }
ScopedCpuLevel::~ScopedCpuLevel() { pvx_Cpu_setMask(PVX_CPU_LEVEL_ALL); }

}  // namespace pvx_test

int main(int argc, char **argv) {
    ::testing::InitGoogleTest(&argc, argv);
    std::printf("CPU levels:");
    for (uint32_t level : pvx_test::supportedCpuLevels()) std::printf(" %s", pvx_test::cpuLevelName(level));
    std::printf("\n");
    return RUN_ALL_TESTS();
}
