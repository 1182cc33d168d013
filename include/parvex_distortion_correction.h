/*
 * parvex lens-distortion correction.
 *
 * The caller owns every byte of memory. Typical use:
 *
 *   parvex_DistortionCorrection_InitParam param = {0};
 *   param.format = "YUV420_SEMIPLANAR";
 *   param.width = 1920; param.height = 1080;
 *   param.mode = 0;                                  (four coefficients)
 *   param.coef[0] = 0.2; param.coef[1] = 0.05;       (k1 .. k4: a barrel lens)
 *
 *   int32_t size = parvex_DistortionCorrection_getBufferSize(&param);
 *   void *buffer = ...;                              (size bytes, 8-aligned, yours)
 *   parvex_DistortionCorrection h;
 *   parvex_DistortionCorrection_initialize(&h, buffer, size, &param);
 *   parvex_DistortionCorrection_start(&h);
 *   for each frame:
 *     parvex_DistortionCorrection_process(&h, &output, &input);
 *   parvex_DistortionCorrection_finalize(&h);
 *   (the buffer is yours again)
 *
 * Every function except getVersion and getBufferSize returns one of the
 * PARVEX_ codes below. Calls on one handle must not overlap; the library
 * runs each frame on worker threads of its own and returns when it is done.
 */
#ifndef PARVEX_DISTORTION_CORRECTION_H
#define PARVEX_DISTORTION_CORRECTION_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define PARVEX_API __attribute__((visibility("default")))
#define PARVEX_ALIGN8 __attribute__((aligned(8)))
#else
#define PARVEX_API
#define PARVEX_ALIGN8
#endif

/* Result codes (32-bit unsigned). Failures have the top bit set. */
#define PARVEX_OK                 ((uint32_t)0x00000000u)
#define PARVEX_ERROR_PARAM        ((uint32_t)0x80000001u) /* null pointer or value out of range */
#define PARVEX_ERROR_STATE        ((uint32_t)0x80000002u) /* wrong state, or an image of the wrong size */
#define PARVEX_ERROR_IMAGE_FORMAT ((uint32_t)0x80000010u) /* format not accepted by the engine */
#define PARVEX_ERROR_MALLOC       ((uint32_t)0xC0000000u) /* work buffer too small, or its heap failed */
/* Codes of the library's inner layers that frame calls pass up unchanged: */
#define PARVEX_ERROR_HEAP_EXHAUSTED ((uint32_t)0x80000004u) /* the work buffer's heap could not hold the
                                                              intermediate image or the resize's scratch */
#define PARVEX_ERROR_WAIT_TIMEOUT ((uint32_t)0x80000080u) /* a wait for the workers passed 3 s; the call
                                                             still returned only after all its work was done */

/* Handle, owned by the caller. `p` points at the engine context (the start of
 * the work buffer) between a successful initialize and finalize. */
typedef struct parvex_DistortionCorrection {
    void *p;
} parvex_DistortionCorrection;

/* Engine description, read only by initialize and getBufferSize. */
typedef struct parvex_DistortionCorrection_InitParam {
    const char *format; /* "RGB888", "BGR888", "YUV420_PLANAR", "YUV420_SEMIPLANAR" or "YVU420_SEMIPLANAR" */
    int32_t width;      /* input width, 320 .. 6144 */
    int32_t height;     /* input height, 240 .. 6144 */
    int32_t mode;       /* 0: four polynomial coefficients, 1: a table of radii */
    union PARVEX_ALIGN8 {
        double coef[4]; /* mode 0: k1 .. k4 of D(r) = 1 + k1 r^2 + k2 r^4 + k3 r^6 + k4 r^8 */
        struct {
            int32_t num;       /* mode 1: number of points, at most 256 */
            const double *xs;  /* normalised output radii, ascending */
            const double *ys;  /* normalised source radii */
        };
    };
} parvex_DistortionCorrection_InitParam;

/* An image with tightly packed planes; its format is the engine's. Plane
 * layout for a width W and height H (W2, H2: W and H rounded up to even):
 *   RGB888, BGR888      one plane, rows of 3W bytes, H rows
 *   YUV420_PLANAR       Y: rows of W2 bytes; U and V: rows of W2/2 bytes, H2/2 rows each
 *   YUV420_SEMIPLANAR,  Y: rows of W2 bytes; chroma pairs: rows of W2 bytes, H2/2 rows
 *   YVU420_SEMIPLANAR
 * The 4:2:0 luma plane thus has the even-rounded width as its row pitch even
 * for an odd W (allocate W2 x H2 bytes); the engine writes only the W x H
 * pixels of each row, and the chroma of the last half-pixel column/row. */
