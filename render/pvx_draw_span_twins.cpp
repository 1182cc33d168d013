// The span twins built into this library, best first, and the choice for
// the running processor: compile-time on Arm, a CPU feature test on x86
// (each supported set also supports every set listed after it).
#include "render/pvx_draw_span.h"

namespace pvx_draw {

namespace {

#if defined(__x86_64__) || defined(__i386__)
const SpanTwins kSsse3 = {"ssse3",
                          spanNoRotSemiplanarSsse3,
                          spanNoRotPlanarSsse3,
                          spanGeneralSemiplanarSsse3,
                          spanGeneralPlanarSsse3,
                          spanParallelSemiplanarSsse3,
                          spanParallelPlanarSsse3};
const SpanTwins *const kTwins[] = {&kSsse3};

int32_t firstUsable() {
    if (__builtin_cpu_supports("ssse3")) return 0;
    return 1;
}
#elif defined(__ARM_NEON)
const SpanTwins kNeon = {"neon",
                         spanNoRotSemiplanarNeon,
                         spanNoRotPlanarNeon,
                         spanGeneralSemiplanarNeon,
                         spanGeneralPlanarNeon,
                         spanParallelSemiplanarNeon,
                         spanParallelPlanarNeon};
const SpanTwins *const kTwins[] = {&kNeon};

int32_t firstUsable() { return 0; }
#else
const SpanTwins *const kTwins[] = {nullptr};

int32_t firstUsable() { return 1; }
#endif

constexpr int32_t kTwinCount = static_cast<int32_t>(sizeof kTwins / sizeof kTwins[0]);

}  // namespace

int32_t availableSpanTwins(const SpanTwins *const **list) {
    const int32_t first = firstUsable();
    *list = kTwins + first;
    return kTwinCount - first;
}

const SpanTwins *bestSpanTwins() {
    const int32_t first = firstUsable();
    return first < kTwinCount ? kTwins[first] : nullptr;
}

}  // namespace pvx_draw
