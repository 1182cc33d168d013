// Helpers shared by the image tests: record checks, and images whose planes
// sit in guarded buffers.
#pragma once

#include <stdint.h>
#include <string.h>

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <vector>

#include "image/pvx_image.h"
#include "tests/support/guarded_image.h"
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

using pvx_test::GuardedImage;

}  // namespace pvx_image_test
