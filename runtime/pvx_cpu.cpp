#include "runtime/pvx_cpu.h"

#include <atomic>

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#elif defined(__arm__) && defined(__linux__)
#include <sys/auxv.h>
#ifndef HWCAP_NEON
#define HWCAP_NEON (1 << 12)
#endif
#endif

namespace {

#if defined(__x86_64__) || defined(__i386__)
// XCR0: which register states the operating system saves on a switch.
uint64_t readXcr0() {
    uint32_t lo = 0, hi = 0;
    __asm__ volatile("xgetbv" : "=a"(lo), "=d"(hi) : "c"(0));
    return (static_cast<uint64_t>(hi) << 32) | lo;
}

uint32_t detect() {
    uint32_t a = 0, b = 0, c = 0, d = 0;
    if (!__get_cpuid(1, &a, &b, &c, &d)) return 0;
    const bool ssse3 = (c & bit_SSSE3) != 0;
    const bool sse41 = (c & bit_SSE4_1) != 0;
    const bool osxsave = (c & bit_OSXSAVE) != 0;
    const bool avx = (c & bit_AVX) != 0;
    uint32_t flags = 0;
    if (!ssse3) return flags;
    flags |= PVX_CPU_SSSE3;
    if (!sse41) return flags;
    flags |= PVX_CPU_SSE41;
    if (!osxsave || !avx) return flags;
    const uint64_t xcr0 = readXcr0();
    if ((xcr0 & 0x6) != 0x6) return flags;  // XMM and YMM state
    if (__get_cpuid_max(0, nullptr) < 7) return flags;
    __cpuid_count(7, 0, a, b, c, d);
    if (!(b & bit_AVX2)) return flags;
    flags |= PVX_CPU_AVX2;
    const bool avx512 = (b & bit_AVX512F) && (b & bit_AVX512BW) && (b & bit_AVX512VL);
    if (!avx512 || (xcr0 & 0xE6) != 0xE6) return flags;  // opmask and ZMM state too
    flags |= PVX_CPU_AVX512;
    if (c & bit_AVX512VBMI) flags |= PVX_CPU_AVX512VBMI;
    return flags;
}
#elif defined(__aarch64__)
uint32_t detect() { return PVX_CPU_NEON; }  // Advanced SIMD is part of the base architecture
#elif defined(__arm__) && defined(__ARM_NEON)
uint32_t detect() {
#if defined(__linux__)
    return (getauxval(AT_HWCAP) & HWCAP_NEON) ? PVX_CPU_NEON : 0u;
#else
    return PVX_CPU_NEON;
#endif
}
#else
uint32_t detect() { return 0; }
#endif

// Detection is idempotent, so racing first calls may both run it; the
// library is built without thread-safe statics, hence the atomic.
constexpr uint32_t kNotDetected = 0x80000000u;
std::atomic<uint32_t> g_detected{kNotDetected};
std::atomic<uint32_t> g_mask{PVX_CPU_LEVEL_ALL};

}  // namespace

uint32_t pvx_Cpu_detected(void) {
    uint32_t detected = g_detected.load(std::memory_order_relaxed);
    if (detected == kNotDetected) {
        detected = detect();
        g_detected.store(detected, std::memory_order_relaxed);
    }
    return detected;
}

uint32_t pvx_Cpu_flags(void) { return pvx_Cpu_detected() & g_mask.load(std::memory_order_relaxed); }

void pvx_Cpu_setMask(uint32_t mask) { g_mask.store(mask, std::memory_order_relaxed); }

uint32_t pvx_Cpu_mask(void) { return g_mask.load(std::memory_order_relaxed); }

const char *pvx_Cpu_levelName(uint32_t flags) {
    if (flags & PVX_CPU_NEON) return "neon";
    if (flags & PVX_CPU_AVX512VBMI) return "avx512vbmi";
    if (flags & PVX_CPU_AVX512) return "avx512";
    if (flags & PVX_CPU_AVX2) return "avx2";
    if (flags & PVX_CPU_SSE41) return "sse4.1";
    if (flags & PVX_CPU_SSSE3) return "ssse3";
    return "c";
}
