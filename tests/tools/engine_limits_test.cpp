// The tool refuses the two settings that the library accepts but renders
// wrong, naming the options, before it takes a work buffer.
#include <gtest/gtest.h>

#include "engine_limits.h"
#include "tool_error.h"

namespace {

using namespace parvex_tool;

TEST(EngineLimits, MeshVerticesFollowTheLibrarysCellRule) {
    EXPECT_EQ(61 * 35, meshVertices(1920, 1080));            // cell 32
    EXPECT_EQ(41 * 31, meshVertices(320, 240));              // cell 8
    EXPECT_EQ(126 * 126, meshVertices(8000, 8000));          // cell 64: still laid out
    EXPECT_EQ(129 * 129, meshVertices(8192, 8192));          // too many
    EXPECT_NO_THROW(checkOutputSize(8000, 8000, "--output-size 8000x8000"));
    try {
        checkOutputSize(8192, 8192, "--output-size 8192x8192");
        FAIL();
    } catch (const UsageError &e) {
        EXPECT_NE(std::string(e.what()).find("--output-size 8192x8192 is larger than the library can correct"),
                  std::string::npos)
            << e.what();
    }
}

TEST(EngineLimits, ZoomOnlyWithTheInputsSize) {
    EXPECT_FALSE(zoomsPicture(1.0));
    EXPECT_FALSE(zoomsPicture(1.0000005));
    EXPECT_TRUE(zoomsPicture(1.000001));
    EXPECT_NO_THROW(checkZoomWithOutputSize(1.5, 640, 360, 640, 360, "--output-size 640x360"));
    EXPECT_NO_THROW(checkZoomWithOutputSize(1.0, 640, 360, 480, 270, "--output-size 480x270"));
    try {
        checkZoomWithOutputSize(1.5, 640, 360, 480, 270, "--output-size 480x270");
        FAIL();
    } catch (const UsageError &e) {
        EXPECT_STREQ("--zoom 1.5 cannot be used with --output-size 480x270 (the input is 640x360): the library "
                     "zooms only when the output size equals the input size",
                     e.what());
    }
}

}  // namespace
