#include "corrector.h"

#include <math.h>
#include <stdlib.h>
#include <string.h>

#include <chrono>

#include "arguments.h"
#include "engine_internals.h"
#include "errors.h"

namespace parvex_python {

namespace {

constexpr int32_t kMinWidth = 320, kMaxWidth = 6144, kMinHeight = 240, kMaxHeight = 6144;
constexpr int kTableMinPoints = 2, kTableMaxPoints = 256;

std::string sizeText(int64_t width, int64_t height) { return std::to_string(width) + "x" + std::to_string(height); }

std::string number(double value) {
    char text[32];
    snprintf(text, sizeof text, "%g", value);
    return text;
}

bool isZoomOne(double zoom) { return zoom == 1.0; }

void checkMesh(const char *call, int32_t width, int32_t height) {
    if (meshVertexCount(width, height) > meshVertexLimit())
        raiseParam(call, "output_size",
                   "an output of " + sizeText(width, height) + " needs a mesh of more than " +
                       std::to_string(meshVertexLimit()) + " vertices, which the engine cannot lay out (keep it to about 8000x8000)");
}

void freeBuffer(void *p) { free(p); }

ArrayGeometry geometryOf(const py::array &a) {
    ArrayGeometry g{};
    g.data = static_cast<uint8_t *>(const_cast<void *>(a.data()));
    g.ndim = static_cast<int>(a.ndim());
    for (int i = 0; i < g.ndim && i < 3; ++i) {
        g.shape[i] = a.shape(i);
        g.strides[i] = a.strides(i);
    }
    return g;
}

// The argument as a uint8 array of exactly `shape`; raises otherwise.
py::array checkedArray(const py::object &object, const FrameShape &shape, const char *call, const char *name,
                       const char *formatName, int32_t width, int32_t height) {
    if (!py::isinstance<py::array>(object))
        throw py::type_error(std::string(call) + ": " + name + " must be a numpy array, not " +
                             std::string(py::str(py::type::handle_of(object).attr("__name__"))));
    py::array a = py::reinterpret_borrow<py::array>(object);
    const std::string expected = "a " + sizeText(width, height) + " " + formatName + " frame is a uint8 array of shape " +
                                 shapeText(shape);
    if (a.dtype().kind() != 'u' || a.dtype().itemsize() != 1)
        raiseParam(call, name, std::string(name) + " has dtype " + std::string(py::str(a.dtype())) + "; " + expected);
    bool same = a.ndim() == shape.ndim;
    for (int i = 0; same && i < shape.ndim; ++i) same = a.shape(i) == shape.dims[i];
    if (!same) {
        std::string text = "(";
        for (py::ssize_t i = 0; i < a.ndim(); ++i) text += (i ? ", " : "") + std::to_string(a.shape(i));
        text += a.ndim() == 1 ? ",)" : ")";
        raiseParam(call, name, std::string(name) + " has shape " + text + "; " + expected);
    }
    return a;
}

}  // namespace

void validateSettings(const Settings &s) {
    const char *call = "Corrector";
    const bool yuv = isYuv(s.format);
    if (s.width < kMinWidth || s.width > kMaxWidth)
        raiseParam(call, "width", "width " + std::to_string(s.width) + " is outside " + std::to_string(kMinWidth) + ".." +
                                      std::to_string(kMaxWidth));
    if (s.height < kMinHeight || s.height > kMaxHeight)
        raiseParam(call, "height", "height " + std::to_string(s.height) + " is outside " + std::to_string(kMinHeight) +
                                       ".." + std::to_string(kMaxHeight));
    if (yuv && (s.width % 2 || s.height % 2))
        raiseParam(call, "width, height",
                   std::string(shortFormatName(s.format)) + " frames need an even width and height, not " +
                       sizeText(s.width, s.height));
    if (s.lens.table) {
        const size_t n = s.lens.xs.size();
        if (n != s.lens.ys.size())
            raiseParam(call, "table", "table has " + std::to_string(n) + " output radii but " +
                                          std::to_string(s.lens.ys.size()) + " source radii");
        if (n < static_cast<size_t>(kTableMinPoints) || n > static_cast<size_t>(kTableMaxPoints))
            raiseParam(call, "table", "table has " + std::to_string(n) + " points; it takes " +
                                          std::to_string(kTableMinPoints) + " to " + std::to_string(kTableMaxPoints));
        for (size_t i = 0; i < n; ++i) {
            if (!isfinite(s.lens.xs[i]) || !isfinite(s.lens.ys[i]))
                raiseParam(call, "table", "table point " + std::to_string(i) + " is not a finite number");
            if (i > 0 && !(s.lens.xs[i] > s.lens.xs[i - 1]))
                raiseParam(call, "table", "table output radii must rise (point " + std::to_string(i) + ")");
        }
    } else {
        for (int i = 0; i < 4; ++i)
            if (!isfinite(s.lens.k[i])) raiseParam(call, "k", "k" + std::to_string(i + 1) + " is not a finite number");
    }
    if (s.centerGiven) {
        const double x = s.center[0], y = s.center[1];
        if (!(x >= 0 && x <= s.width && y >= 0 && y <= s.height))
            raiseParam(call, "center", "center (" + number(x) + ", " + number(y) + ") lies outside the " +
                                           sizeText(s.width, s.height) + " input");
    }
    if (s.outputMode == OutputSize::Given) {
        const int32_t w = s.output[0], h = s.output[1];
        if (w < 1 || h < 1) raiseParam(call, "output_size", "output_size " + sizeText(w, h) + " is empty");
        if (yuv && (w % 2 || h % 2))
            raiseParam(call, "output_size", std::string(shortFormatName(s.format)) +
                                                " frames need an even output width and height, not " + sizeText(w, h));
        checkMesh(call, w, h);
    }
    if (!(s.strength >= 0.0 && s.strength <= 1.0))
        raiseParam(call, "strength", "strength " + number(s.strength) + " is outside 0..1");
    if (!(s.zoom >= 1.0) || !isfinite(s.zoom)) raiseParam(call, "zoom", "zoom " + number(s.zoom) + " is below 1");
    if (!isZoomOne(s.zoom)) {
        if (s.outputMode == OutputSize::Recommended ||
            (s.outputMode == OutputSize::Given && (s.output[0] != s.width || s.output[1] != s.height)))
            raiseParam(call, "zoom, output_size",
                       "zoom " + number(s.zoom) + " scales the picture to the input size; it cannot be combined with an output_size other than the input's (" +
                           sizeText(s.width, s.height) + ")");
        if (s.format == PixelFormat::BGR)
            raiseParam(call, "zoom, format",
                       "the engine scales no BGR888 frames, so BGR works only at zoom 1; use format=\"RGB\" and swap channels");
    }
    if (s.cropGiven) {
        const int32_t *c = s.crop;
        if (c[0] < 0 || c[1] < 0 || c[2] > s.width || c[3] > s.height || c[2] <= c[0] || c[3] <= c[1])
            raiseParam(call, "crop", "crop (" + std::to_string(c[0]) + ", " + std::to_string(c[1]) + ", " +
                                         std::to_string(c[2]) + ", " + std::to_string(c[3]) +
                                         ") is not a rectangle (left, top, right, bottom) inside the " +
                                         sizeText(s.width, s.height) + " input");
    }
    if (s.workers < 0 || s.workers > maxWorkers())
        raiseParam(call, "workers", "workers " + std::to_string(s.workers) + " is outside 1.." + std::to_string(maxWorkers()));
}

Corrector::Corrector(const Settings &settings) : settings_(settings), buffer_(nullptr, freeBuffer) {
    validateSettings(settings_);
    parvex_DistortionCorrection_InitParam param;
    memset(&param, 0, sizeof param);
    param.format = engineFormatName(settings_.format);
    param.width = settings_.width;
    param.height = settings_.height;
    bufferSize_ = parvex_DistortionCorrection_getBufferSize(&param);
    if (bufferSize_ <= 0)
        raiseError(PARVEX_ERROR_MALLOC, "getBufferSize", "", "the library reports no usable work-buffer size");
    // 64-aligned, so that the engine's tables start on cache lines.
    buffer_.reset(aligned_alloc(64, (static_cast<size_t>(bufferSize_) + 63) / 64 * 64));
    if (!buffer_) throw std::bad_alloc();
    Failure failure;
    {
        py::gil_scoped_release release;
        std::lock_guard<std::mutex> lock(mutex_);
        failure = build();
    }
    if (failure.code != PARVEX_OK) raise(failure);
}

Corrector::~Corrector() {
    std::lock_guard<std::mutex> lock(mutex_);
    finalizeEngine();
}

Corrector::Failure Corrector::build() {
    Settings &s = settings_;
    parvex_DistortionCorrection_InitParam param;
    memset(&param, 0, sizeof param);
    param.format = engineFormatName(s.format);
    param.width = s.width;
    param.height = s.height;
    if (s.lens.table) {
        param.mode = 1;
        param.num = static_cast<int32_t>(s.lens.xs.size());
        param.xs = s.lens.xs.data();
        param.ys = s.lens.ys.data();
    } else {
        param.mode = 0;
        for (int i = 0; i < 4; ++i) param.coef[i] = s.lens.k[i];
    }
    Failure f;
    auto failed = [&](uint32_t code, const char *call, const char *argument, const std::string &message) {
        f.code = code;
        f.call = call;
        f.argument = argument;
        f.message = message;
        finalizeEngine();
        return f;
    };
    handle_ = parvex_DistortionCorrection{};
    distortMesh_ = false;
    borders_[0].probed = borders_[1].probed = false;
    uint32_t r = parvex_DistortionCorrection_initialize(&handle_, buffer_.get(), bufferSize_, &param);
    if (r != PARVEX_OK) {
        handle_ = parvex_DistortionCorrection{};
        const char *argument = r == PARVEX_ERROR_IMAGE_FORMAT ? "format" : r == PARVEX_ERROR_PARAM ? (s.lens.table ? "table" : "k") : "";
        return failed(r, "initialize", argument, "the library refuses this lens and frame description");
    }
    open_ = true;
    if (s.centerGiven && (r = parvex_DistortionCorrection_setInputCenter(&handle_, s.center[0], s.center[1])) != PARVEX_OK)
        return failed(r, "setInputCenter", "center", "the library refuses the centre");
    int32_t rw = 0, rh = 0;
    if (parvex_DistortionCorrection_getRecommendedOutputSize(&handle_, &rw, &rh) == PARVEX_OK) {
        if (isYuv(s.format)) {
            rw &= ~1;
            rh &= ~1;
        }
        recommended_[0] = rw;
        recommended_[1] = rh;
    }
    if (s.outputMode == OutputSize::Recommended) {
        // The search cannot leave the centre when the lens sends every
        // output pixel outside the input; its answer is then unusable.
        if (rw < 1 || rh < 1 || rw > 4 * kMaxWidth || rh > 4 * kMaxHeight ||
            meshVertexCount(rw, rh) > meshVertexLimit())
            return failed(PARVEX_ERROR_PARAM, "getRecommendedOutputSize", "output_size",
                          "the library recommends an output of " + sizeText(rw, rh) +
                              ", which cannot be used with this lens and centre; give output_size=(width, height)");
        s.output[0] = rw;
        s.output[1] = rh;
    } else if (s.outputMode == OutputSize::Input) {
        s.output[0] = s.width;
        s.output[1] = s.height;
    }
    if (s.outputMode != OutputSize::Input &&
        (r = parvex_DistortionCorrection_setOutputImageSize(&handle_, s.output[0], s.output[1])) != PARVEX_OK)
        return failed(r, "setOutputImageSize", "output_size", "the library refuses the output size");
    if ((r = parvex_DistortionCorrection_setCorrectionStrength(&handle_, s.strength)) != PARVEX_OK)
        return failed(r, "setCorrectionStrength", "strength", "the library refuses the strength");
    if ((r = parvex_DistortionCorrection_start(&handle_)) != PARVEX_OK)
        return failed(r, "start", "", "the engine did not start");
    if (s.workers > 0 && (r = setWorkerCount(&handle_, s.workers)) != PARVEX_OK)
        return failed(r, "start", "workers", "the worker threads did not start");
    // Always set: a table of 256 points leaves its appended point in the
    // engine's zoom, which only an explicit zoom puts right.
    if ((r = parvex_DistortionCorrection_setZoomRatio(&handle_, s.zoom)) != PARVEX_OK)
        return failed(r, "setZoomRatio", "zoom", "the library refuses the zoom");
    if (s.cropGiven &&
        (r = parvex_DistortionCorrection_setCropRect(&handle_, s.crop[0], s.crop[1], s.crop[2], s.crop[3])) != PARVEX_OK)
        return failed(r, "setCropRect", "crop", "the library refuses the crop");
    return f;
}

void Corrector::finalizeEngine() {
    if (open_) parvex_DistortionCorrection_finalize(&handle_);
    open_ = false;
    handle_ = parvex_DistortionCorrection{};
}

void Corrector::raise(const Failure &failure) {
    raiseError(failure.code, failure.call, failure.argument, failure.message);
}

void Corrector::close() {
    py::gil_scoped_release release;
    std::lock_guard<std::mutex> lock(mutex_);
    finalizeEngine();
}

bool Corrector::closed() {
    std::lock_guard<std::mutex> lock(mutex_);
    return !open_;
}

py::array Corrector::frameCall(bool distort, py::object frameObject, py::object outObject) {
    const char *call = distort ? "distort" : "process";
    // Python is only touched without the mutex: a thread switch inside
    // Python code could otherwise leave the mutex held while another thread
    // waits for it holding the GIL.
    Settings s;
    bool open;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        open = open_;
        s = settings_;
    }
    if (!open) raiseError(PARVEX_ERROR_STATE, call, "", "the corrector is closed");
    if (distort && s.lens.table)
        raiseParam(call, "table", "distort needs a lens given by coefficients k, not by a table");
    const char *name = shortFormatName(s.format);
    const FrameShape inShape = frameShape(s.format, s.width, s.height);
    const FrameShape outShape = frameShape(s.format, s.output[0], s.output[1]);

