// Work-area heap: layout over the area,
// random and concurrent use checked against a simple model, and the
// corruption stops.
#include "runtime/pvx_heap2.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "tests/support/guarded_buffer.h"
#include "tests/support/test_random.h"

namespace {

using pvx_test::GuardedBuffer;

uintptr_t addr(const void *p) { return reinterpret_cast<uintptr_t>(p); }

// Block size the heap gives for an n-byte request (n > 0), worked out from the
// rule "payload plus an 8-byte header, at least 16, rounded up to 16".
uint32_t blockFor(size_t n) {
    size_t need = n + 8;
    if (need <= 16) return 16;
    return static_cast<uint32_t>((need + 15) / 16 * 16);
}

// Bytes of the single free block laid over [s, s + n): from the first
// 16-aligned payload at least 8 bytes in, to the last 16-aligned end that
// leaves 8 bytes for the end sentinel's tags. Negative when nothing fits.
int64_t areaBlock(uintptr_t s, size_t n) {
    int64_t p0 = static_cast<int64_t>((s + 8 + 15) / 16 * 16);
    int64_t e = static_cast<int64_t>((s + n - 8) / 16 * 16);
    return e - p0;
}

// The heap's fatal stop is abort(): a crash for any other reason (a stray
// access into a guard page) does not pass as detection.
#define EXPECT_FATAL(statement, unused) EXPECT_EXIT(statement, ::testing::KilledBySignal(SIGABRT), unused)

// The death tests fork without re-executing the binary (which the Arm
// emulator could not do).
class HeapDeath : public ::testing::Test {
protected:
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "fast"); }
};

// A heap over a guarded area of `size` bytes, its last byte before the guard.
struct HeapOver {
    explicit HeapOver(size_t size, size_t offset = 0) : buf(size + offset) {
        memset(&heap, 0, sizeof heap);
        EXPECT_EQ(pvx_construct_Heap2(&heap, buf.data() + offset, size), PVX_OK);
    }
    ~HeapOver() { pvx_destruct_Heap2(&heap); }
    uint8_t *malloc(size_t n) { return static_cast<uint8_t *>(pvx_Heap2_malloc(&heap, n)); }
    void free(void *p) { EXPECT_EQ(pvx_Heap2_free(&heap, p), PVX_OK); }
    uint32_t used() const { return pvx_Heap2_getUsedSize(&heap); }
    uint32_t freeSize() { return pvx_Heap2_getFreeSize(&heap); }
    GuardedBuffer buf;
    pvx_Heap2 heap;
};

TEST(Heap2, LayoutOverAreaFollowsAlignment) {
    // Every start alignment and a few sizes: one free block from the first
    // 16-aligned payload to the last 16-aligned end.
    for (size_t offset = 0; offset < 16; ++offset) {
        for (size_t size : {40u, 47u, 48u, 63u, 64u, 100u, 4096u, 4103u}) {
            SCOPED_TRACE(testing::Message() << "offset " << offset << " size " << size);
            // The area ends right at the guard page.
            GuardedBuffer buf(size + offset, GuardedBuffer::Side::End, 1);
            uint8_t *start = buf.data() + offset;
            int64_t block = areaBlock(addr(start), size);
            if (block < 16) continue;
            pvx_Heap2 heap;
            memset(&heap, 0, sizeof heap);
            ASSERT_EQ(pvx_construct_Heap2(&heap, start, size), PVX_OK);
            EXPECT_EQ(addr(heap.first) % 16, 8u);
            EXPECT_GE(heap.first, start);
            EXPECT_LE(heap.last + 8, start + size);
            EXPECT_EQ(pvx_Heap2_getFreeSize(&heap), static_cast<uint32_t>(block - 8));
            EXPECT_EQ(pvx_Heap2_getUsedSize(&heap), 0u);
            EXPECT_EQ(pvx_Heap2_checks(&heap), 1);
            // The whole block is one allocation of exactly the free size.
            void *p = pvx_Heap2_malloc(&heap, static_cast<size_t>(block - 8));
            ASSERT_NE(p, nullptr);
            EXPECT_EQ(addr(p), (addr(start) + 8 + 15) / 16 * 16);
            EXPECT_EQ(pvx_Heap2_getFreeSize(&heap), 0u);
            EXPECT_EQ(pvx_Heap2_malloc(&heap, 1), nullptr);
            EXPECT_EQ(pvx_Heap2_free(&heap, p), PVX_OK);
            EXPECT_EQ(pvx_Heap2_malloc(&heap, static_cast<size_t>(block - 7)), nullptr);
            EXPECT_EQ(pvx_destruct_Heap2(&heap), PVX_OK);
        }
    }
}

