#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "stage/osc/osc_peer.h"

namespace stage {

/// Who gets display values, and which of them each has had. Used by one thread.
class Subscribers {
public:
    using Clock = std::chrono::steady_clock;
    using Packet = std::vector<char>;
    /// Sends a packet to a peer; what cannot be sent is the peer's loss.
    using Send = std::function<void(const OscPeer& peer, const Packet& packet)>;
    /// Whether the peer can take values now; if not, it gets newer ones later.
    using IsReady = std::function<bool(const OscPeer& peer)>;

    static constexpr std::size_t Most = 64;
    /// A subscriber over UDP that has not renewed for so long is forgotten: nobody knows whether it is still there.
    static constexpr std::chrono::seconds Lifetime{60};
    static constexpr std::chrono::milliseconds ShortestInterval{10};
    static constexpr std::chrono::milliseconds LongestInterval{10000};
    static constexpr std::chrono::milliseconds UsualInterval{50};

    Subscribers(Send send, IsReady isReady) : send_(std::move(send)), isReady_(std::move(isReady)) {}

    /// Adds the peer, or renews what it has. False where there are too many.
    [[nodiscard]] bool Add(const OscPeer& peer, Clock::duration interval, Clock::time_point now);
    /// Sends all values once, when they are there.
    void AddOnce(const OscPeer& peer);
    /// False where it was none.
    bool Remove(const std::string& name);
    /// Names of those who were forgotten.
    std::vector<OscPeer> RemoveOld(Clock::time_point now);

    void Publish(const std::string& address, Packet packet);
    /// All that was published is out of date.
    void ForgetValues();
    /// What has been published until now is all there is.
    void Complete() { isComplete_ = true; }
    void Announce(const std::string& address, Packet packet, bool isKept);

    /// Sends what is due. Returns when the next is, nothing where nothing waits.
    std::optional<Clock::time_point> SendDue(Clock::time_point now);

    [[nodiscard]] std::size_t Count() const { return list_.size(); }
    [[nodiscard]] bool IsWatched() const { return !list_.empty() || !once_.empty(); }

private:
    struct Value {
        Packet packet;
        std::uint64_t version = 0;
        bool isEvent = false;
    };
    struct Subscriber {
        OscPeer peer;
        Clock::duration interval{};
        Clock::time_point expires;
        Clock::time_point due;
        std::uint64_t version = 0;  // of the newest value that it has had; 0 before the first
    };

    void SendValues_(const OscPeer& peer, std::uint64_t version);

    const Send send_;
    const IsReady isReady_;
    std::list<Subscriber> list_;
    std::list<OscPeer> once_;
    std::map<std::string, Value> values_;  // by address
    std::uint64_t version_ = 0;
    bool isComplete_ = false;
};

}  // namespace stage