    py::array frame = checkedArray(frameObject, inShape, call, "frame", name, s.width, s.height);
    parvex_ImageDataEx input, output;
    if (!describeFrame(s.format, s.width, s.height, geometryOf(frame), &input)) {
        // A layout no row pitch describes (an I420 view, reversed or
        // interleaved strides): hand the library a packed copy.
        frame = py::module_::import("numpy").attr("ascontiguousarray")(frame);
        describeFrame(s.format, s.width, s.height, geometryOf(frame), &input);
    }
    py::array out;
    if (outObject.is_none()) {
        // Zeroed, so that without a fill the undrawn pixels are defined.
        py::tuple dims(outShape.ndim);
        for (int i = 0; i < outShape.ndim; ++i) dims[i] = outShape.dims[i];
        out = py::module_::import("numpy").attr("zeros")(dims, "uint8");
        describeFrame(s.format, s.output[0], s.output[1], geometryOf(out), &output);
    } else {
        out = checkedArray(outObject, outShape, call, "out", name, s.output[0], s.output[1]);
        if (!out.writeable()) raiseParam(call, "out", "out is read-only");
        const ArrayGeometry g = geometryOf(out);
        if (!describeFrame(s.format, s.output[0], s.output[1], g, &output))
            raiseParam(call, "out",
                       std::string("out's planes are not laid out as rows of packed pixels") +
                           (s.format == PixelFormat::I420 ? " (an I420 out must be C-contiguous)" : "") +
                           "; pass a C-contiguous array or None");
        const bool inPlace = output.dat[0] == input.dat[0] && output.pitch[0] == input.pitch[0];
        if (!inPlace) {
            const uint8_t *a0, *a1, *b0, *b1;
            byteExtent(g, &a0, &a1);
            byteExtent(geometryOf(frame), &b0, &b1);
            if (a0 < b1 && b0 < a1)
                raiseParam(call, "out", "out overlaps frame; pass the frame itself as out to work in place");
        }
    }

