// 2:1 box path: the selection rule (within one pixel of half the source in
// both directions, resizeImage only) and the box averages of every member
// against the model, including the last column of a destination one pixel
// wider than half.
#include "tests/resample/resize_test_util.h"

namespace {

using namespace rt;

enum class Path { Box, Bilinear };

// Runs resizeImage on a random image and tells which model the output matches.
void expectPath(Resizer &rz, Kind k, int32_t sw, int32_t sh, int32_t dw, int32_t dh, Path path,
                std::mt19937_64 &rng, bool bilinearEntry = false) {
    const KindInfo &ki = info(k);
    TestImage src(sw, sh, ki.format, static_cast<int32_t>(rng() % 3));
    src.randomize(rng);
    TestImage dst(dw, dh, ki.format, 2);
    const uint32_t used = rz.env.used();
    const pvx_Result r = bilinearEntry ? pvx_ImageProc2_resizeImageBilinear(&rz.proc, &dst.img, &src.img)
                                       : pvx_ImageProc2_resizeImage(&rz.proc, &dst.img, &src.img);
    ASSERT_EQ(r, PVX_OK);
    EXPECT_EQ(rz.env.used(), used);
    EXPECT_TRUE(dst.sentinelsIntact());
    const std::vector<int64_t> s = samples(k, src.plane(0)), got = samples(k, dst.plane(0));
    const std::vector<int64_t> box = modelBox(k, s, sw, sh, dw, dh), bil = modelBilinear(k, s, sw, sh, dw, dh);
    ASSERT_NE(firstDiff(box, bil), -1) << "random contents should tell the paths apart";
    const int64_t d = firstDiff(path == Path::Box ? box : bil, got);
    EXPECT_EQ(d, -1) << ki.name << " " << sw << "x" << sh << " -> " << dw << "x" << dh
                     << (path == Path::Box ? " (box)" : " (bilinear)") << " first diff at " << d;
}

class BoxMember : public ::testing::TestWithParam<Kind> {};

TEST_P(BoxMember, SelectionBoundary) {
    Resizer rz;
    std::mt19937_64 rng = pvx_test::makeRng(500 + GetParam());
    for (int32_t sw : {8, 9, 23, 64, 65}) {
        const int32_t sh = sw / 2 + 5, hw = sw >> 1, hh = sh >> 1;
        // Within one pixel in both directions: box.
        for (int32_t ex = -1; ex <= 1; ++ex)
            for (int32_t ey = -1; ey <= 1; ++ey) expectPath(rz, GetParam(), sw, sh, hw + ex, hh + ey, Path::Box, rng);
        // Two pixels off in either direction: bilinear.
        expectPath(rz, GetParam(), sw, sh, hw + 2, hh, Path::Bilinear, rng);
        expectPath(rz, GetParam(), sw, sh, hw, hh + 2, Path::Bilinear, rng);
        expectPath(rz, GetParam(), sw, sh, hw - 2, hh, Path::Bilinear, rng);
        expectPath(rz, GetParam(), sw, sh, hw, hh - 2, Path::Bilinear, rng);
        // The bilinear entry never takes the box path.
        expectPath(rz, GetParam(), sw, sh, hw, hh, Path::Bilinear, rng, true);
    }
}

TEST_P(BoxMember, RandomHalfSizes) {
    Resizer rz;
    std::mt19937_64 rng = pvx_test::makeRng(600 + GetParam());
    for (int i = 0; i < pvx_test::rounds(60); ++i) {
        const int32_t sw = 4 + static_cast<int32_t>(rng() % 90), sh = 4 + static_cast<int32_t>(rng() % 40);
        const int32_t dw = (sw >> 1) + static_cast<int32_t>(rng() % 3) - 1;
        const int32_t dh = (sh >> 1) + static_cast<int32_t>(rng() % 3) - 1;
        expectPath(rz, GetParam(), sw, sh, dw, dh, Path::Box, rng);
    }
}

INSTANTIATE_TEST_SUITE_P(Members, BoxMember, ::testing::Values(U8, U16, I32, U88, RGB),
                         [](const ::testing::TestParamInfo<Kind> &p) { return std::string(rt::info(p.param).name); });

}  // namespace
