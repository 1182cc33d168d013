// Per-format draw kernels: each family has a general (drawRect), a
// parallelogram (drawRectParallel) and an unrotated (drawRectNoRot) kernel;
// two families add a plain-copy kernel (drawRectMemcpy).
#pragma once

#include "render/pvx_renderer2.h"

#define PVX_DECLARE_DRAW_FAMILY(Family)                                                    \
    pvx_Result pvx_Renderer2_##Family##_drawRect(const pvx_Renderer2_DrawArg *arg);        \
    pvx_Result pvx_Renderer2_##Family##_drawRectParallel(const pvx_Renderer2_DrawArg *arg); \
    pvx_Result pvx_Renderer2_##Family##_drawRectNoRot(const pvx_Renderer2_DrawArg *arg);

PVX_DECLARE_DRAW_FAMILY(Rgb888)
PVX_DECLARE_DRAW_FAMILY(Uint8)
PVX_DECLARE_DRAW_FAMILY(Yuv420Planar)
PVX_DECLARE_DRAW_FAMILY(Yuv420PlanarHQ)
PVX_DECLARE_DRAW_FAMILY(Yuv420Semiplanar)
PVX_DECLARE_DRAW_FAMILY(Yuv420SemiplanarHQ)
PVX_DECLARE_DRAW_FAMILY(Yuv420SemiplanarNN)
PVX_DECLARE_DRAW_FAMILY(Yuv422Planar)
PVX_DECLARE_DRAW_FAMILY(Yuv422Uyvy)
PVX_DECLARE_DRAW_FAMILY(Yuv422Yuyv)

#undef PVX_DECLARE_DRAW_FAMILY

pvx_Result pvx_Renderer2_Yuv420Planar_drawRectMemcpy(const pvx_Renderer2_DrawArg *arg);
pvx_Result pvx_Renderer2_Yuv420Semiplanar_drawRectMemcpy(const pvx_Renderer2_DrawArg *arg);
