// The vertex lattice: layout over a rectangle, copy, matrix mapping and
// clamping of source positions. The four arrays come from the lattice's heap.
#include "render/pvx_renderer2_params.h"

#include <cstddef>
#include <cstring>

#include "render/pvx_mvec8real.h"

static_assert(offsetof(pvx_Renderer2_Params, numX) == offsetof(pvx_Renderer2_GridWrapper, numX), "layout");
static_assert(offsetof(pvx_Renderer2_Params, numY) == offsetof(pvx_Renderer2_GridWrapper, numY), "layout");
static_assert(offsetof(pvx_Renderer2_Params, srcX) == offsetof(pvx_Renderer2_GridWrapper, srcX), "layout");
static_assert(offsetof(pvx_Renderer2_Params, srcY) == offsetof(pvx_Renderer2_GridWrapper, srcY), "layout");
static_assert(offsetof(pvx_Renderer2_Params, dstX) == offsetof(pvx_Renderer2_GridWrapper, dstX), "layout");
static_assert(offsetof(pvx_Renderer2_Params, dstY) == offsetof(pvx_Renderer2_GridWrapper, dstY), "layout");
static_assert(offsetof(pvx_Renderer2_Params, heap) == offsetof(pvx_Renderer2_GridWrapper, heap), "layout");

