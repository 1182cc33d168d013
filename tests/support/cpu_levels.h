// The cumulative CPU levels (pvx_cpu.h) the running processor supports,
// plain C first: what the equality tests and the leaf benchmark walk through.
#pragma once

#include <stdint.h>

#include <vector>

#include "runtime/pvx_cpu.h"

namespace pvx_test {

inline std::vector<uint32_t> supportedCpuLevels() {
    static const uint32_t kLevels[] = {PVX_CPU_LEVEL_C,    PVX_CPU_LEVEL_SSSE3,  PVX_CPU_LEVEL_SSE41,
                                       PVX_CPU_LEVEL_AVX2, PVX_CPU_LEVEL_AVX512, PVX_CPU_LEVEL_AVX512VBMI,
                                       PVX_CPU_LEVEL_NEON};
    const uint32_t have = pvx_Cpu_detected();
    std::vector<uint32_t> out;
    for (uint32_t level : kLevels)
        if ((have & level) == level) out.push_back(level);   // C (no bits) always
    return out;
}

}  // namespace pvx_test
