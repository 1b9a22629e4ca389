#include "kit/shared_mutex.h"

#include <gtest/gtest.h>

#include <future>
#include <mutex>
#include <shared_mutex>
#include <thread>
#include <vector>

using kit::ReaderPreferringSharedMutex;

TEST(SharedMutex, ReadersShare_WriterDoesNot) {
    ReaderPreferringSharedMutex mutex;
    ASSERT_TRUE(mutex.try_lock_shared());
    EXPECT_TRUE(mutex.try_lock_shared());
    EXPECT_FALSE(mutex.try_lock());
    mutex.unlock_shared();
    EXPECT_FALSE(mutex.try_lock());
    mutex.unlock_shared();
    ASSERT_TRUE(mutex.try_lock());
    EXPECT_FALSE(mutex.try_lock_shared());
    EXPECT_FALSE(mutex.try_lock());
    mutex.unlock();
    EXPECT_TRUE(mutex.try_lock());
    mutex.unlock();
}

TEST(SharedMutex, SecondSharedLockWhileAWriterWaits_IsGrantedAtOnce) {
    ReaderPreferringSharedMutex mutex;
    mutex.lock_shared();
    std::promise<void> writerComes;
    bool writerWasIn = false;
    std::jthread writer([&] {
        writerComes.set_value();
        const std::lock_guard lock(mutex);
        writerWasIn = true;
    });
    writerComes.get_future().wait();
    // However far the writer has come with its waiting, none of these may block.
    for (int round = 0; round < 100'000; ++round) {
        mutex.lock_shared();
        mutex.unlock_shared();
    }
    EXPECT_FALSE(writerWasIn);
    mutex.unlock_shared();
    writer.join();
    EXPECT_TRUE(writerWasIn);
}

TEST(SharedMutex, ReaderWaitsForTheWriterThatHoldsIt) {
    ReaderPreferringSharedMutex mutex;
    int value = 0;
    std::promise<void> readerComes;
    mutex.lock();
    std::future<int> seen = std::async(std::launch::async, [&] {
        readerComes.set_value();
        const std::shared_lock lock(mutex);
        return value;
    });
    readerComes.get_future().wait();
    value = 1;
    mutex.unlock();
    EXPECT_EQ(1, seen.get());
}

TEST(SharedMutex, ManyReadersAndWriters_NoneIsLostAndNoWriteIsTorn) {
    constexpr int kRounds = 20'000;
    ReaderPreferringSharedMutex mutex;
    long first = 0;
    long second = 0;
    {
        std::vector<std::jthread> threads;
        for (int writer = 0; writer < 2; ++writer) {
            threads.emplace_back([&] {
                for (int round = 0; round < kRounds; ++round) {
                    const std::lock_guard lock(mutex);
                    ++first;
                    ++second;
                }
            });
        }
        for (int reader = 0; reader < 2; ++reader) {
            threads.emplace_back([&] {
                for (int round = 0; round < kRounds; ++round) {
                    const std::shared_lock outer(mutex);
                    const std::shared_lock inner(mutex);
                    ASSERT_EQ(first, second);
                }
            });
        }
    }
    EXPECT_EQ(2L * kRounds, first);
    EXPECT_EQ(first, second);
}
