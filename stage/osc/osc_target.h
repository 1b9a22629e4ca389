#pragma once

#include <poll.h>

#include <chrono>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "stage/live/wake_up.h"
#include "stage/osc/socket.h"
#include "stage/show/settings.h"

namespace stage {

/// The way to one receiver of cues, over UDP or TCP. It never blocks: its owner polls. A stream is opened at once and
/// again after it was lost; packets in it are framed by their length. Used by one thread.
class OscTarget {
public:
    using Clock = std::chrono::steady_clock;

    /// `wakeUp` is called when a name has been looked up.
    OscTarget(Settings::OscTarget settings, std::shared_ptr<WakeUp> wakeUp);

    [[nodiscard]] const Settings::OscTarget& GetSettings() const { return settings_; }
    /// Why nothing gets there, a phrase; empty where nothing is known to be wrong.
    [[nodiscard]] const std::string& GetProblem() const { return problem_; }
    [[nodiscard]] std::uint64_t CountSent() const { return sent_; }
    [[nodiscard]] std::uint64_t CountLost() const { return lost_; }

    /// Sends `packet`, which holds so many cues, at once or as soon as there is a connection, but not a second late:
    /// what comes too late is worse than what never comes.
    void Send(std::vector<char> packet, std::uint64_t cues, Clock::time_point now);

    /// What is to be polled; a descriptor of -1 for nothing.
    [[nodiscard]] pollfd GetPolled() const;
    /// Does what is due after polling. Returns when it wants to be asked again at the latest.
    Clock::time_point Work(short events, Clock::time_point now);

private:
    struct LookUp {
        std::mutex mutex;
        bool isDone = false;                   // guarded by mutex
        std::optional<SocketAddress> address;  // guarded by mutex
    };
    struct Waiting {
        std::vector<char> packet;
        std::uint64_t cues = 1;
        Clock::time_point since;
    };

    [[nodiscard]] bool IsStream() const { return settings_.transport == Settings::Transport::Tcp; }
    void Find_(Clock::time_point now);
    void TakeLookUp_(Clock::time_point now);
    void Open_(Clock::time_point now);
    void Write_(Clock::time_point now);
    void ReadAway_(Clock::time_point now);
    void DropLate_(Clock::time_point now);
    void NoteError_(const std::string& problem, Clock::time_point now);

    const Settings::OscTarget settings_;
    const std::shared_ptr<WakeUp> wakeUp_;
    std::optional<SocketAddress> address_;
    std::shared_ptr<LookUp> lookUp_;  // under way, shared with its thread
    Socket socket_;
    bool isConnected_ = false;
    Clock::time_point retry_;  // nothing is opened before
    std::deque<Waiting> waiting_;
    std::size_t written_ = 0;  // bytes of the first that waits
    std::string problem_;
    bool isInDoubt_ = false;  // something was sent since the last error
    std::uint64_t sent_ = 0;
    std::uint64_t lost_ = 0;
};

}  // namespace stage