    uint32_t code;
    {
        py::gil_scoped_release release;
        std::lock_guard<std::mutex> lock(mutex_);
        if (!open_) {
            code = PARVEX_ERROR_STATE;
        } else {
            code = PARVEX_OK;
            if (!distort && distortMesh_) {
                // distort leaves its own mesh behind; setting the crop again
                // rebuilds the correction mesh.
                int32_t c[4];
                code = parvex_DistortionCorrection_getCropRect(&handle_, &c[0], &c[1], &c[2], &c[3]);
                if (code == PARVEX_OK) code = parvex_DistortionCorrection_setCropRect(&handle_, c[0], c[1], c[2], c[3]);
                if (code == PARVEX_OK) distortMesh_ = false;
            }
            Failure probeFailure;
            if (code == PARVEX_OK && s.fill && !ensureBorder(distort, &probeFailure)) code = probeFailure.code;
            if (code == PARVEX_OK) {
                const auto start = std::chrono::steady_clock::now();
                code = distort ? parvex_DistortionCorrection_distortEx(&handle_, &output, &input)
                               : parvex_DistortionCorrection_processEx(&handle_, &output, &input);
                engineSeconds_ += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
                if (distort) distortMesh_ = true;
            }
            if (code == PARVEX_OK && s.fill) {
                parvex_BorderColour colour;
                memcpy(colour.c, s.fillColour, 3);
                code = parvex_BorderFill_applyEx(&borders_[distort].fill, &output, colour);
            }
        }
    }
    if (code != PARVEX_OK)
        raiseError(code, std::string(call) + "Ex", "", code == PARVEX_ERROR_STATE && !closed() ? "the frame was refused" : "the frame failed");
    return out;
}

