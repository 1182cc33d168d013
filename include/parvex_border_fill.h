/*
 * parvex border fill: header-only helper beside parvex_distortion_correction.h.
 *
 * The engine draws only the output pixels whose source lies inside the input
 * frame; every other pixel of the destination keeps what it held before the
 * call (a lens correction that pulls the picture inwards leaves such a border,
 * and a zeroed YUV buffer shows it green). Which pixels stay undrawn depends on
 * the settings only (format, sizes, lens, centre, strength, zoom, crop and the
 * direction), never on the picture. So this helper finds them once, by running
 * two probe frames through the caller's own handle, keeps them as a list of
 * byte spans, and then fills only those spans after each frame. The fill runs
 * on the destination after the frame call, so in-place calls get the same
 * border.
 *
 * Use (C or C++; nothing is allocated here, every byte is the caller's):
 *
 *   size_t n = parvex_BorderFill_probeSize(format, in_w, in_h, out_w, out_h);
 *   void *scratch = ...;            (n bytes of the caller's memory, 8-aligned)
 *   int32_t count = 0;
 *   parvex_BorderFill_probe(&handle, PARVEX_BORDER_FILL_PROCESS, format,
 *                           in_w, in_h, out_w, out_h, scratch, n, &count);
 *   parvex_BorderSpan *spans = ...; (count spans of the caller's memory; count may be 0)
 *   parvex_BorderFill fill;
 *   parvex_BorderFill_init(&fill, scratch, spans, count);
 *   (scratch may be released now: the spans are all the fill keeps)
 *   parvex_BorderColour black = parvex_BorderFill_black(format, 0);
 *   for each frame:
 *     parvex_DistortionCorrection_process(&handle, &output, &input);
 *     parvex_BorderFill_apply(&fill, &output, black);     (or applyEx)
 *
 * The fill writes only the border, so it costs a small part of a frame call.
 * It can often be skipped altogether: when fill.keeps_destination is set
 * (zoom 1), the undrawn bytes are never written by the library, so an output
 * buffer that is reused for every frame (and is not the input) needs the
 * fill once, before or after its first frame.
 *
 * Probe again after any setting changes (zoom, crop, strength). The probe
 * uses the handle like two ordinary frames: a DISTORT probe leaves the
 * distortion mesh in the engine, as every distort call does.
 *
 * A pixel counts as drawn when it follows the source: black in gives black
 * out and white in gives white out (within PARVEX_BORDER_FILL_TOLERANCE
 * levels). At zoom 1 an undrawn pixel keeps the destination's old value; at
 * other zooms the engine scales its own intermediate picture, whose undrawn
 * part holds stale data, so border pixels (and edge pixels blended with
 * them) do not follow the source and are filled too.
 *
 * Result codes are the library's: PARVEX_OK, PARVEX_ERROR_PARAM (null
 * pointer, scratch too small or misaligned, size out of range, pitch shorter
 * than a row), PARVEX_ERROR_IMAGE_FORMAT (format not one of the engine's
 * five), PARVEX_ERROR_STATE (an image of another size than the probe's),
 * PARVEX_ERROR_MALLOC (span array too small), or a frame call's own code.
 * Names ending in an underscore are internal.
 */
#ifndef PARVEX_BORDER_FILL_H
#define PARVEX_BORDER_FILL_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "parvex_distortion_correction.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Which frame call the probe runs. */
#define PARVEX_BORDER_FILL_PROCESS 0
#define PARVEX_BORDER_FILL_DISTORT 1

/* A byte counts as drawn when the black probe gives at most this value and
 * the white probe at least 255 minus it. */
#define PARVEX_BORDER_FILL_TOLERANCE 8

/* Largest output side the helper takes (no engine mesh reaches it). */
#define PARVEX_BORDER_FILL_MAX_SIDE 16384

/* Formats, as the helper numbers them (0: not an engine format). */
#define PARVEX_BORDER_FORMAT_RGB888 1
#define PARVEX_BORDER_FORMAT_BGR888 2
#define PARVEX_BORDER_FORMAT_YUV420_PLANAR 3
#define PARVEX_BORDER_FORMAT_YUV420_SEMIPLANAR 4
#define PARVEX_BORDER_FORMAT_YVU420_SEMIPLANAR 5

