// Frames in an engine format for tests: planes laid out by the size rule,
// each before a guard page with two rows of sentinel bytes before and after
// it. Padded frames have 32 sentinel bytes after every row and go through
// the Ex records only (the plain records imply tight pitches).
#pragma once

#include <stdlib.h>

#include <functional>

#include "parvex_distortion_correction.h"
#include "tests/support/guarded_image.h"

namespace pvx_test {

class Frame : public GuardedImage {
public:
    Frame(int32_t format, int32_t width, int32_t height, bool padded = false)
        : GuardedImage(width, height, format, padded ? 32 : 0,
                       2 * (pvx_Image_getPlaneSize(width, height, format, 0).pitch + (padded ? 32 : 0)), Pitch::SizeRule),
          padded_(padded) {}

    int32_t width() const { return img.width; }
    int32_t height() const { return img.height; }

    parvex_ImageData data() const {
        if (padded_) abort();   // the plain record cannot carry padded pitches
        return parvex_ImageData{img.width, img.height, {img.dat[0], img.dat[1], img.dat[2]}};
    }
    parvex_ImageDataEx dataEx() const {
        return parvex_ImageDataEx{img.width, img.height, {img.dat[0], img.dat[1], img.dat[2]},
                                  {img.pitch[0], img.pitch[1], img.pitch[2]}};
    }

    // Sets every byte of the planes from f(plane, byte column, row).
    void fill(const std::function<uint8_t(int, int32_t, int32_t)> &f) {
        for (int p = 0; p < 3; ++p)
            for (int32_t y = 0; y < planes[p].rows; ++y)
                for (int32_t x = 0; x < planes[p].rowBytes; ++x) row(p, y)[x] = f(p, x, y);
    }
    void fillConstant(uint8_t v) { fillPixels(v); }
    bool bandsIntact() const { return guardsIntact(true); }
    bool samePixels(const Frame &o) const {
        for (int p = 0; p < 3; ++p)
            if (plane(p) != o.plane(p)) return false;
        return true;
    }
    void copyPixelsFrom(const Frame &o) {
        for (int p = 0; p < 3; ++p)
            for (int32_t y = 0; y < planes[p].rows; ++y)
                memcpy(row(p, y), o.row(p, y), static_cast<size_t>(planes[p].rowBytes));
    }

private:
    bool padded_;
};

}  // namespace pvx_test
