// Placeholder record of the task executor; the runtime defines it fully.
#pragma once
struct pvx_ParallelExecutor {
    pvx_Env *env;
    pvx_Pel *pel;
};
