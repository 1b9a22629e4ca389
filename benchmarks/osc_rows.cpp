// Display values for as many OSC subscribers as there may be, beside sending the same packets bare.

#include <fmt/format.h>

#include <chrono>

#include "benchmarks/rows.h"
#include "stage/osc/osc_message.h"
#include "stage/osc/socket.h"
#include "stage/osc/subscribers.h"

namespace bench {

namespace {

constexpr double ValuesAim = 1.5;
constexpr std::size_t SubscriberCount = stage::Subscribers::Most;

}  // namespace

void AddOscRows(Table& table, const Effort& effort) {
    using namespace std::chrono_literals;
    const auto here = *stage::ReadNumericAddress("127.0.0.1", 0);
    const auto open = [&here] {
        stage::Socket socket = stage::OpenSocket(here, SOCK_DGRAM);
        stage::Bind(socket, here, SOCK_DGRAM);
        return socket;
    };
    const stage::Socket sender = open();
    // Nobody reads: what the system has no room for it drops, as it does for the yardstick.
    std::vector<stage::Socket> receivers;
    std::vector<stage::OscPeer> peers;
    for (std::size_t i = 0; i < SubscriberCount; ++i) {
        receivers.push_back(open());
        peers.push_back({0, stage::GetOwnAddress(receivers.back()), fmt::format("udp {}", i)});
    }
    const auto send = [&sender](const stage::OscPeer& peer, const std::vector<char>& packet) {
        static_cast<void>(
            ::sendto(sender.Get(), packet.data(), packet.size(), 0, peer.address.Get(), peer.address.length));
    };
    stage::Subscribers subscribers(send, [](const auto&) { return true; });
    stage::Subscribers::Clock::time_point now{};
    for (const stage::OscPeer& peer : peers)
        static_cast<void>(subscribers.Add(peer, 50ms, now));
    std::int64_t tick = 0;
    const auto makePlace = [&tick] {
        return stage::OscMessage{"/tavo/display/place", {std::string("12"), std::string("3"), ++tick}};
    };
    const stage::OscMessage status{"/tavo/display/status", {std::string("Vamp"), std::int64_t{3}}};
    const std::vector<char> bare = stage::WriteOscPacket(makePlace());
    const std::vector<char> bareStatus = stage::WriteOscPacket(status);
    const Candidate raw{"raw", [&](std::size_t count) {
                            for (; count > 0; --count)
                                for (const stage::OscPeer& peer : peers) {
                                    send(peer, bare);
                                    send(peer, bareStatus);
                                }
                        }};
    const Candidate ours{"subscribers", [&](std::size_t count) {
                             for (; count > 0; --count) {
                                 const stage::OscMessage place = makePlace();
                                 subscribers.Publish(place.address, stage::WriteOscPacket(place));
                                 subscribers.Complete();
                                 subscribers.Announce(status.address, stage::WriteOscPacket(status), true);
                                 static_cast<void>(subscribers.SendDue(now += 50ms));
                             }
                         }};
    const std::vector<Timing> timings = MeasureInterleaved({raw, ours}, effort);
    const double ratio = MedianRatio(timings[1], timings[0]);
    table.Add({"a place and a status to every OSC subscriber", fmt::format("{}", SubscriberCount),
               "the same datagrams, sent bare", FormatTime(timings[0].Median()), FormatTime(timings[1].Median()),
               fmt::format("{:.2f}", ratio), fmt::format("{}", ValuesAim), "", ratio <= ValuesAim});
}

}  // namespace bench