bool Corrector::ensureBorder(bool distort, Failure *failure) {
    Border &b = borders_[distort];
    if (b.probed) return true;
    const Settings &s = settings_;
    const char *format = engineFormatName(s.format);
    const size_t size = parvex_BorderFill_probeSize(format, s.width, s.height, s.output[0], s.output[1]);
    std::vector<uint64_t> scratch((size + 7) / 8);
    int32_t count = 0;
    uint32_t r = parvex_BorderFill_probe(&handle_, distort ? PARVEX_BORDER_FILL_DISTORT : PARVEX_BORDER_FILL_PROCESS,
                                         format, s.width, s.height, s.output[0], s.output[1], scratch.data(), size,
                                         &count);
    if (distort) distortMesh_ = true;
    if (r == PARVEX_OK) {
        b.spans.resize(static_cast<size_t>(count));
        r = parvex_BorderFill_init(&b.fill, scratch.data(), b.spans.data(), count);
    }
    if (r != PARVEX_OK) {
        failure->code = r;
        return false;
    }
    b.probed = true;
    return true;
}

double Corrector::engineSeconds() {
    std::lock_guard<std::mutex> lock(mutex_);
    return engineSeconds_;
}

double Corrector::strength() {
    std::lock_guard<std::mutex> lock(mutex_);
    return settings_.strength;
}

