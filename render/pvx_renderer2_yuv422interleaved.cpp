// Draw kernels of the interleaved 4:2:2 families: two pixels in four bytes,
// luma first ("YUV422_YUYV", "YUV422_YVYU") or chroma first
// ("YUV422_UYVY", "YUV422_VYUY"). Chroma has full vertical resolution and
// is sampled per row.
#include "render/pvx_draw_walk.h"
#include "render/pvx_renderer2_kernels.h"

using namespace pvx_draw;

pvx_Result pvx_Renderer2_Yuv422Yuyv_drawRect(const pvx_Renderer2_DrawArg *arg) {
    return drawCell<LayoutYuyv, kBilinear, kGeneral>(arg);
}
pvx_Result pvx_Renderer2_Yuv422Yuyv_drawRectParallel(const pvx_Renderer2_DrawArg *arg) {
    return drawCell<LayoutYuyv, kBilinear, kParallel>(arg);
}
pvx_Result pvx_Renderer2_Yuv422Yuyv_drawRectNoRot(const pvx_Renderer2_DrawArg *arg) {
    return drawCell<LayoutYuyv, kBilinear, kNoRot>(arg);
}

pvx_Result pvx_Renderer2_Yuv422Uyvy_drawRect(const pvx_Renderer2_DrawArg *arg) {
    return drawCell<LayoutUyvy, kBilinear, kGeneral>(arg);
}
pvx_Result pvx_Renderer2_Yuv422Uyvy_drawRectParallel(const pvx_Renderer2_DrawArg *arg) {
    return drawCell<LayoutUyvy, kBilinear, kParallel>(arg);
}
pvx_Result pvx_Renderer2_Yuv422Uyvy_drawRectNoRot(const pvx_Renderer2_DrawArg *arg) {
    return drawCell<LayoutUyvy, kBilinear, kNoRot>(arg);
}
