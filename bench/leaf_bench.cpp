// Each vector leaf against its C reference at every CPU level the processor
// has: the draw-span leaves on the row pairs of a lens-corrected 1920x1080
// frame (thread CPU time, best of 20 passes, ns per drawn pixel), and the
// resize leaves on a 1920-output row enlarged from 1280 pixels (the zoom-1.5
// case; best of 7 batches of 300 calls, microseconds a call). The machine may
// be shared: read the ratios, and repeat a run before believing a change.
// simd_equality_test checks that every leaf equals its reference.
#include <stdint.h>
#include <string.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "render/pvx_draw_reference.h"
#include "render/pvx_draw_span.h"
#include "resample/pvx_resize_internal.h"
#include "tests/support/cpu_levels.h"
#include "runtime/pvx_cpu.h"

namespace {

using namespace pvx_draw;
using pvx_test::supportedCpuLevels;

const char *const kKindNames[] = {"general", "parallelogram", "unrotated"};


DrawSpanTable tableAt(uint32_t level) {
    pvx_Cpu_setMask(level);
    DrawSpanTable t;
    fillDrawSpanTable(&t, pvx_Cpu_flags());
    pvx_Cpu_setMask(PVX_CPU_LEVEL_ALL);
    return t;
}

pvx_ResizeLeaves leavesAt(uint32_t level) {
    pvx_Cpu_setMask(level);
    pvx_ResizeLeaves leaves;
    pvx_ImageProc2_fillLeaves(&leaves);
    pvx_Cpu_setMask(PVX_CPU_LEVEL_ALL);
    return leaves;
}

// The leaf, then the reference for what the leaf left.
void draw(SpanLeaf leaf, SpanLeaf reference, const SpanArgs &a) {
    const int32_t done = leaf(a);
    if (done < a.n) reference(linearFrom(a, done));
}

// CPU time of this thread: time spent descheduled is not the leaf's.
double threadNs() {
    timespec t;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return 1e9 * static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec);
}

// 32-pixel row pairs walked cell by cell, with the steps of a lens-corrected
// frame (about one pixel a pixel, slopes up to a tenth of a pixel). The
// clamped leaves get the same spans moved over the frame's edges (half of
// each span past the left or right edge, or its rows over the top or bottom).
void spanLeaves() {
    constexpr int32_t kW = 1920, kH = 1080, kSpan = 32, kSpans = 4096;
    std::mt19937_64 rng(12345);
    std::vector<uint8_t> srcY(static_cast<size_t>(3 * kW) * kH), srcU(srcY.size() / 2), srcV(srcY.size() / 2);
    for (auto *p : {&srcY, &srcU, &srcV})
        for (uint8_t &b : *p) b = static_cast<uint8_t>(rng());
    std::vector<uint8_t> dstY(srcY.size()), dstU(srcU.size()), dstV(srcV.size());
    std::uniform_real_distribution<double> unit(0, 1);
    const DrawSpanTable ref = tableAt(PVX_CPU_LEVEL_C);
    for (SpanFamily family : {kSpanSemiplanar, kSpanPlanar, kSpanRgb}) {
        const bool planar = family == kSpanPlanar, rgb = family == kSpanRgb;
        const int32_t yPitch = rgb ? 3 * kW : kW;
        SrcPlanes src{srcY.data(), srcU.data(), planar ? srcV.data() : srcU.data() + 1, yPitch, planar ? kW / 2 : kW,
                      planar ? kW / 2 : kW, kW, kH, kW / 2, kH / 2};
        for (int variant = 0; variant < 2 * kSpanKindCount; ++variant) {
            const SpanKind kind = static_cast<SpanKind>((kSpanNoRot + variant) % kSpanKindCount);
            const bool clamped = variant >= kSpanKindCount;
            std::vector<SpanArgs> spans(kSpans);
            std::vector<int32_t> off(16 * kSpans);
            int32_t ux = 0, uy = 0, hx = 0, hy = 32768;
            for (int32_t i = 0; i < kSpans; ++i) {
                const int32_t cell = i / 16, pair = i % 16;
                const int32_t cx = 1 + cell % (kW / kSpan - 2), cy = 1 + (cell / (kW / kSpan - 2)) % (kH / kSpan - 2);
                if (pair == 0) {
                    ux = static_cast<int32_t>((0.8 + 0.45 * unit(rng)) * 32768);
                    uy = kind != kSpanNoRot ? static_cast<int32_t>((unit(rng) - 0.5) * 0.2 * 32768) : 0;
                    hx = kind == kSpanParallel ? static_cast<int32_t>((unit(rng) - 0.5) * 0.1 * 32768) : 0;
                    hy = kind == kSpanParallel ? static_cast<int32_t>((0.95 + 0.1 * unit(rng)) * 32768) : 32768;
                }
                SpanArgs &a = spans[i];
                memset(&a, 0, sizeof a);
                a.ux = ux, a.uy = uy, a.hx = hx, a.hy = hy, a.n = kSpan;
                for (int k = 0; k < 16; ++k) off[16 * i + k] = static_cast<int32_t>((static_cast<int64_t>(ux >> 3) * k) >> 8);
                a.off16 = &off[16 * i];
                const int32_t x = cx * kSpan, y = cy * kSpan + 2 * pair;
                a.sx = x * 32768 + static_cast<int32_t>(unit(rng) * 32768);
                a.sy = y * 32768 + static_cast<int32_t>(unit(rng) * 32768);
                if (clamped) {
                    const int32_t edge = static_cast<int32_t>(cell % 4);
                    if (edge == 0) a.sx = -kSpan / 2 * 32768 + (a.sx & 32767);
                    if (edge == 1) a.sx = (kW - kSpan / 2) * 32768 + (a.sx & 32767);
                    if (edge == 2) a.sy = -32768 + pair * 4096 + (a.sy & 4095);
                    if (edge == 3) a.sy = (kH - 2) * 32768 + pair * 4096 + (a.sy & 4095);
                }
                a.dx = x;
                a.dy0 = dstY.data() + static_cast<ptrdiff_t>(y) * yPitch;
                a.dy1 = a.dy0 + yPitch;
                if (!rgb) a.dc00 = (planar ? dstU.data() : dstY.data()) + static_cast<ptrdiff_t>(y / 2) * (planar ? kW / 2 : kW);
                if (!rgb) a.dc01 = planar ? dstV.data() + static_cast<ptrdiff_t>(y / 2) * (kW / 2) : a.dc00 + 1;
                a.src = &src;
            }
            const auto slot = [&](const DrawSpanTable &t) { return clamped ? t.clamped[family][kind] : t.leaf[family][kind]; };
            const auto timeLeaf = [&](SpanLeaf leaf) {
                double best = 1e30;
                for (int r = 0; r < 20; ++r) {
                    const double t0 = threadNs();
                    for (const SpanArgs &a : spans) draw(leaf, slot(ref), a);
                    best = std::min(best, (threadNs() - t0) / (2.0 * kSpan * kSpans));
                }
                return best;
            };
            const double c = timeLeaf(slot(ref));
            std::printf("%-10s %-21s c %6.3f ns/px", rgb ? "rgb" : planar ? "planar" : "semiplanar",
                        (std::string(kKindNames[kind]) + (clamped ? " clamped" : "")).c_str(), c);
            for (uint32_t level : supportedCpuLevels()) {
                if (level == PVX_CPU_LEVEL_C) continue;
                const double v = timeLeaf(slot(tableAt(level)));
                std::printf("  %s %6.3f (%.2fx)", pvx_Cpu_levelName(level), v, c / v);
            }
            std::printf("\n");
        }
    }
}

