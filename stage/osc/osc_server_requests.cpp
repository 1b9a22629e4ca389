// What the OSC server does with messages: presses are handed on, subscriptions kept, and everything else refused.

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "stage/osc/osc_server.h"

namespace stage {

namespace {

using namespace std::chrono_literals;

constexpr double ErrorsASecond = 20;
constexpr double ErrorsAtOnce = 20;
constexpr std::size_t MostSenders = 256;
constexpr auto BetweenErrors = 200ms;
constexpr auto BetweenReports = 1s;

/// What only goes out. Two servers that take each other for a peer would answer answers for ever.
bool IsOurOwn(const std::string& address) {
    return address == "/tavo/reply" || address == "/tavo/error" || address == "/tavo/message" ||
           address == "/tavo/press" || address.starts_with("/tavo/display/");
}

/// A whole number of the range at this place of the arguments; nothing where there is no argument, and `problem` is a
/// sentence where there is another.
std::optional<int> FindWhole(const OscMessage& message, std::size_t at, std::string_view what, int lowest, int highest,
                             std::string& problem) {
    if (at >= message.arguments.size()) return std::nullopt;
    double number = std::nan("");
    if (const auto* const whole = std::get_if<std::int64_t>(&message.arguments[at]))
        number = static_cast<double>(*whole);
    if (const auto* const real = std::get_if<double>(&message.arguments[at])) number = *real;
    if (number >= lowest && number <= highest && number == std::round(number)) return static_cast<int>(number);
    problem = fmt::format("{} must be a whole number from {} to {}", what, lowest, highest);
    return std::nullopt;
}

}  // namespace

void OscServer::TakePacket_(const OscPeer& peer, std::span<const char> packet) {
    Sender& sender = FindSender_(peer);
    try {
        for (OscMessage& message : ReadOscPacket(packet))
            TakeMessage_(sender, std::move(message));
    } catch (const std::invalid_argument& problem) {
        Refuse_(sender, "", problem.what());
    }
}

void OscServer::TakeMessage_(Sender& sender, OscMessage message) {
    const std::string address = message.address;
    if (IsOurOwn(address) || !Admit_(sender, message)) return;
    if (address == "/tavo/passcode") return Reply_(sender, address, "presses are taken");
    // All of it costs something, and none is needed more often.
    if (!sender.presses.Take(now_))
        return Refuse_(sender, address,
                       fmt::format("presses come too fast: at most {} a second are taken", PressesASecond));
    if (!allPresses_.Take(now_))
        return Refuse_(
            sender, address,
            fmt::format("presses come too fast: at most {} a second are taken of all programs", AllPressesASecond));
    if (address == "/tavo/subscribe") return Subscribe_(sender, message);
    if (address == "/tavo/unsubscribe") return Unsubscribe_(sender, message);
    if (address == "/tavo/status") return SendStatus_(sender);
    bool isTaken = false;
    {
        const std::lock_guard lock(mutex_);
        isTaken = requests_.size() < MostWaitingPresses;
        if (isTaken) requests_.push_back({sender.peer, std::move(message), now_});
    }
    if (!isTaken) return Refuse_(sender, address, fmt::format("{} presses wait already", MostWaitingPresses));
    if (onRequest_) onRequest_();
}

// Whoever is on this machine needs no passcode.
bool OscServer::Admit_(Sender& sender, const OscMessage& message) {
    if (sender.isAdmitted || passcode_.empty() || sender.peer.address.IsLoopback()) return true;
    if (message.address == "/tavo/passcode" && message.arguments.size() == 1) {
        const auto* const text = std::get_if<std::string>(&message.arguments.front());
        const auto* const number = std::get_if<std::int64_t>(&message.arguments.front());
        const std::string said = text != nullptr ? *text : number != nullptr ? fmt::format("{}", *number) : "";
        // Guessing takes its time: a wrong one costs a press.
        if (sender.presses.Take(now_) && allPresses_.Take(now_) && said == passcode_) return sender.isAdmitted = true;
    }
    Refuse_(sender, message.address, "the passcode comes first: /tavo/passcode and the right text");
    return false;
}

void OscServer::Subscribe_(Sender& sender, const OscMessage& message) {
    std::string problem;
    constexpr auto Shortest = static_cast<int>(Subscribers::ShortestInterval.count());
    constexpr auto Longest = static_cast<int>(Subscribers::LongestInterval.count());
    const std::optional<int> interval =
        FindWhole(message, 0, "the interval in milliseconds", Shortest, Longest, problem);
    const std::optional<int> port = FindWhole(message, 1, "the port that values go to", 1, 65535, problem);
    if (message.arguments.size() > 2) problem = "/tavo/subscribe takes an interval and a port at most";
    if (!problem.empty()) return Refuse_(sender, message.address, problem);
    const bool isFirst = !subscribers_.IsWatched();
    const std::chrono::milliseconds wanted =
        interval ? std::chrono::milliseconds(*interval) : Subscribers::UsualInterval;
    OscPeer peer = sender.peer;
    const bool isStream = peer.connection != 0;
    if (port && !isStream) {
        peer.address.SetPort(static_cast<std::uint16_t>(*port));
        peer.name = "udp " + peer.address.AsText();
    }
    if (!subscribers_.Add(peer, wanted, now_))
        return Refuse_(sender, message.address,
                       fmt::format("{} programs have subscribed already, and no more are taken", Subscribers::Most));
    if (isFirst) subscribers_.ForgetValues();
    Reply_(
        sender, message.address,
        fmt::format("values follow, {} ms apart at least, {}", wanted.count(),
                    isStream ? "as long as the connection lasts"
                             : fmt::format("for {} s or until the next subscription", Subscribers::Lifetime.count())));
    const std::lock_guard lock(mutex_);
    wantsAll_ = wantsAll_ || isFirst;
    isWatched_ = true;
    subscriberCount_ = subscribers_.Count();
}

void OscServer::Unsubscribe_(Sender& sender, const OscMessage& message) {
    std::string problem;
    const std::optional<int> port = FindWhole(message, 0, "the port that values go to", 1, 65535, problem);
    if (!problem.empty()) return Refuse_(sender, message.address, problem);
    std::string name = sender.peer.name;
    if (port && sender.peer.connection == 0) {
        SocketAddress address = sender.peer.address;
        address.SetPort(static_cast<std::uint16_t>(*port));
        name = "udp " + address.AsText();
    }
    if (!subscribers_.Remove(name)) return Refuse_(sender, message.address, "there is no subscription of yours");
    Reply_(sender, message.address, "no more values follow");
}

void OscServer::SendStatus_(Sender& sender) {
    const bool isFirst = !subscribers_.IsWatched();
    if (isFirst) subscribers_.ForgetValues();
    subscribers_.AddOnce(sender.peer);
    const std::lock_guard lock(mutex_);
    wantsAll_ = wantsAll_ || isFirst;
    isWatched_ = true;
}

void OscServer::Reply_(const Sender& sender, const std::string& address, const std::string& sentence) {
    Send_(sender.peer, WriteOscPacket({"/tavo/reply", {address, sentence}}));
}

void OscServer::Refuse_(Sender& sender, const std::string& address, const std::string& sentence) {
    {
        const std::lock_guard lock(mutex_);
        ++refused_;
    }
    if (unreported_++ == 0)
        firstUnreported_ = fmt::format("{}{}{}: {}", sender.peer.name, address.empty() ? "" : ", ", address, sentence);
    if (sender.unanswered == 0 && sender.errors.Take(now_)) return SendError_(sender, address, sentence, 1);
    ++sender.unanswered;
    sender.address = address;
    sender.sentence = sentence;
}

void OscServer::SendErrors_(bool all) {
    if (!all && now_ < nextErrors_) return;
    nextErrors_ = now_ + BetweenErrors;
    for (auto& [name, sender] : senders_) {
        if (sender.unanswered == 0) continue;
        SendError_(sender, sender.address, sender.sentence, std::exchange(sender.unanswered, 0));
    }
}

void OscServer::SendError_(Sender& sender, const std::string& address, const std::string& sentence,
                           std::uint64_t count) {
    Send_(sender.peer, WriteOscPacket({"/tavo/error", {address, sentence, static_cast<std::int64_t>(count)}}));
}

OscServer::Sender& OscServer::FindSender_(const OscPeer& peer) {
    const auto found = senders_.find(peer.name);
    if (found != senders_.end()) {
        found->second.lastHeard = now_;
        return found->second;
    }
    if (senders_.size() >= MostSenders) ForgetOldestSender_();
    Sender sender{.peer = peer, .errors = {ErrorsASecond, ErrorsAtOnce}, .lastHeard = now_};
    return senders_.emplace(peer.name, std::move(sender)).first->second;
}

void OscServer::ForgetOldestSender_() {
    const auto oldest =
        std::ranges::min_element(senders_, {}, [](const auto& entry) { return entry.second.lastHeard; });
    Sender& sender = oldest->second;
    if (sender.unanswered > 0) SendError_(sender, sender.address, sender.sentence, sender.unanswered);
    senders_.erase(oldest);
}

void OscServer::ReportRefusals_() {
    if (unreported_ == 0 || now_ < nextReport_) return;
    nextReport_ = now_ + BetweenReports;
    const std::uint64_t count = std::exchange(unreported_, 0);
    const std::lock_guard lock(mutex_);
    reports_.push_back(count == 1
                           ? fmt::format("OSC: a message was refused: {}.", firstUnreported_)
                           : fmt::format("OSC: {} messages were refused, the first: {}.", count, firstUnreported_));
}

void OscServer::UpdateState_() {
    for (const OscPeer& peer : subscribers_.RemoveOld(now_))
        Send_(peer, WriteOscPacket({"/tavo/message", {std::string("the subscription has ended: it was not renewed")}}));
    const std::lock_guard lock(mutex_);
    subscriberCount_ = subscribers_.Count();
    isWatched_ = subscribers_.IsWatched();
}

}  // namespace stage
