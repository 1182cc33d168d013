// The level list the other SIMD tests iterate over, and the mask it sets.
#include <gtest/gtest.h>

#include "runtime/pvx_cpu.h"
#include "tests/simd/simd_levels.h"

TEST(SimdLevels, PlainCFirstAndEveryLevelForcesItsFlags) {
    const std::vector<uint32_t> levels = supportedCpuLevels();
    ASSERT_FALSE(levels.empty());
    EXPECT_EQ(levels[0], PVX_CPU_LEVEL_C);
    for (uint32_t level : levels) {
        ScopedCpuLevel scope(level);
        EXPECT_EQ(pvx_Cpu_flags(), level) << cpuLevelName(level);
    }
    EXPECT_EQ(pvx_Cpu_flags(), pvx_Cpu_detected());
}
