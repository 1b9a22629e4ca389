#include "stage/osc/osc_message.h"

#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <stdexcept>

#include "stage/osc/stream_framing.h"

namespace {

using stage::OscMessage;
using stage::StreamFraming;
using Packet = std::vector<char>;

Packet AsPacket(std::string_view bytes) {
    return {bytes.begin(), bytes.end()};
}

std::string Refuse(std::string_view bytes) {
    try {
        static_cast<void>(stage::ReadOscPacket(AsPacket(bytes)));
    } catch (const std::invalid_argument& problem) {
        return problem.what();
    }
    return "taken";
}

TEST(OscMessages, WrittenAndReadAgain_AreTheSame) {
    const OscMessage message{"/a/b", {std::int64_t{-7}, 0.5, std::string("Grüße"), true, false, std::string()}};
    EXPECT_EQ(std::vector{message}, stage::ReadOscPacket(stage::WriteOscPacket(message)));
    const OscMessage large{"/h", {std::int64_t{4'000'000'000}}};
    EXPECT_EQ(std::vector{large}, stage::ReadOscPacket(stage::WriteOscPacket(large)));
}

TEST(OscMessages, BytesAreThoseOfTheStandard) {
    // The second example of the OSC 1.0 specification, without its -1.
    const Packet packet = stage::WriteOscPacket({"/foo", {std::int64_t{1000}, std::string("hello"), 1.234, 5.678}});
    const std::string_view expected("/foo\0\0\0\0,isff\0\0\0\0\0\3\xE8hello\0\0\0\x3F\x9D\xF3\xB6\x40\xB5\xB2\x2D", 36);
    EXPECT_EQ(expected, std::string_view(packet.data(), packet.size()));
}

TEST(OscMessages, WithoutTypeTags_HaveNoArguments) {
    EXPECT_EQ((std::vector<OscMessage>{{"/go", {}}}), stage::ReadOscPacket(AsPacket({"/go\0", 4})));
}

TEST(OscMessages, Bundle_HoldsItsMessagesInOrder) {
    const std::vector<OscMessage> messages{{"/one", {std::int64_t{1}}}, {"/two", {}}};
    using std::chrono::system_clock;
    // 2024-01-01T00:00:00.5Z, of which NTP has counted 3913056000.5 s.
    const Packet packet =
        stage::WriteOscBundle(messages, system_clock::time_point(std::chrono::milliseconds(1'704'067'200'500)));
    EXPECT_EQ(messages, stage::ReadOscPacket(packet));
    EXPECT_EQ(std::string_view("#bundle\0\xE9\x3C\x7F\x00\x80\0\0\0", 16), std::string_view(packet.data(), 16));
    // A bundle of that bundle.
    Packet outer = AsPacket({"#bundle\0\0\0\0\0\0\0\0\1\0\0\0", 20});
    outer.back() = static_cast<char>(packet.size());
    outer.insert(outer.end(), packet.begin(), packet.end());
    EXPECT_EQ(messages, stage::ReadOscPacket(outer));
}

TEST(OscMessages, ThatAreNone_AreRefusedInASentence) {
    EXPECT_EQ("the packet is not OSC: 0 bytes are no multiple of four", Refuse(""));
    EXPECT_EQ("the packet is not OSC: 3 bytes are no multiple of four", Refuse("/go"));
    EXPECT_EQ("the packet is not OSC: its address does not end", Refuse("/goo"));
    EXPECT_EQ("the packet is not OSC: it does not begin with /", Refuse({"goo\0", 4}));
    EXPECT_EQ("the packet is not OSC: its address holds what is neither a letter nor a sign", Refuse({"/g\n\0", 4}));
    const std::string misfit = "the packet is not OSC: its arguments do not fit their types or its length";
    EXPECT_EQ(misfit, Refuse({"/go\0,i\0\0", 8}));
    EXPECT_EQ(misfit, Refuse({"/go\0,\0\0\0\0\0\0\0", 12}));
    EXPECT_EQ(misfit, Refuse({"/go\0,y\0\0", 8}));
    EXPECT_EQ(misfit, Refuse({"/go\0,b\0\0\xFF\xFF\xFF\xFF", 12}));
    EXPECT_EQ(misfit, Refuse({"/go\0,s\0\0abcd", 12}));
    EXPECT_EQ("the packet is not OSC: the bundle has no time tag", Refuse({"#bundle\0\0\0\0\0", 12}));
    EXPECT_EQ("the packet is not OSC: a part of the bundle is longer than the bundle",
              Refuse({"#bundle\0\0\0\0\0\0\0\0\0\0\0\0\x08/go\0", 24}));
    EXPECT_EQ("an address has at most 255 characters", Refuse("/" + std::string(298, 'a') + '\0'));
    EXPECT_EQ("a packet has at most 65507 bytes", Refuse(std::string(65508, '/')));
}

TEST(OscMessages, BundlesOneInTheOther_EndAtSomeDepth) {
    std::string packet("/go\0", 4);
    for (int depth = 0; depth < 30; ++depth) {
        std::string outer("#bundle\0\0\0\0\0\0\0\0\1\0\0", 19);
        outer.push_back(static_cast<char>(packet.size() % 256));
        outer[18] = static_cast<char>(packet.size() / 256);
        packet = outer + packet;
    }
    EXPECT_EQ("the bundle has too many others around it", Refuse(packet));
}

class Streams : public testing::TestWithParam<StreamFraming> {};

TEST_P(Streams, PacketsCutAnywhere_ComeOutWhole) {
    std::mt19937 chance(7);
    std::vector<Packet> packets;
    Packet stream;
    for (int i = 0; i < 200; ++i) {
        Packet packet(1 + chance() % 300);
        for (char& byte : packet)
            byte = static_cast<char>(chance());
        const Packet framed = stage::Frame(GetParam(), packet);
        stream.insert(stream.end(), framed.begin(), framed.end());
        packets.push_back(std::move(packet));
    }
    stage::StreamReader reader;
    std::vector<Packet> read;
    for (std::size_t at = 0; at < stream.size();) {
        const std::size_t size = std::min<std::size_t>(chance() % 50, stream.size() - at);
        reader.Take(std::span(stream).subspan(at, size));
        at += size;
        while (auto packet = reader.Next())
            read.push_back(std::move(*packet));
    }
    EXPECT_EQ(packets, read);
    EXPECT_EQ(GetParam(), reader.GetFraming());
}

INSTANTIATE_TEST_SUITE_P(Both, Streams, testing::Values(StreamFraming::Length, StreamFraming::Slip),
                         [](const auto& which) { return which.param == StreamFraming::Slip ? "slip" : "length"; });

TEST(OddStreams, ThatAreNoOsc_AreRefused) {
    const auto refuse = [](std::string_view bytes) -> std::string {
        stage::StreamReader reader;
        try {
            reader.Take(AsPacket(bytes));
        } catch (const std::invalid_argument& problem) {
            return problem.what();
        }
        return "taken";
    };
    EXPECT_EQ("the stream is not OSC: it begins neither with a length nor with a packet", refuse("POST / HTTP/1.1"));
    EXPECT_EQ("a packet has at most 65507 bytes, not 65508", refuse({"\0\0\xFF\xE4", 4}));
    EXPECT_EQ("the stream is not OSC: an escape is followed by what cannot be escaped", refuse("\xC0\xDBx"));
    EXPECT_EQ("a packet has at most 65507 bytes", refuse("/" + std::string(65507, 'a')));
}

}  // namespace
