// Frames in an engine format for tests: every plane in its own guarded
// buffer, surrounded by a sentinel-filled band (rows above and below, and
// for frames with padded pitches also columns left and right) that a
// correct call never writes. Frames with padded pitches are passed through
// the Ex records only; the plain records imply tight pitches.
#pragma once

#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <functional>
#include <memory>
#include <vector>

#include "image/pvx_image_format.h"
#include "parvex_distortion_correction.h"
#include "tests/support/guarded_buffer.h"

namespace pvx_test {

class Frame {
public:
    static const int kBandRows = 2;
    static const int kPaddedBandBytes = 16;
    static const uint8_t kSentinel = 0xA5;

    Frame(int32_t format, int32_t width, int32_t height, bool padded = false)
        : width_(width), height_(height), bandBytes_(padded ? kPaddedBandBytes : 0) {
        planes_ = pvx_Image_getPlaneCount(format);
        for (int p = 0; p < 3; ++p) {
            dat_[p] = nullptr;
            pitch_[p] = 0;
            rowBytes_[p] = rows_[p] = 0;
        }
        for (int p = 0; p < planes_; ++p) {
            const pvx_PlaneSize s = pvx_Image_getPlaneSize(width, height, format, p);
            rowBytes_[p] = static_cast<int32_t>(s.pitch);
            rows_[p] = static_cast<int32_t>(s.rows);
            pitch_[p] = rowBytes_[p] + 2 * bandBytes_;
            const size_t total = static_cast<size_t>(pitch_[p]) * (rows_[p] + 2 * kBandRows);
            buffers_.emplace_back(new GuardedBuffer(total, GuardedBuffer::Side::End, 1));
            memset(buffers_.back()->data(), kSentinel, total);
            dat_[p] = buffers_.back()->data() + kBandRows * pitch_[p] + bandBytes_;
        }
    }

    int32_t width() const { return width_; }
    int32_t height() const { return height_; }
    int32_t planes() const { return planes_; }
    int32_t rowBytes(int p) const { return rowBytes_[p]; }
    int32_t rows(int p) const { return rows_[p]; }
    uint8_t *row(int p, int32_t y) const { return dat_[p] + static_cast<ptrdiff_t>(y) * pitch_[p]; }

    parvex_ImageData data() const {
        if (bandBytes_ != 0) abort();   // the plain record cannot carry padded pitches
        parvex_ImageData d;
        d.width = width_;
        d.height = height_;
        for (int p = 0; p < 3; ++p) d.dat[p] = dat_[p];
        return d;
    }
    parvex_ImageDataEx dataEx() const {
        parvex_ImageDataEx d;
        d.width = width_;
        d.height = height_;
        for (int p = 0; p < 3; ++p) {
            d.dat[p] = dat_[p];
            d.pitch[p] = pitch_[p];
        }
        return d;
    }

    // Sets every byte of the planes (not the bands) from f(plane, byte column, row).
    void fill(const std::function<uint8_t(int, int32_t, int32_t)> &f) {
        for (int p = 0; p < planes_; ++p)
            for (int32_t y = 0; y < rows_[p]; ++y)
                for (int32_t x = 0; x < rowBytes_[p]; ++x) row(p, y)[x] = f(p, x, y);
    }
    void fillConstant(uint8_t v) {
        fill([v](int, int32_t, int32_t) { return v; });
    }

    bool bandsIntact() const {
        for (int p = 0; p < planes_; ++p) {
            const uint8_t *base = dat_[p] - kBandRows * pitch_[p] - bandBytes_;
            for (int32_t y = 0; y < rows_[p] + 2 * kBandRows; ++y) {
                const uint8_t *r = base + static_cast<ptrdiff_t>(y) * pitch_[p];
                const bool bandRow = y < kBandRows || y >= rows_[p] + kBandRows;
                for (int32_t x = 0; x < pitch_[p]; ++x) {
                    const bool inside = !bandRow && x >= bandBytes_ && x < bandBytes_ + rowBytes_[p];
                    if (!inside && r[x] != kSentinel) return false;
                }
            }
        }
        return true;
    }

    bool samePixels(const Frame &o) const {
        if (o.planes_ != planes_) return false;
        for (int p = 0; p < planes_; ++p)
            for (int32_t y = 0; y < rows_[p]; ++y)
                if (memcmp(row(p, y), o.row(p, y), static_cast<size_t>(rowBytes_[p])) != 0) return false;
        return true;
    }

    void copyPixelsFrom(const Frame &o) {
        for (int p = 0; p < planes_; ++p)
            for (int32_t y = 0; y < rows_[p]; ++y) memcpy(row(p, y), o.row(p, y), static_cast<size_t>(rowBytes_[p]));
    }

private:
    int32_t width_, height_;
    int32_t bandBytes_;
    int planes_;
    std::vector<std::unique_ptr<GuardedBuffer>> buffers_;
    uint8_t *dat_[3];
    int32_t pitch_[3], rowBytes_[3], rows_[3];
};

}  // namespace pvx_test
