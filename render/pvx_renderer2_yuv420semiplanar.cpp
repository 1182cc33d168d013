// Draw kernels of "YUV420_SEMIPLANAR" and "YVU420_SEMIPLANAR" (the order
// of a chroma pair does not matter): bilinear, high-quality chroma,
// nearest neighbour, and the plain copy.
#include "render/pvx_draw_walk.h"
#include "render/pvx_renderer2_kernels.h"

using namespace pvx_draw;

pvx_Result pvx_Renderer2_Yuv420Semiplanar_drawRect(const pvx_Renderer2_DrawArg *arg) {
    return drawCell<LayoutYuv420Semiplanar, kBilinear, kGeneral>(arg);
}
pvx_Result pvx_Renderer2_Yuv420Semiplanar_drawRectParallel(const pvx_Renderer2_DrawArg *arg) {
    return drawCell<LayoutYuv420Semiplanar, kBilinear, kParallel>(arg);
}
pvx_Result pvx_Renderer2_Yuv420Semiplanar_drawRectNoRot(const pvx_Renderer2_DrawArg *arg) {
    return drawCell<LayoutYuv420Semiplanar, kBilinear, kNoRot>(arg);
}
pvx_Result pvx_Renderer2_Yuv420Semiplanar_drawRectMemcpy(const pvx_Renderer2_DrawArg *arg) {
    return drawMemcpy<LayoutYuv420Semiplanar>(arg);
}

pvx_Result pvx_Renderer2_Yuv420SemiplanarHQ_drawRect(const pvx_Renderer2_DrawArg *arg) {
    return drawCell<LayoutYuv420Semiplanar, kHQ, kGeneral>(arg);
}
pvx_Result pvx_Renderer2_Yuv420SemiplanarHQ_drawRectParallel(const pvx_Renderer2_DrawArg *arg) {
    return drawCell<LayoutYuv420Semiplanar, kHQ, kParallel>(arg);
}
pvx_Result pvx_Renderer2_Yuv420SemiplanarHQ_drawRectNoRot(const pvx_Renderer2_DrawArg *arg) {
    return drawCell<LayoutYuv420Semiplanar, kHQ, kNoRot>(arg);
}

pvx_Result pvx_Renderer2_Yuv420SemiplanarNN_drawRect(const pvx_Renderer2_DrawArg *arg) {
    return drawCell<LayoutYuv420Semiplanar, kNearest, kGeneral>(arg);
}
pvx_Result pvx_Renderer2_Yuv420SemiplanarNN_drawRectParallel(const pvx_Renderer2_DrawArg *arg) {
    return drawCell<LayoutYuv420Semiplanar, kNearest, kParallel>(arg);
}
pvx_Result pvx_Renderer2_Yuv420SemiplanarNN_drawRectNoRot(const pvx_Renderer2_DrawArg *arg) {
    return drawCell<LayoutYuv420Semiplanar, kNearest, kNoRot>(arg);
}
