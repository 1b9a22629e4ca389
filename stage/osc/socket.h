#pragma once

#include <sys/socket.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace stage {

/// A socket of the system (POSIX), closed at the end. It never blocks and does not outlive an exec.
class Socket {
public:
    Socket() = default;
    explicit Socket(int descriptor) : descriptor_(descriptor) {}
    Socket(Socket&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    Socket& operator=(Socket&& other) noexcept {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    ~Socket();

    [[nodiscard]] int Get() const { return descriptor_; }
    [[nodiscard]] bool IsOpen() const { return descriptor_ >= 0; }

private:
    int descriptor_ = -1;
};

/// An address and a port of IPv4 or IPv6. A plain value.
struct SocketAddress {
    sockaddr_storage storage{};
    socklen_t length = 0;

    [[nodiscard]] const sockaddr* Get() const { return reinterpret_cast<const sockaddr*>(&storage); }
    [[nodiscard]] sockaddr* Get() { return reinterpret_cast<sockaddr*>(&storage); }
    [[nodiscard]] std::uint16_t GetPort() const;
    void SetPort(std::uint16_t port);
    /// "127.0.0.1", "::1".
    [[nodiscard]] std::string GetHost() const;
    /// "127.0.0.1:8000", "[::1]:8000".
    [[nodiscard]] std::string AsText() const;
    /// It belongs to this machine only.
    [[nodiscard]] bool IsLoopback() const;
};

/// Nothing where the text is no address in numbers. Does not block.
[[nodiscard]] std::optional<SocketAddress> ReadNumericAddress(const std::string& host, std::uint16_t port);
/// Also looks names up, which may block for seconds; nothing where there is none.
[[nodiscard]] std::optional<SocketAddress> LookUpAddress(const std::string& host, std::uint16_t port);

/// Opens a socket of the address's family; `type` is SOCK_DGRAM or SOCK_STREAM. Throws std::system_error.
[[nodiscard]] Socket OpenSocket(const SocketAddress& address, int type);
/// Binds it, and listens where it is a stream's. Throws std::system_error.
void Bind(const Socket& socket, const SocketAddress& address, int type);
/// The socket's own address, with the port that the system chose.
[[nodiscard]] SocketAddress GetOwnAddress(const Socket& socket);
/// Small packets leave at once, and a peer that has vanished is noticed within half a minute.
void PrepareStream(const Socket& socket);

}  // namespace stage
