// The resizer's row twins built into this library, best first, and the
// choice for the running processor: compile-time on Arm, a CPU feature test
// on x86.
#include "resample/pvx_resize_twins.h"

#include <stddef.h>

namespace {

#if defined(__x86_64__) || defined(__i386__)
const pvx_ResizeTwins kSsse3 = {"ssse3", pvx_ImageProc2_groups8Ssse3, pvx_ImageProc2_blend7Ssse3,
                                pvx_ImageProc2_blend88Ssse3, pvx_ImageProc2_middle88Ssse3};
const pvx_ResizeTwins *const kTwins[] = {&kSsse3};

int32_t firstUsable() {
    if (__builtin_cpu_supports("ssse3")) return 0;
    return 1;
}
#elif defined(__ARM_NEON)
const pvx_ResizeTwins kNeon = {"neon", pvx_ImageProc2_groups8Neon, pvx_ImageProc2_blend7Neon,
                               pvx_ImageProc2_blend88Neon, pvx_ImageProc2_middle88Neon};
const pvx_ResizeTwins *const kTwins[] = {&kNeon};

int32_t firstUsable() { return 0; }
#else
const pvx_ResizeTwins *const kTwins[] = {nullptr};

int32_t firstUsable() { return 1; }
#endif

constexpr int32_t kTwinCount = static_cast<int32_t>(sizeof kTwins / sizeof kTwins[0]);

}  // namespace

int32_t pvx_ImageProc2_availableTwins(const pvx_ResizeTwins *const **list) {
    const int32_t first = firstUsable();
    *list = kTwins + first;
    return kTwinCount - first;
}

const pvx_ResizeTwins *pvx_ImageProc2_bestTwins() {
    const int32_t first = firstUsable();
    return first < kTwinCount ? kTwins[first] : nullptr;
}
