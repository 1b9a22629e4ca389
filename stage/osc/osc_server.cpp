// The sockets of the OSC server and the thread that serves them.

#include "stage/osc/osc_server.h"

#include <fmt/format.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "kit/thread_exception_log.h"
#include "kit/thread_names.h"
#include "stage/live/real_time.h"

namespace stage {

namespace {

using namespace std::chrono_literals;

constexpr int MostDatagramsInARow = 64;
constexpr int TriesForAFreePort = 20;
/// A connection that leaves more unread gets no values until it has read, and one that leaves this much is closed.
constexpr std::size_t FullBytes = 64U << 10U;
constexpr std::size_t MostWaitingBytes = 1U << 20U;
constexpr auto LongestWait = 1s;
constexpr auto RestAfterTrouble = 1s;
constexpr auto Breath = 10ms;

bool WouldBlock() {
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

}  // namespace

OscServer::OscServer(const Settings::OscIn& in, std::function<void()> onRequest)
    : passcode_(in.passcode),
      onRequest_(std::move(onRequest)),
      subscribers_([this](const OscPeer& peer, const std::vector<char>& packet) { Send_(peer, packet); },
                   [this](const OscPeer& peer) {
                       const auto found = std::ranges::find(
                           connections_, peer.connection, [](const Connection& each) { return each.peer.connection; });
                       return found == connections_.end() || found->waitingBytes < FullBytes;
                   }),
      buffer_(LongestOscPacket + 1) {
    const std::optional<SocketAddress> address = ReadNumericAddress(in.address, in.port);
    if (!address) throw std::runtime_error(fmt::format("{} is not an address in numbers", in.address));
    address_ = *address;
    try {
        Open_();
    } catch (const std::system_error& problem) {
        throw std::runtime_error(
            fmt::format("{} cannot be listened on: {}", address_.AsText(), problem.code().message()));
    }
    addressText_ = address_.AsText();
    thread_ = std::thread([this] { Run_(); });
}

OscServer::~OscServer() {
    {
        const std::lock_guard lock(mutex_);
        isEnding_ = true;
    }
    wakeUp_.Ring();
    thread_.join();
}

// The same port for both. One that is free for datagrams may be taken for streams.
void OscServer::Open_() {
    const SocketAddress wanted = address_;
    for (int tries = 1;; ++tries) {
        datagrams_ = OpenSocket(wanted, SOCK_DGRAM);
        Bind(datagrams_, wanted, SOCK_DGRAM);
        address_ = GetOwnAddress(datagrams_);
        listener_ = OpenSocket(address_, SOCK_STREAM);
        try {
            Bind(listener_, address_, SOCK_STREAM);
            return;
        } catch (const std::system_error&) {
            if (wanted.GetPort() != 0 || tries == TriesForAFreePort) throw;
        }
    }
}

void OscServer::Run_() {
    kit::threadNames.SetNameOfCurrentThread("OSC");
    // Whatever is sent here, it takes no processor away from music.
    BecomeOrdinary();
    for (;;) {
        bool isDone = kit::RunLogged([this] { Wait_(); });
        {
            const std::lock_guard lock(mutex_);
            if (isEnding_) break;
        }
        // What one sender's message did cannot be done: the others are still served.
        isDone = kit::RunLogged([this] { Work_(); }) && isDone;
        if (!isDone) std::this_thread::sleep_for(Breath);
    }
    kit::RunLogged([this] {
        now_ = Clock::now();
        DoOrders_();
        SendErrors_(true);
        for (Connection& connection : connections_)
            Write_(connection);
    });
}

void OscServer::Work_() {
    now_ = Clock::now();
    DoOrders_();
    ReadDatagrams_();
    if (now_ >= resting_) AcceptConnections_();
    for (Connection& connection : connections_) {
        Read_(connection);
        Write_(connection);
    }
    EndBroken_();
    SendErrors_(false);
    ReportRefusals_();
    UpdateState_();
}

void OscServer::Wait_() {
    const Clock::time_point now = Clock::now();
    Clock::time_point until = now + LongestWait;
    if (const auto due = subscribers_.SendDue(now)) until = std::min(until, *due);
    const bool owesErrors =
        std::ranges::any_of(senders_, [](const auto& entry) { return entry.second.unanswered > 0; });
    if (owesErrors) until = std::min(until, nextErrors_);
    if (unreported_ > 0) until = std::min(until, nextReport_);
    std::vector<pollfd> polled{{wakeUp_.GetDescriptor(), POLLIN, 0}, {datagrams_.Get(), POLLIN, 0}};
    if (now >= resting_) polled.push_back({listener_.Get(), POLLIN, 0});
    for (const Connection& connection : connections_)
        polled.push_back(
            {connection.socket.Get(), static_cast<short>(connection.waiting.empty() ? POLLIN : POLLIN | POLLOUT), 0});
    const auto wait = std::chrono::ceil<std::chrono::milliseconds>(std::max(until - now, Clock::duration{0}));
    static_cast<void>(::poll(polled.data(), polled.size(), static_cast<int>(wait.count())));
    if (polled.front().revents != 0) wakeUp_.Clear();
}

void OscServer::ReadDatagrams_() {
    for (int i = 0; i < MostDatagramsInARow; ++i) {
        OscPeer peer;
        peer.address.length = sizeof peer.address.storage;
        const ssize_t size =
            ::recvfrom(datagrams_.Get(), buffer_.data(), buffer_.size(), 0, peer.address.Get(), &peer.address.length);
        // Some systems report here that a reply did not arrive; there may be more behind it.
        if (size < 0 && WouldBlock()) return;
        if (size < 0) continue;
        peer.name = "udp " + peer.address.AsText();
        TakePacket_(peer, std::span(buffer_).first(static_cast<std::size_t>(size)));
    }
}

void OscServer::AcceptConnections_() {
    for (;;) {
        OscPeer peer;
        peer.address.length = sizeof peer.address.storage;
        Socket socket(
            ::accept4(listener_.Get(), peer.address.Get(), &peer.address.length, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (!socket.IsOpen()) {
            // One that has gone again is none; where the process has no more files, asking at once would not help.
            if (!WouldBlock() && errno != ECONNABORTED) resting_ = now_ + RestAfterTrouble;
            return;
        }
        if (connections_.size() >= MostConnections) continue;
        PrepareStream(socket);
        peer.connection = ++lastConnection_;
        peer.name = "tcp " + peer.address.AsText();
        connections_.push_back({.peer = std::move(peer), .socket = std::move(socket)});
    }
}

void OscServer::Read_(Connection& connection) {
    if (connection.isBroken) return;
    const ssize_t size = ::recv(connection.socket.Get(), buffer_.data(), buffer_.size(), 0);
    if (size < 0 && WouldBlock()) return;
    if (size <= 0) {
        connection.isBroken = true;
        return;
    }
    try {
        connection.reader.Take(std::span(buffer_).first(static_cast<std::size_t>(size)));
    } catch (const std::invalid_argument& problem) {
        // Where the next packet begins nobody knows any more.
        Refuse_(FindSender_(connection.peer), "", problem.what());
        Write_(connection);
        connection.isBroken = true;
    }
    while (const std::optional<std::vector<char>> packet = connection.reader.Next())
        TakePacket_(connection.peer, *packet);
}

void OscServer::Write_(Connection& connection) {
    while (!connection.waiting.empty() && !connection.isBroken) {
        const std::vector<char>& first = connection.waiting.front();
        const ssize_t size = ::send(connection.socket.Get(), first.data() + connection.sent,
                                    first.size() - connection.sent, MSG_NOSIGNAL);
        if (size < 0 && WouldBlock()) return;
        if (size < 0) {
            connection.isBroken = true;
            return;
        }
        connection.sent += static_cast<std::size_t>(size);
        connection.waitingBytes -= static_cast<std::size_t>(size);
        if (connection.sent < first.size()) return;
        connection.sent = 0;
        connection.waiting.pop_front();
    }
}

void OscServer::EndBroken_() {
    std::erase_if(connections_, [this](const Connection& each) {
        if (!each.isBroken) return false;
        subscribers_.Remove(each.peer.name);
        senders_.erase(each.peer.name);
        return true;
    });
}

void OscServer::Send_(const OscPeer& peer, const std::vector<char>& packet) {
    if (peer.connection == 0) {
        // It never waits: where the network takes nothing, neither would a later packet reach anybody.
        static_cast<void>(::sendto(datagrams_.Get(), packet.data(), packet.size(), MSG_NOSIGNAL, peer.address.Get(),
                                   peer.address.length));
        return;
    }
    const auto found =
        std::ranges::find(connections_, peer.connection, [](const Connection& each) { return each.peer.connection; });
    if (found == connections_.end() || found->isBroken) return;
    std::vector<char> framed = Frame(found->reader.GetFraming(), packet);
    found->waitingBytes += framed.size();
    found->waiting.push_back(std::move(framed));
    Write_(*found);
    if (found->waitingBytes <= MostWaitingBytes) return;
    found->isBroken = true;
    const std::lock_guard lock(mutex_);
    reports_.push_back(fmt::format("OSC: {} does not read what it is sent and was disconnected.", peer.name));
}

// From other threads.

void OscServer::Order_(Order order) {
    {
        const std::lock_guard lock(mutex_);
        orders_.push_back(std::move(order));
    }
    wakeUp_.Ring();
}

void OscServer::DoOrders_() {
    std::deque<Order> orders;
    {
        const std::lock_guard lock(mutex_);
        orders = std::exchange(orders_, {});
    }
    for (Order& order : orders) {
        for (OscMessage& message : order.messages) {
            if (order.kind == Order::Kind::Error) {
                Refuse_(FindSender_(order.peer), message.address, std::get<std::string>(message.arguments.front()));
                continue;
            }
            std::vector<char> packet;
            try {
                packet = WriteOscPacket(message);
            } catch (const std::invalid_argument&) {
                // Too long for a datagram: nobody could be sent it.
                continue;
            }
            if (order.kind == Order::Kind::Answer) {
                Send_(order.peer, packet);
            } else if (order.kind == Order::Kind::Publish) {
                subscribers_.Publish(message.address, std::move(packet));
            } else {
                subscribers_.Announce(message.address, std::move(packet), order.isKept);
            }
        }
        if (order.kind == Order::Kind::Publish) subscribers_.Complete();
    }
}

std::optional<OscServer::Request> OscServer::TakeRequest() {
    const std::lock_guard lock(mutex_);
    if (requests_.empty()) return std::nullopt;
    Request request = std::move(requests_.front());
    requests_.pop_front();
    return request;
}

void OscServer::Answer(const OscPeer& peer, OscMessage message) {
    Order_({Order::Kind::Answer, peer, {std::move(message)}, false});
}

void OscServer::AnswerError(const OscPeer& peer, const std::string& address, const std::string& sentence) {
    Order_({Order::Kind::Error, peer, {{address, {sentence}}}, false});
}

void OscServer::Publish(std::vector<OscMessage> values) {
    Order_({Order::Kind::Publish, {}, std::move(values), false});
}

void OscServer::Announce(OscMessage event, bool isKept) {
    Order_({Order::Kind::Announce, {}, {std::move(event)}, isKept});
}

bool OscServer::IsWatched(bool& wantsAll) {
    const std::lock_guard lock(mutex_);
    wantsAll = std::exchange(wantsAll_, false);
    return isWatched_;
}

std::size_t OscServer::CountSubscribers() const {
    const std::lock_guard lock(mutex_);
    return subscriberCount_;
}

std::uint64_t OscServer::CountRefused() const {
    const std::lock_guard lock(mutex_);
    return refused_;
}

std::vector<std::string> OscServer::TakeReports() {
    const std::lock_guard lock(mutex_);
    return std::exchange(reports_, {});
}

}  // namespace stage
