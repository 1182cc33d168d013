// Fuzzes the public API: the input is decoded into a sequence of calls on one
// handle (initialize with good and bad records and buffers, setters with
// hostile numbers, start, frame calls on guard-page planes, finalize), with
// faked processor counts and refused heap allocations mixed in. After every
// frame call no byte outside the destination's rows may have changed (nor the
// source, unless in place); after every finalize the process may have no more
// threads than before the initialize.
#include <fuzzer/FuzzedDataProvider.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <limits>
#include <memory>
#include <vector>

#include "image/pvx_image_format.h"
#include "parvex_distortion_correction.h"
#include "runtime/pvx_heap2_fault.h"
#include "runtime/pvx_syscall.h"
#include "tests/support/guarded_buffer.h"
#include "tests/support/thread_count.h"

using pvx_test::GuardedBuffer;

namespace {

#define CHECK(cond)                                                                  \
    do {                                                                             \
        if (!(cond)) {                                                               \
            fprintf(stderr, "api_fuzz: check failed at line %d: %s\n", __LINE__, #cond); \
            abort();                                                                 \
        }                                                                            \
    } while (0)

// API_FUZZ_TRACE=1 prints every call and its result (to read a finding).
bool tracing() {
    static const bool on = getenv("API_FUZZ_TRACE") != nullptr;
    return on;
}
#define TRACE(...) \
    do {                                        \
        if (tracing()) fprintf(stderr, __VA_ARGS__); \
    } while (0)

// Frames larger than this are only called with wrong sizes (memory).
const int32_t kMaxFramePixels = 1200 * 1000;
const size_t kSlack = 64;   // checked bytes before each plane

using pvx_test::threadCount;

const char *const kFormats[] = {"RGB888", "BGR888", "YUV420_PLANAR", "YUV420_SEMIPLANAR", "YVU420_SEMIPLANAR",
                                "YUV422_PLANAR", "NONE", "rgb888", ""};

double hostileDouble(FuzzedDataProvider &in) {
    static const double kValues[] = {0.0, -0.0, 1.0, -1.0, 0.5, 2.0, 1e-300, 1e300, -1e300, 1e9,
                                     std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(),
                                     -std::numeric_limits<double>::infinity(), std::numeric_limits<double>::denorm_min(),
                                     std::numeric_limits<double>::max(), 0.999999, 1.000001, 1.0000005};
    switch (in.ConsumeIntegralInRange(0, 3)) {
    case 0: return in.PickValueInArray(kValues);
    case 1: return in.ConsumeFloatingPointInRange(-1.0, 1.0);
    case 2: return in.ConsumeFloatingPointInRange(-2000.0, 2000.0);
    default: return in.ConsumeFloatingPoint<double>();
    }
}

int32_t hostileInt(FuzzedDataProvider &in, int32_t lo, int32_t hi) {
    static const int32_t kValues[] = {0, 1, -1, 2, 7, 8, 239, 240, 319, 320, 321, 6144, 6145, 8000, 8192, 16384,
                                      INT32_MAX, INT32_MIN};
    return in.ConsumeBool() ? in.PickValueInArray(kValues) : in.ConsumeIntegralInRange(lo, hi);
}

// One plane of a test image: `rows` rows of `pitch` bytes, `rowBytes` of
// which belong to the image; slack before it, a guard page right after it.
struct Plane {
    std::unique_ptr<GuardedBuffer> mem;
    int64_t pitch = 0, rowBytes = 0, rows = 0;
    uint8_t *data() const { return mem ? mem->data() + kSlack : nullptr; }
};

struct Image {
    Plane planes[3];
    int32_t width = 0, height = 0, count = 0;
    std::vector<uint8_t> before;   // every byte of every buffer at the last snapshot

    void snapshot() {
        before.clear();
        for (int p = 0; p < count; ++p)
            if (planes[p].mem) before.insert(before.end(), planes[p].mem->data(), planes[p].mem->data() + planes[p].mem->size());
    }
    // Compares with the snapshot; `rowsMayChange` lets the image's own row bytes differ.
    bool unchangedOutsideRows(bool rowsMayChange) const {
        size_t at = 0;
        for (int p = 0; p < count; ++p) {
            const Plane &pl = planes[p];
            if (!pl.mem) continue;
            const uint8_t *now = pl.mem->data();
            const uint8_t *was = before.data() + at;
            const size_t size = pl.mem->size();
            at += size;
            if (!rowsMayChange) {
                if (memcmp(now, was, size) != 0) return false;
                continue;
            }
            if (memcmp(now, was, kSlack) != 0) return false;
            for (size_t off = kSlack; off < size; off += static_cast<size_t>(pl.pitch)) {
                const int64_t row = static_cast<int64_t>(off - kSlack) / pl.pitch;
                const size_t keep = row < pl.rows ? static_cast<size_t>(pl.rowBytes) : 0;
                const size_t end = off + static_cast<size_t>(pl.pitch) < size ? off + static_cast<size_t>(pl.pitch) : size;
                if (off + keep < end && memcmp(now + off + keep, was + off + keep, end - off - keep) != 0) return false;
            }
        }
        return true;
    }
};

// Builds an image of the engine's format; `ex` picks the pitches from the
// input, otherwise they are the tight ones a parvex_ImageData implies.
void makeImage(FuzzedDataProvider &in, Image *img, int32_t format, int32_t w, int32_t h, bool ex, int32_t pitches[3]) {
    img->width = w;
    img->height = h;
    img->count = pvx_Image_getPlaneCount(format);
    const uint8_t fill = in.ConsumeIntegral<uint8_t>();
    for (int p = 0; p < img->count; ++p) {
        const pvx_PlaneSize tight = pvx_Image_getPlaneSize(w, h, format, p);
        const pvx_PlaneSize extent = pvx_Image_getPlaneExtent(w, h, format, p);
        Plane &pl = img->planes[p];
        pl.rowBytes = extent.pitch;
        pl.rows = extent.rows;
        pl.pitch = tight.pitch;
        if (ex) {
            switch (in.ConsumeIntegralInRange(0, 5)) {
            case 0: pl.pitch = extent.pitch; break;
            case 1: pl.pitch = extent.pitch + in.ConsumeIntegralInRange(1, 64); break;
            case 2: pitches[p] = static_cast<int32_t>(extent.pitch) - in.ConsumeIntegralInRange(1, 4); break;
            case 3: pitches[p] = hostileInt(in, -100000, 100000); break;
            default: break;
            }
            if (pitches[p] != 0 && pitches[p] < extent.pitch) {
                // A pitch that cannot hold the row: the call must refuse it,
                // so the plane only needs to exist.
                pl.pitch = extent.pitch;
            } else {
                pitches[p] = static_cast<int32_t>(pl.pitch);
            }
        }
        const int64_t rows = ex ? pl.rows : tight.rows;
        const size_t bytes = kSlack + static_cast<size_t>(pl.pitch * rows);
        if (in.ConsumeIntegralInRange(0, 40) == 0) continue;   // a missing plane
        pl.mem.reset(new GuardedBuffer(bytes, GuardedBuffer::Side::End, 1));
        memset(pl.mem->data(), fill + p, bytes);
    }
}

// Work buffers end at the same guard page; the memory is mapped once.
uint8_t *workBufferEndingAtGuard(size_t bytes) {
    static GuardedBuffer area(80u << 20, GuardedBuffer::Side::End, 16);
    if (bytes > area.size()) abort();
    return area.data() + ((area.size() - bytes) & ~size_t{15});
}

struct Session {
    parvex_DistortionCorrection handle{nullptr};
    uint8_t *buffer = nullptr;
    bool live = false;             // initialize was called on `buffer` and no finalize succeeded since
    int threadsBefore = 0;
    int32_t format = 0, inW = 0, inH = 0, outW = 0, outH = 0;
    std::vector<double> xs, ys;

    bool defunct = false;          // its finalize failed: every call but finalize must refuse

    // One finalize, or (`untilDone`) as many as it takes to release the buffer.
    void finalize(bool untilDone) {
        for (int i = 0; live && i < 2; ++i) {
            const uint32_t r = parvex_DistortionCorrection_finalize(&handle);
            TRACE("finalize -> %08x\n", r);
            CHECK(threadCount() <= threadsBefore);
            if (r == PARVEX_ERROR_MALLOC && handle.p) {
                // Workers ended, arrays freed: the handle refuses everything
                // until a second finalize clears it.
                defunct = true;
                CHECK(parvex_DistortionCorrection_start(&handle) != PARVEX_OK);
                if (untilDone) continue;
                return;
            }
            live = defunct = false;
            buffer = nullptr;
            handle.p = nullptr;
        }
        CHECK(!live);
    }

    void initialize(FuzzedDataProvider &in) {
        finalize(true);
        parvex_DistortionCorrection_InitParam param;
        memset(&param, 0, sizeof param);
        param.format = in.PickValueInArray(kFormats);
        const int32_t sizeKind = in.ConsumeIntegralInRange(0, 7);
        param.width = sizeKind == 0 ? hostileInt(in, 300, 700) : in.ConsumeIntegralInRange(320, 700);
        param.height = sizeKind == 0 ? hostileInt(in, 200, 600) : in.ConsumeIntegralInRange(240, 500);
        param.mode = in.ConsumeIntegralInRange(0, 9) == 0 ? hostileInt(in, -3, 3) : in.ConsumeIntegralInRange(0, 1);
        if (param.mode == 1) {
            param.num = in.ConsumeIntegralInRange(0, 5) == 0 ? hostileInt(in, -2, 300) : in.ConsumeIntegralInRange(0, 12);
            const size_t n = param.num > 0 && param.num <= 300 ? static_cast<size_t>(param.num) : 0;
            xs.assign(n, 0.0);
            ys.assign(n, 0.0);
            const bool monotone = in.ConsumeBool();
            for (size_t i = 0; i < n; ++i) {
                xs[i] = monotone ? i / static_cast<double>(n) : hostileDouble(in);
                ys[i] = monotone ? xs[i] * in.ConsumeFloatingPointInRange(0.5, 1.5) : hostileDouble(in);
            }
            param.xs = n ? xs.data() : nullptr;
            param.ys = n ? ys.data() : nullptr;
        } else {
            for (double &k : param.coef) {
                if (in.ConsumeBool()) continue;
                k = hostileDouble(in);
                if (in.ConsumeBool()) k *= 0.1;
            }
        }
        const int32_t asked = parvex_DistortionCorrection_getBufferSize(&param);
        int64_t size = asked;
        switch (in.ConsumeIntegralInRange(0, 7)) {
        case 0: size = in.ConsumeIntegralInRange<int64_t>(0, 859552 + 4096); break;
        case 1: {   // more than the context, less than asked for
            const int64_t more = 859552 + in.ConsumeIntegralInRange<int64_t>(0, 1 << 23);
            size = more < asked ? more : asked - 1;
            break;
        }
        case 2: size = static_cast<int64_t>(asked) + in.ConsumeIntegralInRange(1, 100000); break;
        default: break;
        }
        if (size > 64 * 1024 * 1024) size = 64 * 1024 * 1024;
        const size_t align = in.PickValueInArray({16, 16, 16, 16, 16, 8, 4, 1});
        const size_t bytes = size > 0 ? static_cast<size_t>(size) : 1;
        buffer = workBufferEndingAtGuard(bytes);
        // Misaligned by 16 - align bytes, ending at the same guard page.
        const int64_t shift = static_cast<int64_t>((16 - align) % 16);
        uint8_t *base = buffer + shift;
        size = size > shift ? size - shift : 0;
        threadsBefore = threadCount();
        const uint32_t r =
            parvex_DistortionCorrection_initialize(&handle, base, static_cast<int32_t>(size), &param);
        live = handle.p != nullptr;
        TRACE("initialize %s %dx%d mode %d num %d, buffer %lld (align %zu) -> %08x\n", param.format, param.width,
              param.height, param.mode, param.mode == 1 ? param.num : 0, static_cast<long long>(size), align, r);
        if (r != PARVEX_OK) {
            // A refused initialize leaves a handle that refuses everything and
            // starts nothing.
            if (live) {
                CHECK(parvex_DistortionCorrection_start(&handle) != PARVEX_OK);
                CHECK(threadCount() <= threadsBefore);
            }
        }
        format = pvx_Image_getImageFormat(param.format);
        inW = outW = param.width;
        inH = outH = param.height;
    }

    void frame(FuzzedDataProvider &in) {
        if (!handle.p || format == 0 || !pvx_Image_getPlaneCount(format)) return;
        const int32_t kind = in.ConsumeIntegralInRange(0, 3);
        const bool ex = kind == 1 || kind == 3;
        int32_t iw = inW, ih = inH, ow = outW, oh = outH;
        if (in.ConsumeIntegralInRange(0, 6) == 0) {
            int32_t &w = in.ConsumeBool() ? iw : ow;
            w += in.ConsumeIntegralInRange(-3, 3);
            int32_t &hgt = in.ConsumeBool() ? ih : oh;
            hgt += in.ConsumeIntegralInRange(-3, 3);
        }
        if (iw < 1 || ih < 1 || ow < 1 || oh < 1) return;
        if (static_cast<int64_t>(iw) * ih > kMaxFramePixels || static_cast<int64_t>(ow) * oh > kMaxFramePixels) {
            iw = inW + 1;   // wrong sizes on small images: the call must refuse
            ih = 240;
            ow = 320;
            oh = 240;
        }
        const bool inPlace = iw == ow && ih == oh && in.ConsumeIntegralInRange(0, 3) == 0;
        Image src, dst;
        int32_t srcPitch[3] = {0, 0, 0}, dstPitch[3] = {0, 0, 0};
        makeImage(in, &src, format, iw, ih, ex, srcPitch);
        if (!inPlace) makeImage(in, &dst, format, ow, oh, ex, dstPitch);
        Image &out = inPlace ? src : dst;
        int32_t *outPitch = inPlace ? srcPitch : dstPitch;
        src.snapshot();
        dst.snapshot();

        uint32_t r;
        if (ex) {
            parvex_ImageDataEx o = {ow, oh, {out.planes[0].data(), out.planes[1].data(), out.planes[2].data()},
                                    {outPitch[0], outPitch[1], outPitch[2]}};
            parvex_ImageDataEx i = {iw, ih, {src.planes[0].data(), src.planes[1].data(), src.planes[2].data()},
                                    {srcPitch[0], srcPitch[1], srcPitch[2]}};
            r = kind == 1 ? parvex_DistortionCorrection_processEx(&handle, &o, &i)
                          : parvex_DistortionCorrection_distortEx(&handle, &o, &i);
        } else {
            parvex_ImageData o = {ow, oh, {out.planes[0].data(), out.planes[1].data(), out.planes[2].data()}};
            parvex_ImageData i = {iw, ih, {src.planes[0].data(), src.planes[1].data(), src.planes[2].data()}};
            r = kind == 0 ? parvex_DistortionCorrection_process(&handle, &o, &i)
                          : parvex_DistortionCorrection_distort(&handle, &o, &i);
        }
        TRACE("frame kind %d %dx%d -> %dx%d%s -> %08x\n", kind, iw, ih, ow, oh, inPlace ? " in place" : "", r);
        CHECK(!defunct || r != PARVEX_OK);
        CHECK(out.unchangedOutsideRows(true));
        if (!inPlace) CHECK(src.unchangedOutsideRows(false));
    }

    void step(FuzzedDataProvider &in) {
        parvex_DistortionCorrection *h = &handle;
        switch (in.ConsumeIntegralInRange(0, 12)) {
        case 0: initialize(in); break;
        case 1: finalize(false); break;
        case 2: if (handle.p) TRACE("start -> %08x\n", parvex_DistortionCorrection_start(h)); break;
        case 3:
            if (handle.p) {
                const int32_t w = in.ConsumeBool() ? in.ConsumeIntegralInRange(1, 900) : hostileInt(in, -10, 9000);
                const int32_t hh = in.ConsumeBool() ? in.ConsumeIntegralInRange(1, 700) : hostileInt(in, -10, 9000);
                const uint32_t r = parvex_DistortionCorrection_setOutputImageSize(h, w, hh);
                TRACE("setOutputImageSize %d %d -> %08x\n", w, hh, r);
                if (r == PARVEX_OK) {
                    outW = w;
                    outH = hh;
                }
            }
            break;
        case 4:
            if (handle.p) {
                const double x = hostileDouble(in);
                const double y = hostileDouble(in);
                TRACE("setInputCenter %g %g -> %08x\n", x, y, parvex_DistortionCorrection_setInputCenter(h, x, y));
            }
            break;
        case 5:
            if (handle.p) {
                const double z = in.ConsumeBool() ? in.ConsumeFloatingPointInRange(1.0, 4.0) : hostileDouble(in);
                TRACE("setZoomRatio %g -> %08x\n", z, parvex_DistortionCorrection_setZoomRatio(h, z));
            }
            break;
        case 6:
            if (handle.p) {
                const int32_t l = hostileInt(in, -50, 700), t = hostileInt(in, -50, 500);
                const int32_t r = hostileInt(in, -50, 800), b = hostileInt(in, -50, 600);
                TRACE("setCropRect %d %d %d %d -> %08x\n", l, t, r, b, parvex_DistortionCorrection_setCropRect(h, l, t, r, b));
            }
            break;
        case 7:
            if (handle.p) {
                const double v = in.ConsumeBool() ? in.ConsumeFloatingPointInRange(0.0, 1.0) : hostileDouble(in);
                TRACE("setCorrectionStrength %g -> %08x\n", v, parvex_DistortionCorrection_setCorrectionStrength(h, v));
            }
            break;
        case 8:
            if (handle.p) {
                int32_t a = -7, b = -7, c = -7, d = -7;
                double s = -7;
                parvex_DistortionCorrection_getCropRect(h, &a, &b, &c, &d);
                parvex_DistortionCorrection_getCorrectionStrength(h, &s);
                parvex_DistortionCorrection_getRecommendedOutputSize(h, &a, &b);
            }
            break;
        case 9: {
            const int32_t n = in.PickValueInArray({0, 1, 2, 3, 16, 17, 18, 64, 256});
            TRACE("processors %d\n", n);
            pvx_Syscall_setProcessorCountForTesting(n);
            break;
        }
        case 10: {
            const int32_t n = in.ConsumeIntegralInRange(0, 12);
            TRACE("refuse allocation %d\n", n);
            pvx_Heap2_setAllocationFault(n);
            break;
        }
        default: frame(in); break;
        }
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider in(data, size);
    Session s;
    int steps = 0;
    while (in.remaining_bytes() > 0 && steps++ < 40) s.step(in);
    pvx_Heap2_setAllocationFault(0);
    s.finalize(true);
    pvx_Syscall_setProcessorCountForTesting(0);
    return 0;
}
