#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tavo_midi/midi_message_dispatcher.h"
#include "tests/support/smf_bytes.h"

namespace {

std::string ToHex(std::span<const unsigned char> message) {
    std::string text;
    for (const unsigned char byte : message) {
        constexpr const char* Digits = "0123456789ABCDEF";
        if (!text.empty()) text += ' ';
        text += Digits[byte / 16];
        text += Digits[byte % 16];
    }
    return text;
}

/// The messages that a dispatcher delivers for the bytes.
std::vector<std::string> Deliver(const std::string& bytes) {
    MidiMessageDispatcher dispatcher;
    std::vector<std::string> messages;
    dispatcher.AddListener(&messages, [&](std::span<const unsigned char> message, std::chrono::nanoseconds) {
        messages.push_back(ToHex(message));
    });
    dispatcher.Deliver({reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()});
    return messages;
}

using Messages = std::vector<std::string>;

TEST(MidiParsing, BytesBecomeWholeMessages) {
    const struct {
        const char* what;
        const char* bytes;
        Messages messages;
    } rows[] = {
        {"one of each length",
         "90 3C 40 C1 05 D2 07 E3 00 40 F2 01 02 F3 04 F6",
         {"90 3C 40", "C1 05", "D2 07", "E3 00 40", "F2 01 02", "F3 04", "F6"}},
        {"running status", "90 3C 40 3E 41 40 00", {"90 3C 40", "90 3E 41", "90 40 00"}},
        {"real-time bytes inside of a message", "90 F8 3C FE 40", {"F8", "FE", "90 3C 40"}},
        {"real-time bytes inside of an exclusive message", "F0 7F FA 01 F7", {"FA", "F0 7F 01 F7"}},
        {"real-time bytes keep the running status", "90 3C 40 FC 3E 41", {"90 3C 40", "FC", "90 3E 41"}},
        {"system messages end the running status", "90 3C 40 F6 3E 41", {"90 3C 40", "F6"}},
        {"exclusive messages end the running status", "90 3C 40 F0 01 F7 3E 41", {"90 3C 40", "F0 01 F7"}},
        {"data without a status", "3C 40 00 90 3C 40", {"90 3C 40"}},
        {"a message that is cut off by another", "90 3C 91 3D 41", {"91 3D 41"}},
        {"an exclusive message that is cut off", "F0 01 02 90 3C 40", {"90 3C 40"}},
        {"an end without a beginning", "F7 90 3C 40 F7", {"90 3C 40"}},
        {"undefined statuses", "F4 01 F5 02 F9 FD 90 3C 40", {"90 3C 40"}},
        {"an empty exclusive message", "F0 F7", {"F0 F7"}},
        {"nothing", "", {}},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Deliver(test_support::Hex(row.bytes)), row.messages) << row.what;
}

TEST(MidiParsing, ExclusiveMessageThatIsTooLong_IsPassedOver) {
    for (const std::size_t data : {65534U, 65535U}) {
        const auto messages = Deliver('\xF0' + std::string(data, '\x01') + "\xF7" + test_support::Hex("90 3C 40"));
        EXPECT_EQ(messages.size(), data == 65534 ? 2U : 1U) << data;
        EXPECT_EQ(messages.back(), "90 3C 40");
    }
}

TEST(MidiDelivery, ListenerThatThrows_DoesNotKeepTheMessageFromTheNext) {
    MidiMessageDispatcher dispatcher;
    int heard = 0;
    dispatcher.AddListener(&dispatcher, [](auto, auto) { throw std::runtime_error("a song cannot be loaded"); });
    dispatcher.AddListener(&heard, [&](auto, auto) { ++heard; });
    const unsigned char start[] = {0xFA};
    testing::internal::CaptureStderr();
    dispatcher.Deliver(start);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("a song cannot be loaded"), std::string::npos);
    EXPECT_EQ(heard, 1);
}

TEST(MidiDelivery, ListenerThatRemovesItselfAndDisconnects_IsNotHeardAgain) {
    MidiMessageDispatcher dispatcher;
    int heard = 0;
    dispatcher.AddListener(&heard, [&](auto, auto) {
        ++heard;
        dispatcher.RemoveListener(&heard);
        dispatcher.Disconnect();
    });
    const unsigned char starts[] = {0xFA, 0xFA};
    dispatcher.Deliver(starts);
    EXPECT_EQ(heard, 1);
}

}  // namespace
