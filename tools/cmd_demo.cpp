// parvex demo: chart -> distort -> correct, one PNG and two numbers.
#include <math.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <chrono>
#include <vector>

#include "chart.h"
#include "colour.h"
#include "commands.h"
#include "engine.h"
#include "image_file.h"
#include "lens_math.h"
#include "media.h"
#include "output_file.h"
#include "tool_error.h"

namespace parvex_tool {

namespace {

constexpr int kWidth = 1920, kHeight = 1080;
constexpr int kTimedFrames = 15;
// The demo's YUV is JPEG-style full range, so the PSNR covers all 256 levels.
constexpr Range kDemoRange = Range::Full;

// Luma PSNR over the middle half of the picture in each direction, with
// `block` x `block` means compared (1: every pixel).
double centrePsnr(const Frame &a, const Frame &b, int block) {
    const int x0 = a.width() / 4, x1 = a.width() - a.width() / 4;
    const int y0 = a.height() / 4, y1 = a.height() - a.height() / 4;
    double sum = 0.0;
    long count = 0;
    for (int y = y0; y + block <= y1; y += block)
        for (int x = x0; x + block <= x1; x += block) {
            double d = 0.0;
            for (int j = 0; j < block; ++j)
                for (int i = 0; i < block; ++i) d += static_cast<double>(a.row(0, y + j)[x + i]) - b.row(0, y + j)[x + i];
            d /= block * block;
            sum += d * d;
            ++count;
        }
    const double mse = sum / count;
    return mse > 0.0 ? 10.0 * log10(255.0 * 255.0 / mse) : INFINITY;
}

// Copies `rgb` halved (2x2 means) into `sheet` at column `x0`.
void placeHalved(const Frame &rgb, Frame *sheet, int x0) {
    for (int y = 0; y < rgb.height() / 2; ++y) {
        const uint8_t *r0 = rgb.row(0, 2 * y), *r1 = rgb.row(0, 2 * y + 1);
        uint8_t *d = sheet->row(0, y) + 3 * x0;
        for (int x = 0; x < rgb.width() / 2; ++x)
            for (int c = 0; c < 3; ++c) {
                const int s = r0[6 * x + c] + r0[6 * x + 3 + c] + r1[6 * x + c] + r1[6 * x + 3 + c];
                d[3 * x + c] = static_cast<uint8_t>((s + 2) / 4);
            }
    }
}

}  // namespace

int runDemo(const Options &o) {
    const std::string outPath = o.files.empty() ? std::string("parvex-demo.png") : o.files[0];
    if (fileKind(outPath, "output") != FileKind::Png) throw UsageError("demo writes a PNG file (OUT.png)");
    Lens lens = lensFromOptions(o);

    const Frame chart = drawChart(kWidth, kHeight);
    Frame chartYuv;
    convert(chart, Layout::YUV420_SEMIPLANAR, kDemoRange, &chartYuv);

    Engine camera(Layout::YUV420_SEMIPLANAR, kWidth, kHeight, lens);
    camera.start();
    Frame distorted(Layout::YUV420_SEMIPLANAR, kWidth, kHeight);
    camera.distort(&distorted, &chartYuv);

    // The correction: the same lens described by the point table that
    // inverts the distortion exactly. (Each coefficient mesh also scales the
    // picture to keep the frame filled, so distort and process with the same
    // coefficients differ by a magnification.)
    const Lens inverse = inverseOfDistortion(lens, kWidth, kHeight);
    Engine corrector(Layout::YUV420_SEMIPLANAR, kWidth, kHeight, inverse);
    corrector.start();
    corrector.setZoom(1.0);   // a full table's appended point lands on the zoom
    Frame corrected(Layout::YUV420_SEMIPLANAR, kWidth, kHeight);
    std::vector<double> times;
    for (int n = 0; n < kTimedFrames; ++n) {
        const auto t0 = std::chrono::steady_clock::now();
        corrector.process(&corrected, &distorted);
        times.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count());
    }
    std::sort(times.begin(), times.end());
    const double median = times[times.size() / 2];
    const double psnr = centrePsnr(chartYuv, corrected, 1);
    const double blockPsnr = centrePsnr(chartYuv, corrected, 4);

    Frame sheet(Layout::RGB888, 3 * kWidth / 2, kHeight / 2);
    Frame rgb;
    placeHalved(chart, &sheet, 0);
    convert(distorted, Layout::RGB888, kDemoRange, &rgb);
    placeHalved(rgb, &sheet, kWidth / 2);
    convert(corrected, Layout::RGB888, kDemoRange, &rgb);
    placeHalved(rgb, &sheet, kWidth);
    OutputFile out(outPath);
    writePng(out.file(), sheet, outPath);
    out.commit();

    printf("%s\n", parvex_DistortionCorrection_getVersion());
    printf("lens: k1 %g, k2 %g, k3 %g, k4 %g; chart %dx%d YUV420_SEMIPLANAR (BT.601 full range)\n", lens.coef[0],
           lens.coef[1], lens.coef[2], lens.coef[3], kWidth, kHeight);
    printf("process time: %.2f ms per frame (median of %d)\n", median, kTimedFrames);
    printf("PSNR of the corrected centre against the chart (luma, middle half): %.2f dB per pixel,\n"
           "  %.2f dB over 4x4 blocks (distorting and correcting resample the chart twice, which blurs its\n"
           "  one-pixel line groups; the blocks measure the geometry)\n",
           psnr, blockPsnr);
    printf("corrected with the %zu-point table that inverts the distortion\n", inverse.outputRadii.size());
    printf("wrote %s (%dx%d: chart | distorted | corrected)\n", outPath.c_str(), sheet.width(), sheet.height());
    return 0;
}

}  // namespace parvex_tool
