#include "stage/osc/socket.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <system_error>

namespace stage {

namespace {

constexpr int LongestQueueOfCallers = 64;

std::system_error MakeError() {
    return {errno, std::generic_category()};
}

std::optional<SocketAddress> FindAddress(const std::string& host, std::uint16_t port, int flags) {
    addrinfo wanted{};
    wanted.ai_family = AF_UNSPEC;
    wanted.ai_socktype = SOCK_DGRAM;
    wanted.ai_flags = flags;
    addrinfo* found = nullptr;
    if (getaddrinfo(host.c_str(), nullptr, &wanted, &found) != 0) return std::nullopt;
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(found, &freeaddrinfo);
    SocketAddress address;
    std::memcpy(&address.storage, found->ai_addr, found->ai_addrlen);
    address.length = found->ai_addrlen;
    address.SetPort(port);
    return address;
}

void SetOption(const Socket& socket, int level, int option, int value) {
    // What the system does not have is done without.
    static_cast<void>(setsockopt(socket.Get(), level, option, &value, sizeof value));
}

const sockaddr_in& AsV4(const SocketAddress& address) {
    return reinterpret_cast<const sockaddr_in&>(address.storage);
}
const sockaddr_in6& AsV6(const SocketAddress& address) {
    return reinterpret_cast<const sockaddr_in6&>(address.storage);
}

}  // namespace

Socket::~Socket() {
    if (descriptor_ >= 0) ::close(descriptor_);
}

std::uint16_t SocketAddress::GetPort() const {
    return ntohs(storage.ss_family == AF_INET6 ? AsV6(*this).sin6_port : AsV4(*this).sin_port);
}

void SocketAddress::SetPort(std::uint16_t port) {
    if (storage.ss_family == AF_INET6) {
        reinterpret_cast<sockaddr_in6&>(storage).sin6_port = htons(port);
    } else {
        reinterpret_cast<sockaddr_in&>(storage).sin_port = htons(port);
    }
}

std::string SocketAddress::GetHost() const {
    std::array<char, INET6_ADDRSTRLEN> text{};
    const bool isV6 = storage.ss_family == AF_INET6;
    const void* const bytes = isV6 ? static_cast<const void*>(&AsV6(*this).sin6_addr) : &AsV4(*this).sin_addr;
    if (inet_ntop(storage.ss_family, bytes, text.data(), text.size()) == nullptr) return "";
    return text.data();
}

std::string SocketAddress::AsText() const {
    const bool isV6 = storage.ss_family == AF_INET6;
    return isV6 ? fmt::format("[{}]:{}", GetHost(), GetPort()) : fmt::format("{}:{}", GetHost(), GetPort());
}

bool SocketAddress::IsLoopback() const {
    if (storage.ss_family == AF_INET) return ntohl(AsV4(*this).sin_addr.s_addr) >> 24U == 127;
    const in6_addr& bytes = AsV6(*this).sin6_addr;
    if (IN6_IS_ADDR_V4MAPPED(&bytes)) return bytes.s6_addr[12] == 127;
    return IN6_IS_ADDR_LOOPBACK(&bytes);
}

std::optional<SocketAddress> ReadNumericAddress(const std::string& host, std::uint16_t port) {
    return FindAddress(host, port, AI_NUMERICHOST);
}

std::optional<SocketAddress> LookUpAddress(const std::string& host, std::uint16_t port) {
    return FindAddress(host, port, 0);
}

Socket OpenSocket(const SocketAddress& address, int type) {
    Socket socket(::socket(address.storage.ss_family, type | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!socket.IsOpen()) throw MakeError();
    return socket;
}

void Bind(const Socket& socket, const SocketAddress& address, int type) {
    // Connections that ended a moment ago are no reason to refuse the port; another listener still is.
    if (type == SOCK_STREAM) SetOption(socket, SOL_SOCKET, SO_REUSEADDR, 1);
    if (::bind(socket.Get(), address.Get(), address.length) != 0) throw MakeError();
    if (type == SOCK_STREAM && ::listen(socket.Get(), LongestQueueOfCallers) != 0) throw MakeError();
}

SocketAddress GetOwnAddress(const Socket& socket) {
    SocketAddress address;
    address.length = sizeof address.storage;
    if (::getsockname(socket.Get(), address.Get(), &address.length) != 0) throw MakeError();
    return address;
}

void PrepareStream(const Socket& socket) {
    SetOption(socket, IPPROTO_TCP, TCP_NODELAY, 1);
    SetOption(socket, SOL_SOCKET, SO_KEEPALIVE, 1);
    SetOption(socket, IPPROTO_TCP, TCP_KEEPIDLE, 10);
    SetOption(socket, IPPROTO_TCP, TCP_KEEPINTVL, 5);
    SetOption(socket, IPPROTO_TCP, TCP_KEEPCNT, 3);
    SetOption(socket, IPPROTO_TCP, TCP_USER_TIMEOUT, 25000);
}

}  // namespace stage
