// Whole frames through the public API: accuracy against the slow reference
// warp, in-place and multi-worker identities, size errors, and hostile
// settings that must stay inside the destination.
#include <gtest/gtest.h>
#include <math.h>
#include <stdio.h>

#include <array>
#include <limits>
#include <string>
#include <vector>

#include "lens/pvx_grid_build.h"
#include "tests/engine/engine_fixture.h"
#include "tests/engine/frame_images.h"
#include "tests/engine/reference_warp.h"

using pvx_test::coefficientParam;
using pvx_test::Engine;
using pvx_test::Frame;
using pvx_test::LensSetup;

namespace {

// One colour channel of a format: where its samples lie.
struct Channel {
    int plane, stride, offset, subsample;
    bool chroma;
};

struct FormatCase {
    const char *name;
    int32_t format;
    std::vector<Channel> channels;
};

const FormatCase kFormats[] = {
    {"RGB888", PVX_FORMAT_RGB888, {{0, 3, 0, 1, false}, {0, 3, 1, 1, false}, {0, 3, 2, 1, false}}},
    {"BGR888", PVX_FORMAT_BGR888, {{0, 3, 0, 1, false}, {0, 3, 1, 1, false}, {0, 3, 2, 1, false}}},
    {"YUV420_PLANAR", PVX_FORMAT_YUV420_PLANAR, {{0, 1, 0, 1, false}, {1, 1, 0, 2, true}, {2, 1, 0, 2, true}}},
    {"YUV420_SEMIPLANAR", PVX_FORMAT_YUV420_SEMIPLANAR, {{0, 1, 0, 1, false}, {1, 2, 0, 2, true}, {1, 2, 1, 2, true}}},
    {"YVU420_SEMIPLANAR", PVX_FORMAT_YVU420_SEMIPLANAR, {{0, 1, 0, 1, false}, {1, 2, 0, 2, true}, {1, 2, 1, 2, true}}},
};

const FormatCase &formatCase(const std::string &name) {
    for (const auto &f : kFormats)
        if (name == f.name) return f;
    return kFormats[0];
}

// Smooth synthetic content: gradients plus low-frequency patterns, a
// different one per channel.
double smoothValue(int channel, double x, double y) {
    switch (channel) {
    case 0: return 128 + 50 * sin(x / 23.0 + 0.3) * cos(y / 31.0) + 0.04 * (x - y);
    case 1: return 128 + 40 * sin(x / 41.0 - y / 37.0) + 0.03 * x;
    default: return 120 + 45 * cos(x / 29.0 + y / 53.0) - 0.03 * y;
    }
}

uint8_t toByte(double v) { return static_cast<uint8_t>(std::min(255.0, std::max(0.0, floor(v + 0.5)))); }

void fillSmooth(Frame &f, const FormatCase &fc) {
    for (size_t c = 0; c < fc.channels.size(); ++c) {
        const Channel &ch = fc.channels[c];
        const int32_t w = (f.width() + ch.subsample - 1) / ch.subsample;
        const int32_t h = (f.height() + ch.subsample - 1) / ch.subsample;
        for (int32_t y = 0; y < h; ++y)
            for (int32_t x = 0; x < w; ++x) {
                // Chroma samples sit at the centre of the luma block they cover.
                const double lx = ch.subsample == 2 ? 2 * x + 0.5 : x, ly = ch.subsample == 2 ? 2 * y + 0.5 : y;
                f.row(ch.plane, y)[x * ch.stride + ch.offset] = toByte(smoothValue(static_cast<int>(c), lx, ly));
            }
    }
}

// Output rows compared with the reference: all of them natively, every
// third under the emulator, where the reference is slow.
#ifdef PVX_TEST_UNDER_EMULATOR
constexpr int32_t kRowStep = 3;
#else
constexpr int32_t kRowStep = 1;
#endif

struct Psnr {
    double luma = 0, chroma = 0;
};

double psnr(double squaredError, long count) {
    if (count == 0) return 0;
    const double mse = squaredError / count;
    return mse <= 1e-12 ? 99.0 : 10 * log10(255.0 * 255.0 / mse);
}

// Compares every channel of `out` (rows kRowStep apart) with the reference
// warp of `in`, where the reference source lies at least `margin` source
// pixels inside the frame (the mesh clamps vertices that leave the frame).
template <typename SourceOf>
Psnr comparePsnr(const Frame &out, const Frame &in, const FormatCase &fc, SourceOf sourceOf, double margin) {
    double err[2] = {0, 0};
    long count[2] = {0, 0};
    // Source positions of each sampling grid (full or half resolution),
    // shared by the channels on it.
    std::vector<double> sources[3];
    for (const Channel &ch : fc.channels) {
        const int32_t ow = (out.width() + ch.subsample - 1) / ch.subsample;
        const int32_t oh = (out.height() + ch.subsample - 1) / ch.subsample;
        const int32_t iw = (in.width() + ch.subsample - 1) / ch.subsample;
        const int32_t ih = (in.height() + ch.subsample - 1) / ch.subsample;
        const double half = ch.subsample == 2 ? 0.5 : 0.0;
        std::vector<double> &src = sources[ch.subsample];
        if (src.empty()) {
            src.resize(2 * static_cast<size_t>(ow) * oh);
            for (int32_t y = 0; y < oh; y += kRowStep)
                for (int32_t x = 0; x < ow; ++x) {
                    const size_t k = 2 * (static_cast<size_t>(y) * ow + x);
                    sourceOf(x * ch.subsample + half, y * ch.subsample + half, &src[k], &src[k + 1]);
                }
        }
        auto fetch = [&](int32_t x, int32_t y) { return double(in.row(ch.plane, y)[x * ch.stride + ch.offset]); };
        for (int32_t y = 0; y < oh; y += kRowStep)
            for (int32_t x = 0; x < ow; ++x) {
                const size_t k = 2 * (static_cast<size_t>(y) * ow + x);
                const double sx = src[k], sy = src[k + 1];
                if (!(sx >= margin && sy >= margin && sx <= in.width() - 1 - margin && sy <= in.height() - 1 - margin))
                    continue;
                const double cx = (sx - half) / ch.subsample, cy = (sy - half) / ch.subsample;
                const double expected = pvx_test::sampleBilinear(fetch, iw, ih, cx, cy);
                const double d = out.row(ch.plane, y)[x * ch.stride + ch.offset] - expected;
                err[ch.chroma] += d * d;
                ++count[ch.chroma];
            }
    }
    Psnr p;
    p.luma = psnr(err[0], count[0]);
    p.chroma = count[1] ? psnr(err[1], count[1]) : p.luma;
    return p;
}

struct Scenario {
    std::string name;
    std::string format;
    LensSetup setup;
    bool crop = false, centre = false, strength = false, outputSize = false;
};

void setOutputSize(Scenario &s, int32_t width, int32_t height) {
    s.outputSize = true;
    s.setup.outWidth = width;
    s.setup.outHeight = height;
    s.setup.outCenterX = width / 2;
    s.setup.outCenterY = height / 2;
}

std::vector<Scenario> accuracyScenarios() {
    const double barrel[4] = {-0.22, 0.04, 0, 0}, pincushion[4] = {0.18, 0.02, 0, 0}, moustache[4] = {-0.3, 0.28, -0.06, 0};
    auto make = [](const char *format, const char *what, const double *k) {
        Scenario s;
        s.name = std::string(format) + "_" + what;
        s.format = format;
        std::copy(k, k + 4, s.setup.k);
        return s;
    };
    // Every format with the barrel lens, the other lenses on 4:2:0.
    std::vector<Scenario> list;
    for (const auto &f : kFormats) list.push_back(make(f.name, "barrel", barrel));
    list.push_back(make("YUV420_SEMIPLANAR", "pincushion", pincushion));
    list.push_back(make("YUV420_SEMIPLANAR", "moustache", moustache));
    // One setting changed at a time, with the barrel lens, on a format each.
    Scenario s = make("YUV420_SEMIPLANAR", "oddCentre", barrel);
    s.centre = true;
    s.setup.inCenterX = s.setup.outCenterX = 331.5;
    s.setup.inCenterY = s.setup.outCenterY = 227.25;
    list.push_back(s);
    s = make("RGB888", "crop", barrel);
    s.crop = true;
    const int32_t crop[4] = {40, 30, 600, 450};
    std::copy(crop, crop + 4, s.setup.crop);
    list.push_back(s);
    s = make("YUV420_PLANAR", "strengthHalf", barrel);
    s.strength = true;
    s.setup.strength = 0.5;
    list.push_back(s);
    s = make("YVU420_SEMIPLANAR", "output480x360", barrel);
    setOutputSize(s, 480, 360);
    list.push_back(s);
    s = make("BGR888", "output800x600", barrel);
    setOutputSize(s, 800, 600);
    list.push_back(s);
    return list;
}

class Accuracy : public ::testing::TestWithParam<Scenario> {};

TEST_P(Accuracy, MatchesTheReferenceWarp) {
    const Scenario &s = GetParam();
    const FormatCase &fc = formatCase(s.format);
    const LensSetup &L = s.setup;
    Engine e(coefficientParam(fc.name, L.inWidth, L.inHeight, L.k[0], L.k[1], L.k[2], L.k[3]));
    ASSERT_EQ(PARVEX_OK, e.status());
    parvex_DistortionCorrection *h = e.handle();
    if (s.outputSize) {
        ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_setOutputImageSize(h, L.outWidth, L.outHeight));
    }
    if (s.centre) {
        ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_setInputCenter(h, L.inCenterX, L.inCenterY));
    }
    if (s.strength) {
        ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_setCorrectionStrength(h, L.strength));
    }
    ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_start(h));
    if (s.crop) {
        ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_setCropRect(h, L.crop[0], L.crop[1], L.crop[2], L.crop[3]));
    }

    Frame in(fc.format, L.inWidth, L.inHeight), out(fc.format, L.outWidth, L.outHeight);
    fillSmooth(in, fc);
    out.fillConstant(0);
    const parvex_ImageData inData = in.data(), outData = out.data();
    ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_process(h, &outData, &inData));
    EXPECT_TRUE(out.bandsIntact());

    const int32_t cell = pvx_Grid_cellSize(L.outWidth, L.outHeight);
    const Psnr p = comparePsnr(out, in, fc, L.correctionSource(), 2.0 * cell + 2);
    printf("[ psnr     ] %-36s luma %.2f dB, chroma %.2f dB\n", s.name.c_str(), p.luma, p.chroma);
    EXPECT_GE(p.luma, 38.0);
    EXPECT_GE(p.chroma, 38.0);
}

