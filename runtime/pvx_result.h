// Result codes shared by every layer of the library. A result is a 32-bit
// unsigned status: 0 is success, failures have the top bit set, and a code
// from an inner layer is passed up unchanged.
#pragma once

#include <stdint.h>

typedef uint32_t pvx_Result;

enum : uint32_t {
    PVX_OK = 0x00000000u,
    PVX_ERROR_FAIL = 0x80000000u,      // generic failure (a resize band with a zero dimension)
    PVX_ERROR_PARAM = 0x80000001u,     // null pointer or value out of range
    PVX_ERROR_STATE = 0x80000002u,     // object constructed but not initialised, or wrong state
    PVX_ERROR_NOMEM = 0x80000004u,     // the work-area heap could not supply the memory
    PVX_ERROR_FORMAT = 0x80000010u,    // unsupported image format or mode
    PVX_ERROR_TIMEOUT = 0x80000080u,   // a timed wait expired
    PVX_ERROR_SYSTEM = 0xC0000000u,    // an operating-system call failed (also: engine heap failure)
};

// True for a failure code (top bit set).
inline bool pvx_failed(pvx_Result r) { return (r & 0x80000000u) != 0; }
