/* A C11 client of the public headers: sizes, initializes, starts, corrects
 * one small frame and finalizes. The border-fill helper is included so that
 * it compiles as C; border_fill_test drives it. */
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "parvex_border_fill.h"
#include "parvex_distortion_correction.h"

/* The records' word layout: on a 32-bit target four words, then the lens
 * union (aligned to 8) whose table form is num, xs, ys in its first twelve
 * bytes; image records of five and eight words. */
#define PTR ((int)sizeof(void *))
_Static_assert(offsetof(parvex_DistortionCorrection_InitParam, width) == PTR, "width follows format");
_Static_assert(offsetof(parvex_DistortionCorrection_InitParam, mode) == PTR + 8, "mode is the fourth field");
_Static_assert(offsetof(parvex_DistortionCorrection_InitParam, coef) % 8 == 0, "the union is 8-aligned");
_Static_assert(offsetof(parvex_DistortionCorrection_InitParam, coef) == (PTR == 4 ? 16 : 24), "union offset");
_Static_assert(offsetof(parvex_DistortionCorrection_InitParam, num) == offsetof(parvex_DistortionCorrection_InitParam, coef),
               "num starts the union");
_Static_assert(PTR != 4 || offsetof(parvex_DistortionCorrection_InitParam, ys) - offsetof(parvex_DistortionCorrection_InitParam, num) == 8,
               "num, xs, ys fill the union's first twelve bytes");
_Static_assert(sizeof(parvex_DistortionCorrection_InitParam) == (PTR == 4 ? 48 : 56), "parameter record size");
_Static_assert(sizeof(parvex_ImageData) == 8 + 3 * PTR, "width, height, three planes");
_Static_assert(offsetof(parvex_ImageDataEx, pitch) == 8 + 3 * PTR, "pitches follow the planes");
_Static_assert(PTR != 4 || sizeof(parvex_ImageDataEx) == 32, "eight words on a 32-bit target");

#define CHECK(cond)                                              \
    do {                                                         \
        if (!(cond)) {                                           \
            fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #cond); \
            return 1;                                            \
        }                                                        \
    } while (0)

int main(void) {
    parvex_DistortionCorrection_InitParam param;
    parvex_DistortionCorrection handle;
    parvex_ImageData in, out;
    unsigned char *src, *dst;
    void *buffer;
    int32_t size;
    const int32_t w = 320, h = 240;

    memset(&param, 0, sizeof param);
    param.format = "YUV420_SEMIPLANAR";
    param.width = w;
    param.height = h;
    param.mode = 0;
    param.coef[0] = -0.1;
    CHECK(strcmp(parvex_DistortionCorrection_getVersion(), "Parvex DistortionCorrection Ver.1.0.0 2021/08/01") == 0);
    size = parvex_DistortionCorrection_getBufferSize(&param);
    CHECK(size > 859552);
    buffer = malloc((size_t)size);
    CHECK(buffer != NULL);
    CHECK(parvex_DistortionCorrection_initialize(&handle, buffer, size, &param) == PARVEX_OK);
    CHECK(parvex_DistortionCorrection_start(&handle) == PARVEX_OK);

    src = malloc((size_t)(w * h * 3 / 2));
    dst = malloc((size_t)(w * h * 3 / 2));
    CHECK(src && dst);
    memset(src, 128, (size_t)(w * h * 3 / 2));
    memset(dst, 0, (size_t)(w * h * 3 / 2));
    in.width = out.width = w;
    in.height = out.height = h;
    in.dat[0] = src;
    in.dat[1] = src + w * h;
    in.dat[2] = NULL;
    out.dat[0] = dst;
    out.dat[1] = dst + w * h;
    out.dat[2] = NULL;
    CHECK(parvex_DistortionCorrection_process(&handle, &out, &in) == PARVEX_OK);
    CHECK(dst[(h / 2) * w + w / 2] == 128);

    CHECK(parvex_DistortionCorrection_finalize(&handle) == PARVEX_OK);
    CHECK(handle.p == NULL);
    free(src);
    free(dst);
    free(buffer);
    puts("ok");
    return 0;
}