namespace {

// The vertex store shared by Params and GridWrapper.
struct Store {
    int32_t *numX;
    int32_t *numY;
    double **srcX;
    double **srcY;
    int32_t **dstX;
    int32_t **dstY;
    pvx_Heap2 *heap;
};

Store storeOf(pvx_Renderer2_Params *p) {
    return Store{&p->numX, &p->numY, &p->srcX, &p->srcY, &p->dstX, &p->dstY, p->heap};
}
Store storeOf(pvx_Renderer2_GridWrapper *g) {
    return Store{&g->numX, &g->numY, &g->srcX, &g->srcY, &g->dstX, &g->dstY, g->heap};
}

// No vertices and no arrays (the heap stays).
void clearStore(const Store &s) {
    *s.numX = 0;
    *s.numY = 0;
    *s.srcX = nullptr;
    *s.srcY = nullptr;
    *s.dstX = nullptr;
    *s.dstY = nullptr;
}

// Vertex count of a store; negative counts count as empty.
int64_t vertexCount(int32_t numX, int32_t numY) {
    if (numX <= 0 || numY <= 0) return 0;
    return static_cast<int64_t>(numX) * numY;
}

void *allocate(pvx_Heap2 *heap, size_t size) { return heap ? pvx_Heap2_malloc(heap, size) : nullptr; }

// Hands a non-null array back to the heap; the pointer is cleared only when
// the heap accepts it.
template <typename T>
void release(pvx_Heap2 *heap, T **p) {
    if (*p == nullptr || heap == nullptr) return;
    if (!pvx_failed(pvx_Heap2_free(heap, *p))) *p = nullptr;
}

void releaseAll(const Store &s) {
    release(s.heap, s.srcX);
    release(s.heap, s.srcY);
    release(s.heap, s.dstX);
    release(s.heap, s.dstY);
}

// Allocates the four arrays in order, keeping whatever was obtained when
// one of them fails.
pvx_Result allocateAll(const Store &s, int64_t n) {
    // The heap's block tags are 32 bits: anything larger cannot be served.
    if (n < 0 || static_cast<uint64_t>(n) > UINT32_MAX / sizeof(double)) return PVX_ERROR_NOMEM;
    const size_t count = static_cast<size_t>(n);
    *s.srcX = static_cast<double *>(allocate(s.heap, count * sizeof(double)));
    if (*s.srcX == nullptr) return PVX_ERROR_NOMEM;
    *s.srcY = static_cast<double *>(allocate(s.heap, count * sizeof(double)));
    if (*s.srcY == nullptr) return PVX_ERROR_NOMEM;
    *s.dstX = static_cast<int32_t *>(allocate(s.heap, count * sizeof(int32_t)));
    if (*s.dstX == nullptr) return PVX_ERROR_NOMEM;
    *s.dstY = static_cast<int32_t *>(allocate(s.heap, count * sizeof(int32_t)));
    if (*s.dstY == nullptr) return PVX_ERROR_NOMEM;
    return PVX_OK;
}

// Lays the lattice over rect with the given spacing (the caller has checked
// the arguments). Counts are worked out in 64 bits so that no rectangle can
// overflow them; a count below one cannot describe the vertices the fill
// writes and is refused like an oversized one.
pvx_Result layLattice(const Store &s, const int32_t *rect, int32_t cellWidth, int32_t cellHeight) {
    const int64_t left = rect[0], top = rect[1], right = rect[2], bottom = rect[3];
    const int64_t nx = (right - left + cellWidth - 1) / cellWidth + 1;
    const int64_t ny = (bottom - top + cellHeight - 1) / cellHeight + 1;
    // |nx|, |ny| < 2^30 for any int32 rectangle with cells of at least 8.
    *s.numX = static_cast<int32_t>(nx);
    *s.numY = static_cast<int32_t>(ny);
    if (nx < 1 || ny < 1 || nx * ny > PVX_RENDERER2_MAX_VERTICES) return PVX_ERROR_PARAM;

    releaseAll(s);
    const int64_t n = nx * ny;
    const pvx_Result r = allocateAll(s, n);
    if (r != PVX_OK) return r;

    double *sx = *s.srcX;
    double *sy = *s.srcY;
    int32_t *dx = *s.dstX;
    int32_t *dy = *s.dstY;
    int64_t k = 0;
    // Rows at top, top+cellHeight, ... below bottom, then bottom itself;
    // within a row the same for x. Positions are stepped in 64 bits.
    for (int64_t row = 0; row < ny; ++row) {
        const int64_t y = row + 1 < ny ? top + row * cellHeight : bottom;
        for (int64_t col = 0; col < nx; ++col) {
            const int64_t x = col + 1 < nx ? left + col * cellWidth : right;
            dx[k] = static_cast<int32_t>(x);
            dy[k] = static_cast<int32_t>(y);
            sx[k] = static_cast<double>(x);
            sy[k] = static_cast<double>(y);
            ++k;
        }
    }
    return PVX_OK;
}

pvx_Result mapThrough(const Store &s, const pvx_Mvec8Real *matrix) {
    const int64_t n = vertexCount(*s.numX, *s.numY);
    if (n == 0) return PVX_OK;
    if (*s.srcX == nullptr || *s.srcY == nullptr || *s.dstX == nullptr || *s.dstY == nullptr) return PVX_ERROR_PARAM;
    for (int64_t k = 0; k < n; ++k) {
        const pvx_Result r = pvx_Mvec8Real_trans2DReal(matrix, static_cast<double>((*s.dstX)[k]),
                                                       static_cast<double>((*s.dstY)[k]), &(*s.srcX)[k],
                                                       &(*s.srcY)[k]);
        if (r != PVX_OK) return r;
    }
    return PVX_OK;
}

// Cell edge for a side length and divisor: the side itself below divisor 2,
// else side/divisor cleared to a multiple of 16, at least 8. Sides that do
// not fit a cell width are passed on as an invalid cell.
int32_t cellFor(int64_t side, int32_t divisor) {
    int64_t c;
    if (divisor < 2) {
        c = side;
    } else {
        c = (side / divisor) & ~static_cast<int64_t>(15);
        if (c < PVX_RENDERER2_MIN_CELL) c = PVX_RENDERER2_MIN_CELL;
    }
    if (c > INT32_MAX || c < 0) return 0;
    return static_cast<int32_t>(c);
}

}  // namespace

uint32_t pvx_Renderer2_Params_getBufferSize(void) { return 409600u; }

pvx_Result pvx_construct_Renderer2_Params(pvx_Renderer2_Params *params, pvx_Heap2 *heap) {
    if (params == nullptr) return PVX_ERROR_PARAM;
    params->heap = heap;
    params->reserved = 0;
    clearStore(storeOf(params));
    for (int32_t &v : params->rect) v = 0;
    params->cellWidth = 0;
    params->cellHeight = 0;
    return PVX_OK;
}

pvx_Result pvx_destruct_Renderer2_Params(pvx_Renderer2_Params *params) {
    if (params == nullptr) return PVX_ERROR_PARAM;
    releaseAll(storeOf(params));
    return PVX_OK;
}

