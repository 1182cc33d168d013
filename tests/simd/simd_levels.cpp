#include "tests/simd/simd_levels.h"

#include <gtest/gtest.h>

#include <cstdio>

#include "runtime/pvx_cpu.h"

namespace pvx_test {

std::vector<uint32_t> supportedCpuLevels() {
    static const uint32_t kLevels[] = {PVX_CPU_LEVEL_C,    PVX_CPU_LEVEL_SSSE3,  PVX_CPU_LEVEL_SSE41,
                                       PVX_CPU_LEVEL_AVX2, PVX_CPU_LEVEL_AVX512, PVX_CPU_LEVEL_AVX512VBMI,
                                       PVX_CPU_LEVEL_NEON};
    const uint32_t have = pvx_Cpu_detected();
    std::vector<uint32_t> out;
    for (uint32_t level : kLevels)
        if ((have & level) == level) out.push_back(level);   // C (no bits) always
    return out;
}

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
