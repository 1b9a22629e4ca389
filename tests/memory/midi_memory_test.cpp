// MIDI delivery while memory runs out.

#include <gtest/gtest.h>

#include <future>
#include <vector>

#include "tavo_midi/midi_message_dispatcher.h"
#include "tests/memory/failing_allocation.h"
#include "tests/support/exception_log.h"
#include "tests/support/fake_midi_ports.h"

namespace {

using Messages = std::vector<std::vector<unsigned char>>;

TEST(MidiDelivery, MemoryRunsOutForOneMessage_IsLoggedAndTheNextOneIsDelivered) {
    const test_support::ExceptionLog log;
    const auto ports = std::make_shared<test_support::FakeMidiPorts>();
    tavo_midi::SetMidiPorts(ports);
    {
        MidiMessageDispatcher dispatcher;
        std::promise<void> heardLast;
        int heard = 0;
        dispatcher.AddListener(&heard, [&](std::span<const unsigned char> message, std::chrono::nanoseconds) {
            ++heard;
            if (message[1] == 1) test_support::FailingAllocation::FailNext();
            if (message[1] == 3) heardLast.set_value();
        });
        dispatcher.ConnectSourceByName("pedal");
        for (const auto& program : Messages{{0xC0, 1}, {0xC0, 2}, {0xC0, 3}})
            ASSERT_TRUE(ports->Play(program));
        EXPECT_EQ(heardLast.get_future().wait_for(test_support::Patience), std::future_status::ready);
        dispatcher.Disconnect();
        EXPECT_EQ(heard, 2);
    }
    tavo_midi::SetMidiPorts(nullptr);
    EXPECT_NE(log.Read().find("std::bad_alloc"), std::string::npos) << log.Read();
    EXPECT_NE(log.Read().find("MIDI delivery"), std::string::npos) << log.Read();
}

}  // namespace
