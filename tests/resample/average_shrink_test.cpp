// Shrinking by block averages: every member against a model, edge blocks cut
// by the image, multi-plane formats, and the argument rules.
#include "tests/resample/resize_test_util.h"

namespace {

using namespace rt;

std::vector<int64_t> modelShrink(Kind k, const std::vector<int64_t> &s, int32_t sw, int32_t sh, int32_t f) {
    const int32_t C = info(k).channels, dw = (sw + f - 1) / f, dh = (sh + f - 1) / f;
    std::vector<int64_t> out;
    for (int32_t y = 0; y < dh; ++y)
        for (int32_t x = 0; x < dw; ++x)
            for (int32_t c = 0; c < C; ++c) {
                int64_t sum = 0, count = 0;
                for (int32_t r = y * f; r < std::min(sh, y * f + f); ++r)
                    for (int32_t i = x * f; i < std::min(sw, x * f + f); ++i, ++count) sum += s[(r * sw + i) * C + c];
                out.push_back(floorDiv(sum + count / 2, count));
            }
    return out;
}

TEST(AverageShrink, MembersMatchModel) {
    Resizer rz;
    std::mt19937_64 rng = pvx_test::makeRng(900);
    for (int i = 0; i < pvx_test::rounds(80); ++i) {
        const Kind k = static_cast<Kind>(i % 5);
        const int32_t f = 1 + static_cast<int32_t>(rng() % 5);
        const int32_t sw = 1 + static_cast<int32_t>(rng() % 40), sh = 1 + static_cast<int32_t>(rng() % 30);
        const int32_t dw = (sw + f - 1) / f, dh = (sh + f - 1) / f;
        TestImage src(sw, sh, info(k).format, 1), dst(dw, dh, info(k).format, 2);
        src.randomize(rng);
        ASSERT_EQ(pvx_ImageProc2_averageShrink(&rz.proc, &dst.img, &src.img, f), PVX_OK);
        EXPECT_TRUE(dst.sentinelsIntact());
        EXPECT_EQ(firstDiff(modelShrink(k, samples(k, src.plane(0)), sw, sh, f), samples(k, dst.plane(0))), -1)
            << info(k).name << " " << sw << "x" << sh << " / " << f;
    }
    EXPECT_EQ(rz.env.used(), 0u);
}

}  // namespace