typedef struct parvex_ImageData {
    int32_t width;
    int32_t height;
    void *dat[3]; /* interleaved: pixels; planar: Y, U, V; semi-planar: Y, interleaved chroma */
} parvex_ImageData;

/* The same with explicit row pitches in bytes, one per plane of dat. */
typedef struct parvex_ImageDataEx {
    int32_t width;
    int32_t height;
    void *dat[3];
    int32_t pitch[3];
} parvex_ImageDataEx;

/* "Parvex DistortionCorrection Ver.1.0.0 2021/08/01" (constant storage). */
PARVEX_API const char *parvex_DistortionCorrection_getVersion(void);

/* Bytes of work buffer that initialize needs for this description (not
 * checked; 0 for a null param). A smaller buffer may pass initialize, but
 * then start or a zoomed or in-place frame reports the shortfall. */
PARVEX_API int32_t parvex_DistortionCorrection_getBufferSize(
    const parvex_DistortionCorrection_InitParam *param);

/* Lays the engine over `buffer` (at least getBufferSize bytes, 8-aligned)
 * and builds the lens tables.
 *   PARVEX_ERROR_PARAM         null handle, buffer or param; buffer_size < 1; width or
 *                              height out of range; buffer not 8-aligned; mode not 0 or
 *                              1; num above 256 or below 0; null xs/ys with num > 0
 *   PARVEX_ERROR_IMAGE_FORMAT  a format other than the five above
 *   PARVEX_ERROR_MALLOC        a buffer below the context's 859552 bytes (+64), or no
 *                              room for the lens tables
 * The handle's p is set once the buffer is accepted, even when a later check
 * fails: such a handle refuses every call (PARVEX_ERROR_STATE, finalize
 * included), runs no thread and holds no memory; just free the buffer. */
PARVEX_API uint32_t parvex_DistortionCorrection_initialize(
    parvex_DistortionCorrection *handle, void *buffer, int32_t buffer_size,
    const parvex_DistortionCorrection_InitParam *param);

/* Stops the workers and zeroes the context; the buffer may then be freed.
 *   PARVEX_ERROR_PARAM  null handle;  PARVEX_ERROR_STATE  no accepted initialize
 *   PARVEX_ERROR_MALLOC the heap still held a block (see start called twice). The
 *                       workers have ended all the same; the handle refuses every
 *                       call but finalize, and a second finalize succeeds. */
PARVEX_API uint32_t parvex_DistortionCorrection_finalize(parvex_DistortionCorrection *handle);

/* Before start: output size (each side at least 1; default: the input size).
 * PARVEX_ERROR_PARAM (null handle, a side below 1), PARVEX_ERROR_STATE.
 * Kept on purpose, refused by the parvex tool and the bindings:
 *  - an output above about 8000 x 8000 (a mesh of more than 16384 vertices)
 *    leaves the mesh empty: start succeeds and frames draw nothing;
 *  - with a zoom other than 1, an output size other than the input size
 *    gives a partly wrong picture (see setZoomRatio). */
PARVEX_API uint32_t parvex_DistortionCorrection_setOutputImageSize(
    parvex_DistortionCorrection *handle, int32_t width, int32_t height);

/* Before start: optical centre in input pixels (negative: the image centre).
 * PARVEX_ERROR_PARAM (null handle, NaN), PARVEX_ERROR_STATE. */
PARVEX_API uint32_t parvex_DistortionCorrection_setInputCenter(
    parvex_DistortionCorrection *handle, double x, double y);

/* Before start: an output size whose corrected picture stays inside the input.
 * PARVEX_ERROR_PARAM (a null pointer), PARVEX_ERROR_STATE. */
PARVEX_API uint32_t parvex_DistortionCorrection_getRecommendedOutputSize(
    parvex_DistortionCorrection *handle, int32_t *width, int32_t *height);

