#pragma once

#include <gtest/gtest.h>
#include <poll.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "stage/osc/osc_message.h"
#include "stage/osc/socket.h"
#include "tests/midi_ports/jack_server.h"

namespace test_support {

/// osc_client.py as a process of its own.
class OscClient {
public:
    /// `kind` is "udp", "tcp" or "slip".
    OscClient(const std::string& kind, std::uint16_t port)
        : child_({"python3", std::string(SOURCE_DIR) + "/tests/osc/osc_client.py", kind, "127.0.0.1",
                  std::to_string(port)}) {
        child_.CollectLines();
        EXPECT_EQ("ready", Next().at(0));
    }

    void Send(nlohmann::json message) { Do({{"send", std::move(message)}}); }
    /// Obeys an order of its own; see the program.
    void Do(const nlohmann::json& order) { child_.Write(order.dump()); }

    /// What arrives next; `["nothing"]` after half a minute.
    nlohmann::json Next() {
        const std::optional<std::string> line = child_.NextLine(std::chrono::seconds(30));
        return line ? nlohmann::json::parse(*line) : nlohmann::json{"nothing"};
    }
    /// The next message to `address` that begins with these arguments; what comes before it is passed over.
    nlohmann::json WaitFor(const std::string& address, const nlohmann::json& arguments = nlohmann::json::array()) {
        std::string seen;
        for (;;) {
            nlohmann::json message = Next();
            seen += message.dump() + "\n";
            if (message.at(0) == "nothing") break;
            bool isIt = message.at(0) == address && message.size() > arguments.size();
            for (std::size_t i = 0; isIt && i < arguments.size(); ++i)
                isIt = message[i + 1] == arguments[i];
            if (isIt) return message;
        }
        ADD_FAILURE() << address << " " << arguments << " did not come; what came:\n" << seen;
        return nlohmann::json::array();
    }

private:
    Child child_;
};

/// A socket for datagrams that knows nothing of OSC but its format.
class OscSocket {
public:
    OscSocket() {
        const auto here = *stage::ReadNumericAddress("127.0.0.1", 0);
        socket_ = stage::OpenSocket(here, SOCK_DGRAM);
        const int size = 4 << 20;
        static_cast<void>(::setsockopt(socket_.Get(), SOL_SOCKET, SO_RCVBUF, &size, sizeof size));
        stage::Bind(socket_, here, SOCK_DGRAM);
    }

    /// Sends from another of the machine's addresses from now on.
    void Rebind(const std::string& host) {
        const auto address = *stage::ReadNumericAddress(host, 0);
        socket_ = stage::OpenSocket(address, SOCK_DGRAM);
        stage::Bind(socket_, address, SOCK_DGRAM);
    }

    [[nodiscard]] std::uint16_t GetPort() const { return stage::GetOwnAddress(socket_).GetPort(); }
    void Send(std::uint16_t port, const stage::OscMessage& message, const std::string& host = "127.0.0.1") const {
        const std::vector<char> packet = stage::WriteOscPacket(message);
        const auto to = *stage::ReadNumericAddress(host, port);
        EXPECT_EQ(static_cast<ssize_t>(packet.size()),
                  ::sendto(socket_.Get(), packet.data(), packet.size(), 0, to.Get(), to.length));
    }
    /// The next packet's bytes; nothing after `patience`.
    [[nodiscard]] std::optional<std::vector<char>> ReceivePacket(
        std::chrono::milliseconds patience = std::chrono::seconds(20)) const {
        pollfd polled{socket_.Get(), POLLIN, 0};
        if (::poll(&polled, 1, static_cast<int>(patience.count())) <= 0) return std::nullopt;
        std::vector<char> bytes(65536);
        const ssize_t size = ::recv(socket_.Get(), bytes.data(), bytes.size(), 0);
        if (size < 0) return std::nullopt;
        bytes.resize(static_cast<std::size_t>(size));
        return bytes;
    }
    /// The next message; one without an address after `patience`.
    [[nodiscard]] stage::OscMessage Receive(std::chrono::milliseconds patience = std::chrono::seconds(20)) const {
        const auto packet = ReceivePacket(patience);
        return packet ? stage::ReadOscPacket(*packet).front() : stage::OscMessage{};
    }
    /// The next message to that address; what comes before it is passed over.
    [[nodiscard]] stage::OscMessage WaitFor(const std::string& address) const {
        for (;;) {
            stage::OscMessage message = Receive();
            if (message.address.empty() || message.address == address) return message;
        }
    }

private:
    stage::Socket socket_;
};

/// "/a 1 2.5 text".
inline std::string AsLine(const stage::OscMessage& message) {
    std::string line = message.address;
    for (const stage::OscValue& value : message.arguments) {
        line += ' ';
        if (const auto* const whole = std::get_if<std::int64_t>(&value)) line += std::to_string(*whole);
        if (const auto* const number = std::get_if<double>(&value)) line += nlohmann::json(*number).dump();
        if (const auto* const text = std::get_if<std::string>(&value)) line += *text;
    }
    return line;
}

}  // namespace test_support
