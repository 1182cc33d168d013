// Internal interface of the resizer: the per-row functions of every member
// (horizontal resampler, vertical blend, 2:1 box row), the band routines
// that drive them, and the job record handed to the parallel layer.
//
// Each member is described by a table of plain function pointers, so that a
// vector version of a row function can replace the scalar one without
// touching the band logic. The groups of 8 outputs (7-bit weights where
// the member has them) go to the resizer's leaf table
// (pvx_resize_leaves.h), filled once for the running processor.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "image/pvx_image.h"
#include "resample/pvx_imageproc2.h"
#include "resample/pvx_resize_leaves.h"
#include "runtime/pvx_pel.h"
#include "runtime/pvx_result.h"

// Horizontal resampler: one source row (`sw` pixels) into a line of `dw`
// intermediate samples. Positions are Q15: output j samples x0 + j * step.
// `leaves` are the group kernels to use.
typedef void (*pvx_ResizeRowFn)(void *line, const uint8_t *src, int32_t sw, int32_t dw, int64_t x0,
                                int64_t step, int32_t safe, const pvx_ResizeLeaves *leaves);
// Vertical blend of two intermediate lines into a destination row of `dw`
// pixels; `f` is the Q15 fraction (0 .. 32767) of the row position.
typedef void (*pvx_ResizeBlendFn)(uint8_t *dst, const void *upper, const void *lower, int32_t dw, int32_t f,
                                  const pvx_ResizeLeaves *leaves);
// 2:1 box shrink of the source row pair (row0, row1) into `dw` pixels.
typedef void (*pvx_ResizeHalfRowFn)(uint8_t *dst, const uint8_t *row0, const uint8_t *row1, int32_t sw,
                                    int32_t dw);

struct pvx_ResizeMember {
    pvx_ResizeRowFn resampleRow;
    pvx_ResizeBlendFn blendRows;
    pvx_ResizeHalfRowFn shrinkRow;
    int32_t lineBytes;   // bytes of one intermediate sample; the scratch takes two lines per task
    int32_t pixelBytes;  // bytes of one pixel in the image
};

// The single-plane members, by sample type and channel count.
enum : int32_t {
    PVX_RESIZE_UINT8 = 0,
    PVX_RESIZE_UINT16 = 1,
    PVX_RESIZE_INT32 = 2,
    PVX_RESIZE_UINT88 = 3,
    PVX_RESIZE_RGB888 = 4,
    PVX_RESIZE_MEMBERS = 5,
};

const pvx_ResizeMember *pvx_ImageProc2_getMember(int32_t member);

// One call's work: the job record shared by every band of the call.
struct pvx_ResizeJob {
    pvx_Image *dst;
    const pvx_Image *src;
    uint8_t *scratch;   // n slices of dw * 2 * lineBytes bytes (general path only)
    int32_t n;          // number of tasks
    const pvx_ResizeMember *member;
    const pvx_ResizeLeaves *leaves;
};

// Band routines. Both return PVX_ERROR_FAIL for a dimension of 0 (or below)
// and PVX_ERROR_PARAM for a missing plane, without writing.
// General path: task i of n covers rows ceil(dh*i/n) .. ceil(dh*(i+1)/n).
pvx_Result pvx_ImageProc2_resizeBilinearBand(const pvx_ResizeJob *job, int32_t task);
// Half path: task i of n covers rows floor(dh*i/n) .. min(floor(dh*(i+1)/n), dh).
pvx_Result pvx_ImageProc2_shrinkHalfBand(const pvx_ResizeJob *job, int32_t task);

// Runs one member over plane 0 of the two images on the parallel layer:
// the half path when `half` is set, else the general path.
pvx_Result pvx_ImageProc2_runMember(pvx_ImageProc2 *proc, pvx_Image *dst, const pvx_Image *src,
                                    int32_t member, int32_t half);

// Applies `op` to every plane of a supported format: single-plane formats
// directly, YUV420 planar and semi-planar through single-plane views built
// on temporary records. Other formats: PVX_ERROR_FORMAT.
typedef pvx_Result (*pvx_ImageProc2_PlaneOp)(pvx_ImageProc2 *proc, pvx_Image *dst, const pvx_Image *src,
                                              int32_t member, void *arg);
pvx_Result pvx_ImageProc2_forEachPlane(pvx_ImageProc2 *proc, pvx_Image *dst, const pvx_Image *src,
                                       pvx_ImageProc2_PlaneOp op, void *arg);

// Geometry of the horizontal resample of `sw` source pixels onto `dw`
// outputs (both at least 1): Q15 step, Q15 position of output 0, and the
// number of outputs for which an 8-wide group stays inside the row.
struct pvx_ResizeGeometry {
    int64_t step;
    int64_t x0;
    int32_t safe;
};