pvx_Result pvx_Renderer2_Params_initWithGridSize(pvx_Renderer2_Params *params, const int32_t *rect,
                                                 int32_t cellWidth, int32_t cellHeight) {
    if (params == nullptr || rect == nullptr || cellWidth < PVX_RENDERER2_MIN_CELL ||
        cellHeight < PVX_RENDERER2_MIN_CELL)
        return PVX_ERROR_PARAM;
    for (int32_t q = 0; q < 4; ++q) params->rect[q] = rect[q];
    params->cellWidth = cellWidth;
    params->cellHeight = cellHeight;
    return layLattice(storeOf(params), rect, cellWidth, cellHeight);
}

pvx_Result pvx_Renderer2_Params_initRectWithSize(pvx_Renderer2_Params *params, const void *owner,
                                                 const int32_t *rect, int32_t cell) {
    if (owner == nullptr || params == nullptr || rect == nullptr) return PVX_ERROR_PARAM;
    return pvx_Renderer2_Params_initWithGridSize(params, rect, cell, cell);
}

pvx_Result pvx_Renderer2_Params_initRect(pvx_Renderer2_Params *params, const void *owner, const int32_t *rect,
                                         int32_t divisor) {
    if (owner == nullptr || params == nullptr || rect == nullptr) return PVX_ERROR_PARAM;
    const int64_t width = static_cast<int64_t>(rect[2]) - rect[0];
    const int64_t height = static_cast<int64_t>(rect[3]) - rect[1];
    if (divisor < 2) return pvx_Renderer2_Params_initWithGridSize(params, rect, cellFor(width, 1), cellFor(height, 1));
    const int32_t cell = cellFor(width < height ? width : height, divisor);
    return pvx_Renderer2_Params_initWithGridSize(params, rect, cell, cell);
}

pvx_Result pvx_Renderer2_Params_init(pvx_Renderer2_Params *params, const void *owner, int32_t width,
                                     int32_t height, int32_t divisor) {
    const int32_t rect[4] = {0, 0, width, height};
    return pvx_Renderer2_Params_initRect(params, owner, rect, divisor);
}

pvx_Result pvx_Renderer2_Params_initVertical(pvx_Renderer2_Params *params, const void *owner, int32_t width,
                                             int32_t height, int32_t divisor) {
    if (owner == nullptr || params == nullptr) return PVX_ERROR_PARAM;
    const int32_t rect[4] = {0, 0, width, height};
    return pvx_Renderer2_Params_initWithGridSize(params, rect, width, cellFor(height, divisor));
}

pvx_Result pvx_Renderer2_Params_initWithSize(pvx_Renderer2_Params *params, const void *owner, int32_t width,
                                             int32_t height, int32_t cell) {
    if (owner == nullptr || params == nullptr) return PVX_ERROR_PARAM;
    const int32_t rect[4] = {0, 0, width, height};
    return pvx_Renderer2_Params_initWithGridSize(params, rect, cell, cell);
}

pvx_Result pvx_Renderer2_Params_copy(pvx_Renderer2_Params *dst, const pvx_Renderer2_Params *src) {
    if (dst == nullptr || src == nullptr) return PVX_ERROR_PARAM;
    if (dst == src) return PVX_OK;
    const int64_t n = vertexCount(src->numX, src->numY);
    if (n > 0 && (src->srcX == nullptr || src->srcY == nullptr || src->dstX == nullptr || src->dstY == nullptr))
        return PVX_ERROR_PARAM;
    // Field by field: a memcmp here would be the library's only import of it.
    const bool sameShape = dst->rect[0] == src->rect[0] && dst->rect[1] == src->rect[1] &&
                           dst->rect[2] == src->rect[2] && dst->rect[3] == src->rect[3] &&
                           dst->cellWidth == src->cellWidth && dst->cellHeight == src->cellHeight;
    // A lattice whose counts or arrays are out of step (a failed init) is
    // rebuilt as well, so the copy below always stays inside dst's arrays.
    const bool usable = dst->numX == src->numX && dst->numY == src->numY &&
                        (n == 0 || (dst->srcX && dst->srcY && dst->dstX && dst->dstY));
    if (!sameShape || !usable) {
        pvx_destruct_Renderer2_Params(dst);
        const pvx_Result r = pvx_Renderer2_Params_initWithGridSize(dst, src->rect, src->cellWidth, src->cellHeight);
        if (r != PVX_OK) return r;
        if (dst->numX != src->numX || dst->numY != src->numY) return PVX_ERROR_PARAM;
    }
    dst->reserved = 0;
    if (n > 0) {
        const size_t count = static_cast<size_t>(n);
        std::memcpy(dst->srcX, src->srcX, count * sizeof(double));
        std::memcpy(dst->srcY, src->srcY, count * sizeof(double));
        std::memcpy(dst->dstX, src->dstX, count * sizeof(int32_t));
        std::memcpy(dst->dstY, src->dstY, count * sizeof(int32_t));
    }
    return PVX_OK;
}