void Corrector::setStrength(double strength) {
    if (!(strength >= 0.0 && strength <= 1.0))
        raiseParam("strength", "strength", "strength " + number(strength) + " is outside 0..1");
    Failure failure;
    {
        py::gil_scoped_release release;
        std::lock_guard<std::mutex> lock(mutex_);
        if (!open_) {
            failure.code = PARVEX_ERROR_STATE;
            failure.call = "setCorrectionStrength";
            failure.message = "the corrector is closed";
        } else {
            // The library applies a new strength when it builds the mesh;
            // building the engine again works for coefficient and table
            // lenses alike (a crop would turn a table mesh into a plain one).
            settings_.strength = strength;
            finalizeEngine();
            failure = build();
        }
    }
    if (failure.code != PARVEX_OK) raise(failure);
}

double Corrector::zoom() {
    std::lock_guard<std::mutex> lock(mutex_);
    return settings_.zoom;
}

void Corrector::setZoom(double zoom) {
    Settings s = settings();
    s.zoom = zoom;
    if (s.outputMode == OutputSize::Recommended) s.outputMode = OutputSize::Given;
    validateSettings(s);
    uint32_t code;
    {
        py::gil_scoped_release release;
        std::lock_guard<std::mutex> lock(mutex_);
        code = open_ ? parvex_DistortionCorrection_setZoomRatio(&handle_, zoom) : PARVEX_ERROR_STATE;
        if (code == PARVEX_OK) settings_.zoom = zoom;
        borders_[0].probed = borders_[1].probed = false;
    }
    if (code != PARVEX_OK) raiseError(code, "setZoomRatio", "zoom", code == PARVEX_ERROR_STATE ? "the corrector is closed" : "the library refuses the zoom");
}

