// The dispatch table of the span leaves: the C references, overwritten by
// the leaves of every instruction set the processor offers, chosen once
// when a renderer is initialised instead of per cell.
#include <atomic>

#include "render/pvx_draw_reference.h"
#include "runtime/pvx_cpu.h"

namespace pvx_draw {

namespace {

template <class L, int K>
int32_t referenceLeaf(const SpanArgs &a) {
    if constexpr (K == kNoRot) {
        spanNoRot<L, kBilinear, false>(a);
    } else {
        spanLinear<L, kBilinear, K == kParallel, false>(a);
    }
    return a.n;
}

static_assert(int(kSpanGeneral) == int(kGeneral) && int(kSpanParallel) == int(kParallel) && int(kSpanNoRot) == int(kNoRot),
              "table slots follow the kernel kinds");

// The library's table. Slots are read per cell while another engine may be
// starting, so they are atomics (plain loads and stores on every target).
std::atomic<SpanLeaf> g_leaf[kSpanFamilyCount][kSpanKindCount] = {
    {referenceLeaf<LayoutYuv420Semiplanar, kGeneral>, referenceLeaf<LayoutYuv420Semiplanar, kParallel>,
     referenceLeaf<LayoutYuv420Semiplanar, kNoRot>},
    {referenceLeaf<LayoutYuv420Planar, kGeneral>, referenceLeaf<LayoutYuv420Planar, kParallel>,
     referenceLeaf<LayoutYuv420Planar, kNoRot>},
    {referenceLeaf<LayoutRgb888, kGeneral>, referenceLeaf<LayoutRgb888, kParallel>, referenceLeaf<LayoutRgb888, kNoRot>}};

}  // namespace

void fillDrawSpanTable(DrawSpanTable *t, uint32_t cpuFlags) {
    t->leaf[kSpanSemiplanar][kSpanGeneral] = referenceLeaf<LayoutYuv420Semiplanar, kGeneral>;
    t->leaf[kSpanSemiplanar][kSpanParallel] = referenceLeaf<LayoutYuv420Semiplanar, kParallel>;
    t->leaf[kSpanSemiplanar][kSpanNoRot] = referenceLeaf<LayoutYuv420Semiplanar, kNoRot>;
    t->leaf[kSpanPlanar][kSpanGeneral] = referenceLeaf<LayoutYuv420Planar, kGeneral>;
    t->leaf[kSpanPlanar][kSpanParallel] = referenceLeaf<LayoutYuv420Planar, kParallel>;
    t->leaf[kSpanPlanar][kSpanNoRot] = referenceLeaf<LayoutYuv420Planar, kNoRot>;
    t->leaf[kSpanRgb][kSpanGeneral] = referenceLeaf<LayoutRgb888, kGeneral>;
    t->leaf[kSpanRgb][kSpanParallel] = referenceLeaf<LayoutRgb888, kParallel>;
    t->leaf[kSpanRgb][kSpanNoRot] = referenceLeaf<LayoutRgb888, kNoRot>;
#if defined(__x86_64__) || defined(__i386__)
    if (cpuFlags & PVX_CPU_SSSE3) {
        initDrawSpansSsse3(t);
        initDrawSpansRgbSsse3(t);
    }
    if (cpuFlags & PVX_CPU_AVX2) initDrawSpansRgbAvx2(t);
    if (cpuFlags & PVX_CPU_AVX512VBMI) {
        initDrawSpansAvx512Vbmi(t);
        initDrawSpansRgbAvx512Vbmi(t);
    }
#elif defined(__ARM_NEON)
    if (cpuFlags & PVX_CPU_NEON) {
        initDrawSpansNeon(t);
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
        for (int k = 0; k < kSpanKindCount; ++k) g_leaf[f][k].store(t.leaf[f][k], std::memory_order_relaxed);
}

SpanLeaf drawSpanLeaf(SpanFamily family, SpanKind kind) {
    return g_leaf[family][kind].load(std::memory_order_relaxed);
}

}  // namespace pvx_draw
