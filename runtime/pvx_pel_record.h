// Placeholder record of the parallel layer; the runtime defines it fully.
#pragma once
struct pvx_Pel {
    pvx_Env *env;
    uint32_t flags;
};