/* Starts the worker threads (one per processor, the caller being one, at
 * most 17; on their own thread when the system gives none) and builds the
 * correction grid. Calling it again repeats everything, but forgets the
 * intermediate image of an earlier zoomed or in-place frame, which finalize
 * then reports as PARVEX_ERROR_MALLOC; rebuild the mesh with setCropRect.
 *   PARVEX_ERROR_PARAM   null handle
 *   PARVEX_ERROR_STATE   no accepted initialize, or after a failed finalize
 *   PARVEX_ERROR_MALLOC  the buffer's heap cannot hold the workers' locks or the
 *                        mesh (a buffer below getBufferSize); the workers are
 *                        stopped and frames refused until a start succeeds */
PARVEX_API uint32_t parvex_DistortionCorrection_start(parvex_DistortionCorrection *handle);

/* After start: zoom ratio, at least 1.0, applied per frame.
 * PARVEX_ERROR_PARAM (null handle, below 1, NaN), PARVEX_ERROR_STATE.
 * Kept on purpose, refused by the parvex tool and the bindings: a zoom other
 * than 1 with an output size other than the input size renders the
 * input-size picture laid out for the output size and scales its centre
 * into the output, so part of the output (24% at 480x270 from 640x360,
 * zoom 1.5) comes from pixels that were never rendered. */
PARVEX_API uint32_t parvex_DistortionCorrection_setZoomRatio(
    parvex_DistortionCorrection *handle, double zoom);

/* After start: crop rectangle in input pixels (right, bottom exclusive);
 * rebuilds the grid at once. PARVEX_ERROR_PARAM (null handle), PARVEX_ERROR_STATE. */
PARVEX_API uint32_t parvex_DistortionCorrection_setCropRect(
    parvex_DistortionCorrection *handle, int32_t left, int32_t top, int32_t right, int32_t bottom);

/* After start. PARVEX_ERROR_PARAM (a null pointer), PARVEX_ERROR_STATE. */
PARVEX_API uint32_t parvex_DistortionCorrection_getCropRect(
    parvex_DistortionCorrection *handle, int32_t *left, int32_t *top, int32_t *right, int32_t *bottom);

/* Strength 0.0 (none) .. 1.0 (full); takes effect at the next start or setCropRect.
 * PARVEX_ERROR_PARAM (null handle, outside 0..1, NaN), PARVEX_ERROR_STATE. */
PARVEX_API uint32_t parvex_DistortionCorrection_setCorrectionStrength(
    parvex_DistortionCorrection *handle, double strength);

/* PARVEX_ERROR_PARAM (a null pointer), PARVEX_ERROR_STATE. */
PARVEX_API uint32_t parvex_DistortionCorrection_getCorrectionStrength(
    parvex_DistortionCorrection *handle, double *strength);

/* Frame calls: destination first, source second. The source may be the
 * destination (same dat[0]) for an in-place correction. Each returns only
 * when all of its work is done, and reports:
 *   PARVEX_OK                     every mesh cell is drawn (a cell whose source lies
 *                                 outside the input keeps its old pixels)
 *   PARVEX_ERROR_PARAM            a null pointer, a missing plane, a pitch shorter
 *                                 than a row (Ex); distort with a table lens; a zoom
 *                                 so large that its centred part has no pixels
 *   PARVEX_ERROR_STATE            not started (or start failed), or an image of a
 *                                 size other than the input / output size
 *   PARVEX_ERROR_IMAGE_FORMAT     BGR888 at a zoom other than 1
 *   PARVEX_ERROR_HEAP_EXHAUSTED   no room for the intermediate image or the resize's
 *                                 scratch (zoom other than 1, or in place)
 *   PARVEX_ERROR_WAIT_TIMEOUT     a wait for the workers passed 3 s (the frame is
 *                                 complete nonetheless) */
PARVEX_API uint32_t parvex_DistortionCorrection_process(
    parvex_DistortionCorrection *handle, const parvex_ImageData *output, const parvex_ImageData *input);

PARVEX_API uint32_t parvex_DistortionCorrection_processEx(
    parvex_DistortionCorrection *handle, const parvex_ImageDataEx *output, const parvex_ImageDataEx *input);

/* Applies the lens distortion instead (coefficient lenses only). */
PARVEX_API uint32_t parvex_DistortionCorrection_distort(
    parvex_DistortionCorrection *handle, const parvex_ImageData *output, const parvex_ImageData *input);

PARVEX_API uint32_t parvex_DistortionCorrection_distortEx(
    parvex_DistortionCorrection *handle, const parvex_ImageDataEx *output, const parvex_ImageDataEx *input);

#ifdef __cplusplus
}
#endif

#endif /* PARVEX_DISTORTION_CORRECTION_H */