INSTANTIATE_TEST_SUITE_P(Lenses, Accuracy, ::testing::ValuesIn(accuracyScenarios()),
                         [](const ::testing::TestParamInfo<Scenario> &i) { return i.param.name; });

// A started engine of the given format with a barrel lens, and frames for it.
struct Rig {
    explicit Rig(const char *format, int32_t w = 640, int32_t h = 480, double k1 = -0.2)
        : fc(formatCase(format)), engine(coefficientParam(format, w, h, k1, 0.03)), in(fc.format, w, h),
          out(fc.format, w, h) {
        fillSmooth(in, fc);
        out.fillConstant(0);
    }
    uint32_t start() { return parvex_DistortionCorrection_start(engine.handle()); }
    uint32_t process(Frame &dst, const Frame &src) {
        const parvex_ImageData d = dst.data(), s = src.data();
        return parvex_DistortionCorrection_process(engine.handle(), &d, &s);
    }
    uint32_t distort(Frame &dst, const Frame &src) {
        const parvex_ImageData d = dst.data(), s = src.data();
        return parvex_DistortionCorrection_distort(engine.handle(), &d, &s);
    }
    const FormatCase &fc;
    Engine engine;
    Frame in, out;
};

class EveryFormat : public ::testing::TestWithParam<const char *> {};

