// Band splits over the parallel layer: a pool of 1, 2 or 4 workers gives
// the same bytes as no pool, on both paths and for every format, and the
// scratch is given back.
#include "tests/resample/resize_test_util.h"

#include "runtime/pvx_pel.h"
#include "tests/runtime/thread_test_support.h"

namespace {

using namespace rt;

struct Case {
    int32_t format, sw, sh, dw, dh;
};

std::vector<std::vector<uint8_t>> run(pvx_Pel *pel, const Case &c, bool bilinearEntry, uint64_t seed) {
    TestEnv env;
    pvx_ImageProc2 proc;
    pvx_construct_ImageProc2(&proc, env.env());
    pvx_ImageProc2_setPel(&proc, pel);
    std::mt19937_64 rng(seed);
    TestImage src(c.sw, c.sh, c.format, 1), dst(c.dw, c.dh, c.format, 3);
    src.randomize(rng);
    const pvx_Result r = bilinearEntry ? pvx_ImageProc2_resizeImageBilinear(&proc, &dst.img, &src.img)
                                       : pvx_ImageProc2_resizeImage(&proc, &dst.img, &src.img);
    EXPECT_EQ(r, PVX_OK);
    EXPECT_EQ(env.used(), 0u);
    EXPECT_TRUE(dst.sentinelsIntact());
    std::vector<std::vector<uint8_t>> planes;
    for (int32_t p = 0; p < pvx_Image_getPlaneCount(c.format); ++p) planes.push_back(dst.plane(p));
    return planes;
}

TEST(ResizePel, WorkerCountsGiveIdenticalOutput) {
    std::mt19937_64 rng = pvx_test::makeRng(800);
    const Case cases[] = {
        {PVX_FORMAT_UINT8, 37, 23, 101, 67},   {PVX_FORMAT_UINT8, 64, 40, 32, 20},    // general, half
        {PVX_FORMAT_UINT16, 20, 9, 33, 3},     {PVX_FORMAT_INT32, 15, 30, 8, 14},
        {PVX_FORMAT_UINT88, 21, 13, 40, 31},   {PVX_FORMAT_RGB888, 40, 11, 61, 45},
        {PVX_FORMAT_RGB888, 41, 21, 21, 11},   {PVX_FORMAT_YUV420_PLANAR, 48, 27, 73, 41},
        {PVX_FORMAT_YUV420_SEMIPLANAR, 128, 72, 192, 108}, {PVX_FORMAT_YVU420_SEMIPLANAR, 50, 30, 25, 15},
        {PVX_FORMAT_UINT8, 30, 40, 45, 1},     {PVX_FORMAT_UINT8, 9, 3, 17, 2},       // fewer rows than tasks
    };
    std::vector<std::vector<std::vector<uint8_t>>> reference;
    std::vector<uint64_t> seeds;
    for (const Case &c : cases) {
        seeds.push_back(rng());
        for (bool bil : {false, true}) reference.push_back(run(nullptr, c, bil, seeds.back()));
    }
    for (int32_t workers : {1, 2, 4}) {
        pvx_thread_test::PoolBox pool;
        ASSERT_EQ(pool.init(workers), PVX_OK);
        size_t i = 0;
        for (size_t ci = 0; ci < sizeof(cases) / sizeof(cases[0]); ++ci) {
            for (bool bil : {false, true}) {
                EXPECT_EQ(run(pool.pel, cases[ci], bil, seeds[ci]), reference[i])
                    << "W=" << workers << " case " << ci << (bil ? " bilinear entry" : "");
                ++i;
            }
        }
    }
}

}  // namespace
