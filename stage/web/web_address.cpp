#include "stage/web/web_address.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <array>
#include <charconv>
#include <stdexcept>
#include <string_view>

#include "kit/words.h"

namespace stage {

namespace {

bool IsIpAddress(int family, const std::string& host) {
    std::array<unsigned char, sizeof(in6_addr)> bytes{};
    return inet_pton(family, host.c_str(), bytes.data()) == 1;
}

[[noreturn]] void RefuseAddress(const std::string& text) {
    throw std::invalid_argument(
        fmt::format("{} is not an address with a port: write it like 127.0.0.1:7480 or [::1]:7480", kit::Quote(text)));
}

}  // namespace

WebAddress ParseWebAddress(const std::string& text) {
    const std::size_t colon = text.rfind(':');
    if (colon == std::string::npos) RefuseAddress(text);
    WebAddress address;
    address.host = text.substr(0, colon);
    const std::string_view port = std::string_view(text).substr(colon + 1);
    const auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), address.port);
    if (port.empty() || error != std::errc() || end != port.data() + port.size()) RefuseAddress(text);
    if (address.host == "localhost") address.host = "127.0.0.1";
    const bool hasBrackets = address.host.starts_with('[') && address.host.ends_with(']');
    if (hasBrackets) address.host = address.host.substr(1, address.host.size() - 2);
    if (!IsIpAddress(hasBrackets ? AF_INET6 : AF_INET, address.host)) RefuseAddress(text);
    return address;
}

std::string AsText(const WebAddress& address) {
    const bool isIpv6 = address.host.find(':') != std::string::npos;
    return fmt::format("{}{}{}:{}", isIpv6 ? "[" : "", address.host, isIpv6 ? "]" : "", address.port);
}

bool IsLoopback(const WebAddress& address) {
    return address.host.starts_with("127.") || address.host == "::1";
}

}  // namespace stage