inline pvx_ResizeGeometry pvx_ImageProc2_geometry(int32_t sw, int32_t dw) {
    pvx_ResizeGeometry g;
    g.step = static_cast<int64_t>(sw) * 32768 / dw;
    // (sw - dw) may be negative: multiply rather than shift; division truncates toward zero.
    g.x0 = (static_cast<int64_t>(sw) - dw) * 32768 / (2 * static_cast<int64_t>(dw));
    // A zero step (sw * 32768 < dw) never reaches the groups: every output
    // lies left of pixel 0's centre.
    g.safe = g.step > 0 ? dw - static_cast<int32_t>(262144 / g.step) : 0;
    return g;
}

// Q15 source row position of destination row y: ((2y + 1) sh - dh) * 32768 / (2 dh),
// truncated toward zero. Split into whole and remainder so that no product
// overflows 64 bits for any int32 sizes.
inline int64_t pvx_ImageProc2_rowPosition(int32_t y, int32_t sh, int32_t dh) {
    const int64_t a = (2 * static_cast<int64_t>(y) + 1) * sh - dh;
    const int64_t d = 2 * static_cast<int64_t>(dh);
    const int64_t q = a / d;
    const int64_t r = a % d;
    return q * 32768 + r * 32768 / d;
}

// Row functions of the members.
void pvx_ImageProc2_Uint8_resampleRow(void *line, const uint8_t *src, int32_t sw, int32_t dw, int64_t x0,
                                      int64_t step, int32_t safe, const pvx_ResizeLeaves *leaves);
void pvx_ImageProc2_Uint8_blendRows(uint8_t *dst, const void *upper, const void *lower, int32_t dw, int32_t f,
                                     const pvx_ResizeLeaves *leaves);
void pvx_ImageProc2_Uint8_shrinkRow(uint8_t *dst, const uint8_t *row0, const uint8_t *row1, int32_t sw, int32_t dw);

void pvx_ImageProc2_Uint16_resampleRow(void *line, const uint8_t *src, int32_t sw, int32_t dw, int64_t x0,
                                       int64_t step, int32_t safe, const pvx_ResizeLeaves *leaves);
void pvx_ImageProc2_Uint16_blendRows(uint8_t *dst, const void *upper, const void *lower, int32_t dw, int32_t f,
                                     const pvx_ResizeLeaves *leaves);
void pvx_ImageProc2_Uint16_shrinkRow(uint8_t *dst, const uint8_t *row0, const uint8_t *row1, int32_t sw,
                                     int32_t dw);

void pvx_ImageProc2_Int32_resampleRow(void *line, const uint8_t *src, int32_t sw, int32_t dw, int64_t x0,
                                      int64_t step, int32_t safe, const pvx_ResizeLeaves *leaves);
void pvx_ImageProc2_Int32_blendRows(uint8_t *dst, const void *upper, const void *lower, int32_t dw, int32_t f,
                                     const pvx_ResizeLeaves *leaves);
void pvx_ImageProc2_Int32_shrinkRow(uint8_t *dst, const uint8_t *row0, const uint8_t *row1, int32_t sw, int32_t dw);

void pvx_ImageProc2_Uint88_resampleRow(void *line, const uint8_t *src, int32_t sw, int32_t dw, int64_t x0,
                                       int64_t step, int32_t safe, const pvx_ResizeLeaves *leaves);
void pvx_ImageProc2_Uint88_blendRows(uint8_t *dst, const void *upper, const void *lower, int32_t dw, int32_t f,
                                     const pvx_ResizeLeaves *leaves);
void pvx_ImageProc2_Uint88_shrinkRow(uint8_t *dst, const uint8_t *row0, const uint8_t *row1, int32_t sw,
                                     int32_t dw);

void pvx_ImageProc2_Rgb888_resampleRow(void *line, const uint8_t *src, int32_t sw, int32_t dw, int64_t x0,
                                       int64_t step, int32_t safe, const pvx_ResizeLeaves *leaves);
void pvx_ImageProc2_Rgb888_blendRows(uint8_t *dst, const void *upper, const void *lower, int32_t dw, int32_t f,
                                     const pvx_ResizeLeaves *leaves);
void pvx_ImageProc2_Rgb888_shrinkRow(uint8_t *dst, const uint8_t *row0, const uint8_t *row1, int32_t sw,
                                     int32_t dw);

// The loops around the horizontal leaves: `groups` groups from Q15 position
// x (>= 0) of a row of `sw` pixels; groups that would read past the row get
// a copy of its end with the last pixel repeated.
void pvx_ImageProc2_runGroups7(pvx_ResizeGroupsFn leaf, int32_t channels, uint8_t *out, const uint8_t *src,
                               int32_t sw, int32_t groups, int64_t x, int32_t step);
void pvx_ImageProc2_runGroups88(pvx_ResizeGroups88Fn leaf, uint16_t *out, const uint8_t *src, int32_t sw,
                                int32_t groups, int64_t x, int32_t step);

// Number of leading box-averaged outputs of a 2:1 row: dw - max(e, 0) with
// e = dw - (sw >> 1), never more than the sw >> 1 whole blocks of the row.
inline int32_t pvx_ImageProc2_halfBlocks(int32_t sw, int32_t dw) {
    const int32_t blocks = sw >> 1;
    return dw < blocks ? dw : blocks;
}