// Requests beyond 32-bit sizes fail cleanly; so does any request to a heap
// without an area but a zero-size one, which gets a shared marker.
TEST(Heap2, HugeRequestsAndEmptyHeaps) {
    HeapOver h(4096);
    for (size_t n : {SIZE_MAX, SIZE_MAX - 7, size_t(0x80000000u), size_t(0xFFFFFFF8u)}) EXPECT_EQ(h.malloc(n), nullptr);
    EXPECT_EQ(h.used(), 0u);
    pvx_Heap2 zero;
    memset(&zero, 0, sizeof zero);
    EXPECT_EQ(pvx_Heap2_malloc(&zero, 16), nullptr);
    void *m = pvx_Heap2_malloc(&zero, 0);
    EXPECT_EQ(pvx_Heap2_malloc(&h.heap, 0), m);
    EXPECT_EQ(pvx_Heap2_free(&h.heap, m), PVX_OK);
    EXPECT_EQ(h.used(), 0u);
    EXPECT_EQ(pvx_Heap2_checks(&zero), 1);
}

// Random allocations and frees against a model of the live blocks: the used
// total is the sum of their block sizes, no two overlap, each keeps the
// pattern it was filled with, and a request fails only when no free block is
// large enough.
TEST(Heap2, RandomSequenceMatchesModel) {
    struct Live {
        uint8_t *p;
        size_t n;
        uint8_t seed;
    };
    auto rng = pvx_test::makeRng(2);
    HeapOver h(256 * 1024, 3);
    const uint32_t whole = h.freeSize();
    std::vector<Live> live;
    uint64_t modelUsed = 0;
    uint32_t modelMax = 0;
    const int steps = pvx_test::rounds(40000);
    for (int i = 0; i < steps; ++i) {
        bool doFree = !live.empty() && (rng() % 100) < (live.size() > 300 ? 70u : 40u);
        if (doFree) {
            size_t k = rng() % live.size();
            Live b = live[k];
            for (size_t j = 0; j < b.n; ++j) {
                ASSERT_EQ(b.p[j], static_cast<uint8_t>(b.seed + j * 131)) << "block content changed";
            }
            h.free(b.p);
            modelUsed -= blockFor(b.n);
            live[k] = live.back();
            live.pop_back();
        } else {
            size_t n = rng() % 8 == 0 ? 1 + rng() % 20000 : 1 + rng() % 200;
            uint32_t largest = h.freeSize();
            uint8_t *p = h.malloc(n);
            if (p == nullptr) {
                ASSERT_LT(largest, n);
                continue;
            }
            ASSERT_GE(largest, n);
            ASSERT_EQ(addr(p) % 16, 0u);
            uint8_t seed = static_cast<uint8_t>(rng());
            for (size_t j = 0; j < n; ++j) p[j] = static_cast<uint8_t>(seed + j * 131);
            live.push_back({p, n, seed});
            modelUsed += blockFor(n);
        }
        ASSERT_EQ(h.used(), modelUsed);
        modelMax = std::max(modelMax, static_cast<uint32_t>(modelUsed));
        ASSERT_EQ(pvx_Heap2_getMaxUsedSize(&h.heap), modelMax);
        if (i % 512 == 0) {
            ASSERT_EQ(pvx_Heap2_checks(&h.heap), 1);
            std::vector<std::pair<uintptr_t, uintptr_t>> spans;
            for (const Live &b : live) spans.push_back({addr(b.p), addr(b.p) + b.n});
            std::sort(spans.begin(), spans.end());
            for (size_t j = 1; j < spans.size(); ++j) ASSERT_LE(spans[j - 1].second + 8, spans[j].first);
        }
    }
    for (const Live &b : live) h.free(b.p);
    EXPECT_EQ(h.used(), 0u);
    EXPECT_EQ(h.freeSize(), whole);  // everything merged back into one block
    EXPECT_EQ(pvx_Heap2_checks(&h.heap), 1);
}

