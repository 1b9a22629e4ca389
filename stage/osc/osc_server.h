#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "stage/live/wake_up.h"
#include "stage/osc/osc_message.h"
#include "stage/osc/osc_peer.h"
#include "stage/osc/socket.h"
#include "stage/osc/stream_framing.h"
#include "stage/osc/subscribers.h"
#include "stage/show/settings.h"

namespace stage {

/// Takes OSC messages over UDP and TCP, on a thread of its own, and sends replies and display values. It knows what a
/// message is and who may send how many; what a press means is its owner's concern. Nobody waits for a peer: what a
/// datagram's receiver does not take is lost, and a connection that does not read is closed.
///
/// At most PressesASecond presses a second are taken from a peer; the others are refused. Every refusal is answered;
/// where they come fast, one answer counts many.
class OscServer {
public:
    static constexpr double PressesASecond = 100;
    static constexpr double PressesAtOnce = 100;
    /// Of all peers together.
    static constexpr double AllPressesASecond = 400;
    static constexpr double AllPressesAtOnce = 400;
    static constexpr std::size_t MostConnections = 128;
    static constexpr std::size_t MostWaitingPresses = 256;

    /// A message that is to be read as a press.
    struct Request {
        OscPeer peer;
        OscMessage message;
        std::chrono::steady_clock::time_point arrival;
    };

    /// Opens both sockets and begins to listen. `onRequest`, if there is one, is called on the server's thread when a
    /// press waits. Throws std::runtime_error with one sentence without a full stop where
    /// the port cannot be had.
    explicit OscServer(const Settings::OscIn& in, std::function<void()> onRequest = {});
    /// Ends the thread and all connections.
    ~OscServer();
    OscServer(const OscServer&) = delete;
    OscServer& operator=(const OscServer&) = delete;

    /// "127.0.0.1:7770".
    [[nodiscard]] const std::string& GetAddress() const { return addressText_; }
    [[nodiscard]] std::uint16_t GetPort() const { return address_.GetPort(); }

    // Thread-safe, down to TakeReports.

    /// The next press, in the order of arrival.
    [[nodiscard]] std::optional<Request> TakeRequest();
    /// Sends the peer a message. With an error's it is counted as a refusal.
    void Answer(const OscPeer& peer, OscMessage message);
    void AnswerError(const OscPeer& peer, const std::string& address, const std::string& sentence);
    /// Values that have changed: of each address a subscriber gets the newest, as often as it wants.
    void Publish(std::vector<OscMessage> values);
    /// Goes to every subscriber, in this order; new ones get the newest of each address that is kept.
    void Announce(OscMessage event, bool isKept);
    /// Whether anybody wants values; `wantsAll` when somebody came who has none, which is then forgotten.
    [[nodiscard]] bool IsWatched(bool& wantsAll);
    [[nodiscard]] std::size_t CountSubscribers() const;
    /// Messages that were refused so far.
    [[nodiscard]] std::uint64_t CountRefused() const;
    /// Sentences for the operator, a second apart at least.
    [[nodiscard]] std::vector<std::string> TakeReports();

private:
    using Clock = std::chrono::steady_clock;

    /// What is known of somebody who sends.
    struct Sender {
        OscPeer peer;
        RateLimit presses{PressesASecond, PressesAtOnce};
        RateLimit errors;
        Clock::time_point lastHeard;
        bool isAdmitted = false;
        // Refusals that were not answered yet, and the last of them.
        std::uint64_t unanswered = 0;
        std::string address{};
        std::string sentence{};
    };
    struct Connection {
        OscPeer peer;
        Socket socket;
        StreamReader reader{};
        std::deque<std::vector<char>> waiting{};
        std::size_t waitingBytes = 0;
        std::size_t sent = 0;  // of the first that waits
        bool isBroken = false;
    };
    struct Order {
        enum class Kind : std::uint8_t { Answer, Error, Publish, Announce };
        Kind kind = Kind::Answer;
        OscPeer peer;
        std::vector<OscMessage> messages;
        bool isKept = false;
    };

    // osc_server.cpp: sockets.
    void Open_();
    void Run_();
    void Work_();
    void Wait_();
    void ReadDatagrams_();
    void AcceptConnections_();
    void Read_(Connection& connection);
    void Write_(Connection& connection);
    void EndBroken_();
    void Send_(const OscPeer& peer, const std::vector<char>& packet);
    void Order_(Order order);
    void DoOrders_();

    // osc_server_requests.cpp: what messages ask for.
    void TakePacket_(const OscPeer& peer, std::span<const char> packet);
    void TakeMessage_(Sender& sender, OscMessage message);
    [[nodiscard]] bool Admit_(Sender& sender, const OscMessage& message);
    void Subscribe_(Sender& sender, const OscMessage& message);
    void Unsubscribe_(Sender& sender, const OscMessage& message);
    void SendStatus_(Sender& sender);
    void Reply_(const Sender& sender, const std::string& address, const std::string& sentence);
    void Refuse_(Sender& sender, const std::string& address, const std::string& sentence);
    void SendErrors_(bool all);
    void SendError_(Sender& sender, const std::string& address, const std::string& sentence, std::uint64_t count);
    [[nodiscard]] Sender& FindSender_(const OscPeer& peer);
    void ForgetOldestSender_();
    void ReportRefusals_();
    void UpdateState_();

    // Constant after construction.
    SocketAddress address_;
    const std::string passcode_;
    std::string addressText_;
    Socket datagrams_;
    Socket listener_;
    const std::function<void()> onRequest_;
    WakeUp wakeUp_;

    // Used by the thread.
    std::map<std::string, Sender> senders_;  // by name
    std::list<Connection> connections_;
    std::uint64_t lastConnection_ = 0;
    RateLimit allPresses_{AllPressesASecond, AllPressesAtOnce};
    Subscribers subscribers_;
    Clock::time_point now_;
    Clock::time_point nextErrors_;
    Clock::time_point nextReport_;
    std::uint64_t unreported_ = 0;
    std::string firstUnreported_;
    std::vector<char> buffer_;
    Clock::time_point resting_;  // nobody is accepted until then

    mutable std::mutex mutex_;
    // Guarded by mutex_.
    std::deque<Order> orders_;
    std::deque<Request> requests_;
    std::vector<std::string> reports_;
    std::size_t subscriberCount_ = 0;
    std::uint64_t refused_ = 0;
    bool wantsAll_ = false;
    bool isWatched_ = false;
    bool isEnding_ = false;

    std::thread thread_;
};

}  // namespace stage
