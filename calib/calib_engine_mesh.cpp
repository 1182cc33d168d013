#include "calib/calib_engine_mesh.h"

#include <string.h>

#include "calib/calib_internal.h"
#include "lens/pvx_grid_build.h"
#include "lens/pvx_zelkov4.h"
#include "render/pvx_renderer2_params.h"
#include "runtime/pvx_convert.h"
#include "runtime/pvx_heap2.h"
#include "runtime/pvx_raw_double.h"

namespace parvex_calib {
namespace detail {

namespace {

// Room for the largest lattice and the lens model's tables.
constexpr size_t kArenaBytes = 1 << 20;

// The engine's fill factor: the least of D at radius 1 and at the nearer
// output border along each axis.
float engineFillScale(const pvx_Zelkov4DistortionCorrection *lens, const pvx_GridGeometry &g) {
    const float k = pvx_toFloat(1.0 / (pvx_RawDouble_hypot(g.inWidth, g.inHeight) * 0.5));
    auto nearer = [](double c, int32_t size) { return c <= size - c ? c : size - c; };
    float least = pvx_Zelkov4DistortionCorrection_get(lens, 1.0f);
    const float rx = pvx_Zelkov4DistortionCorrection_get(lens, pvx_toFloat(nearer(g.outCenterX, g.outWidth) * k));
    if (rx < least) least = rx;
    const float ry = pvx_Zelkov4DistortionCorrection_get(lens, pvx_toFloat(nearer(g.outCenterY, g.outHeight) * k));
    if (ry < least) least = ry;
    return least;
}

}  // namespace

void engineTablePoints(const EngineLens &lens, std::vector<double> *xs, std::vector<double> *ys) {
    *xs = lens.xs;
    *ys = lens.ys;
    const size_t n = xs->size();
    if (n < 2) return;
    // 100 times the last segment; the key starts from the last source radius.
    ys->push_back((*ys)[n - 1] + 100.0 * ((*ys)[n - 1] - (*ys)[n - 2]));
    xs->push_back(lens.ys[n - 1] + 100.0 * ((*xs)[n - 1] - (*xs)[n - 2]));
}

EngineMesh engineMesh(const EngineLens &lens, int32_t width, int32_t height, const std::string &name) {
    if (lens.mode == 1 && (lens.xs.size() < 2 || lens.xs.size() != lens.ys.size() || lens.xs.size() > 256))
        fail(name, "table", "needs 2 to 256 points with as many keys as values");
    std::vector<uint64_t> arena(kArenaBytes / 8);
    pvx_Env env;
    if (pvx_construct_Env(&env, arena.data(), kArenaBytes) != PVX_OK) fail(name, "", "cannot set up the mesh");
    pvx_Zelkov4DistortionCorrection model;
    pvx_construct_Zelkov4DistortionCorrection(&model, &env);
    pvx_Renderer2_Params params;
    pvx_construct_Renderer2_Params(&params, &env.heap);

    pvx_GridGeometry g;
    memset(&g, 0, sizeof g);
    g.inWidth = g.outWidth = width;
    g.inHeight = g.outHeight = height;
    g.inCenterX = g.outCenterX = lens.center_x < 0 ? width * 0.5 : lens.center_x;
    g.inCenterY = g.outCenterY = lens.center_y < 0 ? height * 0.5 : lens.center_y;
    g.crop[2] = width;
    g.crop[3] = height;
    g.strength = 1.0;
    const int32_t cell = pvx_Grid_cellSize(width, height);
    const int32_t rect[4] = {0, 0, width, height};

    EngineMesh mesh;
    pvx_Result r = pvx_Renderer2_Params_initRectWithSize(&params, &params, rect, cell);
    if (r == PVX_OK && lens.mode == 0) {
        const float coef[4] = {pvx_toFloat(lens.coef[0]), pvx_toFloat(lens.coef[1]), pvx_toFloat(lens.coef[2]),
                               pvx_toFloat(lens.coef[3])};
        r = pvx_Zelkov4DistortionCorrection_setParam4(&model, coef);
        if (r == PVX_OK) {
            pvx_Grid_fillModel(&params, &model, &g, cell);
            mesh.fillScale = engineFillScale(&model, g);
        }
    } else if (r == PVX_OK) {
        std::vector<double> xs, ys;
        engineTablePoints(lens, &xs, &ys);
        pvx_Grid_fillTable(&params, &g, cell, xs.data(), ys.data(), static_cast<int32_t>(xs.size()));
    }
    if (r == PVX_OK) {
        const size_t n = static_cast<size_t>(params.numX) * params.numY;
        mesh.numX = params.numX;
        mesh.numY = params.numY;
        mesh.dstX.assign(params.dstX, params.dstX + n);
        mesh.dstY.assign(params.dstY, params.dstY + n);
        mesh.srcX.assign(params.srcX, params.srcX + n);
        mesh.srcY.assign(params.srcY, params.srcY + n);
    }
    pvx_destruct_Renderer2_Params(&params);
    pvx_destruct_Zelkov4DistortionCorrection(&model);
    pvx_destruct_Env(&env);
    if (r != PVX_OK)
        fail(name, "", "the engine cannot lay out a mesh for a " + std::to_string(width) + "x" + std::to_string(height) + " frame");
    return mesh;
}

}  // namespace detail
}  // namespace parvex_calib