/* One run of undrawn bytes: bytes [begin, end) of row `row` of plane `plane`
 * (0: RGB pixels or Y; 1: U, or the interleaved chroma; 2: V). */
typedef struct parvex_BorderSpan {
    int32_t plane;
    int32_t row;
    int32_t begin;
    int32_t end;
} parvex_BorderSpan;

/* The undrawn part of one output frame; `spans` is the caller's array. */
typedef struct parvex_BorderFill {
    int32_t format;          /* PARVEX_BORDER_FORMAT_* */
    int32_t width, height;   /* output size that was probed */
    int32_t count;           /* spans in use */
    int64_t undrawn_bytes;   /* bytes the spans cover, all planes */
    int64_t frame_bytes;     /* bytes of picture in the frame, all planes */
    const parvex_BorderSpan *spans;
    /* Non-zero when the frame call never writes the undrawn bytes (zoom 1:
     * they keep the destination's old contents). A destination buffer that
     * is reused frame after frame, and is not also the source, then needs
     * the fill only once. Zero when the call writes them with stale data
     * (other zooms): fill after every frame. */
    int32_t keeps_destination;
} parvex_BorderFill;

/* A fill colour. RGB888 and BGR888: c = {R, G, B}; the YUV formats:
 * c = {Y, U (Cb), V (Cr)}. The helper puts each byte where the format wants it. */
typedef struct parvex_BorderColour {
    uint8_t c[3];
} parvex_BorderColour;

/* ---- internal ---------------------------------------------------------- */

/* Geometry of one plane: the tight pitch and row count that parvex_ImageData
 * implies (4:2:0 luma rounded up to even sizes), the bytes and rows that
 * hold picture, and the bytes per sample (the colour's pattern length). */
typedef struct parvex_BorderPlane_ {
    int64_t pitch, rows, row_bytes, picture_rows;
    int32_t sample_bytes;
} parvex_BorderPlane_;

typedef struct parvex_BorderProbe_ {
    uint32_t magic;
    int32_t format, in_width, in_height, out_width, out_height;
    int64_t in_bytes, out_bytes; /* tight frame sizes, each rounded up to 64 */
} parvex_BorderProbe_;

#define PARVEX_BORDER_PROBE_MAGIC_ 0x50425846u
#define PARVEX_BORDER_HEADER_BYTES_ 64

static inline int32_t parvex_BorderFill_formatOf_(const char *name) {
    static const char *const names[5] = {"RGB888", "BGR888", "YUV420_PLANAR", "YUV420_SEMIPLANAR",
                                         "YVU420_SEMIPLANAR"};
    int32_t i;
    if (!name) return 0;
    for (i = 0; i < 5; ++i)
        if (strcmp(name, names[i]) == 0) return i + 1;
    return 0;
}

static inline int32_t parvex_BorderFill_planeCount_(int32_t format) {
    return format == PARVEX_BORDER_FORMAT_YUV420_PLANAR ? 3
         : format >= PARVEX_BORDER_FORMAT_YUV420_SEMIPLANAR ? 2 : 1;
}

/* 0 when the format lacks the plane. */
static inline int parvex_BorderFill_plane_(int32_t format, int32_t width, int32_t height, int32_t plane,
                                           parvex_BorderPlane_ *out) {
    const int64_t w = width, h = height, cw = (w + 1) / 2, ch = (h + 1) / 2;
    memset(out, 0, sizeof *out);
    if (plane < 0 || plane >= parvex_BorderFill_planeCount_(format)) return 0;
    if (format <= PARVEX_BORDER_FORMAT_BGR888) {
        out->pitch = out->row_bytes = 3 * w;
        out->rows = out->picture_rows = h;
        out->sample_bytes = 3;
    } else if (plane == 0) {
        out->pitch = 2 * cw;
        out->rows = 2 * ch;
        out->row_bytes = w;
        out->picture_rows = h;
        out->sample_bytes = 1;
    } else {
        out->sample_bytes = format == PARVEX_BORDER_FORMAT_YUV420_PLANAR ? 1 : 2;
        out->pitch = out->row_bytes = out->sample_bytes * cw;
        out->rows = out->picture_rows = ch;
    }
    return 1;
}

