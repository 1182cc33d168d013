// Usage text, the lens options and the info command.
#include "commands.h"

#include <stdio.h>

#include "engine.h"
#include "table_file.h"

namespace parvex_tool {

const char kUsage[] =
    "usage: parvex demo [OUT.png] [--k1 K] [--k2 K] [--k3 K] [--k4 K]\n"
    "       parvex correct IN OUT [options]\n"
    "       parvex distort IN OUT [options]\n"
    "       parvex info [--format F] [--size WxH]\n"
    "       parvex lens FILE [--size WxH] [--table OUT.txt] [calibration options]\n"
    "       parvex --help\n"
    "\n"
    "demo     draws a 1920x1080 test chart, converts it to YUV420_SEMIPLANAR (BT.601 full\n"
    "         range), distorts it with a barrel lens (default k1 0.2, k2 0.05), corrects\n"
    "         it again and writes chart | distorted | corrected, each halved, side by side\n"
    "         into one 2880x540 PNG (default parvex-demo.png), and the corrected frame\n"
    "         with the displacement of each chart corner drawn as an arrow, 40 times its\n"
    "         length, into OUT-arrows.png. Prints the median time of 15 process calls\n"
    "         and the median and largest distance, in pixels, between the chart's grid\n"
    "         crossings located in the corrected frame and in the chart itself.\n"
    "correct  removes the lens distortion from IN and writes OUT.\n"
    "distort  applies the lens distortion instead (coefficient lenses only).\n"
    "info     prints the library's version and the work-buffer size for a format and\n"
    "         size (default YUV420_SEMIPLANAR 1920x1080).\n"
    "lens     converts a calibration FILE for frames of --size WxH (default: the size\n"
    "         the calibration was made at) and prints the lens, the options that\n"
    "         reproduce it and its fit error in pixels; --table OUT.txt writes the\n"
    "         lens as a table of radii.\n"
    "\n"
    "Files, by extension (IN and OUT may differ in kind):\n"
    "  .png .jpg .jpeg   one picture (8-bit RGB); engine format RGB888 by default\n"
    "  .yuv              raw YUV420_PLANAR (I420) frames, back to back; needs --size WxH\n"
    "  .nv12 .nv21       raw YUV420_SEMIPLANAR / YVU420_SEMIPLANAR frames; need --size\n"
    "  .y4m, or -        a YUV4MPEG2 4:2:0 stream (C420jpeg, C420mpeg2, C420paldv, C420\n"
    "                    or no C tag); \"-\" is standard input or output, so that\n"
    "                      ffmpeg -i in.mp4 -f yuv4mpegpipe - | parvex correct - - |\n"
    "                        ffmpeg -f yuv4mpegpipe -i - out.mp4\n"
    "                    corrects a video. The output stream keeps the input's tags.\n"
    "  Raw and Y4M frames use YUV420_PLANAR (the file's own layout) by default.\n"
    "  Every frame is processed; a PNG or JPEG output takes only one.\n"
    "  Output files are written under a temporary name and renamed when complete;\n"
    "  on an error nothing is left under the output name.\n"
    "\n"
    "Lens (default --k1 0.2 --k2 0.05; once any --kN is given the others are 0):\n"
    "  --k1 .. --k4 K    coefficients of D(r) = 1 + k1 r^2 + k2 r^4 + k3 r^6 + k4 r^8,\n"
    "                    r in units of half the picture diagonal\n"
    "  --table FILE      a table of radii instead (2 to 256 lines of \"OUT SRC\": output\n"
    "                    radius, rising, and source radius, both in units of the distance\n"
    "                    from the output centre to a corner; '#' starts a comment).\n"
    "                    Correct only; --crop replaces a table lens by the plain crop.\n"
    "  --calibration FILE  the lens (and optical centre) of a calibration, converted\n"
    "                    for the input's size (correct only): an OpenCV FileStorage\n"
    "                    file (YAML/XML: camera_matrix + distortion_coefficients, or\n"
    "                    cameraMatrix + distCoeffs), Android camera metadata (JSON with\n"
    "                    android.lens.intrinsicCalibration, android.lens.distortion and\n"
    "                    android.sensor.info.preCorrectionActiveArraySize) or a Lensfun\n"
    "                    database (XML); the kind is recognised from the content.\n"
    "                    Prints the conversion's notes and its fit error.\n"
    "Calibration options (correct --calibration, lens):\n"
    "  --kind K          opencv, fisheye (OpenCV's fisheye model), android or lensfun\n"
    "  --lens NAME       Lensfun: the lens model\n"
    "  --focal MM        Lensfun: the focal length (interpolated between calibrations)\n"
    "  --crop-factor F   Lensfun: the camera's crop factor (default: the calibration's)\n"
    "  --form F          best (default: the smaller fit error), coefficients or table;\n"
    "                    --strength and --crop take coefficients\n"
    "Options of correct and distort:\n"
    "  --format F        engine format: RGB888, BGR888, YUV420_PLANAR, YUV420_SEMIPLANAR\n"
    "                    or YVU420_SEMIPLANAR; pictures are converted to it and back\n"
    "                    (RGB<->YUV by BT.601, chroma averaged over 2x2 pixels)\n"
    "  --range R         limited (default; 16..235) or full (0..255) for RGB<->YUV;\n"
    "                    a Y4M input tagged XCOLORRANGE=FULL defaults to full\n"
    "  --strength S      correction strength 0..1 (default 1)\n"
    "  --zoom Z          zoom ratio, at least 1 (default 1); not with BGR888, and\n"
    "                    other than 1 only with the output size equal to the input's\n"
    "  --crop L,T,R,B    crop rectangle in input pixels, right and bottom exclusive\n"
    "  --center X,Y      optical centre in input pixels (default: the picture centre)\n"
    "  --output-size WxH | recommended\n"
    "                    output size (default: the input size); \"recommended\" asks the\n"
    "                    library for a size whose picture stays inside the input;\n"
    "                    at most about 8000x8000 (the library's mesh)\n"
    "  --in-place        correct into the input buffer (output size = input size)\n"
    "  --size WxH        size of raw input frames\n"
    "  --quality Q       JPEG output quality 1..100 (default 95)\n"
    "  --fill COLOUR     colour of the output pixels that no input pixel reaches (the\n"
    "                    border a lens that pulls the picture in leaves): black\n"
    "                    (default; in the frame's range), white, grey, red, green,\n"
    "                    blue, #RRGGBB, R,G,B, or none (left as the library leaves them)\n"
    "  --quiet           no progress or summary on standard error\n"
    "\n"
    "Exit status: 0 success, 1 a failure (a file, a stream or the library: its result\n"
    "code is printed by name, e.g. PARVEX_ERROR_PARAM, with an explanation), 2 a bad\n"
    "command line.\n";

Lens lensFromOptions(const Options &options) {
    Lens lens;
    if (!options.tableFile.empty()) {
        readTableFile(options.tableFile, &lens);
    } else if (options.anyCoef()) {
        for (int k = 0; k < 4; ++k) lens.coef[k] = options.coef[k];
    } else {
        lens.coef[0] = kDefaultK1;
        lens.coef[1] = kDefaultK2;
    }
    return lens;
}

int runInfo(const Options &options) {
    const Layout layout = options.formatGiven ? options.format : Layout::YUV420_SEMIPLANAR;
    const Size size = options.sizeGiven ? options.size : Size{1920, 1080};
    printf("%s\n", parvex_DistortionCorrection_getVersion());
    const int32_t bytes = engineBufferSize(layout, size.width, size.height);
    printf("work buffer for %s %dx%d: %ld bytes (%.1f MiB)\n", layoutName(layout), size.width, size.height,
           static_cast<long>(bytes), bytes / (1024.0 * 1024.0));
    if (size.width < kMinWidth || size.width > kMaxWidth || size.height < kMinHeight || size.height > kMaxHeight)
        printf("note: the engine takes widths %d..%d and heights %d..%d; initialize refuses %dx%d\n", kMinWidth,
               kMaxWidth, kMinHeight, kMaxHeight, size.width, size.height);
    return 0;
}

}  // namespace parvex_tool