INSTANTIATE_TEST_SUITE_P(Formats, EveryFormat,
                         ::testing::Values("RGB888", "BGR888", "YUV420_PLANAR", "YUV420_SEMIPLANAR",
                                           "YVU420_SEMIPLANAR"));

TEST_P(EveryFormat, InPlaceEqualsOutOfPlace) {
    Rig r(GetParam());
    ASSERT_EQ(PARVEX_OK, r.start());
    ASSERT_EQ(PARVEX_OK, r.process(r.out, r.in));
    Frame inPlace(r.fc.format, 640, 480);
    inPlace.copyPixelsFrom(r.in);
    ASSERT_EQ(PARVEX_OK, r.process(inPlace, inPlace));
    EXPECT_TRUE(inPlace.samePixels(r.out));
    EXPECT_TRUE(inPlace.bandsIntact());
}

TEST_P(EveryFormat, WrongSizesAreStateErrorsAndLeaveTheDestinationUntouched) {
    Rig r(GetParam());
    ASSERT_EQ(PARVEX_OK, r.start());
    Frame smallIn(r.fc.format, 638, 480), tallOut(r.fc.format, 640, 482), untouched(r.fc.format, 640, 480);
    EXPECT_EQ(PARVEX_ERROR_STATE, r.process(r.out, smallIn));
    EXPECT_EQ(PARVEX_ERROR_STATE, r.distort(r.out, smallIn));
    EXPECT_EQ(PARVEX_ERROR_STATE, r.process(tallOut, r.in));
    untouched.fillConstant(0);
    EXPECT_TRUE(r.out.samePixels(untouched));
    EXPECT_TRUE(tallOut.samePixels(Frame(r.fc.format, 640, 482)));   // still the fresh frame's sentinel
}

