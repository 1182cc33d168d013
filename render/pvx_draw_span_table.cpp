// The dispatch table of the span leaves: the C references, overwritten by
// the leaves of every instruction set the processor offers, chosen once
// when a renderer is initialised instead of per cell.
#include <atomic>

#include "render/pvx_draw_reference.h"
#include "runtime/pvx_cpu.h"

namespace pvx_draw {

namespace {

template <class L, int K, bool Clamp = false>
int32_t referenceLeaf(const SpanArgs &a) {
    if constexpr (K == kNoRot) {
        spanNoRot<L, kBilinear, Clamp>(a);
    } else {
        spanLinear<L, kBilinear, K == kParallel, Clamp>(a);
    }
    return a.n;
}

template <class L>
void fillReferences(SpanLeaf *leaf, SpanLeaf *clamped) {
    leaf[kSpanGeneral] = referenceLeaf<L, kGeneral>;
    leaf[kSpanParallel] = referenceLeaf<L, kParallel>;
    leaf[kSpanNoRot] = referenceLeaf<L, kNoRot>;
    clamped[kSpanGeneral] = referenceLeaf<L, kGeneral, true>;
    clamped[kSpanParallel] = referenceLeaf<L, kParallel, true>;
    clamped[kSpanNoRot] = referenceLeaf<L, kNoRot, true>;
}

static_assert(int(kSpanGeneral) == int(kGeneral) && int(kSpanParallel) == int(kParallel) && int(kSpanNoRot) == int(kNoRot),
              "table slots follow the kernel kinds");

// The library's table. Slots are read per cell while another engine may be
// starting, so they are atomics (plain loads and stores on every target).
// Until a renderer is initialised they hold the C references.
#define PVX_REFERENCE_ROW(L, C)                                                                  \
    {referenceLeaf<L, kGeneral, C>, referenceLeaf<L, kParallel, C>, referenceLeaf<L, kNoRot, C>}
#define PVX_REFERENCE_TABLE(C)                                                                   \
    {PVX_REFERENCE_ROW(LayoutYuv420Semiplanar, C), PVX_REFERENCE_ROW(LayoutYuv420Planar, C),    \
     PVX_REFERENCE_ROW(LayoutRgb888, C)}
std::atomic<SpanLeaf> g_leaf[kSpanFamilyCount][kSpanKindCount] = PVX_REFERENCE_TABLE(false);
std::atomic<SpanLeaf> g_clamped[kSpanFamilyCount][kSpanKindCount] = PVX_REFERENCE_TABLE(true);
#undef PVX_REFERENCE_TABLE
#undef PVX_REFERENCE_ROW

}  // namespace

void fillDrawSpanTable(DrawSpanTable *t, uint32_t cpuFlags) {
    fillReferences<LayoutYuv420Semiplanar>(t->leaf[kSpanSemiplanar], t->clamped[kSpanSemiplanar]);
    fillReferences<LayoutYuv420Planar>(t->leaf[kSpanPlanar], t->clamped[kSpanPlanar]);
    fillReferences<LayoutRgb888>(t->leaf[kSpanRgb], t->clamped[kSpanRgb]);
#if defined(__x86_64__) || defined(__i386__)
    if (cpuFlags & PVX_CPU_SSSE3) {
        initDrawSpansSsse3(t);
        initClampedDrawSpansSsse3(t);
        initDrawSpansRgbSsse3(t);
    }
    if (cpuFlags & PVX_CPU_AVX2) {
        initDrawSpansAvx2(t);
        initDrawSpansRgbAvx2(t);
    }
    if (cpuFlags & PVX_CPU_AVX512VBMI) {
        initDrawSpansAvx512Vbmi(t);
        initDrawSpansRgbAvx512Vbmi(t);
    }
#elif defined(__ARM_NEON)
    if (cpuFlags & PVX_CPU_NEON) {
        initDrawSpansNeon(t);
        initClampedDrawSpansNeon(t);
        initDrawSpansRgbNeon(t);
    }
#else
    (void)cpuFlags;
#endif
}

void initDrawSpans() {
    DrawSpanTable t;
    fillDrawSpanTable(&t, pvx_Cpu_flags());
    for (int f = 0; f < kSpanFamilyCount; ++f)
        for (int k = 0; k < kSpanKindCount; ++k) {
            g_leaf[f][k].store(t.leaf[f][k], std::memory_order_relaxed);
            g_clamped[f][k].store(t.clamped[f][k], std::memory_order_relaxed);
        }
}

SpanLeaf drawSpanLeaf(SpanFamily family, SpanKind kind) {
    return g_leaf[family][kind].load(std::memory_order_relaxed);
}

SpanLeaf drawClampedSpanLeaf(SpanFamily family, SpanKind kind) {
    return g_clamped[family][kind].load(std::memory_order_relaxed);
}

}  // namespace pvx_draw
