#include "kit/spsc_queue.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

TEST(SpscQueue, PushedUntilFull_RefusesTheNextAndKeepsTheOrder) {
    kit::SpscQueue<int, 4> queue;
    EXPECT_EQ(queue.GetRoom(), 4U);
    for (int value = 1; value <= 4; ++value)
        EXPECT_TRUE(queue.Push(value));
    EXPECT_EQ(queue.GetRoom(), 0U);
    EXPECT_FALSE(queue.Push(5));
    int value = 0;
    for (int expected = 1; expected <= 4; ++expected) {
        ASSERT_TRUE(queue.Pop(value));
        EXPECT_EQ(value, expected);
    }
    EXPECT_FALSE(queue.Pop(value));
    EXPECT_EQ(value, 4);
    EXPECT_EQ(queue.GetRoom(), 4U);
}

TEST(SpscQueue, PoppedOnce_HasRoomForOneMoreAcrossItsEnd) {
    kit::SpscQueue<int, 2> queue;
    int value = 0;
    ASSERT_TRUE(queue.Push(0));
    for (int next = 1; next < 100; ++next) {
        EXPECT_TRUE(queue.Push(next));
        EXPECT_FALSE(queue.Push(-1));
        ASSERT_TRUE(queue.Pop(value));
        EXPECT_EQ(value, next - 1);
        EXPECT_EQ(queue.GetRoom(), 1U);
    }
}

TEST(SpscQueue, WrittenAndReadByTwoThreads_EveryValueArrivesOnceAndWhole) {
    struct Pair {
        int value = 0;
        int negated = 0;
    };
    constexpr int Count = 200'000;
    kit::SpscQueue<Pair, 64> queue;
    std::thread writer([&queue] {
        for (int value = 1; value <= Count; ++value) {
            while (!queue.Push({value, -value}))
                std::this_thread::yield();
        }
    });
    int wrong = 0;
    for (int expected = 1; expected <= Count; ++expected) {
        Pair pair;
        while (!queue.Pop(pair))
            std::this_thread::yield();
        if (pair.value != expected || pair.negated != -expected) ++wrong;
    }
    writer.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(queue.GetRoom(), 64U);
}

}  // namespace