TEST(Distort, RefusesPointTableLenses) {
    const std::vector<double> xs = {0, 0.5, 1}, ys = {0, 0.5, 1};
    Engine e(pvx_test::tableParam("YUV420_SEMIPLANAR", 640, 480, xs, ys));
    ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_start(e.handle()));
    Frame in(PVX_FORMAT_YUV420_SEMIPLANAR, 640, 480), out(PVX_FORMAT_YUV420_SEMIPLANAR, 640, 480);
    const parvex_ImageData d = out.data(), s = in.data();
    EXPECT_EQ(PARVEX_ERROR_PARAM, parvex_DistortionCorrection_distort(e.handle(), &d, &s));
    EXPECT_EQ(PARVEX_OK, parvex_DistortionCorrection_process(e.handle(), &d, &s));
}

TEST(Distort, MatchesTheForwardReference) {
    const FormatCase &fc = formatCase("YUV420_SEMIPLANAR");
    for (const auto &crop : {std::array<int32_t, 4>{0, 0, 640, 480}, std::array<int32_t, 4>{40, 30, 600, 430}}) {
        LensSetup L;
        L.k[0] = -0.18;
        L.k[1] = 0.02;
        std::copy(crop.begin(), crop.end(), L.crop);
        Engine e(coefficientParam(fc.name, 640, 480, L.k[0], L.k[1]));
        ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_start(e.handle()));
        ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_setCropRect(e.handle(), crop[0], crop[1], crop[2], crop[3]));
        Frame in(fc.format, 640, 480, true), out(fc.format, 640, 480, true);
        fillSmooth(in, fc);
        const parvex_ImageDataEx d = out.dataEx(), s = in.dataEx();
        ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_distortEx(e.handle(), &d, &s));
        const Psnr p = comparePsnr(out, in, fc, L.distortionSource(), 22.0);
        printf("[ psnr     ] distort_YUV420_SEMIPLANAR crop %d,%d: luma %.2f dB, chroma %.2f dB\n", crop[0], crop[1],
               p.luma, p.chroma);
        EXPECT_GE(p.luma, 38.0) << crop[0];
        EXPECT_GE(p.chroma, 38.0) << crop[0];
    }
}

// Settings the library accepts without range checks; whatever the calls
// answer, nothing is written outside the destination.
struct Hostile {
    const char *name;
    void (*apply)(parvex_DistortionCorrection *h, bool started);
};

const double kNaN = std::numeric_limits<double>::quiet_NaN();

const Hostile kHostile[] = {
    {"invertedCrop", [](parvex_DistortionCorrection *h, bool s) { if (s) parvex_DistortionCorrection_setCropRect(h, 600, 400, 20, 10); }},
    {"extremeCrop", [](parvex_DistortionCorrection *h, bool s) { if (s) parvex_DistortionCorrection_setCropRect(h, INT32_MIN, INT32_MAX, INT32_MAX, INT32_MIN); }},
    {"farCentre", [](parvex_DistortionCorrection *h, bool s) { if (!s) parvex_DistortionCorrection_setInputCenter(h, 1e12, 3e9); }},
    {"nanCentre", [](parvex_DistortionCorrection *h, bool s) { if (!s) parvex_DistortionCorrection_setInputCenter(h, kNaN, kNaN); }},
    {"nanStrength", [](parvex_DistortionCorrection *h, bool s) { if (!s) parvex_DistortionCorrection_setCorrectionStrength(h, kNaN); }},
    {"nanZoom", [](parvex_DistortionCorrection *h, bool s) { if (s) parvex_DistortionCorrection_setZoomRatio(h, kNaN); }},
    {"hugeZoom", [](parvex_DistortionCorrection *h, bool s) { if (s) parvex_DistortionCorrection_setZoomRatio(h, 1e300); }},
    {"zoomWithCrop", [](parvex_DistortionCorrection *h, bool s) { if (s) { parvex_DistortionCorrection_setZoomRatio(h, 1.7); parvex_DistortionCorrection_setCropRect(h, 0, 0, 1, 1); } }},
};

