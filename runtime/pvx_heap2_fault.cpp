#include "runtime/pvx_heap2_fault.h"

#include <atomic>

namespace {

std::atomic<int32_t> g_failAt(0);
std::atomic<int32_t> g_count(0);

}  // namespace

void pvx_Heap2_setAllocationFault(int32_t n) {
    g_count.store(0, std::memory_order_relaxed);
    g_failAt.store(n > 0 ? n : 0, std::memory_order_relaxed);
}

int32_t pvx_Heap2_allocationCount(void) { return g_count.load(std::memory_order_relaxed); }

bool pvx_Heap2_faultRefuses(void) {
    const int32_t n = g_count.fetch_add(1, std::memory_order_relaxed) + 1;
    const int32_t at = g_failAt.load(std::memory_order_relaxed);
    return at != 0 && n == at;
}
