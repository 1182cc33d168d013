// An external image whose planes each sit in their own buffer before a guard
// page: rows of the plane's pitch plus `padding` bytes, `guard` sentinel
// bytes before the first row and after the last, and the last row only as
// long as a copy of the image reaches, so that with guard 0 a read or write
// past the image's last byte crashes. Padding and guard bytes hold a sentinel.
#pragma once

#include <gtest/gtest.h>
#include <stdint.h>
#include <string.h>

#include <memory>
#include <random>
#include <vector>

#include "image/pvx_image.h"
#include "tests/support/guarded_buffer.h"

namespace pvx_test {

class GuardedImage {
public:
    static constexpr uint8_t kSentinel = 0xA5;
    // Rows of the size rule's pitch holding the bytes a copy reaches (Tight),
    // rows of just those bytes (Extent: odd 4:2:0 widths are not rounded up),
    // or planes wholly by the size rule, as the engine's frames are (SizeRule).
    enum class Pitch { Tight, Extent, SizeRule };

    struct Plane {
        std::unique_ptr<GuardedBuffer> buf;
        uint8_t *start = nullptr;   // first row
        int64_t pitch = 0, rowBytes = 0, rows = 0;
        int64_t bytes = 0;          // pitch * (rows - 1) + rowBytes
    };

    // Side::Start puts the guard page right before the planes instead.
    GuardedImage(int32_t width, int32_t height, int32_t format, int32_t padding = 0, int64_t guard = 0,
                 Pitch base = Pitch::Tight, GuardedBuffer::Side side = GuardedBuffer::Side::End)
        : guard_(guard) {
        pvx_construct_Image(&img, nullptr);
        pvx_ImagePlanes desc;
        memset(&desc, 0, sizeof(desc));
        for (int32_t p = 0; p < pvx_Image_getPlaneCount(format); ++p) {
            const pvx_PlaneSize rule = pvx_Image_getPlaneSize(width, height, format, p);
            const pvx_PlaneSize extent =
                base == Pitch::SizeRule ? rule : pvx_Image_getPlaneExtent(width, height, format, p);
            Plane &pl = planes[p];
            pl.rowBytes = extent.pitch;
            pl.rows = extent.rows;
            pl.pitch = (base == Pitch::Extent ? extent.pitch : rule.pitch) + padding;
            pl.bytes = pl.rows > 0 ? pl.pitch * (pl.rows - 1) + pl.rowBytes : 0;
            pl.buf.reset(new GuardedBuffer(static_cast<size_t>(pl.bytes + 2 * guard), side, 1));
            memset(pl.buf->data(), kSentinel, pl.buf->size());
            pl.start = pl.buf->data() + guard;
            desc.dat[p] = pl.start;
            desc.pitch[p] = static_cast<int32_t>(pl.pitch);
        }
        EXPECT_EQ(pvx_Image_initWithPitch(&img, width, height, &desc, format), PVX_OK);
    }

    uint8_t *row(int32_t p, int64_t r) const { return planes[p].start + r * planes[p].pitch; }

    // Every byte of every plane, padding included, from `next`.
    template <class F> void fill(F &&next) {
        for (Plane &p : planes)
            for (int64_t i = 0; p.buf && i < p.bytes; ++i) p.start[i] = static_cast<uint8_t>(next());
    }
    // The pixel bytes of every row, from `rng` or `v`; the padding keeps the sentinel.
    void randomize(std::mt19937_64 &rng) { fillPixelsWith([&] { return static_cast<uint8_t>(rng()); }); }
    void fillPixels(uint8_t v) { fillPixelsWith([v] { return v; }); }
    template <class F> void fillPixelsWith(F &&next) {
        for (int32_t p = 0; p < 3; ++p)
            for (int64_t r = 0; r < planes[p].rows; ++r)
                for (int64_t i = 0; i < planes[p].rowBytes; ++i) row(p, r)[i] = next();
    }
    // The pixel bytes of plane p, rows packed.
    std::vector<uint8_t> plane(int32_t p) const {
        std::vector<uint8_t> out;
        for (int64_t r = 0; r < planes[p].rows; ++r) out.insert(out.end(), row(p, r), row(p, r) + planes[p].rowBytes);
        return out;
    }
    // The guard bytes still hold the sentinel (and, with `padding`, the row
    // padding too: for images whose padding was never filled).
    bool guardsIntact(bool padding = false) const {
        for (const Plane &p : planes) {
            if (!p.buf) continue;
            for (int64_t i = 0; i < guard_; ++i)
                if (p.buf->data()[i] != kSentinel || p.start[p.bytes + i] != kSentinel) return false;
            for (int64_t r = 0; padding && r + 1 < p.rows; ++r)
                for (int64_t i = p.rowBytes; i < p.pitch; ++i)
                    if (p.start[r * p.pitch + i] != kSentinel) return false;
        }
        return true;
    }

    pvx_Image img;
    Plane planes[3];

private:
    int64_t guard_;
};

}  // namespace pvx_test