TEST(Heap2, ConcurrentThreadsShareTheHeap) {
    HeapOver h(1 << 20);
    const uint32_t whole = h.freeSize();
    const int threads = 4;
    const int steps = pvx_test::rounds(200000);
    std::atomic<int> failures{0};
    std::atomic<int> ready{0};
    std::vector<std::thread> pool;
    for (int t = 0; t < threads; ++t) {
        pool.emplace_back([&, t] {
            // Start together so that the threads really contend.
            ready.fetch_add(1);
            while (ready.load() < threads) {
            }
            auto rng = pvx_test::makeRng(100 + static_cast<uint64_t>(t));
            std::vector<std::pair<uint8_t *, size_t>> mine;
            const uint8_t mark = static_cast<uint8_t>(0x11 * (t + 1));
            for (int i = 0; i < steps; ++i) {
                if (!mine.empty() && (rng() % 2 == 0 || mine.size() > 64)) {
                    size_t k = rng() % mine.size();
                    auto b = mine[k];
                    for (size_t j = 0; j < b.second; ++j) {
                        if (b.first[j] != mark) ++failures;
                    }
                    if (pvx_Heap2_free(&h.heap, b.first) != PVX_OK) ++failures;
                    mine[k] = mine.back();
                    mine.pop_back();
                } else {
                    size_t n = 1 + rng() % 200;
                    auto *p = static_cast<uint8_t *>(pvx_Heap2_malloc(&h.heap, n));
                    if (p == nullptr) continue;
                    memset(p, mark, n);
                    mine.push_back({p, n});
                }
                if (i % 4096 == 0) pvx_Heap2_checks(&h.heap);
            }
            for (auto &b : mine) pvx_Heap2_free(&h.heap, b.first);
        });
    }
    for (auto &th : pool) th.join();
    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(h.used(), 0u);
    EXPECT_GT(pvx_Heap2_getMaxUsedSize(&h.heap), 0u);
    EXPECT_EQ(h.freeSize(), whole);
    EXPECT_EQ(pvx_Heap2_checks(&h.heap), 1);
    EXPECT_EQ(h.heap.lock, 0u);
}

// ---- corruption and misuse stop the process ----------------------------------

TEST_F(HeapDeath, AreaTooSmallOrMissingIsFatal) {
    pvx_Heap2 none;
    memset(&none, 0, sizeof none);
    EXPECT_FATAL(pvx_construct_Heap2(&none, nullptr, 4096), "");
    for (size_t offset : {0u, 3u, 8u, 9u, 15u}) {
        GuardedBuffer buf(96);
        uint8_t *start = buf.data() + offset;
        // Smallest size that holds one 16-byte block from this start.
        size_t smallest = 1;
        while (areaBlock(addr(start), smallest) < 16) ++smallest;
        pvx_Heap2 heap;
        memset(&heap, 0, sizeof heap);
        EXPECT_FATAL(pvx_construct_Heap2(&heap, start, smallest - 1), "") << "offset " << offset;
        EXPECT_FATAL(pvx_construct_Heap2(&heap, start, 1), "");
        EXPECT_EQ(pvx_construct_Heap2(&heap, start, smallest), PVX_OK);
        EXPECT_EQ(pvx_Heap2_getFreeSize(&heap), 8u);
        EXPECT_NE(pvx_Heap2_malloc(&heap, 8), nullptr);
        EXPECT_EQ(pvx_Heap2_malloc(&heap, 1), nullptr);
    }
}

TEST_F(HeapDeath, DoubleFreeIsFatal) {
    HeapOver h(1024);
    uint8_t *a = h.malloc(32);
    uint8_t *b = h.malloc(32);
    h.free(a);
    EXPECT_FATAL(pvx_Heap2_free(&h.heap, a), "");
    h.free(b);  // merged with a's block
    EXPECT_FATAL(pvx_Heap2_free(&h.heap, b), "");
}

TEST_F(HeapDeath, ForeignPointersAreFatal) {
    HeapOver h(1024);
    HeapOver other(1024);
    uint8_t *a = h.malloc(64);
    alignas(16) static uint8_t outside[32];
    EXPECT_FATAL(pvx_Heap2_free(&h.heap, outside), "");
    EXPECT_FATAL(pvx_Heap2_free(&h.heap, a + 1), "");   // misaligned
    memset(a, 0, 64);
    EXPECT_FATAL(pvx_Heap2_free(&h.heap, a + 16), "");  // inside a payload
    EXPECT_FATAL(pvx_Heap2_free(&h.heap, other.malloc(8)), "");
    EXPECT_FATAL(pvx_Heap2_free(&h.heap, h.heap.last + 8), "");  // the end sentinel
    EXPECT_FATAL(pvx_Heap2_free(&h.heap, h.heap.last + 8 + 16), "");
    EXPECT_FATAL(pvx_Heap2_free(&h.heap, h.heap.first - 8), "");
    h.free(a);
}

