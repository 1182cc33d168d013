// Draw kernels of the one-byte-a-pixel family ("UINT8").
#include "render/pvx_draw_walk.h"
#include "render/pvx_renderer2_kernels.h"

using namespace pvx_draw;

pvx_Result pvx_Renderer2_Uint8_drawRect(const pvx_Renderer2_DrawArg *arg) {
    return drawCell<LayoutUint8, kBilinear, kGeneral>(arg);
}
pvx_Result pvx_Renderer2_Uint8_drawRectParallel(const pvx_Renderer2_DrawArg *arg) {
    return drawCell<LayoutUint8, kBilinear, kParallel>(arg);
}
pvx_Result pvx_Renderer2_Uint8_drawRectNoRot(const pvx_Renderer2_DrawArg *arg) {
    return drawCell<LayoutUint8, kBilinear, kNoRot>(arg);
}