/* Bytes of a frame with tight planes, or -1 for sizes out of range. */
static inline int64_t parvex_BorderFill_frameBytes_(int32_t format, int32_t width, int32_t height) {
    int64_t total = 0;
    int32_t p;
    parvex_BorderPlane_ pl;
    if (width < 1 || height < 1 || width > PARVEX_BORDER_FILL_MAX_SIDE || height > PARVEX_BORDER_FILL_MAX_SIDE)
        return -1;
    for (p = 0; p < 3; ++p)
        if (parvex_BorderFill_plane_(format, width, height, p, &pl)) total += pl.pitch * pl.rows;
    return total;
}

/* Points `image` at a tight frame that starts at `base`. */
static inline void parvex_BorderFill_wrap_(int32_t format, int32_t width, int32_t height, uint8_t *base,
                                           parvex_ImageData *image) {
    int32_t p;
    parvex_BorderPlane_ pl;
    memset(image, 0, sizeof *image);
    image->width = width;
    image->height = height;
    for (p = 0; p < 3; ++p)
        if (parvex_BorderFill_plane_(format, width, height, p, &pl)) {
            image->dat[p] = base;
            base += pl.pitch * pl.rows;
        }
}

/* The byte pattern of `colour` in plane p, `sample_bytes` long. */
static inline void parvex_BorderFill_pattern_(int32_t format, int32_t plane, parvex_BorderColour colour,
                                              uint8_t pattern[3]) {
    const uint8_t *c = colour.c;
    switch (format) {
    case PARVEX_BORDER_FORMAT_RGB888: pattern[0] = c[0]; pattern[1] = c[1]; pattern[2] = c[2]; break;
    case PARVEX_BORDER_FORMAT_BGR888: pattern[0] = c[2]; pattern[1] = c[1]; pattern[2] = c[0]; break;
    case PARVEX_BORDER_FORMAT_YUV420_PLANAR: pattern[0] = c[plane]; break;
    case PARVEX_BORDER_FORMAT_YUV420_SEMIPLANAR:
        pattern[0] = plane == 0 ? c[0] : c[1];
        pattern[1] = c[2];
        break;
    default: /* YVU420_SEMIPLANAR */
        pattern[0] = plane == 0 ? c[0] : c[2];
        pattern[1] = c[1];
        break;
    }
}

/* Walks the probe results; writes spans while they fit in `capacity`.
 * Returns the number of spans and adds up the bytes they cover. */
static inline int64_t parvex_BorderFill_scan_(const parvex_BorderProbe_ *probe, parvex_BorderSpan *spans,
                                              int64_t capacity, int64_t *undrawn, int64_t *picture,
                                              int32_t *keeps) {
    const uint8_t *black = (const uint8_t *)probe + PARVEX_BORDER_HEADER_BYTES_ + probe->in_bytes;
    const uint8_t *white = black + probe->out_bytes;
    int64_t count = 0, offset = 0, y, x;
    int32_t p;
    parvex_BorderPlane_ pl;
    *undrawn = *picture = 0;
    *keeps = 1;
    for (p = 0; p < 3; ++p) {
        if (!parvex_BorderFill_plane_(probe->format, probe->out_width, probe->out_height, p, &pl)) break;
        *picture += pl.row_bytes * pl.picture_rows;
        for (y = 0; y < pl.picture_rows; ++y) {
            const uint8_t *b = black + offset + y * pl.pitch, *w = white + offset + y * pl.pitch;
            for (x = 0; x < pl.row_bytes;) {
                int64_t begin;
                if (b[x] <= PARVEX_BORDER_FILL_TOLERANCE && w[x] >= 255 - PARVEX_BORDER_FILL_TOLERANCE) {
                    ++x;
                    continue;
                }
                begin = x;
                while (x < pl.row_bytes &&
                       !(b[x] <= PARVEX_BORDER_FILL_TOLERANCE && w[x] >= 255 - PARVEX_BORDER_FILL_TOLERANCE)) {
                    /* The probes' destinations started white and black. */
                    if (b[x] != 255 || w[x] != 0) *keeps = 0;
                    ++x;
                }
                if (count < capacity) {
                    spans[count].plane = p;
                    spans[count].row = (int32_t)y;
                    spans[count].begin = (int32_t)begin;
                    spans[count].end = (int32_t)x;
                }
                ++count;
                *undrawn += x - begin;
            }
        }
        offset += pl.pitch * pl.rows;
    }
    return count;
}

