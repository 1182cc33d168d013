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
    TestEnv env;
    pvx_ImageProc2 proc;
    pvx_construct_ImageProc2(&proc, env.env());
    std::mt19937_64 rng = pvx_test::makeRng(900);
    for (int i = 0; i < pvx_test::rounds(80); ++i) {
        const Kind k = static_cast<Kind>(i % 5);
        const int32_t f = 1 + static_cast<int32_t>(rng() % 5);
        const int32_t sw = 1 + static_cast<int32_t>(rng() % 40), sh = 1 + static_cast<int32_t>(rng() % 30);
        const int32_t dw = (sw + f - 1) / f, dh = (sh + f - 1) / f;
        TestImage src(sw, sh, info(k).format, 1), dst(dw, dh, info(k).format, 2);
        src.randomize(rng);
        ASSERT_EQ(pvx_ImageProc2_averageShrink(&proc, &dst.img, &src.img, f), PVX_OK);
        EXPECT_TRUE(dst.sentinelsIntact());
        EXPECT_EQ(firstDiff(modelShrink(k, samples(k, src.plane(0)), sw, sh, f), samples(k, dst.plane(0))), -1)
            << info(k).name << " " << sw << "x" << sh << " / " << f;
    }
    EXPECT_EQ(env.used(), 0u);
}

TEST(AverageShrink, MultiPlanePlanesShrinkAlone) {
    TestEnv env;
    pvx_ImageProc2 proc;
    pvx_construct_ImageProc2(&proc, env.env());
    std::mt19937_64 rng = pvx_test::makeRng(901);
    for (int32_t format : {PVX_FORMAT_YUV420_PLANAR, PVX_FORMAT_YUV420_SEMIPLANAR, PVX_FORMAT_YVU420_SEMIPLANAR}) {
        const int32_t sw = 23, sh = 17, f = 3, dw = 8, dh = 6;
        TestImage src(sw, sh, format), dst(dw, dh, format, 1);
        src.randomize(rng);
        ASSERT_EQ(pvx_ImageProc2_averageShrink(&proc, &dst.img, &src.img, f), PVX_OK);
        EXPECT_EQ(firstDiff(modelShrink(U8, samples(U8, src.plane(0)), sw, sh, f), samples(U8, dst.plane(0))), -1);
        const Kind ck = format == PVX_FORMAT_YUV420_PLANAR ? U8 : U88;
        for (int32_t p = 1; p < pvx_Image_getPlaneCount(format); ++p)
            EXPECT_EQ(firstDiff(modelShrink(ck, samples(ck, src.plane(p)), 12, 9, f), samples(ck, dst.plane(p))), -1)
                << format << " plane " << p;
    }
}

TEST(AverageShrink, Arguments) {
    TestEnv env;
    pvx_ImageProc2 proc;
    pvx_construct_ImageProc2(&proc, env.env());
    TestImage src(10, 10, PVX_FORMAT_UINT8), dst(5, 5, PVX_FORMAT_UINT8), odd(4, 5, PVX_FORMAT_UINT8);
    TestImage other(5, 5, PVX_FORMAT_UINT16), bgr(5, 5, PVX_FORMAT_BGR888), bgrSrc(10, 10, PVX_FORMAT_BGR888);
    EXPECT_EQ(pvx_ImageProc2_averageShrink(nullptr, &dst.img, &src.img, 2), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_ImageProc2_averageShrink(&proc, nullptr, &src.img, 2), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_ImageProc2_averageShrink(&proc, &dst.img, nullptr, 2), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_ImageProc2_averageShrink(&proc, &dst.img, &src.img, 0), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_ImageProc2_averageShrink(&proc, &dst.img, &src.img, 1025), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_ImageProc2_averageShrink(&proc, &odd.img, &src.img, 2), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_ImageProc2_averageShrink(&proc, &other.img, &src.img, 2), PVX_ERROR_FORMAT);
    EXPECT_EQ(pvx_ImageProc2_averageShrink(&proc, &bgr.img, &bgrSrc.img, 2), PVX_ERROR_FORMAT);
    EXPECT_EQ(pvx_ImageProc2_averageShrink(&proc, &src.img, &src.img, 1), PVX_OK);   // factor 1 onto itself
    EXPECT_EQ(pvx_ImageProc2_getBufferSizeForAverageShrink(&proc, 100), 0);
    EXPECT_EQ(pvx_ImageProc2_getBufferSizeWithFormatForAverageShrink(100, PVX_FORMAT_UINT8), 0);
}

}  // namespace
