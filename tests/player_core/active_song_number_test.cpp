#include "player_core/active_song_number.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <latch>
#include <mutex>
#include <shared_mutex>
#include <system_error>
#include <thread>
#include <vector>

namespace {

TEST(ActiveSongNumber, IsEmptyAtFirst_AndReadsAsWritten) {
    ActiveSongNumber number;
    EXPECT_EQ("", number.Get());
    number.Set("12a");
    EXPECT_EQ("12a", number.Get());
}

TEST(ActiveSongNumber, ManyReadersHoldItAtOnce) {
    ActiveSongNumber number;
    number.Set("3");
    std::latch allInside(4);
    std::vector<std::thread> readers;
    for (int i = 0; i < 4; ++i) {
        readers.emplace_back([&] {
            const std::shared_lock guard(number);
            allInside.arrive_and_wait();  // reached by all only while all hold it
            EXPECT_EQ("3", number.Peek());
        });
    }
    for (std::thread& reader : readers)
        reader.join();
}

TEST(ActiveSongNumber, OneThreadMayReadTwiceAtOnce) {
    ActiveSongNumber number;
    const std::shared_lock first(number);
    const std::shared_lock second(number);
    EXPECT_EQ("", number.Get());
}

TEST(ActiveSongNumber, WriterWaitsUntilTheReadersAreGone) {
    ActiveSongNumber number;
    number.Set("1");
    std::atomic<bool> released{false};
    std::shared_lock reader(number);
    std::thread writer([&] {
        const std::unique_lock guard(number);
        EXPECT_TRUE(released);
    });
    released = true;
    reader.unlock();
    writer.join();
}

TEST(ActiveSongNumber, ReadersAndWritersWaitWhileAWriterHoldsIt) {
    ActiveSongNumber number;
    std::atomic<bool> released{false};
    std::unique_lock writer(number);
    std::thread reader([&] {
        const std::shared_lock guard(number);
        EXPECT_TRUE(released);
    });
    std::thread otherWriter([&] {
        const std::unique_lock guard(number);
        EXPECT_TRUE(released);
    });
    released = true;
    writer.unlock();
    reader.join();
    otherWriter.join();
}

TEST(ActiveSongNumber, ReadersNeverSeeHalfANumber) {
    // Long enough not to fit into the string object itself.
    const std::string one(64, '1');
    const std::string two(64, '2');
    ActiveSongNumber number;
    number.Set(one);
    std::thread writer([&] {
        for (int i = 0; i < 2000; ++i)
            number.Set(i % 2 == 0 ? two : one);
    });
    for (int i = 0; i < 2000; ++i) {
        const std::string read = number.Get();
        EXPECT_TRUE(read == one || read == two) << read;
    }
    writer.join();
}

TEST(ActiveSongNumber, AbsentGuard_RefusesToLock) {
    std::shared_lock<ActiveSongNumber> reader;
    std::unique_lock<ActiveSongNumber> writer;
    for (const auto& lock :
         {std::function<void()>([&] { reader.lock(); }), std::function<void()>([&] { writer.lock(); })}) {
        try {
            lock();
            FAIL() << "locked nothing";
        } catch (const std::system_error& error) {
            EXPECT_EQ(std::errc::operation_not_permitted, error.code());
        }
    }
}

TEST(ActiveSongNumber, GuardThatOwnsItAlready_RefusesToLock) {
    ActiveSongNumber number;
    {
        std::shared_lock reader(number);
        try {
            reader.lock();
            FAIL() << "locked twice";
        } catch (const std::system_error& error) {
            EXPECT_EQ(std::errc::resource_deadlock_would_occur, error.code());
        }
    }
    std::unique_lock writer(number);
    try {
        writer.lock();
        FAIL() << "locked twice";
    } catch (const std::system_error& error) {
        EXPECT_EQ(std::errc::resource_deadlock_would_occur, error.code());
    }
}

}  // namespace