py::tuple Corrector::crop() {
    int32_t c[4] = {0, 0, 0, 0};
    uint32_t code;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        code = open_ ? parvex_DistortionCorrection_getCropRect(&handle_, &c[0], &c[1], &c[2], &c[3]) : PARVEX_ERROR_STATE;
    }
    if (code != PARVEX_OK) raiseError(code, "getCropRect", "crop", code == PARVEX_ERROR_STATE ? "the corrector is closed" : "");
    return py::make_tuple(c[0], c[1], c[2], c[3]);
}

void Corrector::setCrop(py::object crop) {
    Settings s = settings();
    const bool whole = crop.is_none();
    if (whole) {
        s.crop[0] = s.crop[1] = 0;
        s.crop[2] = s.width;
        s.crop[3] = s.height;
    } else {
        readInts(crop, 4, "crop", "crop", "four integers (left, top, right, bottom)", s.crop);
    }
    s.cropGiven = true;
    if (s.outputMode == OutputSize::Recommended) s.outputMode = OutputSize::Given;
    validateSettings(s);
    uint32_t code;
    {
        py::gil_scoped_release release;
        std::lock_guard<std::mutex> lock(mutex_);
        code = open_ ? parvex_DistortionCorrection_setCropRect(&handle_, s.crop[0], s.crop[1], s.crop[2], s.crop[3])
                     : PARVEX_ERROR_STATE;
        if (code == PARVEX_OK) {
            settings_.cropGiven = !whole;
            for (int i = 0; i < 4; ++i) settings_.crop[i] = s.crop[i];
            distortMesh_ = false;
        }
        borders_[0].probed = borders_[1].probed = false;
    }
    if (code != PARVEX_OK) raiseError(code, "setCropRect", "crop", code == PARVEX_ERROR_STATE ? "the corrector is closed" : "the library refuses the crop");
}

Settings Corrector::settings() {
    std::lock_guard<std::mutex> lock(mutex_);
    return settings_;
}

py::tuple Corrector::recommendedOutputSize() {
    int32_t size[2];
    {
        std::lock_guard<std::mutex> lock(mutex_);
        size[0] = recommended_[0];
        size[1] = recommended_[1];
    }
    return py::make_tuple(size[0], size[1]);
}

FrameShape Corrector::inputShape() {
    std::lock_guard<std::mutex> lock(mutex_);
    return frameShape(settings_.format, settings_.width, settings_.height);
}

FrameShape Corrector::outputShape() {
    std::lock_guard<std::mutex> lock(mutex_);
    return frameShape(settings_.format, settings_.output[0], settings_.output[1]);
}

}  // namespace parvex_python
