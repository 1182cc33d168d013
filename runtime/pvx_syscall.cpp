#include "runtime/pvx_syscall.h"

#include <sys/syscall.h>
#include <unistd.h>

int32_t pvx_Syscall_getNumberOfProcessors(void) {
    const long n = sysconf(_SC_NPROCESSORS_CONF);
    if (n < 2) return 1;
    return n > 0x7FFFFFFF ? 0x7FFFFFFF : static_cast<int32_t>(n);
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
