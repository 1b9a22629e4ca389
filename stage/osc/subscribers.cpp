#include "stage/osc/subscribers.h"

#include <algorithm>
#include <utility>

namespace stage {

bool Subscribers::Add(const OscPeer& peer, Clock::duration interval, Clock::time_point now) {
    const bool isConnected = peer.connection != 0;
    const Clock::time_point expires = isConnected ? Clock::time_point::max() : now + Lifetime;
    const auto found = std::ranges::find(list_, peer.name,
                                         [](const Subscriber& each) -> const std::string& { return each.peer.name; });
    if (found != list_.end()) {
        found->interval = interval;
        found->expires = expires;
        found->due = std::min(found->due, now + interval);
        return true;
    }
    if (list_.size() >= Most) return false;
    list_.push_back({peer, interval, expires, now, 0});
    return true;
}

void Subscribers::AddOnce(const OscPeer& peer) {
    if (once_.size() < Most) once_.push_back(peer);
}

bool Subscribers::Remove(const std::string& name) {
    return std::erase_if(list_, [&](const Subscriber& each) { return each.peer.name == name; }) > 0;
}

std::vector<OscPeer> Subscribers::RemoveOld(Clock::time_point now) {
    std::vector<OscPeer> removed;
    std::erase_if(list_, [&](const Subscriber& each) {
        if (each.expires > now) return false;
        removed.push_back(each.peer);
        return true;
    });
    return removed;
}

void Subscribers::Publish(const std::string& address, Packet packet) {
    values_[address] = {std::move(packet), ++version_, false};
}

void Subscribers::ForgetValues() {
    std::erase_if(values_, [](const auto& entry) { return !entry.second.isEvent; });
    isComplete_ = false;
}

void Subscribers::Announce(const std::string& address, Packet packet, bool isKept) {
    for (const Subscriber& each : list_)
        // Whoever waits for the first values gets it with them, where it is kept.
        if (each.version > 0 || !isKept) send_(each.peer, packet);
    if (isKept) values_[address] = {std::move(packet), ++version_, true};
}

void Subscribers::SendValues_(const OscPeer& peer, std::uint64_t version) {
    for (const auto& [address, value] : values_)
        if (value.version > version && (version == 0 || !value.isEvent)) send_(peer, value.packet);
}

std::optional<Subscribers::Clock::time_point> Subscribers::SendDue(Clock::time_point now) {
    if (!isComplete_) return std::nullopt;
    for (const OscPeer& peer : std::exchange(once_, {}))
        SendValues_(peer, 0);
    std::optional<Clock::time_point> next;
    for (Subscriber& each : list_) {
        if (each.version == version_) continue;
        if (each.due <= now && isReady_(each.peer)) {
            SendValues_(each.peer, each.version);
            each.version = version_;
            each.due = now + each.interval;
            continue;
        }
        // One that is not ready is looked at again after its interval.
        if (each.due <= now) each.due = now + each.interval;
        next = std::min(next.value_or(each.due), each.due);
    }
    return next;
}

}  // namespace stage