pvx_Result pvx_Renderer2_Params_setMvec8Real(pvx_Renderer2_Params *params, const pvx_Mvec8Real *matrix) {
    if (params == nullptr || matrix == nullptr) return PVX_ERROR_PARAM;
    return mapThrough(storeOf(params), matrix);
}

uint32_t pvx_Renderer2_GridWrapper_getBufferSize(int32_t numX, int32_t numY) {
    if (numX < 0 || numY < 0) return 0;
    const uint64_t bytes = static_cast<uint64_t>(numX) * static_cast<uint64_t>(numY) * 24u;
    return bytes > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(bytes);
}

pvx_Result pvx_construct_Renderer2_GridWrapper(pvx_Renderer2_GridWrapper *grid, pvx_Heap2 *heap) {
    if (grid == nullptr) return PVX_ERROR_PARAM;
    grid->heap = heap;
    clearStore(storeOf(grid));
    return PVX_OK;
}

pvx_Result pvx_destruct_Renderer2_GridWrapper(pvx_Renderer2_GridWrapper *grid) {
    if (grid == nullptr) return PVX_ERROR_PARAM;
    releaseAll(storeOf(grid));
    return PVX_OK;
}

pvx_Result pvx_Renderer2_GridWrapper_init(pvx_Renderer2_GridWrapper *grid, int32_t numX, int32_t numY) {
    if (grid == nullptr || numX < 0 || numY < 0) return PVX_ERROR_PARAM;
    grid->numX = numX;
    grid->numY = numY;
    const Store s = storeOf(grid);
    releaseAll(s);
    return allocateAll(s, static_cast<int64_t>(numX) * numY);
}

pvx_Result pvx_Renderer2_GridWrapper_initWithGridSize(pvx_Renderer2_GridWrapper *grid, const int32_t *rect,
                                                      int32_t cellWidth, int32_t cellHeight) {
    if (grid == nullptr || rect == nullptr || cellWidth < PVX_RENDERER2_MIN_CELL ||
        cellHeight < PVX_RENDERER2_MIN_CELL)
        return PVX_ERROR_PARAM;
    return layLattice(storeOf(grid), rect, cellWidth, cellHeight);
}

pvx_Result pvx_Renderer2_GridWrapper_setMvec8Real(pvx_Renderer2_GridWrapper *grid, const pvx_Mvec8Real *matrix) {
    if (grid == nullptr || matrix == nullptr) return PVX_ERROR_PARAM;
    return mapThrough(storeOf(grid), matrix);
}

pvx_Result pvx_Renderer2_Grid_confineWithinRect(void *grid, const int32_t *rect) {
    if (grid == nullptr || rect == nullptr) return PVX_ERROR_PARAM;
    // Both records start with the same fields; read them by offset so that
    // either may be passed.
    unsigned char *base = static_cast<unsigned char *>(grid);
    int32_t numX, numY;
    double *srcX;
    double *srcY;
    std::memcpy(&numX, base + offsetof(pvx_Renderer2_GridWrapper, numX), sizeof(numX));
    std::memcpy(&numY, base + offsetof(pvx_Renderer2_GridWrapper, numY), sizeof(numY));
    std::memcpy(&srcX, base + offsetof(pvx_Renderer2_GridWrapper, srcX), sizeof(srcX));
    std::memcpy(&srcY, base + offsetof(pvx_Renderer2_GridWrapper, srcY), sizeof(srcY));
    const int64_t n = vertexCount(numX, numY);
    if (n == 0) return PVX_OK;
    if (srcX == nullptr || srcY == nullptr) return PVX_ERROR_PARAM;
    const double left = rect[0], top = rect[1];
    const double right = static_cast<double>(rect[2]) - 2.0;
    const double bottom = static_cast<double>(rect[3]) - 2.0;
    for (int64_t k = 0; k < n; ++k) {
        double x = srcX[k];
        if (x < left) x = left;
        if (x > right) x = right;
        srcX[k] = x;
        double y = srcY[k];
        if (y < top) y = top;
        if (y > bottom) y = bottom;
        srcY[k] = y;
    }
    return PVX_OK;
}
