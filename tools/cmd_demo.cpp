// parvex demo: chart -> distort -> correct; a sheet of the three, a picture
// of the corner displacements, the frame time and the geometric error.
#include <math.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <chrono>
#include <vector>

#include "border.h"
#include "chart.h"
#include "colour.h"
#include "commands.h"
#include "demo_geometry.h"
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
// The demo's YUV is JPEG-style full range.
constexpr Range kDemoRange = Range::Full;
// Displacement arrows are drawn this many times their length.
constexpr double kArrowScale = 40.0;

// "dir/name.png" -> "dir/name-arrows.png".
std::string arrowsPath(const std::string &sheetPath) {
    return sheetPath.substr(0, sheetPath.size() - 4) + "-arrows.png";
}

void writePicture(const Frame &rgb, const std::string &path) {
    OutputFile out(path);
    writePng(out.file(), rgb, path);
    out.commit();
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
    // Where the corrected picture needs input from beyond the distorted
    // frame's edge the library draws nothing; those pixels are made black.
    Border border(&corrector, false, FillColour(), kDemoRange);
    Frame corrected(Layout::YUV420_SEMIPLANAR, kWidth, kHeight);
    std::vector<double> times, fillTimes;
    for (int n = 0; n < kTimedFrames; ++n) {
        const auto t0 = std::chrono::steady_clock::now();
        corrector.process(&corrected, &distorted);
        const auto t1 = std::chrono::steady_clock::now();
        border.fill(&corrected, true);  // every frame, to time what an in-place caller pays
        const auto t2 = std::chrono::steady_clock::now();
        times.push_back(std::chrono::duration<double, std::milli>(t1 - t0).count());
        fillTimes.push_back(std::chrono::duration<double, std::milli>(t2 - t1).count());
    }
    std::sort(times.begin(), times.end());
    std::sort(fillTimes.begin(), fillTimes.end());
    const double median = times[times.size() / 2], fillMedian = fillTimes[fillTimes.size() / 2];
    const CrossingError error = measureCrossings(chartYuv, corrected, border);
    if (error.reference.empty()) throw ToolError("no grid crossing of the chart is left in the corrected frame");

    Frame sheet(Layout::RGB888, 3 * kWidth / 2, kHeight / 2);
    Frame rgb;
    placeHalved(chart, &sheet, 0);
    convert(distorted, Layout::RGB888, kDemoRange, &rgb);
    placeHalved(rgb, &sheet, kWidth / 2);
    convert(corrected, Layout::RGB888, kDemoRange, &rgb);
    placeHalved(rgb, &sheet, kWidth);
    Frame arrows = drawDisplacements(rgb, error, kArrowScale);
    const uint8_t white[3] = {255, 255, 255};
    drawText(&arrows, 16, 16, 3, "CORNER DISPLACEMENTS X" + std::to_string(static_cast<int>(kArrowScale)), white);
    drawText(&arrows, 16, 48, 2, "GREEN UNDER 0.25 PX - YELLOW UNDER 0.5 PX - RED 0.5 PX OR MORE", white);
    const std::string arrowsFile = arrowsPath(outPath);
    writePicture(sheet, outPath);
    writePicture(arrows, arrowsFile);

    printf("%s\n", parvex_DistortionCorrection_getVersion());
    printf("lens: k1 %g, k2 %g, k3 %g, k4 %g; chart %dx%d YUV420_SEMIPLANAR (BT.601 full range)\n", lens.coef[0],
           lens.coef[1], lens.coef[2], lens.coef[3], kWidth, kHeight);
    printf("corrected with the %zu-point table that inverts the distortion; %.1f%% of the output lies beyond\n"
           "  the distorted frame's edge and is filled black\n",
           inverse.outputRadii.size(), 100.0 * border.undrawnShare());
    printf("process time: %.2f ms per frame (median of %d), border fill %.3f ms; corner error: median %.3f px,\n"
           "  largest %.3f px (%zu grid crossings located in the corrected frame against the chart)\n",
           median, kTimedFrames, fillMedian, error.median, error.largest, error.reference.size());
    printf("wrote %s (%dx%d: chart | distorted | corrected)\n", outPath.c_str(), sheet.width(), sheet.height());
    printf("wrote %s (%dx%d: corner displacements, %gx)\n", arrowsFile.c_str(), arrows.width(), arrows.height(),
           kArrowScale);
    return 0;
}

}  // namespace parvex_tool