/* ---- public ------------------------------------------------------------ */

/* Bytes of scratch that parvex_BorderFill_probe needs (one input frame and
 * two output frames), or 0 for an unknown format or a size out of range. */
static inline size_t parvex_BorderFill_probeSize(const char *format, int32_t in_width, int32_t in_height,
                                                 int32_t out_width, int32_t out_height) {
    const int32_t f = parvex_BorderFill_formatOf_(format);
    const int64_t in = f ? parvex_BorderFill_frameBytes_(f, in_width, in_height) : -1;
    const int64_t out = f ? parvex_BorderFill_frameBytes_(f, out_width, out_height) : -1;
    uint64_t total;
    if (in < 0 || out < 0) return 0;
    total = (uint64_t)PARVEX_BORDER_HEADER_BYTES_ + (uint64_t)((in + 63) & ~(int64_t)63) +
            2 * (uint64_t)((out + 63) & ~(int64_t)63);
    return total > (uint64_t)(size_t)-1 ? 0 : (size_t)total;
}

/* Runs two frames through `handle` (process or distort by `direction`):
 * a black source into a white destination, then a white source into a black
 * one, and keeps both results in `scratch` (at least probeSize bytes,
 * 8-aligned). The handle must be started with the settings to be used. The
 * sizes are the engine's input and output sizes. `*span_count` (if not
 * null) receives the number of spans that parvex_BorderFill_init will need. */
static inline uint32_t parvex_BorderFill_probe(parvex_DistortionCorrection *handle, int32_t direction,
                                               const char *format, int32_t in_width, int32_t in_height,
                                               int32_t out_width, int32_t out_height, void *scratch,
                                               size_t scratch_size, int32_t *span_count) {
    const int32_t f = parvex_BorderFill_formatOf_(format);
    const size_t need = parvex_BorderFill_probeSize(format, in_width, in_height, out_width, out_height);
    parvex_BorderProbe_ *probe = (parvex_BorderProbe_ *)scratch;
    parvex_ImageData in, black, white;
    uint8_t *base;
    uint32_t code;
    int64_t undrawn, picture, count;
    int32_t keeps;
    if (!handle || !scratch || (direction != PARVEX_BORDER_FILL_PROCESS && direction != PARVEX_BORDER_FILL_DISTORT))
        return PARVEX_ERROR_PARAM;
    if (!f) return PARVEX_ERROR_IMAGE_FORMAT;
    if (need == 0 || scratch_size < need || ((uintptr_t)scratch & 7u) != 0) return PARVEX_ERROR_PARAM;
    memset(probe, 0, sizeof *probe);
    probe->format = f;
    probe->in_width = in_width;
    probe->in_height = in_height;
    probe->out_width = out_width;
    probe->out_height = out_height;
    probe->in_bytes = (parvex_BorderFill_frameBytes_(f, in_width, in_height) + 63) & ~(int64_t)63;
    probe->out_bytes = (parvex_BorderFill_frameBytes_(f, out_width, out_height) + 63) & ~(int64_t)63;
    base = (uint8_t *)scratch + PARVEX_BORDER_HEADER_BYTES_;
    parvex_BorderFill_wrap_(f, in_width, in_height, base, &in);
    parvex_BorderFill_wrap_(f, out_width, out_height, base + probe->in_bytes, &black);
    parvex_BorderFill_wrap_(f, out_width, out_height, base + probe->in_bytes + probe->out_bytes, &white);

    memset(base, 0, (size_t)probe->in_bytes);
    memset(base + probe->in_bytes, 255, (size_t)probe->out_bytes);
    code = direction == PARVEX_BORDER_FILL_PROCESS ? parvex_DistortionCorrection_process(handle, &black, &in)
                                                   : parvex_DistortionCorrection_distort(handle, &black, &in);
    if (code != PARVEX_OK) return code;
    memset(base, 255, (size_t)probe->in_bytes);
    memset(base + probe->in_bytes + probe->out_bytes, 0, (size_t)probe->out_bytes);
    code = direction == PARVEX_BORDER_FILL_PROCESS ? parvex_DistortionCorrection_process(handle, &white, &in)
                                                   : parvex_DistortionCorrection_distort(handle, &white, &in);
    if (code != PARVEX_OK) return code;
    probe->magic = PARVEX_BORDER_PROBE_MAGIC_;
    count = parvex_BorderFill_scan_(probe, NULL, 0, &undrawn, &picture, &keeps);
    if (span_count) *span_count = (int32_t)count;
    return PARVEX_OK;
}