TEST_F(HeapDeath, OverwrittenTagsAreFatal) {
    // a, b, d: three 48-byte blocks. One word around b is damaged (b's
    // preceding tag, b's size word, d's preceding tag), then b is freed or
    // the heap checked.
    for (int word : {0, 1, 12}) {
        for (bool viaFree : {true, false}) {
            SCOPED_TRACE(testing::Message() << "word " << word << (viaFree ? " free" : " checks"));
            HeapOver h(1024);
            uint8_t *a = h.malloc(40);
            uint8_t *b = h.malloc(40);
            uint8_t *d = h.malloc(40);
            ASSERT_EQ(b - a, 48);
            ASSERT_EQ(d - b, 48);
            const uint32_t junk = 0x00000050;  // a plausible free 80-byte size
            EXPECT_FATAL(
                {
                    memcpy(b - 8 + 4 * word, &junk, 4);
                    if (viaFree) pvx_Heap2_free(&h.heap, b);
                    else pvx_Heap2_checks(&h.heap);
                },
                "");
            h.free(a);
            h.free(b);
            h.free(d);
        }
    }
}

TEST_F(HeapDeath, OverrunIntoNextHeaderIsFatal) {
    HeapOver h(1024);
    uint8_t *a = h.malloc(24);  // 32-byte block: payload 24 bytes
    uint8_t *b = h.malloc(24);
    // 8 bytes too many reach b's header: freeing b or a, or a dump, stops.
    for (int action = 0; action < 3; ++action) {
        EXPECT_FATAL(
            {
                memset(a, 0x5A, 32);
                if (action == 2) pvx_Heap2_dump(&h.heap);
                else pvx_Heap2_free(&h.heap, action == 0 ? b : a);
            },
            "")
            << action;
    }
    h.free(a);
    h.free(b);
}

TEST_F(HeapDeath, DamagedFreeListLinksAreFatal) {
    HeapOver h(1024);
    uint8_t *a = h.malloc(40);
    uint8_t *g = h.malloc(8);
    uint8_t *b = h.malloc(40);
    uint8_t *g2 = h.malloc(8);
    h.free(a);
    h.free(b);  // list: b, a, tail
    // Out of range, an allocated block, inside a free block, misaligned.
    const uint32_t bad[] = {0x12345678u, static_cast<uint32_t>(g - h.heap.first),
                            static_cast<uint32_t>(a - h.heap.first) + 16, static_cast<uint32_t>(b - h.heap.first) + 4};
    // b's next link read by malloc; b's prev link by the size query and by a
    // free that merges with a and b; a's next link by the checks.
    const struct {
        uint8_t *link;
        int reader;
    } spoils[] = {{b, 0}, {b + 4, 1}, {b + 4, 2}, {a, 3}};
    for (uint32_t v : bad) {
        for (const auto &sp : spoils) {
            EXPECT_FATAL(
                {
                    memcpy(sp.link, &v, 4);
                    if (sp.reader == 0) h.malloc(400);
                    if (sp.reader == 1) pvx_Heap2_getFreeSize(&h.heap);
                    if (sp.reader == 2) pvx_Heap2_free(&h.heap, g);
                    if (sp.reader == 3) pvx_Heap2_checks(&h.heap);
                },
                "")
                << v << " " << sp.reader;
        }
    }
    // A node linked to itself would send the list walk round forever.
    EXPECT_FATAL(
        {
            uint32_t self = static_cast<uint32_t>(b - h.heap.first);
            memcpy(b, &self, 4);
            memcpy(b + 4, &self, 4);
            h.heap.free_next = self;
            h.heap.free_prev = self;
            h.malloc(600);
        },
        "");
    h.free(g);
    h.free(g2);
}

TEST_F(HeapDeath, FatalNeverReturns) { EXPECT_FATAL(pvx_Heap2_fatal(), ""); }

}  // namespace
