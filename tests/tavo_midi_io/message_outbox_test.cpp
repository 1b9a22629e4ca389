#include "platform/tavo_midi_io/src/message_outbox.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using tavo_midi_io::MessageOutbox;

/// A server's buffer of so many bytes, new in each cycle.
class Buffer {
public:
    explicit Buffer(std::size_t bytes) : bytes_(bytes) {}

    /// One cycle, and what it takes: messages of one byte many times over, "aaa bb".
    std::string Take(MessageOutbox& outbox) const {
        std::string taken;
        std::size_t room = bytes_;
        outbox.BeginCycle();
        outbox.WriteTo([&](const unsigned char* bytes, std::size_t size) {
            if (size > room) return false;
            room -= size;
            taken += (taken.empty() ? "" : " ") + std::string(bytes, bytes + size);
            return true;
        });
        return taken;
    }

private:
    std::size_t bytes_;
};

bool Push(MessageOutbox& outbox, char letter, std::size_t size) {
    return outbox.Push(std::vector<unsigned char>(size, static_cast<unsigned char>(letter)));
}

TEST(MessageOutbox, BufferFull_TheRestGoesIntoTheNextCyclesInOrder) {
    MessageOutbox outbox;
    const Buffer buffer(6);
    for (const char letter : {'a', 'b', 'c', 'd'})
        ASSERT_TRUE(Push(outbox, letter, letter == 'c' ? 6 : 3));
    EXPECT_EQ(buffer.Take(outbox), "aaa bbb");
    ASSERT_TRUE(Push(outbox, 'e', 3));
    EXPECT_EQ(buffer.Take(outbox), "cccccc");
    EXPECT_EQ(buffer.Take(outbox), "ddd eee");
    EXPECT_EQ(buffer.Take(outbox), "");
}

TEST(MessageOutbox, Sent_IsTakenWhenTheCycleAfterTheLastOneBegins) {
    MessageOutbox outbox;
    const Buffer buffer(3);
    EXPECT_TRUE(outbox.IsAllTaken());
    ASSERT_TRUE(Push(outbox, 'a', 3));
    ASSERT_TRUE(Push(outbox, 'b', 3));
    for (int cycle = 0; cycle < 2; ++cycle) {
        EXPECT_FALSE(outbox.IsAllTaken()) << cycle;
        buffer.Take(outbox);
    }
    EXPECT_FALSE(outbox.IsAllTaken());
    buffer.Take(outbox);
    EXPECT_TRUE(outbox.IsAllTaken());
    EXPECT_FALSE(outbox.HasRefused());
}

TEST(MessageOutbox, LongerThanAnyBuffer_IsRefusedAndTheNextOnesLeave) {
    MessageOutbox outbox;
    const Buffer buffer(4);
    ASSERT_TRUE(Push(outbox, 'a', 5));
    ASSERT_TRUE(Push(outbox, 'b', 2));
    EXPECT_EQ(buffer.Take(outbox), "bb");
    buffer.Take(outbox);
    EXPECT_TRUE(outbox.IsAllTaken());
    EXPECT_TRUE(outbox.HasRefused());
}

TEST(MessageOutbox, EmptyTooLongOrTooMany_IsNotTaken) {
    MessageOutbox outbox;
    EXPECT_FALSE(Push(outbox, 'a', 0));
    EXPECT_FALSE(Push(outbox, 'a', MessageOutbox::LongestMessage + 1));
    EXPECT_TRUE(outbox.IsAllTaken());
    for (int message = 0; message < 64; ++message)
        ASSERT_TRUE(Push(outbox, 'a', 1));
    EXPECT_FALSE(Push(outbox, 'a', 1));
}

TEST(MessageOutbox, Cleared_NothingIsLeftOfWhatWaited) {
    MessageOutbox outbox;
    const Buffer buffer(4);
    ASSERT_TRUE(Push(outbox, 'a', 3));
    ASSERT_TRUE(Push(outbox, 'b', 3));
    EXPECT_EQ(buffer.Take(outbox), "aaa");
    outbox.Clear();
    EXPECT_TRUE(outbox.IsAllTaken());
    EXPECT_EQ(buffer.Take(outbox), "");
}

}  // namespace