// Best of 7 batches of 300 calls, in microseconds a call.
double microsecondsOf(const std::function<void()> &run) {
    double best = 1e30;
    for (int batch = 0; batch < 7; ++batch) {
        const auto t0 = std::chrono::steady_clock::now();
        for (int i = 0; i < 300; ++i) run();
        const double us = std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - t0).count();
        best = std::min(best, us / 300);
    }
    return best;
}

void resizeLeaves() {
    const int32_t sw = 1280, dw = 1920, groups = dw / 8 - 4;
    const int32_t step = static_cast<int32_t>(pvx_ImageProc2_geometry(sw, dw).step);
    std::vector<uint8_t> src(3 * sw + 64, 0x5A), out(8 * dw), a(4 * dw, 0x33), b(4 * dw, 0x77);
    const auto *a16 = reinterpret_cast<const uint16_t *>(a.data()), *b16 = reinterpret_cast<const uint16_t *>(b.data());
    auto *o16 = reinterpret_cast<uint16_t *>(out.data());
    const auto runs = [&](const pvx_ResizeLeaves &l) {
        return std::vector<std::pair<const char *, std::function<void()>>>{
            {"uint8Groups", [&] { l.uint8Groups(out.data(), src.data(), groups, 0, step); }},
            {"rgb888Groups", [&] { l.rgb888Groups(out.data(), src.data(), groups, 0, step); }},
            {"uint88Groups", [&] { l.uint88Groups(o16, src.data(), groups, 0, step); }},
            {"blend7 (RGB888 row)", [&] { l.blend7(out.data(), a.data(), b.data(), 3 * dw / 8, 45); }},
            {"blend88", [&] { l.blend88(out.data(), a16, b16, 2 * dw / 8, 5000); }}};
    };
    const auto ref = runs(*pvx_ImageProc2_referenceLeaves());
    for (uint32_t level : supportedCpuLevels()) {
        if (level == PVX_CPU_LEVEL_C) continue;
        const pvx_ResizeLeaves leaves = leavesAt(level);
        const auto mine = runs(leaves);
        for (size_t i = 0; i < ref.size(); ++i) {
            const double c = microsecondsOf(ref[i].second), v = microsecondsOf(mine[i].second);
            std::printf("%-8s %-22s C %8.2f us  leaf %8.2f us  x%.1f\n", pvx_Cpu_levelName(level), ref[i].first, c, v,
                        c / v);
        }
    }
}

}  // namespace

int main() {
    std::printf("CPU levels:");
    for (uint32_t level : supportedCpuLevels()) std::printf(" %s", pvx_Cpu_levelName(level));
    std::printf("\n");
    spanLeaves();
    resizeLeaves();
    return 0;
}
