// parvex correct / distort: frames from a file or stream through the engine
// into another.
#include <chrono>
#include <string>

#include "border.h"
#include "calibration.h"
#include "colour.h"
#include "commands.h"
#include "engine.h"
#include "engine_limits.h"
#include "media.h"
#include "progress.h"
#include "tool_error.h"

namespace parvex_tool {

namespace {

std::string sizeText(int width, int height) { return std::to_string(width) + "x" + std::to_string(height); }

// Applies the geometry options in the order the library wants them: centre,
// then the output size (which re-centres the output), then strength, start,
// and zoom and crop, which need a started engine.
void configure(Engine *engine, const Options &o) {
    const int w = engine->inputWidth(), h = engine->inputHeight();
    if (o.centerGiven) {
        if (o.center[0] > w || o.center[1] > h)
            throw UsageError("--center " + std::to_string(o.center[0]) + "," + std::to_string(o.center[1]) +
                             " lies outside the " + sizeText(w, h) + " input");
        engine->setCenter(o.center[0], o.center[1]);
    }
    if (o.outputRecommended) {
        int rw = 0, rh = 0;
        engine->recommendedOutputSize(&rw, &rh);
        // The search can fail to move away from the centre (the lens sends
        // every output pixel outside the input), and then yields nonsense.
        if (rw < 1 || rh < 1 || rw > 4 * kMaxWidth || rh > 4 * kMaxHeight)
            throw ToolError("the library recommends an output size of " + sizeText(rw, rh) +
                            ", which cannot be used with this lens and centre; give --output-size WxH");
        // Known only now that the engine is there to ask.
        checkOutputSize(rw, rh, "--output-size recommended (" + sizeText(rw, rh) + ")");
        engine->setOutputSize(rw, rh);
    } else if (o.outputSizeGiven) {
        engine->setOutputSize(o.outputSize.width, o.outputSize.height);
    }
    if (o.inPlace && (engine->outputWidth() != w || engine->outputHeight() != h))
        throw UsageError("--in-place needs the output size to equal the input size (" + sizeText(w, h) + ", not " +
                         sizeText(engine->outputWidth(), engine->outputHeight()) + ")");
    if (o.strengthGiven) engine->setStrength(o.strength);
    engine->start();
    // Always set: a table of 256 points leaves its appended point in the
    // engine's zoom, which only an explicit zoom puts right.
    engine->setZoom(o.zoomGiven ? o.zoom : 1.0);
    if (o.cropGiven) {
        if (o.crop[2] > w || o.crop[3] > h)
            throw UsageError("--crop " + std::to_string(o.crop[0]) + "," + std::to_string(o.crop[1]) + "," +
                             std::to_string(o.crop[2]) + "," + std::to_string(o.crop[3]) + " reaches outside the " +
                             sizeText(w, h) + " input");
        engine->setCrop(o.crop[0], o.crop[1], o.crop[2], o.crop[3]);
    }
}

}  // namespace

int runConvert(const Options &o) {
    const bool distort = o.command == "distort";
    const std::string &inPath = o.files[0], &outPath = o.files[1];
    const FileKind inKind = fileKind(inPath, "input"), outKind = fileKind(outPath, "output");
    if (isRaw(inKind) && !o.sizeGiven)
        throw UsageError("raw input " + inPath + " needs --size WxH (raw frames carry no size)");
    if (!isRaw(inKind) && o.sizeGiven)
        throw UsageError("--size applies only to raw input (.yuv, .nv12, .nv21); " + inPath + " has its own size");
    if (distort && !o.tableFile.empty())
        throw UsageError("distort needs a lens given by --k1..--k4; a --table lens can only correct");
    std::unique_ptr<FrameSource> source = openSource(inPath, inKind, o.size.width, o.size.height);
    const int w = source->width(), h = source->height();
    // A calibration file gives the lens and the optical centre (unless
    // --center moves it) for this frame size.
    Options settings = o;
    double calibrationCenter[2] = {-1.0, -1.0};
    const Lens lens = o.calibrationFile.empty() ? lensFromOptions(o)
                                                : lensFromCalibration(o, w, h, calibrationCenter, o.quiet);
    if (!o.calibrationFile.empty() && !o.centerGiven) {
        settings.centerGiven = true;
        settings.center[0] = calibrationCenter[0];
        settings.center[1] = calibrationCenter[1];
    }
    const Layout layout = o.formatGiven ? o.format : source->layout();
    const Y4mHeader *y4m = source->y4mHeader();
    const Range range = o.rangeGiven ? o.range : (y4m && y4m->fullRange ? Range::Full : Range::Limited);

    // Settings the library would take but render wrong are refused before
    // the engine takes its work buffer.
    if (o.outputSizeGiven && !o.outputRecommended) {
        const std::string option = "--output-size " + sizeText(o.outputSize.width, o.outputSize.height);
        checkOutputSize(o.outputSize.width, o.outputSize.height, option);
        if (o.zoomGiven) checkZoomWithOutputSize(o.zoom, w, h, o.outputSize.width, o.outputSize.height, option);
    } else if (o.outputRecommended && o.zoomGiven) {
        checkZoomWithOutputSize(o.zoom, w, h, 0, 0, "--output-size recommended");
    }
    Engine engine(layout, w, h, lens);
    configure(&engine, settings);
    const int ow = engine.outputWidth(), oh = engine.outputHeight();
    if (isPicture(outKind) && source->frameCount() > 1)
        throw UsageError(outPath + " holds one picture, but " + inPath + " has " +
                         std::to_string(source->frameCount()) + " frames (write .yuv, .nv12, .nv21, .y4m or -)");

    std::unique_ptr<FrameSink> sink = openSink(outPath, outKind, ow, oh, y4m, range == Range::Full, o.quality);
    // Found after the geometry is set and before the first frame.
    Border border(&engine, distort, o.fill, range);
    Frame stored, engineIn, engineOut, converted;
    engineOut.allocate(layout, ow, oh);
    Progress progress(o.quiet);
    while (source->next(&stored)) {
        Frame *in = &stored;
        if (stored.layout() != layout) {
            convert(stored, layout, range, &engineIn);
            in = &engineIn;
        }
        Frame *out = o.inPlace ? in : &engineOut;
        const auto t0 = std::chrono::steady_clock::now();
        if (distort) engine.distort(out, in);
        else engine.process(out, in);
        const auto t1 = std::chrono::steady_clock::now();
        border.fill(out, o.inPlace);
        const auto t2 = std::chrono::steady_clock::now();
        if (out->layout() != sink->layout()) {
            convert(*out, sink->layout(), range, &converted);
            out = &converted;
        }
        sink->write(*out);
        progress.frameDone(std::chrono::duration<double>(t1 - t0).count(), std::chrono::duration<double>(t2 - t1).count());
    }
    if (progress.frames() == 0) throw ToolError(inPath == "-" ? "no frames on standard input" : inPath + ": no frames");
    sink->finish();
    progress.finish(std::string(distort ? "distorted" : "corrected") + " " + sizeText(w, h) + " -> " +
                    sizeText(ow, oh) + " " + layoutName(layout) + ",");
    return 0;
}

}  // namespace parvex_tool
