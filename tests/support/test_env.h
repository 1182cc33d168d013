// A work-area environment (heap) over guarded memory, as the library gets
// from its caller: a stray access just outside the area crashes the test.
#pragma once

#include <gtest/gtest.h>
#include <stdint.h>

#include "runtime/pvx_heap2.h"
#include "tests/support/guarded_buffer.h"

namespace pvx_test {

class TestEnv {
public:
    explicit TestEnv(size_t size = 4u << 20) : area_(size) {
        EXPECT_EQ(pvx_construct_Env(&env_, area_.data(), area_.size()), PVX_OK);
    }
    ~TestEnv() { pvx_destruct_Env(&env_); }
    TestEnv(const TestEnv &) = delete;
    TestEnv &operator=(const TestEnv &) = delete;
    pvx_Env *env() { return &env_; }
    pvx_Heap2 *heap() { return &env_.heap; }
    uint32_t used() const { return pvx_Heap2_getUsedSize(&env_.heap); }
    bool intact() { return pvx_Heap2_checks(&env_.heap) == 1; }

private:
    GuardedBuffer area_;
    pvx_Env env_;
};

}  // namespace pvx_test
