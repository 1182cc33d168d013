// What the processor offers in vector instructions, detected once, and a
// mask that tests and benchmarks use to force a lower level (down to plain
// C). Every area that picks vector code asks here; nothing else runs cpuid
// or reads the hardware capabilities.
#pragma once

#include <stdint.h>

// Feature bits. On x86 each level implies the ones below it (a level is
// only reported when all lower ones are present as well).
enum : uint32_t {
    PVX_CPU_SSSE3 = 1u << 0,
    PVX_CPU_SSE41 = 1u << 1,
    PVX_CPU_AVX2 = 1u << 2,      // with the operating system saving the YMM state
    PVX_CPU_AVX512 = 1u << 3,    // AVX-512 F, BW and VL, with the ZMM state saved
    PVX_CPU_AVX512VBMI = 1u << 4,  // AVX-512 VBMI (byte permutes across 64 and 128 bytes)
    PVX_CPU_NEON = 1u << 8,      // Arm Advanced SIMD
};

// Cumulative levels, for masks.
enum : uint32_t {
    PVX_CPU_LEVEL_C = 0,
    PVX_CPU_LEVEL_SSSE3 = PVX_CPU_SSSE3,
    PVX_CPU_LEVEL_SSE41 = PVX_CPU_LEVEL_SSSE3 | PVX_CPU_SSE41,
    PVX_CPU_LEVEL_AVX2 = PVX_CPU_LEVEL_SSE41 | PVX_CPU_AVX2,
    PVX_CPU_LEVEL_AVX512 = PVX_CPU_LEVEL_AVX2 | PVX_CPU_AVX512,
    PVX_CPU_LEVEL_AVX512VBMI = PVX_CPU_LEVEL_AVX512 | PVX_CPU_AVX512VBMI,
    PVX_CPU_LEVEL_NEON = PVX_CPU_NEON,
    PVX_CPU_LEVEL_ALL = 0xFFFFFFFFu,
};

// The features of the running processor, ignoring the mask.
uint32_t pvx_Cpu_detected(void);

// The features code may use: the detected ones that the mask lets through.
uint32_t pvx_Cpu_flags(void);

// Limits pvx_Cpu_flags to the bits of `mask` (PVX_CPU_LEVEL_ALL lifts the
// limit). Dispatch tables read the flags when they are filled, so set the
// mask before the engine's start.
void pvx_Cpu_setMask(uint32_t mask);
uint32_t pvx_Cpu_mask(void);

// Short name of the best level in `flags`: "c", "ssse3", "sse4.1", "avx2",
// "avx512", "avx512vbmi" or "neon".
const char *pvx_Cpu_levelName(uint32_t flags);
