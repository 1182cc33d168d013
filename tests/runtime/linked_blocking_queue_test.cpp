// Bounded blocking queue: order, capacity, the waits and time-outs of each
// operation, node reuse over many wrap-arounds against a simple model, and
// producers and consumers on several threads.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <deque>
#include <thread>
#include <vector>

#include "runtime/pvx_linked_blocking_queue.h"
#include "tests/runtime/thread_test_support.h"
#include "tests/support/test_random.h"

namespace {

using namespace pvx_thread_test;

// Items are small integers disguised as pointers (never 0).
void *item(uintptr_t v) { return reinterpret_cast<void *>(v); }
uintptr_t value(void *p) { return reinterpret_cast<uintptr_t>(p); }

struct QueueFixture : public ::testing::Test {
    void make(int32_t capacity) {
        pvx_construct_LinkedBlockingQueue(&q, &heap.env);
        ASSERT_EQ(pvx_LinkedBlockingQueue_init(&q, capacity), PVX_OK);
        made = true;
    }
    void TearDown() override {
        if (!made) return;
        while (pvx_LinkedBlockingQueue_poll(&q) != nullptr) {
        }
        EXPECT_EQ(pvx_destruct_LinkedBlockingQueue(&q), PVX_OK);
        EXPECT_EQ(heap.used(), 0u);
    }
    TestHeap heap;
    pvx_LinkedBlockingQueue q;
    bool made = false;
};

TEST(LinkedBlockingQueue, BufferSize) {
    const int32_t fixed = 2 * (pvx_Condition_getBufferSize() + pvx_Lock_getBufferSize(PVX_LOCK_REENTRANT)) + 16;
    const int32_t node = static_cast<int32_t>(sizeof(pvx_LinkedBlockingQueueNode));
    EXPECT_EQ(pvx_LinkedBlockingQueue_getBufferSize(1), node + fixed);
    EXPECT_EQ(pvx_LinkedBlockingQueue_getBufferSize(100), 100 * node + fixed);
    EXPECT_EQ(pvx_LinkedBlockingQueue_getBufferSize(0), -1);
    EXPECT_EQ(pvx_LinkedBlockingQueue_getBufferSize(-3), -1);
    EXPECT_EQ(pvx_LinkedBlockingQueue_getBufferSize(0x7FFFFFFF), -1);
    // The reported size is enough for init.
    TestHeap heap(64 * 1024);
    pvx_LinkedBlockingQueue q;
    pvx_construct_LinkedBlockingQueue(&q, &heap.env);
    ASSERT_EQ(pvx_LinkedBlockingQueue_init(&q, 100), PVX_OK);
    EXPECT_LE(heap.used(), static_cast<uint32_t>(pvx_LinkedBlockingQueue_getBufferSize(100)) + 5 * 16);
    pvx_destruct_LinkedBlockingQueue(&q);
}

TEST(LinkedBlockingQueue, NullQueueAnswersZero) {
    EXPECT_EQ(pvx_LinkedBlockingQueue_put(nullptr, item(1)), PVX_OK);
    EXPECT_EQ(pvx_LinkedBlockingQueue_offer(nullptr, item(1)), PVX_OK);
    EXPECT_EQ(pvx_LinkedBlockingQueue_offerMillis(nullptr, item(1), 5), PVX_OK);
    EXPECT_EQ(pvx_LinkedBlockingQueue_take(nullptr), nullptr);
    EXPECT_EQ(pvx_LinkedBlockingQueue_poll(nullptr), nullptr);
    EXPECT_EQ(pvx_LinkedBlockingQueue_pollMillis(nullptr, 5), nullptr);
    EXPECT_EQ(pvx_LinkedBlockingQueue_size(nullptr), -1);
    EXPECT_EQ(pvx_LinkedBlockingQueue_init(nullptr, 1), PVX_ERROR_PARAM);
}

TEST(LinkedBlockingQueue, UninitialisedAndInitErrors) {
    TestHeap heap;
    pvx_LinkedBlockingQueue q;
    pvx_construct_LinkedBlockingQueue(&q, &heap.env);
    EXPECT_EQ(pvx_LinkedBlockingQueue_put(&q, item(1)), PVX_ERROR_STATE);
    EXPECT_EQ(pvx_LinkedBlockingQueue_offer(&q, item(1)), PVX_ERROR_STATE);
    EXPECT_EQ(pvx_LinkedBlockingQueue_offerMillis(&q, item(1), 1), PVX_ERROR_STATE);
    EXPECT_EQ(pvx_LinkedBlockingQueue_poll(&q), nullptr);
    EXPECT_EQ(pvx_LinkedBlockingQueue_pollMillis(&q, 1), nullptr);
    EXPECT_EQ(pvx_LinkedBlockingQueue_take(&q), nullptr);
    EXPECT_EQ(pvx_LinkedBlockingQueue_size(&q), -1);
    EXPECT_EQ(pvx_LinkedBlockingQueue_init(&q, 0), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_LinkedBlockingQueue_init(&q, -1), PVX_ERROR_PARAM);
    EXPECT_EQ(heap.used(), 0u);

    pvx_LinkedBlockingQueue none;
    pvx_construct_LinkedBlockingQueue(&none, nullptr);
    EXPECT_EQ(pvx_LinkedBlockingQueue_init(&none, 4), PVX_ERROR_NOMEM);
    // More nodes than the heap holds: nothing is kept.
    EXPECT_EQ(pvx_LinkedBlockingQueue_init(&q, 1 << 20), PVX_ERROR_NOMEM);
    EXPECT_EQ(heap.used(), 0u);
    EXPECT_EQ(pvx_LinkedBlockingQueue_size(&q), -1);
    EXPECT_EQ(pvx_destruct_LinkedBlockingQueue(&q), PVX_OK);
}

TEST_F(QueueFixture, FifoOrderAndCapacity) {
    make(3);
    EXPECT_EQ(pvx_LinkedBlockingQueue_size(&q), 0);
    EXPECT_EQ(pvx_LinkedBlockingQueue_put(&q, nullptr), PVX_ERROR_PARAM);
    EXPECT_EQ(pvx_LinkedBlockingQueue_offer(&q, item(1)), PVX_OK);
    EXPECT_EQ(pvx_LinkedBlockingQueue_put(&q, item(2)), PVX_OK);
    EXPECT_EQ(pvx_LinkedBlockingQueue_offerMillis(&q, item(3), 0), PVX_OK);
    EXPECT_EQ(pvx_LinkedBlockingQueue_size(&q), 3);
    EXPECT_EQ(pvx_LinkedBlockingQueue_offer(&q, item(4)), PVX_ERROR_TIMEOUT);
    EXPECT_EQ(pvx_LinkedBlockingQueue_size(&q), 3);
    EXPECT_EQ(value(pvx_LinkedBlockingQueue_poll(&q)), 1u);
    EXPECT_EQ(pvx_LinkedBlockingQueue_offer(&q, item(4)), PVX_OK);
    EXPECT_EQ(value(pvx_LinkedBlockingQueue_take(&q)), 2u);
    EXPECT_EQ(value(pvx_LinkedBlockingQueue_pollMillis(&q, 0)), 3u);
    EXPECT_EQ(value(pvx_LinkedBlockingQueue_poll(&q)), 4u);
    EXPECT_EQ(pvx_LinkedBlockingQueue_poll(&q), nullptr);
    EXPECT_EQ(pvx_LinkedBlockingQueue_size(&q), 0);
}

TEST_F(QueueFixture, DestructRefusesAQueueWithItems) {
    make(2);
    ASSERT_EQ(pvx_LinkedBlockingQueue_offer(&q, item(9)), PVX_OK);
    EXPECT_EQ(pvx_destruct_LinkedBlockingQueue(&q), PVX_ERROR_STATE);
    EXPECT_EQ(value(pvx_LinkedBlockingQueue_poll(&q)), 9u);   // still intact
}

TEST_F(QueueFixture, RandomUseMatchesAModel) {
    auto rng = pvx_test::makeRng(11);
    for (int round = 0; round < 20; ++round) {
        const int32_t capacity = 1 + static_cast<int32_t>(rng() % 6);
        if (made) pvx_LinkedBlockingQueue_recycle(&q);
        make(capacity);
        std::deque<uintptr_t> model;
        uintptr_t next = 1;
        for (int op = 0; op < pvx_test::rounds(2000); ++op) {
            if (rng() % 2 == 0) {
                const pvx_Result r = pvx_LinkedBlockingQueue_offer(&q, item(next));
                if (static_cast<int32_t>(model.size()) < capacity) {
                    ASSERT_EQ(r, PVX_OK);
                    model.push_back(next);
                } else {
                    ASSERT_EQ(r, PVX_ERROR_TIMEOUT);
                }
                ++next;
            } else {
                void *got = pvx_LinkedBlockingQueue_poll(&q);
                if (model.empty()) {
                    ASSERT_EQ(got, nullptr);
                } else {
                    ASSERT_EQ(value(got), model.front());
                    model.pop_front();
                }
            }
            ASSERT_EQ(pvx_LinkedBlockingQueue_size(&q), static_cast<int32_t>(model.size()));
        }
        while (!model.empty()) {
            ASSERT_EQ(value(pvx_LinkedBlockingQueue_poll(&q)), model.front());
            model.pop_front();
        }
    }
}

// A poll of an empty queue and an offer to a full one give up at once for
// 0 or a negative time, and after about the time otherwise.
TEST_F(QueueFixture, TimedOperationsWaitThenGiveUp) {
    make(1);
    for (bool full : {false, true}) {
        if (full) {
            ASSERT_EQ(pvx_LinkedBlockingQueue_offer(&q, item(1)), PVX_OK);
        }
        for (int32_t ms : {0, -5, 40}) {
            const auto t0 = Clock::now();
            if (full) {
                EXPECT_EQ(pvx_LinkedBlockingQueue_offerMillis(&q, item(2), ms), PVX_ERROR_TIMEOUT) << ms;
            } else {
                EXPECT_EQ(pvx_LinkedBlockingQueue_pollMillis(&q, ms), nullptr) << ms;
            }
            const double s = secondsSince(t0);
            EXPECT_GE(s, ms > 0 ? 0.035 : 0.0) << ms;
            EXPECT_LT(s, (ms > 0 ? 2.0 : 0.5) * slack()) << ms;
        }
    }
}

TEST_F(QueueFixture, TimedPollGetsAnItemThatArrivesInTime) {
    make(2);
    std::thread producer([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        pvx_LinkedBlockingQueue_put(&q, item(5));
    });
    const auto t0 = Clock::now();
    EXPECT_EQ(value(pvx_LinkedBlockingQueue_pollMillis(&q, 10000)), 5u);
    EXPECT_LT(secondsSince(t0), 5.0);
    producer.join();
}

TEST_F(QueueFixture, PutWaitsForRoomAndTakeWaitsForItems) {
    make(1);
    const int count = 50;
    std::atomic<int> putDone{0};
    std::thread producer([&] {
        for (int i = 1; i <= count; ++i) EXPECT_EQ(pvx_LinkedBlockingQueue_put(&q, item(i)), PVX_OK);
        putDone = 1;
    });
    // The producer cannot finish before we take: capacity is 1.
    ASSERT_TRUE(waitFor([&] { return pvx_LinkedBlockingQueue_size(&q) == 1; }));
    EXPECT_EQ(putDone.load(), 0);
    for (int i = 1; i <= count; ++i) {
        void *got = pvx_LinkedBlockingQueue_pollMillis(&q, 10000);
        ASSERT_EQ(value(got), static_cast<uintptr_t>(i));
    }
    producer.join();
    EXPECT_EQ(putDone.load(), 1);

    std::atomic<uintptr_t> taken{0};
    std::thread consumer([&] { taken = value(pvx_LinkedBlockingQueue_take(&q)); });
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(taken.load(), 0u);
    ASSERT_EQ(pvx_LinkedBlockingQueue_put(&q, item(77)), PVX_OK);
    consumer.join();
    EXPECT_EQ(taken.load(), 77u);
}

// Two producers and two consumers; every item arrives exactly once, and
// each producer's items arrive in its order at any one consumer.
TEST_F(QueueFixture, ProducersAndConsumers) {
    make(4);
    const int perProducer = static_cast<int>(4000 / slack());
    std::vector<std::vector<uintptr_t>> got(2);
    std::vector<std::thread> threads;
    for (int p = 0; p < 2; ++p) {
        threads.emplace_back([&, p] {
            for (int i = 0; i < perProducer; ++i) {
                const uintptr_t v = static_cast<uintptr_t>(p) << 24 | static_cast<uintptr_t>(i + 1);
                ASSERT_EQ(pvx_LinkedBlockingQueue_offerMillis(&q, item(v), 10000), PVX_OK);
            }
        });
    }
    std::atomic<int> received{0};
    for (int c = 0; c < 2; ++c) {
        threads.emplace_back([&, c] {
            while (received.load() < 2 * perProducer) {
                void *v = pvx_LinkedBlockingQueue_pollMillis(&q, 20);
                if (v == nullptr) continue;
                got[c].push_back(value(v));
                ++received;
            }
        });
    }
    for (auto &t : threads) t.join();
    std::vector<int> seen(2 * perProducer, 0);
    for (int c = 0; c < 2; ++c) {
        uintptr_t last[2] = {0, 0};
        for (uintptr_t v : got[c]) {
            const int p = static_cast<int>(v >> 24);
            const uintptr_t i = v & 0xFFFFFF;
            ASSERT_TRUE(p == 0 || p == 1);
            ASSERT_GT(i, last[p]);
            last[p] = i;
            ++seen[p * perProducer + static_cast<int>(i) - 1];
        }
    }
    for (int k = 0; k < 2 * perProducer; ++k) ASSERT_EQ(seen[k], 1) << k;
    EXPECT_EQ(pvx_LinkedBlockingQueue_size(&q), 0);
}

}  // namespace