class HostileSettings : public ::testing::TestWithParam<std::tuple<int, const char *>> {};

TEST_P(HostileSettings, StayInsideTheDestination) {
    const Hostile &hostile = kHostile[std::get<0>(GetParam())];
    const FormatCase &fc = formatCase(std::get<1>(GetParam()));
    Engine e(coefficientParam(fc.name, 320, 240, -0.25));
    ASSERT_EQ(PARVEX_OK, e.status());
    hostile.apply(e.handle(), false);
    ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_start(e.handle()));
    hostile.apply(e.handle(), true);
    Frame in(fc.format, 320, 240, true), out(fc.format, 320, 240, true);
    fillSmooth(in, fc);
    const parvex_ImageDataEx d = out.dataEx(), s = in.dataEx();
    parvex_DistortionCorrection_processEx(e.handle(), &d, &s);
    parvex_DistortionCorrection_distortEx(e.handle(), &d, &s);
    EXPECT_TRUE(out.bandsIntact());
    EXPECT_TRUE(in.bandsIntact());
}

INSTANTIATE_TEST_SUITE_P(Cases, HostileSettings,
                         ::testing::Combine(::testing::Range(0, int(sizeof kHostile / sizeof kHostile[0])),
                                            ::testing::Values("RGB888", "YUV420_PLANAR", "YUV420_SEMIPLANAR")),
                         [](const ::testing::TestParamInfo<std::tuple<int, const char *>> &i) {
                             return std::string(kHostile[std::get<0>(i.param)].name) + "_" + std::get<1>(i.param);
                         });

TEST(HostileLens, FoldingCoefficientsAndOddOutputsStayInside) {
    for (const char *format : {"RGB888", "YUV420_PLANAR", "YVU420_SEMIPLANAR"}) {
        const FormatCase &fc = formatCase(format);
        for (double k1 : {-2.0, 5.0, -1e30}) {
            Engine e(coefficientParam(format, 320, 240, k1, 1.5, -3));
            ASSERT_EQ(PARVEX_OK, e.status());
            ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_setOutputImageSize(e.handle(), 1001, 333));
            ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_start(e.handle()));
            Frame in(fc.format, 320, 240, true), out(fc.format, 1001, 333, true);
            fillSmooth(in, fc);
            const parvex_ImageDataEx d = out.dataEx(), s = in.dataEx();
            EXPECT_EQ(PARVEX_OK, parvex_DistortionCorrection_processEx(e.handle(), &d, &s)) << format << " " << k1;
            EXPECT_EQ(PARVEX_OK, parvex_DistortionCorrection_distortEx(e.handle(), &d, &s)) << format << " " << k1;
            EXPECT_TRUE(out.bandsIntact()) << format << " " << k1;
        }
    }
}

TEST(HostileLens, GarbagePointTablesStayInside) {
    const std::vector<double> xs = {0.5, 0.2, kNaN, 1e300, -4}, ys = {kNaN, 1e308, -1e308, 0, INFINITY};
    for (const char *format : {"RGB888", "YUV420_SEMIPLANAR"}) {
        const FormatCase &fc = formatCase(format);
        Engine e(pvx_test::tableParam(format, 320, 240, xs, ys));
        ASSERT_EQ(PARVEX_OK, e.status());
        ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_start(e.handle()));
        Frame in(fc.format, 320, 240, true), out(fc.format, 320, 240, true);
        const parvex_ImageDataEx d = out.dataEx(), s = in.dataEx();
        parvex_DistortionCorrection_processEx(e.handle(), &d, &s);
        EXPECT_TRUE(out.bandsIntact()) << format;
    }
}

TEST(ProcessEx, RefusesPitchesShorterThanARow) {
    Rig r("YUV420_PLANAR");
    ASSERT_EQ(PARVEX_OK, r.start());
    parvex_ImageDataEx d = r.out.dataEx(), s = r.in.dataEx();
    ASSERT_EQ(PARVEX_OK, parvex_DistortionCorrection_processEx(r.engine.handle(), &d, &s));
    d.pitch[2] = 319;
    EXPECT_EQ(PARVEX_ERROR_PARAM, parvex_DistortionCorrection_processEx(r.engine.handle(), &d, &s));
}

}  // namespace
