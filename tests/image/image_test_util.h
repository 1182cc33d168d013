// Helpers shared by the image tests: images whose planes sit in guarded buffers.
#pragma once

#include <stdint.h>
#include <string.h>

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <vector>

#include "image/pvx_image.h"
#include "tests/support/guarded_buffer.h"
#include "tests/support/test_env.h"

namespace pvx_image_test {

using TestHeap = pvx_test::TestEnv;

// The record's size, format and ownership (external compared as a flag).
inline ::testing::AssertionResult recordIs(const pvx_Image &img, int32_t width, int32_t height, int32_t format,
                                           bool external) {
    if (img.width == width && img.height == height && img.format == format && (img.external != 0) == external)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << img.width << "x" << img.height << " format " << img.format
                                         << " external " << img.external << ", expected " << width << "x" << height
                                         << " format " << format << " external " << external;
}

// The record's three plane pointers and pitches.
inline ::testing::AssertionResult planesAre(const pvx_Image &img, std::array<const void *, 3> dat,
                                            std::array<int32_t, 3> pitch) {
    for (int p = 0; p < 3; ++p) {
        if (img.dat[p] != dat[p] || img.pitch[p] != pitch[p])
            return ::testing::AssertionFailure() << "plane " << p << ": " << static_cast<const void *>(img.dat[p])
                                                 << " pitch " << img.pitch[p] << ", expected " << dat[p]
                                                 << " pitch " << pitch[p];
    }
    return ::testing::AssertionSuccess();
}

// One plane in a guarded buffer: `guard` sentinel bytes before the first
// row and after the last, then a guard page. The last row is only
// `lastRow` bytes long, so with guard 0 a plane of exactly the bytes a
// copy touches ends right at the guard page.
struct GuardedPlane {
    static constexpr uint8_t kSentinel = 0xA5;
    std::unique_ptr<pvx_test::GuardedBuffer> buf;
    uint8_t *start = nullptr;   // first row
    int64_t bytes = 0;          // pitch * (rows - 1) + lastRow
    int64_t guard = 0;

    GuardedPlane() = default;
    GuardedPlane(int64_t pitch, int64_t rows, int64_t lastRow, int64_t guardBytes)
        : bytes(rows > 0 ? pitch * (rows - 1) + lastRow : 0), guard(guardBytes) {
        buf.reset(new pvx_test::GuardedBuffer(static_cast<size_t>(bytes + 2 * guard),
                                              pvx_test::GuardedBuffer::Side::End, 1));
        memset(buf->data(), kSentinel, buf->size());
        start = buf->data() + guard;
    }
    // True when the guard bands still hold the sentinel.
    bool guardsIntact() const {
        for (int64_t i = 0; i < guard; ++i) {
            if (buf->data()[i] != kSentinel || start[bytes + i] != kSentinel) return false;
        }
        return true;
    }
};

// An external image whose planes each live in their own guarded buffer.
// Pitch: the tight pitch plus `padding`; rows and the last row's length:
// what a copy of the image touches.
struct GuardedImage {
    pvx_Image img;
    GuardedPlane planes[3];

    GuardedImage(int32_t width, int32_t height, int32_t format, int32_t padding = 0, int64_t guard = 0) {
        pvx_construct_Image(&img, nullptr);
        pvx_ImagePlanes desc;
        memset(&desc, 0, sizeof(desc));
        const int32_t count = pvx_Image_getPlaneCount(format);
        for (int32_t p = 0; p < count; ++p) {
            const pvx_PlaneSize tight = pvx_Image_getPlaneSize(width, height, format, p);
            const pvx_PlaneSize extent = pvx_Image_getPlaneExtent(width, height, format, p);
            const int64_t pitch = tight.pitch + padding;
            planes[p] = GuardedPlane(pitch, extent.rows, extent.pitch, guard);
            desc.dat[p] = planes[p].start;
            desc.pitch[p] = static_cast<int32_t>(pitch);
        }
        EXPECT_EQ(pvx_Image_initWithPitch(&img, width, height, &desc, format), PVX_OK);
    }
    bool guardsIntact() const {
        for (const GuardedPlane &p : planes) {
            if (p.buf && !p.guardsIntact()) return false;
        }
        return true;
    }
    // Fills every byte of every plane (padding included) from `next`.
    template <class F> void fill(F &&next) {
        for (GuardedPlane &p : planes) {
            for (int64_t i = 0; p.buf && i < p.bytes; ++i) p.start[i] = static_cast<uint8_t>(next());
        }
    }
};

}  // namespace pvx_image_test
