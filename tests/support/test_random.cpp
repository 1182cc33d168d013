#include "tests/support/test_random.h"

#include <stdio.h>
#include <stdlib.h>
#include <time.h>

namespace pvx_test {

uint64_t testSeed() {
    static uint64_t seed = [] {
        uint64_t s;
        const char *env = getenv("PVX_TEST_SEED");
        if (env && *env) {
            s = strtoull(env, nullptr, 0);
        } else {
            struct timespec ts;
            clock_gettime(CLOCK_REALTIME, &ts);
            s = static_cast<uint64_t>(ts.tv_sec) * 1000003u + static_cast<uint64_t>(ts.tv_nsec);
        }
        fprintf(stderr, "[ seed     ] PVX_TEST_SEED=%llu\n", static_cast<unsigned long long>(s));
        return s;
    }();
    return seed;
}

std::mt19937_64 makeRng(uint64_t stream) {
    std::seed_seq seq{static_cast<uint32_t>(testSeed()), static_cast<uint32_t>(testSeed() >> 32),
                      static_cast<uint32_t>(stream), static_cast<uint32_t>(stream >> 32)};
    return std::mt19937_64(seq);
}

}  // namespace pvx_test
