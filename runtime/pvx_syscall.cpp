#include "runtime/pvx_syscall.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>

namespace {

std::atomic<int32_t> g_processorOverride(0);

}  // namespace

int32_t pvx_Syscall_getNumberOfProcessors(void) {
    const int32_t forced = g_processorOverride.load(std::memory_order_relaxed);
    const long n = forced > 0 ? forced : sysconf(_SC_NPROCESSORS_CONF);
    if (n < 2) return 1;
    return n > 0x7FFFFFFF ? 0x7FFFFFFF : static_cast<int32_t>(n);
}

void pvx_Syscall_setProcessorCountForTesting(int32_t count) {
    g_processorOverride.store(count > 0 ? count : 0, std::memory_order_relaxed);
}

pvx_Result pvx_Syscall_setThreadAffinityMask(pvx_Env *env, uint32_t mask) {
    (void)env;
    // Through syscall with a mask of one unsigned long, the kernel's unit of
    // CPU masks (emulators such as qemu-aarch64 refuse other lengths): the C
    // library's wrapper would want a full cpu_set_t. Thread id 0 is the
    // calling thread.
    unsigned long bits = mask;
    const long r = syscall(__NR_sched_setaffinity, 0, sizeof bits, &bits);
    return r == 0 ? PVX_OK : PVX_ERROR_SYSTEM;
}
