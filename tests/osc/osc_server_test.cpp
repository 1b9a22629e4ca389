// The server by itself: who is taken, who is refused, who watches.

#include "stage/osc/osc_server.h"

#include <gtest/gtest.h>

#include <memory>

#include "tests/osc/osc_client.h"

namespace {

using namespace std::chrono_literals;
using stage::OscMessage;
using stage::OscServer;
using test_support::AsLine;
using test_support::OscSocket;

stage::Settings::OscIn Anywhere(const std::string& address = "127.0.0.1", const std::string& passcode = "") {
    stage::Settings::OscIn in;
    in.address = address;
    in.port = 0;
    in.passcode = passcode;
    return in;
}

std::int64_t WholeOf(const OscMessage& message, std::size_t at) {
    return std::get<std::int64_t>(message.arguments.at(at));
}

/// Waits until the server has `count` subscribers.
bool WaitForSubscribers(const OscServer& server, std::size_t count) {
    const auto end = std::chrono::steady_clock::now() + 20s;
    while (server.CountSubscribers() != count) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::yield();
    }
    return true;
}

OscServer::Request WaitForRequest(OscServer& server) {
    const auto end = std::chrono::steady_clock::now() + 20s;
    while (std::chrono::steady_clock::now() < end) {
        if (auto request = server.TakeRequest()) return *request;
        std::this_thread::yield();
    }
    return {};
}

TEST(OscServer, SixtyFourSubscribers_EachGetEveryEventInOrderAndTheNewestValue) {
    OscServer server(Anywhere());
    std::vector<OscSocket> sockets(stage::Subscribers::Most);
    for (const OscSocket& socket : sockets) {
        socket.Send(server.GetPort(), {"/tavo/subscribe", {std::int64_t{10}}});
        EXPECT_EQ("/tavo/reply", socket.Receive().address);
    }
    ASSERT_TRUE(WaitForSubscribers(server, sockets.size()));
    server.Publish({{"/tavo/display/place", {std::int64_t{-1}}}});
    for (const OscSocket& socket : sockets)
        EXPECT_EQ("/tavo/display/place -1", AsLine(socket.WaitFor("/tavo/display/place")));
    constexpr std::int64_t Events = 200;
    for (std::int64_t i = 0; i < Events; ++i) {
        server.Announce({"/tavo/display/status", {std::string("Vamp"), i}}, true);
        server.Publish({{"/tavo/display/place", {i}}});
    }
    for (const OscSocket& socket : sockets) {
        std::int64_t events = 0;
        std::int64_t place = -1;
        std::int64_t places = 0;
        while (events < Events || place < Events - 1) {
            const OscMessage message = socket.Receive();
            ASSERT_FALSE(message.address.empty()) << "after " << events << " events";
            if (message.address == "/tavo/display/status") {
                ASSERT_EQ(events, WholeOf(message, 1));
                ++events;
            } else {
                ASSERT_LT(place, WholeOf(message, 0)) << "an old value after a newer one";
                place = WholeOf(message, 0);
                ++places;
            }
        }
        EXPECT_LE(places, Events);
    }
    const OscSocket late;
    late.Send(server.GetPort(), {"/tavo/subscribe", {}});
    EXPECT_EQ("/tavo/error /tavo/subscribe 64 programs have subscribed already, and no more are taken 1",
              AsLine(late.Receive()));
    sockets.front().Send(server.GetPort(), {"/tavo/unsubscribe", {}});
    EXPECT_EQ("/tavo/reply /tavo/unsubscribe no more values follow", AsLine(sockets.front().WaitFor("/tavo/reply")));
    late.Send(server.GetPort(), {"/tavo/subscribe", {}});
    EXPECT_EQ("/tavo/reply", late.Receive().address);
}

TEST(OscServer, SubscriberThatDoesNotRead_IsDisconnectedAndDelaysNobody) {
    OscServer server(Anywhere());
    const OscSocket quick;
    quick.Send(server.GetPort(), {"/tavo/subscribe", {std::int64_t{10}}});
    const auto here = *stage::ReadNumericAddress("127.0.0.1", server.GetPort());
    const stage::Socket slow = stage::OpenSocket(here, SOCK_STREAM);
    const int small = 4096;
    ASSERT_EQ(0, ::setsockopt(slow.Get(), SOL_SOCKET, SO_RCVBUF, &small, sizeof small));
    static_cast<void>(::connect(slow.Get(), here.Get(), here.length));
    pollfd polled{slow.Get(), POLLOUT, 0};
    ASSERT_EQ(1, ::poll(&polled, 1, 20000));
    const auto packet =
        stage::Frame(stage::StreamFraming::Length, stage::WriteOscPacket({"/tavo/subscribe", {std::int64_t{10}}}));
    ASSERT_EQ(static_cast<ssize_t>(packet.size()), ::send(slow.Get(), packet.data(), packet.size(), 0));
    ASSERT_TRUE(WaitForSubscribers(server, 2));
    server.Publish({{"/tavo/display/place", {std::int64_t{0}}}});
    const std::string sentence(10000, 'x');
    std::int64_t sent = 0;
    // The quick one reads each before the next is sent: it waits for nobody.
    for (; server.CountSubscribers() == 2 && sent < 2000; ++sent) {
        server.Announce({"/tavo/message", {sentence}}, false);
        ASSERT_EQ("/tavo/message", quick.WaitFor("/tavo/message").address);
    }
    EXPECT_TRUE(WaitForSubscribers(server, 1)) << "it was sent " << sent * 10 << " kB";
    std::string reports;
    for (const std::string& report : server.TakeReports())
        reports += report;
    EXPECT_NE(std::string::npos, reports.find("does not read what it is sent and was disconnected.")) << reports;
}

