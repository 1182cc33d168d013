// Draw kernel of "YUV422_PLANAR": the general kernel only, with chroma
// taken from the nearest sample; the other two slots use it.
#include "render/pvx_draw_walk.h"
#include "render/pvx_renderer2_kernels.h"

using namespace pvx_draw;

pvx_Result pvx_Renderer2_Yuv422Planar_drawRect(const pvx_Renderer2_DrawArg *arg) {
    return drawCell<LayoutYuv422Planar, kBilinear, kGeneral>(arg);
}
pvx_Result pvx_Renderer2_Yuv422Planar_drawRectParallel(const pvx_Renderer2_DrawArg *arg) {
    return pvx_Renderer2_Yuv422Planar_drawRect(arg);
}
// The unrotated slot runs the general kernel and deliberately answers PVX_OK
// whatever that reports: a cell the kernel refuses (an image of another
// format, a cell wider than the walk handles) is skipped silently through this
// slot, while the other two slots pass the refusal on. The engine itself
// never renders this format.
pvx_Result pvx_Renderer2_Yuv422Planar_drawRectNoRot(const pvx_Renderer2_DrawArg *arg) {
    pvx_Renderer2_Yuv422Planar_drawRect(arg);
    return PVX_OK;
}