/* Builds `fill` from a finished probe, writing its spans into `spans`
 * (`capacity` entries; null is fine when the probe found none). The spans
 * are sorted by plane, then row, then position. PARVEX_ERROR_MALLOC when
 * they do not fit (`fill` then says how many are needed, with count). */
static inline uint32_t parvex_BorderFill_init(parvex_BorderFill *fill, const void *scratch,
                                              parvex_BorderSpan *spans, int32_t capacity) {
    const parvex_BorderProbe_ *probe = (const parvex_BorderProbe_ *)scratch;
    int64_t count, undrawn, picture;
    int32_t keeps;
    if (!fill || !probe || ((uintptr_t)scratch & 7u) != 0 || probe->magic != PARVEX_BORDER_PROBE_MAGIC_ ||
        capacity < 0 || (capacity > 0 && !spans))
        return PARVEX_ERROR_PARAM;
    count = parvex_BorderFill_scan_(probe, spans, capacity, &undrawn, &picture, &keeps);
    memset(fill, 0, sizeof *fill);
    fill->format = probe->format;
    fill->width = probe->out_width;
    fill->height = probe->out_height;
    fill->count = (int32_t)count;
    fill->undrawn_bytes = undrawn;
    fill->frame_bytes = picture;
    fill->keeps_destination = keeps;
    if (count > capacity) return PARVEX_ERROR_MALLOC;
    fill->spans = spans;
    return PARVEX_OK;
}

/* Black: RGB 0; YUV with luma 16 (video range, full_range 0) or 0
 * (full_range non-zero) and chroma 128. `format` may be null (RGB888). */
static inline parvex_BorderColour parvex_BorderFill_black(const char *format, int full_range) {
    const int32_t f = parvex_BorderFill_formatOf_(format);
    parvex_BorderColour colour;
    if (f >= PARVEX_BORDER_FORMAT_YUV420_PLANAR) {
        colour.c[0] = (uint8_t)(full_range ? 0 : 16);
        colour.c[1] = colour.c[2] = 128;
    } else {
        colour.c[0] = colour.c[1] = colour.c[2] = 0;
    }
    return colour;
}

/* An RGB colour for `format`: kept as is for RGB888/BGR888, converted with
 * BT.601 for the YUV formats (video range: luma 16..235, chroma 16..240;
 * full range: 0..255), rounded to the nearest level. */