TEST(OscServer, Flood_IsRefusedAndEveryRefusalIsCountedInAnAnswer) {
    OscServer server(Anywhere());
    test_support::OscClient client("tcp", server.GetPort());
    constexpr std::int64_t Sent = 5000;
    client.Do({{"flood", Sent}, {"send", {"/tavo/tempo", 0.9}}});
    std::int64_t taken = 0;
    std::int64_t refused = 0;
    while (taken + refused < Sent) {
        const nlohmann::json message = client.WaitFor("/tavo/error");
        ASSERT_EQ(4U, message.size());
        EXPECT_EQ("/tavo/tempo", message[1]);
        EXPECT_EQ("presses come too fast: at most 100 a second are taken", message[2]);
        refused += message[3].get<std::int64_t>();
        while (server.TakeRequest())
            ++taken;
    }
    EXPECT_EQ(Sent, taken + refused);
    EXPECT_EQ(static_cast<std::uint64_t>(refused), server.CountRefused());
    EXPECT_GE(taken, 100);
    EXPECT_FALSE(server.TakeReports().empty());
}

TEST(OscServer, MalformedPackets_AreEachRefused) {
    OscServer server(Anywhere());
    for (const char* kind : {"tcp", "slip"}) {
        const std::uint64_t before = server.CountRefused();
        test_support::OscClient client(kind, server.GetPort());
        constexpr std::int64_t Sent = 2000;
        client.Do({{"malformed", Sent}, {"seed", 5}});
        std::int64_t refused = 0;
        while (refused < Sent) {
            const nlohmann::json message = client.WaitFor("/tavo/error");
            ASSERT_EQ(4U, message.size());
            refused += message[3].get<std::int64_t>();
        }
        EXPECT_EQ(Sent, refused);
        EXPECT_EQ(before + static_cast<std::uint64_t>(Sent), server.CountRefused());
        EXPECT_FALSE(server.TakeRequest());
        client.Send({"/go"});
        EXPECT_EQ("/go", WaitForRequest(server).message.address) << "the stream goes on";
    }
}

TEST(OscServer, StreamThatIsNoOsc_IsToldAndClosed) {
    OscServer server(Anywhere());
    test_support::OscClient client("tcp", server.GetPort());
    // POST / HTTP/1.1, as a page in a browser could send it.
    client.Do({{"bytes", "504f5354202f20485454502f312e310d0a"}});
    EXPECT_EQ("the stream is not OSC: it begins neither with a length nor with a packet",
              client.WaitFor("/tavo/error")[2]);
    client.WaitFor("closed");
}

TEST(OscServer, AnswersOfAnotherServer_AreNotAnswered) {
    OscServer server(Anywhere());
    const OscSocket socket;
    socket.Send(server.GetPort(), {"/tavo/error", {std::string("/go"), std::string("no"), std::int64_t{1}}});
    socket.Send(server.GetPort(), {"/tavo/display/place", {}});
    socket.Send(server.GetPort(), {"/tavo/subscribe", {std::string("often")}});
    EXPECT_EQ("/tavo/error /tavo/subscribe the interval in milliseconds must be a whole number from 10 to 10000 1",
              AsLine(socket.Receive()));
}

TEST(OscServer, Port_BelongsToOne) {
    const OscServer first(Anywhere());
    stage::Settings::OscIn in = Anywhere();
    in.port = first.GetPort();
    try {
        const OscServer second(in);
        FAIL();
    } catch (const std::runtime_error& problem) {
        EXPECT_EQ(first.GetAddress() + " cannot be listened on: Address already in use", problem.what());
    }
}

