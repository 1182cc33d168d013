// Draw spans alone: the scalar span and each vector twin over the same set
// of 32-pixel row pairs of a 1920x1080 "YUV420_SEMIPLANAR" frame, walked
// cell by cell, with the steps of a lens-corrected frame (about one pixel a
// pixel, slopes up to a tenth of a pixel). Timed with a plain clock rather
// than Google Benchmark (which the other benchmarks use), so that the same
// source also runs under an emulator:
//   draw_span_bench [rounds]
// prints nanoseconds per drawn pixel (both rows of a pair) for each kind of
// span and each implementation, the best of `rounds` rounds (default 20).
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <chrono>
#include <random>
#include <vector>

#include "render/pvx_draw_span.h"
#include "render/pvx_draw_walk.h"

namespace {

using namespace pvx_draw;

constexpr int32_t kW = 1920, kH = 1080, kSpan = 32, kSpans = 4096;

enum SpanKind { kNoRotSpan, kGeneralSpan, kParallelSpan };
const char *const kKindNames[] = {"unrotated", "general", "parallelogram"};

struct Spans {
    std::vector<SpanArgs> args;
    std::vector<int32_t> off16;  // 16 per span
};

// Row pairs in cell order: 32x32 cells over the frame, each cell with its
// own steps, its row pairs advancing two source rows, as the kernels walk.
Spans makeSpans(SpanKind kind, const SrcPlanes *src, uint8_t *dstY, uint8_t *dstC, std::mt19937_64 &rng) {
    Spans s;
    s.args.resize(kSpans);
    s.off16.resize(16 * kSpans);
    std::uniform_real_distribution<double> unit(0, 1);
    const int32_t cellsX = kW / kSpan - 2;
    int32_t ux = 0, uy = 0, hx = 0, hy = 32768;
    for (int32_t i = 0; i < kSpans; ++i) {
        const int32_t cell = i / 16, pair = i % 16;
        const int32_t cx = 1 + cell % cellsX, cy = 1 + (cell / cellsX) % (kH / kSpan - 2);
        if (pair == 0) {
            ux = static_cast<int32_t>((0.8 + 0.45 * unit(rng)) * 32768);
            uy = kind != kNoRotSpan ? static_cast<int32_t>((unit(rng) - 0.5) * 0.2 * 32768) : 0;
            hx = kind == kParallelSpan ? static_cast<int32_t>((unit(rng) - 0.5) * 0.1 * 32768) : 0;
            hy = kind == kParallelSpan ? static_cast<int32_t>((0.95 + 0.1 * unit(rng)) * 32768) : 32768;
        }
        SpanArgs &a = s.args[i];
        memset(&a, 0, sizeof a);
        a.ux = ux;
        a.uy = uy;
        a.hx = hx;
        a.hy = hy;
        int32_t *off = &s.off16[16 * i];
        for (int k = 0; k < 16; ++k) off[k] = static_cast<int32_t>((static_cast<int64_t>(a.ux >> 3) * k) >> 8);
        a.off16 = off;
        a.n = kSpan;
        const int32_t x = cx * kSpan, y = cy * kSpan + 2 * pair;
        a.sx = x * 32768 + static_cast<int32_t>(unit(rng) * 32768);
        a.sy = y * 32768 + static_cast<int32_t>(unit(rng) * 32768);
        a.dx = x;
        a.dy0 = dstY + static_cast<ptrdiff_t>(y) * kW;
        a.dy1 = a.dy0 + kW;
        a.dc00 = dstC + static_cast<ptrdiff_t>(y / 2) * kW;
        a.dc01 = a.dc00 + 1;
        a.src = src;
    }
    return s;
}

void scalarSpan(SpanKind kind, const SpanArgs &a) {
    switch (kind) {
        case kNoRotSpan:
            spanNoRot<LayoutYuv420Semiplanar, kBilinear, false>(a);
            break;
        case kGeneralSpan:
            spanLinear<LayoutYuv420Semiplanar, kBilinear, false, false>(a);
            break;
        default:
            spanLinear<LayoutYuv420Semiplanar, kBilinear, true, false>(a);
            break;
    }
}

// Best time of `rounds` passes over the spans, in ns per pixel; `twin` null: scalar.
double timeSpans(SpanKind kind, const Spans &s, SpanTwin twin, int rounds) {
    double best = 1e30;
    for (int r = 0; r < rounds; ++r) {
        const auto t0 = std::chrono::steady_clock::now();
        for (const SpanArgs &a : s.args) {
            const int32_t done = twin != nullptr ? twin(a) : 0;
            if (done < a.n) {
                SpanArgs rest = a;
                rest.dx += done;
                rest.n -= done;
                rest.sx = wadd(a.sx, wmul(done, a.ux));
                rest.sy = wadd(a.sy, wmul(done, a.uy));
                scalarSpan(kind, rest);
            }
        }
        const double ns = std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - t0).count();
        best = ns < best ? ns : best;
    }
    return best / (2.0 * kSpan * kSpans);
}

}  // namespace

int main(int argc, char **argv) {
    const int rounds = argc > 1 ? atoi(argv[1]) : 20;
    std::mt19937_64 rng(12345);
    std::vector<uint8_t> srcY(static_cast<size_t>(kW) * kH), srcC(static_cast<size_t>(kW) * kH / 2);
    for (uint8_t &b : srcY) b = static_cast<uint8_t>(rng());
    for (uint8_t &b : srcC) b = static_cast<uint8_t>(rng());
    std::vector<uint8_t> dstY(srcY.size()), dstC(srcC.size());
    SrcPlanes src;
    src.y = srcY.data();
    src.c0 = srcC.data();
    src.c1 = srcC.data() + 1;
    src.yPitch = kW;
    src.c0Pitch = src.c1Pitch = kW;
    src.w = kW;
    src.h = kH;
    src.cw = kW / 2;
    src.ch = kH / 2;

    const SpanTwins *const *twins = nullptr;
    const int32_t count = availableSpanTwins(&twins);
    printf("%-14s %10s", "span", "scalar");
    for (int32_t t = 0; t < count; ++t) printf(" %10s %7s", twins[t]->isa, "ratio");
    printf("   (ns per pixel)\n");
    for (SpanKind kind : {kNoRotSpan, kGeneralSpan, kParallelSpan}) {
        const Spans s = makeSpans(kind, &src, dstY.data(), dstC.data(), rng);
        const double scalar = timeSpans(kind, s, nullptr, rounds);
        printf("%-14s %10.3f", kKindNames[kind], scalar);
        for (int32_t t = 0; t < count; ++t) {
            const SpanTwin twin = kind == kNoRotSpan     ? twins[t]->noRotSemiplanar
                                  : kind == kGeneralSpan ? twins[t]->generalSemiplanar
                                                         : twins[t]->parallelSemiplanar;
            const double v = timeSpans(kind, s, twin, rounds);
            printf(" %10.3f %6.2fx", v, scalar / v);
        }
        printf("\n");
    }
    return 0;
}
