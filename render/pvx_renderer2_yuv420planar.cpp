// Draw kernels of "YUV420_PLANAR": bilinear, high-quality chroma, and the
// plain copy.
#include "render/pvx_draw_walk.h"
#include "render/pvx_renderer2_kernels.h"

using namespace pvx_draw;

pvx_Result pvx_Renderer2_Yuv420Planar_drawRect(const pvx_Renderer2_DrawArg *arg) {
    return drawCell<LayoutYuv420Planar, kBilinear, kGeneral>(arg);
}
pvx_Result pvx_Renderer2_Yuv420Planar_drawRectParallel(const pvx_Renderer2_DrawArg *arg) {
    return drawCell<LayoutYuv420Planar, kBilinear, kParallel>(arg);
}
pvx_Result pvx_Renderer2_Yuv420Planar_drawRectNoRot(const pvx_Renderer2_DrawArg *arg) {
    return drawCell<LayoutYuv420Planar, kBilinear, kNoRot>(arg);
}
pvx_Result pvx_Renderer2_Yuv420Planar_drawRectMemcpy(const pvx_Renderer2_DrawArg *arg) {
    return drawMemcpy<LayoutYuv420Planar>(arg);
}

pvx_Result pvx_Renderer2_Yuv420PlanarHQ_drawRect(const pvx_Renderer2_DrawArg *arg) {
    return drawCell<LayoutYuv420Planar, kHQ, kGeneral>(arg);
}
pvx_Result pvx_Renderer2_Yuv420PlanarHQ_drawRectParallel(const pvx_Renderer2_DrawArg *arg) {
    return drawCell<LayoutYuv420Planar, kHQ, kParallel>(arg);
}
pvx_Result pvx_Renderer2_Yuv420PlanarHQ_drawRectNoRot(const pvx_Renderer2_DrawArg *arg) {
    return drawCell<LayoutYuv420Planar, kHQ, kNoRot>(arg);
}
