#pragma once

#include <cstdint>
#include <string>

namespace stage {

/// Where the page is served.
struct WebAddress {
    static constexpr std::uint16_t DefaultPort = 7480;

    std::string host = "127.0.0.1";  ///< an IP address in figures, without brackets
    std::uint16_t port = DefaultPort;

    bool operator==(const WebAddress&) const = default;
};

/// Reads "127.0.0.1:7480", "[::1]:7480", "localhost:7480"; port 0 lets the system choose. Throws std::invalid_argument
/// with one sentence.
[[nodiscard]] WebAddress ParseWebAddress(const std::string& text);
/// "127.0.0.1:7480", "[::1]:7480": as a browser writes it.
[[nodiscard]] std::string AsText(const WebAddress& address);
/// Only programs of this computer can reach it.
[[nodiscard]] bool IsLoopback(const WebAddress& address);

}  // namespace stage
