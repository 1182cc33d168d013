// Bilinear path of every member against the reference model, bit for bit:
// random sizes and contents, enlarging and shrinking, odd sizes, sources of
// width 1, rows above the first source row's centre, and groups whose 7-bit
// weights differ from the 15-bit ones.
#include "tests/resample/resize_test_util.h"

#include "resample/pvx_resize_internal.h"

namespace {

using namespace rt;

// Resizes a random sw x sh image of kind k to dw x dh on the bilinear path
// and compares with the model. Returns false on a mismatch.
bool checkBilinear(Resizer &rz, Kind k, int32_t sw, int32_t sh, int32_t dw, int32_t dh, std::mt19937_64 &rng,
                   ModelStats *stats, bool random = true) {
    const KindInfo &ki = info(k);
    TestImage src(sw, sh, ki.format, static_cast<int32_t>(rng() % 5));
    TestImage dst(dw, dh, ki.format, 1 + static_cast<int32_t>(rng() % 7));
    if (random) src.randomize(rng);
    else src.fillPixels(0);
    dst.fillPixels(0x5A);
    const uint32_t used = rz.env.used();
    EXPECT_EQ(pvx_ImageProc2_resizeImageBilinear(&rz.proc, &dst.img, &src.img), PVX_OK);
    EXPECT_EQ(rz.env.used(), used) << "scratch not given back";
    EXPECT_TRUE(dst.sentinelsIntact()) << "write outside the destination rows";
    const std::vector<int64_t> want = modelBilinear(k, samples(k, src.plane(0)), sw, sh, dw, dh, stats);
    const std::vector<int64_t> got = samples(k, dst.plane(0));
    const int64_t d = firstDiff(want, got);
    EXPECT_EQ(d, -1) << ki.name << " " << sw << "x" << sh << " -> " << dw << "x" << dh << " first diff at sample "
                     << d << " (pixel " << d / ki.channels % dw << ", row " << d / ki.channels / dw << ")";
    return d == -1;
}

class BilinearMember : public ::testing::TestWithParam<Kind> {};

TEST_P(BilinearMember, RandomSizesMatchModel) {
    Resizer rz;
    std::mt19937_64 rng = pvx_test::makeRng(100 + GetParam());
    ModelStats stats;
    const int n = pvx_test::rounds(160);
    for (int i = 0; i < n; ++i) {
        // The first rounds take a source of width one.
        int32_t sw = i < 4 ? 1 : 1 + static_cast<int32_t>(rng() % 70), sh = 1 + static_cast<int32_t>(rng() % 40);
        int32_t dw, dh;
        switch (i % 4) {
            case 0:  // enlarge both ways (the engine's case)
                dw = sw + static_cast<int32_t>(rng() % 130);
                dh = sh + static_cast<int32_t>(rng() % 60);
                break;
            case 1:  // shrink
                dw = 1 + static_cast<int32_t>(rng() % sw);
                dh = 1 + static_cast<int32_t>(rng() % sh);
                break;
            default:  // anything
                dw = 1 + static_cast<int32_t>(rng() % 150);
                dh = 1 + static_cast<int32_t>(rng() % 70);
        }
        if (dw == sw && dh == sh) ++dw;
        if (!checkBilinear(rz, GetParam(), sw, sh, dw, dh, rng, &stats)) break;
    }
    EXPECT_EQ(stats.badLanes, 0);
    if (GetParam() == U8 || GetParam() == U16 || GetParam() == RGB) {
        EXPECT_GT(stats.groupOutputs, 0);
    }
}

TEST_P(BilinearMember, EngineSizes) {
    // The zoom path: a centred part enlarged back to the frame size.
    Resizer rz;
    std::mt19937_64 rng = pvx_test::makeRng(200 + GetParam());
    const int32_t sizes[][4] = {{128, 72, 192, 108}, {666, 20, 1000, 30}, {214, 9, 320, 13}, {96, 8, 97, 9}};
    for (const auto &s : sizes) checkBilinear(rz, GetParam(), s[0], s[1], s[2], s[3], rng, nullptr);
}

TEST_P(BilinearMember, ExtremeValues) {
    // Full-range contents: saturation and the 16/32-bit intermediate bounds.
    Resizer rz;
    const Kind k = GetParam();
    const KindInfo &ki = info(k);
    const int64_t lo = k == I32 ? INT32_MIN : 0, hi = k == I32 ? INT32_MAX : k == U16 ? 65535 : 255;
    std::mt19937_64 rng = pvx_test::makeRng(400 + k);
    for (int pattern = 0; pattern < 3; ++pattern) {
        TestImage src(9, 5, ki.format);
        for (int32_t r = 0; r < 5; ++r) {
            for (int32_t i = 0; i < 9 * ki.channels; ++i) {
                const int64_t v = pattern == 0 ? hi : pattern == 1 ? ((i / ki.channels + r) % 2 ? hi : lo)
                                                                  : (rng() & 1 ? hi : lo);
                if (ki.bytes == 1) src.row(0, r)[i] = static_cast<uint8_t>(v);
                if (ki.bytes == 2) { const uint16_t s = static_cast<uint16_t>(v); memcpy(src.row(0, r) + 2 * i, &s, 2); }
                if (ki.bytes == 4) { const int32_t s = static_cast<int32_t>(v); memcpy(src.row(0, r) + 4 * i, &s, 4); }
            }
        }
        const int32_t sizes[2][2] = {{29, 17}, {4, 3}};
        for (const auto &d : sizes) {
            TestImage dst(d[0], d[1], ki.format, 3);
            ASSERT_EQ(pvx_ImageProc2_resizeImageBilinear(&rz.proc, &dst.img, &src.img), PVX_OK);
            EXPECT_EQ(firstDiff(modelBilinear(k, samples(k, src.plane(0)), 9, 5, d[0], d[1]),
                                samples(k, dst.plane(0))), -1) << "pattern " << pattern << " to " << d[0];
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Members, BilinearMember, ::testing::Values(U8, U16, I32, U88, RGB),
                         [](const ::testing::TestParamInfo<Kind> &p) { return std::string(rt::info(p.param).name); });

TEST(Bilinear, GroupsTellSevenBitFromFifteenBitHorizontally) {
    // A ramp enlarged x3: the grouped outputs must follow the 7-bit lanes,
    // which differ from the 15-bit formula somewhere in the row.
    Resizer rz;
    TestImage src(40, 1, PVX_FORMAT_UINT8);
    for (int32_t i = 0; i < 40; ++i) src.row(0, 0)[i] = static_cast<uint8_t>(i * 6 + (i % 3) * 17);
    TestImage dst(120, 1, PVX_FORMAT_UINT8);
    ASSERT_EQ(pvx_ImageProc2_resizeImageBilinear(&rz.proc, &dst.img, &src.img), PVX_OK);
    const std::vector<int64_t> s = samples(U8, src.plane(0));
    ModelStats stats;
    const std::vector<int64_t> want = modelRow(U8, s.data(), 40, 120, &stats);
    const pvx_ResizeGeometry g = pvx_ImageProc2_geometry(40, 120);
    int differing = 0;
    for (int32_t j = 0; j < 120; ++j) {
        EXPECT_EQ(dst.row(0, 0)[j], want[j]) << j;
        const int64_t x = g.x0 + j * g.step;
        if (x >= 0 && x < 39 * 32768) {
            const int64_t i = x >> 15, f = x & 32767;
            differing += ((s[i] * (32768 - f) + s[i + 1] * f + 16384) >> 15) != want[j];
        }
    }
    EXPECT_EQ(stats.groupOutputs, 96);   // groups at outputs 1, 9, .. 89 (safe = 96)
    EXPECT_GT(differing, 0);
}

// The row resamplers read nothing outside the source row and write nothing
// past dw outputs, for every small size pair: each row sits right before a
// guard page and the line right before another.
TEST(Bilinear, RowResamplersStayInsideTheRow) {
    struct Row {
        pvx_ResizeRowFn fn;
        int32_t pixelBytes, lineBytes;
    } rows[] = {{pvx_ImageProc2_Uint8_resampleRow, 1, 1},  {pvx_ImageProc2_Uint16_resampleRow, 2, 2},
                {pvx_ImageProc2_Int32_resampleRow, 4, 8},  {pvx_ImageProc2_Uint88_resampleRow, 2, 4},
                {pvx_ImageProc2_Rgb888_resampleRow, 3, 3}};
    const int32_t maxSw = pvx_test::rounds(8) == 8 ? 48 : 20;
    for (const Row &r : rows) {
        for (int32_t sw = 1; sw <= maxSw; ++sw) {
            GuardedBuffer src(static_cast<size_t>(sw) * r.pixelBytes, GuardedBuffer::Side::End, 1);
            for (size_t i = 0; i < src.size(); ++i) src.data()[i] = static_cast<uint8_t>(i * 37 + sw);
            for (int32_t dw = 1; dw <= 4 * sw + 9; dw += (dw < 2 * sw ? 1 : 3)) {
                GuardedBuffer line(static_cast<size_t>(dw) * r.lineBytes, GuardedBuffer::Side::End,
                                   r.lineBytes == 3 ? 1 : static_cast<size_t>(r.lineBytes));
                const pvx_ResizeGeometry g = pvx_ImageProc2_geometry(sw, dw);
                r.fn(line.data(), src.data(), sw, dw, g.x0, g.step, g.safe, pvx_ImageProc2_referenceLeaves());
            }
        }
    }
}

TEST(Bilinear, LastGroupLaneMayTouchRowEndOnlyWithZeroWeight) {
    // Sweep of enlargements: no group lane needs a pixel past the row with a
    // non-zero weight (the model counts them); outputs still match.
    ModelStats stats;
    std::vector<int64_t> row;
    const int32_t maxSw = pvx_test::rounds(8) == 8 ? 64 : 24;
    for (int32_t sw = 1; sw <= maxSw; ++sw) {
        row.resize(sw);
        for (int32_t i = 0; i < sw; ++i) row[i] = (i * 71 + 13) & 255;
        for (int32_t dw = sw; dw <= 8 * sw + 16; ++dw) {
            std::vector<uint8_t> src(row.begin(), row.end()), line(dw);
            const pvx_ResizeGeometry g = pvx_ImageProc2_geometry(sw, dw);
            pvx_ImageProc2_Uint8_resampleRow(line.data(), src.data(), sw, dw, g.x0, g.step, g.safe, pvx_ImageProc2_referenceLeaves());
            const std::vector<int64_t> want = modelRow(U8, row.data(), sw, dw, &stats);
            for (int32_t j = 0; j < dw; ++j) ASSERT_EQ(line[j], want[j]) << sw << " -> " << dw << " at " << j;
        }
    }
    EXPECT_EQ(stats.badLanes, 0);
    printf("group outputs %lld, lanes with the right tap at the row end (weight 0) %lld\n",
           static_cast<long long>(stats.groupOutputs), static_cast<long long>(stats.lastTapAtEnd));
}

}  // namespace