static inline parvex_BorderColour parvex_BorderFill_fromRgb(const char *format, uint8_t r, uint8_t g, uint8_t b,
                                                            int full_range) {
    const int32_t f = parvex_BorderFill_formatOf_(format);
    parvex_BorderColour colour;
    colour.c[0] = r;
    colour.c[1] = g;
    colour.c[2] = b;
    if (f >= PARVEX_BORDER_FORMAT_YUV420_PLANAR) {
        const double y = 0.299 * r + 0.587 * g + 0.114 * b;
        const double cb = (b - y) / 1.772, cr = (r - y) / 1.402; /* -127.5 .. 127.5 */
        const double ys = full_range ? 1.0 : 219.0 / 255.0, cs = full_range ? 1.0 : 224.0 / 255.0;
        const double v[3] = {(full_range ? 0.0 : 16.0) + y * ys, 128.0 + cb * cs, 128.0 + cr * cs};
        int i;
        for (i = 0; i < 3; ++i) {
            const double t = v[i] + 0.5;
            colour.c[i] = (uint8_t)(t <= 0.0 ? 0 : t >= 255.0 ? 255 : (int)t);
        }
    }
    return colour;
}

/* Fills the spans of `fill` in a frame with the planes and row pitches of
 * `image` (a pitch may exceed the row; it may not be shorter). */
static inline uint32_t parvex_BorderFill_applyEx(const parvex_BorderFill *fill, const parvex_ImageDataEx *image,
                                                 parvex_BorderColour colour) {
    uint8_t line[3][96 + 2];
    int32_t sample[3] = {0, 0, 0}, p, i;
    parvex_BorderPlane_ pl;
    if (!fill || !image || (fill->count > 0 && !fill->spans)) return PARVEX_ERROR_PARAM;
    if (image->width != fill->width || image->height != fill->height) return PARVEX_ERROR_STATE;
    for (p = 0; p < 3; ++p) {
        uint8_t pattern[3] = {0, 0, 0};
        if (!parvex_BorderFill_plane_(fill->format, fill->width, fill->height, p, &pl)) break;
        if (!image->dat[p] || image->pitch[p] < pl.row_bytes) return PARVEX_ERROR_PARAM;
        sample[p] = pl.sample_bytes;
        parvex_BorderFill_pattern_(fill->format, p, colour, pattern);
        /* 96 bytes repeat every 1, 2 and 3 bytes; two more let a copy start at any phase. */
        for (i = 0; i < 96 + 2; ++i) line[p][i] = pattern[i % pl.sample_bytes];
    }
    for (i = 0; i < fill->count; ++i) {
        const parvex_BorderSpan *s = &fill->spans[i];
        uint8_t *at = (uint8_t *)image->dat[s->plane] + (ptrdiff_t)s->row * image->pitch[s->plane] + s->begin;
        const int32_t length = s->end - s->begin, k = sample[s->plane];
        int32_t done;
        if (k == 1) {
            memset(at, line[s->plane][0], (size_t)length);
            continue;
        }
        /* The first 96 bytes from the pattern line (in phase with the span's
         * start), then the span doubles itself: a copied length that is a
         * multiple of 96 keeps every byte in phase. */
        done = length < 96 ? length : 96;
        memcpy(at, line[s->plane] + s->begin % k, (size_t)done);
        while (done < length) {
            const int32_t n = length - done < done ? length - done : done;
            memcpy(at + done, at, (size_t)n);
            done += n;
        }
    }
    return PARVEX_OK;
}

/* The same for a frame with tight planes (the layout parvex_ImageData implies). */
static inline uint32_t parvex_BorderFill_apply(const parvex_BorderFill *fill, const parvex_ImageData *image,
                                               parvex_BorderColour colour) {
    parvex_ImageDataEx ex;
    int32_t p;
    parvex_BorderPlane_ pl;
    if (!fill || !image) return PARVEX_ERROR_PARAM;
    memset(&ex, 0, sizeof ex);
    ex.width = image->width;
    ex.height = image->height;
    for (p = 0; p < 3; ++p) {
        ex.dat[p] = image->dat[p];
        if (parvex_BorderFill_plane_(fill->format, fill->width, fill->height, p, &pl)) ex.pitch[p] = (int32_t)pl.pitch;
    }
    return parvex_BorderFill_applyEx(fill, &ex, colour);
}

#ifdef __cplusplus
}
#endif

#endif /* PARVEX_BORDER_FILL_H */
