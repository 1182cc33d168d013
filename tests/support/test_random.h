// Seeded random numbers for tests. The seed comes from PVX_TEST_SEED when it
// is set, else from the clock; it is printed so that a failure can be replayed.
#pragma once

#include <stdint.h>

#include <random>

namespace pvx_test {

uint64_t testSeed();

// A generator seeded with testSeed() mixed with `stream`, so that separate
// tests draw separate sequences from one printed seed.
std::mt19937_64 makeRng(uint64_t stream = 0);

// Number of random rounds: `native` natively, fewer under the emulator.
inline int rounds(int native) {
#ifdef PVX_TEST_UNDER_EMULATOR
    return native / 8 > 0 ? native / 8 : 1;
#else
    return native;
#endif
}

}  // namespace pvx_test
