// Whole frames at every CPU level and worker count against the plain C
// frame, byte for byte: every engine format, a barrel and a pincushion lens,
// a point-table lens, zoom 1 and 1.5, an odd size drawn into a larger output
// (where many cells' taps reach past the source's edges and are clamped).
// Each case prints a hash of its frame so that runs on other targets and
// builds can be compared.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <random>
#include <string>

#include "image/pvx_image_format.h"
#include "runtime/pvx_cpu.h"
#include "runtime/pvx_pel.h"
#include "tests/engine/engine_fixture.h"
#include "tests/engine/frame_images.h"
#include "tests/simd/simd_levels.h"

namespace {

using namespace pvx_test;

struct FrameCase {
    const char *format;
    int32_t format_id;
    int32_t w, h;
    double k1, k2;
    bool table;
    double zoom;
    int32_t outW = 0, outH = 0;   // output size; 0: the input's
};

std::string nameOf(const FrameCase &c) {
    char buf[128];
    snprintf(buf, sizeof buf, "%s %dx%d k1=%g k2=%g%s zoom=%g", c.format, c.w, c.h, c.k1, c.k2,
             c.table ? " table" : "", c.zoom);
    if (c.outW != 0) snprintf(buf + strlen(buf), sizeof buf - strlen(buf), " out %dx%d", c.outW, c.outH);
    return buf;
}

uint64_t hashOf(const Frame &f) {
    uint64_t h = 1469598103934665603ull;
    for (int p = 0; p < 3; ++p)
        for (int32_t y = 0; y < f.planes[p].rows; ++y)
            for (int32_t x = 0; x < f.planes[p].rowBytes; ++x) h = (h ^ f.row(p, y)[x]) * 1099511628211ull;
    return h;
}

// Starts an engine at the current CPU level with `workers` workers and corrects `in` into `out`.
void correct(const FrameCase &c, int32_t workers, const Frame &in, Frame &out) {
    const std::vector<double> xs = {0, 0.25, 0.5, 0.75, 1.0, 1.25}, ys = {0, 0.27, 0.56, 0.87, 1.2, 1.6};
    Engine e(c.table ? tableParam(c.format, c.w, c.h, xs, ys) : coefficientParam(c.format, c.w, c.h, c.k1, c.k2));
    ASSERT_EQ(PARVEX_OK, e.status());
    if (c.outW != 0) {
        ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_setOutputImageSize(e.handle(), c.outW, c.outH));
    }
    ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_start(e.handle()));
    if (c.zoom != 1) {
        ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_setZoomRatio(e.handle(), c.zoom));
    }
    pvx_PelParams params;
    pvx_Pel_resetParams(&params);
    params.numWorkers = workers;
    ASSERT_EQ(PVX_OK, pvx_Pel_init(&e.context()->pel, &params));
    const parvex_ImageData d = out.data(), s = in.data();
    ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_process(e.handle(), &d, &s));
}

class FrameLevels : public ::testing::TestWithParam<FrameCase> {};

TEST_P(FrameLevels, EveryLevelAndWorkerCountGivesThePlainCFrame) {
    const FrameCase &c = GetParam();
    const int32_t ow = c.outW != 0 ? c.outW : c.w, oh = c.outW != 0 ? c.outH : c.h;
    Frame in(c.format_id, c.w, c.h), want(c.format_id, ow, oh);
    std::mt19937_64 rng(7);   // fixed, so that the printed hashes compare across runs
    in.fill([&](int, int32_t, int32_t) { return static_cast<uint8_t>(rng()); });
    {
        ScopedCpuLevel scope(PVX_CPU_LEVEL_C);
        correct(c, 1, in, want);
    }
    printf("%-48s %016llx\n", nameOf(c).c_str(), static_cast<unsigned long long>(hashOf(want)));
    const std::vector<uint32_t> levels = supportedCpuLevels();
    for (uint32_t level : levels) {
        for (int32_t workers : {1, 2, 16}) {
            if (level == PVX_CPU_LEVEL_C && workers == 1) continue;
            if (workers != 1 && level != levels.back()) continue;   // worker counts at the top level
            ScopedCpuLevel scope(level);
            Frame got(c.format_id, ow, oh);
            correct(c, workers, in, got);
            EXPECT_TRUE(got.samePixels(want)) << nameOf(c) << " " << cpuLevelName(level) << " " << workers;
            EXPECT_TRUE(got.bandsIntact());
        }
    }
}

std::vector<FrameCase> frameCases() {
    const char *const formats[] = {"RGB888", "BGR888", "YUV420_PLANAR", "YUV420_SEMIPLANAR", "YVU420_SEMIPLANAR"};
    std::vector<FrameCase> v;
    for (const char *f : formats) {
        const int32_t id = pvx_Image_getImageFormat(f);
        v.push_back({f, id, 640, 480, -0.2, 0.03, false, 1});
        v.push_back({f, id, 638, 358, 0.12, 0, false, 1, 1276, 718});
        v.push_back({f, id, 640, 480, 0, 0, true, 1});
        if (f[0] == 'Y') v.push_back({f, id, 640, 480, -0.2, 0.03, false, 1.5});
    }
    return v;
}

INSTANTIATE_TEST_SUITE_P(Cases, FrameLevels, ::testing::ValuesIn(frameCases()));

}  // namespace
