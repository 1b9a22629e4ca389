#include "stage/osc/osc_target.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <thread>
#include <utility>

#include "kit/thread_names.h"
#include "stage/live/real_time.h"
#include "stage/osc/stream_framing.h"

namespace stage {

namespace {

using namespace std::chrono_literals;

constexpr auto RetryInterval = 2s;
constexpr auto LongestConnecting = 5s;
constexpr auto LongestDelay = 1s;
constexpr std::size_t MostWaiting = 256;

std::string NameOfError(int error) {
    return std::generic_category().message(error);
}

}  // namespace

OscTarget::OscTarget(Settings::OscTarget settings, std::shared_ptr<WakeUp> wakeUp)
    : settings_(std::move(settings)), wakeUp_(std::move(wakeUp)) {}

pollfd OscTarget::GetPolled() const {
    const bool isConnecting = IsStream() && !isConnected_;
    const bool wantsToWrite = isConnecting || !waiting_.empty();
    return {socket_.Get(), static_cast<short>(wantsToWrite ? POLLIN | POLLOUT : POLLIN), 0};
}

void OscTarget::Send(std::vector<char> packet, std::uint64_t cues, Clock::time_point now) {
    if (IsStream()) packet = Frame(StreamFraming::Length, packet);
    // Since the last one nothing was heard of trouble.
    if (!IsStream() && std::exchange(isInDoubt_, false)) problem_.clear();
    DropLate_(now);
    if (waiting_.size() >= MostWaiting) {
        lost_ += cues;
        return;
    }
    waiting_.push_back({std::move(packet), cues, now});
    if (!socket_.IsOpen() && now >= retry_) Find_(now);
    Write_(now);
}

OscTarget::Clock::time_point OscTarget::Work(short events, Clock::time_point now) {
    if (lookUp_ != nullptr) TakeLookUp_(now);
    if (!socket_.IsOpen() && lookUp_ == nullptr && now >= retry_) Find_(now);
    if (socket_.IsOpen() && events != 0) {
        int error = 0;
        socklen_t length = sizeof error;
        static_cast<void>(::getsockopt(socket_.Get(), SOL_SOCKET, SO_ERROR, &error, &length));
        if (error != 0) {
            NoteError_(NameOfError(error), now);
        } else if (IsStream() && !isConnected_ && (events & POLLOUT) != 0) {
            isConnected_ = true;
            problem_.clear();
        }
        if (socket_.IsOpen() && (events & (POLLIN | POLLHUP)) != 0) ReadAway_(now);
    }
    if (IsStream() && socket_.IsOpen() && !isConnected_ && now >= retry_) NoteError_("it does not answer", now);
    DropLate_(now);
    Write_(now);
    Clock::time_point next = Clock::time_point::max();
    if (!isConnected_ && lookUp_ == nullptr) next = std::max(retry_, now + 1ms);
    if (!waiting_.empty()) next = std::min(next, waiting_.front().since + LongestDelay);
    return next;
}

void OscTarget::Find_(Clock::time_point now) {
    if (lookUp_ != nullptr) return;
    address_ = ReadNumericAddress(settings_.host, settings_.port);
    if (address_) return Open_(now);
    // It may take as long as it likes: this thread belongs to nobody.
    lookUp_ = std::make_shared<LookUp>();
    std::thread([lookUp = lookUp_, wakeUp = wakeUp_, host = settings_.host, port = settings_.port] {
        kit::threadNames.SetNameOfCurrentThread("OSC name");
        BecomeOrdinary();
        const std::optional<SocketAddress> found = LookUpAddress(host, port);
        {
            const std::lock_guard lock(lookUp->mutex);
            lookUp->isDone = true;
            lookUp->address = found;
        }
        wakeUp->Ring();
    }).detach();
}

void OscTarget::TakeLookUp_(Clock::time_point now) {
    {
        const std::lock_guard lock(lookUp_->mutex);
        if (!lookUp_->isDone) return;
        address_ = lookUp_->address;
    }
    lookUp_.reset();
    if (address_) return Open_(now);
    NoteError_("no machine of that name is known", now);
}

void OscTarget::Open_(Clock::time_point now) {
    try {
        socket_ = OpenSocket(*address_, IsStream() ? SOCK_STREAM : SOCK_DGRAM);
    } catch (const std::system_error& problem) {
        return NoteError_(problem.code().message(), now);
    }
    if (IsStream()) PrepareStream(socket_);
    // A datagram's socket as well: so the system reports where nobody takes anything.
    const int result = ::connect(socket_.Get(), address_->Get(), address_->length);
    isConnected_ = result == 0;
    if (result != 0 && errno != EINPROGRESS) return NoteError_(NameOfError(errno), now);
    retry_ = now + LongestConnecting;
}

void OscTarget::Write_(Clock::time_point now) {
    while (isConnected_ && !waiting_.empty()) {
        const std::vector<char>& packet = waiting_.front().packet;
        ssize_t size = ::send(socket_.Get(), packet.data() + written_, packet.size() - written_, MSG_NOSIGNAL);
        if (size < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) return;
        if (size < 0 && !IsStream()) {
            // The error of the last one; this one has not been tried.
            NoteError_(NameOfError(errno), now);
            size = ::send(socket_.Get(), packet.data(), packet.size(), MSG_NOSIGNAL);
        }
        if (size < 0 && IsStream()) return NoteError_(NameOfError(errno), now);
        written_ += size < 0 ? packet.size() : static_cast<std::size_t>(size);
        if (written_ < packet.size()) return;
        (size < 0 ? lost_ : sent_) += waiting_.front().cues;
        isInDoubt_ = size >= 0;
        written_ = 0;
        waiting_.pop_front();
    }
}

// A receiver has nothing to say, but its end shows here.
void OscTarget::ReadAway_(Clock::time_point now) {
    std::array<char, 4096> bytes{};
    const ssize_t size = ::recv(socket_.Get(), bytes.data(), bytes.size(), 0);
    if (size == 0 && IsStream()) NoteError_("it has closed the connection", now);
}

void OscTarget::DropLate_(Clock::time_point now) {
    while (!waiting_.empty() && written_ == 0 && now - waiting_.front().since >= LongestDelay) {
        lost_ += waiting_.front().cues;
        waiting_.pop_front();
    }
}

void OscTarget::NoteError_(const std::string& problem, Clock::time_point now) {
    problem_ = problem;
    isInDoubt_ = false;
    if (!IsStream() && isConnected_) return;
    // What was cut off in its middle cannot be taken up.
    if (written_ > 0) {
        lost_ += waiting_.front().cues;
        waiting_.pop_front();
        written_ = 0;
    }
    socket_ = Socket();
    isConnected_ = false;
    retry_ = now + RetryInterval;
}

}  // namespace stage