TEST(OscServer, ValuesGoToTheNamedPort_AndStopWhenThatIsUnsubscribed) {
    OscServer server(Anywhere());
    const OscSocket asking;
    const OscSocket watching;
    const std::int64_t port = watching.GetPort();
    asking.Send(server.GetPort(), {"/tavo/subscribe", {std::int64_t{50}, port}});
    EXPECT_EQ("/tavo/reply", asking.Receive().address);
    server.Publish({{"/tavo/display/key", {std::string("C")}}});
    EXPECT_EQ("/tavo/display/key C", AsLine(watching.Receive()));
    asking.Send(server.GetPort(), {"/tavo/unsubscribe", {port}});
    EXPECT_EQ("/tavo/reply", asking.Receive().address);
    EXPECT_TRUE(WaitForSubscribers(server, 0));
}

TEST(OscServer, OtherMachineWithoutThePasscode_IsRefusedUntilItSaysIt) {
    // This machine's own address in a network stands for another machine.
    const stage::Socket probe = stage::OpenSocket(*stage::ReadNumericAddress("192.0.2.1", 9), SOCK_DGRAM);
    const auto away = *stage::ReadNumericAddress("192.0.2.1", 9);
    if (::connect(probe.Get(), away.Get(), away.length) != 0) GTEST_SKIP() << "This machine has no network.";
    const std::string host = stage::GetOwnAddress(probe).GetHost();
    OscServer server(Anywhere("0.0.0.0", "curtain"));
    OscSocket socket;
    socket.Rebind(host);
    socket.Send(server.GetPort(), {"/go", {}}, host);
    EXPECT_EQ("/tavo/error /go the passcode comes first: /tavo/passcode and the right text 1",
              AsLine(socket.Receive()));
    socket.Send(server.GetPort(), {"/tavo/passcode", {std::string("courtain")}}, host);
    EXPECT_EQ("/tavo/error", socket.Receive().address);
    socket.Send(server.GetPort(), {"/tavo/passcode", {std::string("curtain")}}, host);
    EXPECT_EQ("/tavo/reply /tavo/passcode presses are taken", AsLine(socket.Receive()));
    socket.Send(server.GetPort(), {"/go", {}}, host);
    EXPECT_EQ("/go", WaitForRequest(server).message.address);
    const OscSocket here;
    here.Send(server.GetPort(), {"/stop", {}});
    EXPECT_EQ("/stop", WaitForRequest(server).message.address) << "this machine needs none";
}

TEST(Subscribers, OverUdpWithoutRenewal_IsForgottenAfterAMinuteAndOverTcpNever) {
    stage::Subscribers subscribers([](const auto&, const auto&) {}, [](const auto&) { return true; });
    const stage::Subscribers::Clock::time_point begin{};
    ASSERT_TRUE(subscribers.Add({.connection = 0, .address = {}, .name = "udp a"}, 50ms, begin));
    ASSERT_TRUE(subscribers.Add({.connection = 0, .address = {}, .name = "udp b"}, 50ms, begin));
    ASSERT_TRUE(subscribers.Add({.connection = 7, .address = {}, .name = "tcp c"}, 50ms, begin));
    ASSERT_TRUE(subscribers.Add({.connection = 0, .address = {}, .name = "udp b"}, 50ms, begin + 30s));
    EXPECT_TRUE(subscribers.RemoveOld(begin + 59999ms).empty());
    const auto first = subscribers.RemoveOld(begin + 60s);
    ASSERT_EQ(1U, first.size());
    EXPECT_EQ("udp a", first.front().name);
    EXPECT_EQ(1U, subscribers.RemoveOld(begin + 90s).size());
    EXPECT_TRUE(subscribers.RemoveOld(begin + 9000s).empty());
    EXPECT_EQ(1U, subscribers.Count());
}

TEST(Subscribers, ValuesThatChangeFast_AreSentAtTheInterval) {
    std::vector<char> sent;
    bool isReady = true;
    stage::Subscribers subscribers(
        [&](const auto&, const std::vector<char>& packet) { sent.push_back(packet.front()); },
        [&](const auto&) { return isReady; });
    const stage::Subscribers::Clock::time_point begin{};
    ASSERT_TRUE(subscribers.Add({.connection = 0, .address = {}, .name = "udp a"}, 50ms, begin));
    const auto at = [&](std::chrono::milliseconds time, char value) {
        subscribers.Publish("/place", {value});
        subscribers.Complete();
        return subscribers.SendDue(begin + time);
    };
    at(0ms, 'a');
    EXPECT_EQ(begin + 50ms, at(10ms, 'b'));
    at(20ms, 'c');
    at(49ms, 'd');
    EXPECT_EQ(std::vector<char>({'a'}), sent);
    at(50ms, 'e');
    EXPECT_EQ(std::vector<char>({'a', 'e'}), sent);
    isReady = false;
    at(100ms, 'f');
    isReady = true;
    at(149ms, 'g');
    EXPECT_EQ(std::vector<char>({'a', 'e'}), sent) << "it was not ready at its turn";
    at(150ms, 'h');
    EXPECT_EQ(std::vector<char>({'a', 'e', 'h'}), sent);
}

}  // namespace
