#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <string>

#include "stage/osc/socket.h"

namespace stage {

/// Whoever has sent something: the address of a datagram, or a connection. A plain value.
struct OscPeer {
    /// 0 for UDP.
    std::uint64_t connection = 0;
    SocketAddress address;
    /// "udp 127.0.0.1:5000".
    std::string name;
};

/// So many a second in the long run, and so many at once; not more.
class RateLimit {
public:
    using Clock = std::chrono::steady_clock;

    RateLimit(double aSecond, double atOnce) : aSecond_(aSecond), atOnce_(atOnce), left_(atOnce) {}

    /// Whether one more may come now.
    bool Take(Clock::time_point now) {
        left_ = std::min(atOnce_, left_ + std::chrono::duration<double>(now - last_).count() * aSecond_);
        last_ = now;
        if (left_ < 1) return false;
        left_ -= 1;
        return true;
    }

private:
    double aSecond_;
    double atOnce_;
    double left_;
    Clock::time_point last_ = Clock::now();
};

}  // namespace stage
