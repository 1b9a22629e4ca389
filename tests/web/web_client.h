#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

/// A client of the page's server that says exactly what it is told to, right or wrong.
namespace test_support {

using Json = nlohmann::json;

/// Longer than any machine is busy: whoever waits for it waits in vain.
inline constexpr std::chrono::seconds ClientPatience{20};

class RawConnection {
public:
    explicit RawConnection(std::uint16_t port, int receiveBuffer = 0) {
        socket_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (receiveBuffer > 0) ::setsockopt(socket_, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
        const int one = 1;
        ::setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        isOpen_ = ::connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    }
    virtual ~RawConnection() {
        if (socket_ >= 0) ::close(socket_);
    }
    RawConnection(RawConnection&& other) noexcept
        : socket_(std::exchange(other.socket_, -1)), isOpen_(other.isOpen_), read_(std::move(other.read_)) {}
    RawConnection& operator=(RawConnection&&) = delete;

    [[nodiscard]] bool IsOpen() const { return isOpen_; }
    [[nodiscard]] int GetSocket() const { return socket_; }
    /// False where the other side has closed.
    bool Send(const std::string& bytes) {
        std::size_t sent = 0;
        while (sent < bytes.size()) {
            const ssize_t count = SendSome(bytes.data() + sent, bytes.size() - sent);
            if (count <= 0) return false;
            sent += static_cast<std::size_t>(count);
        }
        return true;
    }
    /// Adds what comes to what was read; false at the end of the connection or of the patience.
    bool ReadMore(std::chrono::milliseconds patience = ClientPatience) {
        pollfd input{socket_, POLLIN, 0};
        if (!HasReceived() && ::poll(&input, 1, static_cast<int>(patience.count())) <= 0) return false;
        char bytes[16384];
        const ssize_t count = ReceiveSome(bytes, sizeof bytes);
        if (count <= 0) return false;
        read_.append(bytes, static_cast<std::size_t>(count));
        return true;
    }
    std::string ReadToEnd() {
        while (ReadMore()) {
        }
        return std::exchange(read_, {});
    }
    /// Empty where the connection ends before.
    std::string ReadUntil(const std::string& mark) {
        while (read_.find(mark) == std::string::npos)
            if (!ReadMore()) return "";
        return Take(read_.find(mark) + mark.size());
    }
    bool ReadAtLeast(std::size_t count) {
        while (read_.size() < count)
            if (!ReadMore()) return false;
        return true;
    }
    std::string Take(std::size_t count) {
        std::string taken = read_.substr(0, count);
        read_.erase(0, count);
        return taken;
    }
    [[nodiscard]] const std::string& GetRead() const { return read_; }
    /// The other side closes, sooner or later.
    bool IsClosedByPeer() {
        while (ReadMore()) {
        }
        pollfd input{socket_, POLLIN, 0};
        return ::poll(&input, 1, 0) > 0;
    }

protected:
    virtual ssize_t SendSome(const char* bytes, std::size_t count) {
        return ::send(socket_, bytes, count, MSG_NOSIGNAL);
    }
    virtual ssize_t ReceiveSome(char* bytes, std::size_t most) { return ::recv(socket_, bytes, most, 0); }
    /// Bytes can be received that the system does not hold any more.
    [[nodiscard]] virtual bool HasReceived() const { return false; }

private:
    int socket_ = -1;
    bool isOpen_ = false;
    std::string read_;
};

struct Response {
    int status = 0;
    std::map<std::string, std::string> headers;  ///< names in small letters
    std::string body;

    [[nodiscard]] Json AsJson() const { return Json::parse(body, nullptr, false); }
    [[nodiscard]] std::string Sentence() const { return AsJson().value("sentence", ""); }
};

inline Response ParseResponse(const std::string& text) {
    Response response;
    if (text.size() < 12 || !text.starts_with("HTTP/1.1 ")) return response;
    response.status = std::stoi(text.substr(9, 3));
    const std::size_t end = text.find("\r\n\r\n");
    for (std::size_t at = text.find("\r\n") + 2; at < end + 2;) {
        const std::size_t stop = text.find("\r\n", at);
        const std::string line = text.substr(at, stop - at);
        std::string name = line.substr(0, line.find(':'));
        for (char& c : name)
            c = static_cast<char>(std::tolower(c));
        if (line.find(": ") != std::string::npos) response.headers[name] = line.substr(line.find(": ") + 2);
        at = stop + 2;
    }
    if (end != std::string::npos) response.body = text.substr(end + 4);
    return response;
}

using Headers = std::map<std::string, std::string>;

template <class Connection = RawConnection>
Response Request(std::uint16_t port, const std::string& method, const std::string& target, const std::string& body = "",
                 Headers headers = {}) {
    headers.emplace("Host", "127.0.0.1:" + std::to_string(port));
    headers.emplace("Connection", "close");
    if (method == "POST") {
        headers.emplace("Content-Type", "application/json");
        headers.emplace("Content-Length", std::to_string(body.size()));
    }
    std::string text = method + " " + target + " HTTP/1.1\r\n";
    for (const auto& [name, value] : headers)
        if (!value.empty()) text += name + ": " + value + "\r\n";
    Connection connection(port);
    connection.Send(text + "\r\n" + body);
    return ParseResponse(connection.ReadToEnd());
}

inline Response Get(std::uint16_t port, const std::string& target, const Headers& headers = {}) {
    return Request(port, "GET", target, "", headers);
}
inline Response Post(std::uint16_t port, const std::string& target, const Json& body = Json::object(),
                     const Headers& headers = {}) {
    return Request(port, "POST", target, body.dump(), headers);
}

/// A client of the WebSocket (RFC 6455).
template <class Connection>
class BasicSocket {
public:
    explicit BasicSocket(std::uint16_t port, Headers headers = {}, int receiveBuffer = 0)
        : connection_(port, receiveBuffer) {
        headers.emplace("Host", "127.0.0.1:" + std::to_string(port));
        std::string text = "GET /ws HTTP/1.1\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n";
        text += "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Version: 13\r\n";
        for (const auto& [name, value] : headers)
            text += name + ": " + value + "\r\n";
        connection_.Send(text + "\r\n");
        const std::string head = connection_.ReadUntil("\r\n\r\n");
        response_ = ParseResponse(head);
    }

    [[nodiscard]] const Response& GetResponse() const { return response_; }
    [[nodiscard]] bool IsOpen() const { return response_.status == 101; }
    [[nodiscard]] Connection& GetConnection() { return connection_; }
    /// 0 before the server has closed.
    [[nodiscard]] int GetCloseCode() const { return closeCode_; }
    [[nodiscard]] const std::string& GetCloseReason() const { return closeReason_; }

    static std::string MakeFrame(const std::string& text, unsigned char first = 0x81, bool isMasked = true) {
        const auto mask = static_cast<unsigned char>(isMasked ? 0x80 : 0);
        std::string frame(1, static_cast<char>(first));
        if (text.size() < 126) {
            frame += static_cast<char>(mask | text.size());
        } else if (text.size() < 65536) {
            frame += static_cast<char>(mask | 126U);
            frame += static_cast<char>(text.size() >> 8U);
            frame += static_cast<char>(text.size() & 0xFFU);
        } else {
            frame += static_cast<char>(mask | 127U);
            for (int shift = 56; shift >= 0; shift -= 8)
                frame += static_cast<char>(text.size() >> static_cast<unsigned>(shift) & 0xFFU);
        }
        if (!isMasked) return frame + text;
        const std::string key = "\x11\x22\x33\x44";
        frame += key;
        for (std::size_t i = 0; i < text.size(); ++i)
            frame += static_cast<char>(text[i] ^ key[i % 4]);
        return frame;
    }
    bool Send(const Json& message) { return connection_.Send(MakeFrame(message.dump())); }

    /// NextText would not have to wait for more bytes.
    [[nodiscard]] bool HasWholeFrame() const {
        const std::string& read = connection_.GetRead();
        if (read.size() < 4)
            return read.size() >= 2 && read.size() >= 2U + (static_cast<unsigned char>(read[1]) & 0x7FU);
        const std::size_t size = static_cast<unsigned char>(read[1]) & 0x7FU;
        if (size < 126) return read.size() >= 2 + size;
        if (size == 127) return false;
        return read.size() >= 4 + (static_cast<std::size_t>(static_cast<unsigned char>(read[2])) << 8U |
                                   static_cast<unsigned char>(read[3]));
    }

    /// The next message as it came; nothing once the server has closed, or after the patience.
    std::optional<std::string> NextText() {
        for (;;) {
            if (!connection_.ReadAtLeast(2)) return std::nullopt;
            std::size_t head = 2;
            std::size_t size = static_cast<unsigned char>(connection_.GetRead()[1]) & 0x7FU;
            const std::size_t more = size == 126 ? 2 : size == 127 ? 8 : 0;
            if (!connection_.ReadAtLeast(head + more)) return std::nullopt;
            if (more > 0) size = 0;
            for (std::size_t i = 0; i < more; ++i)
                size = size << 8U | static_cast<unsigned char>(connection_.GetRead()[head + i]);
            head += more;
            if (!connection_.ReadAtLeast(head + size)) return std::nullopt;
            const auto kind = static_cast<unsigned char>(connection_.GetRead()[0]) & 0x0FU;
            const std::string text = connection_.Take(head + size).substr(head);
            if (kind == 1) return text;
            if (kind == 9) connection_.Send(MakeFrame(text, 0x8A));
            if (kind != 8) continue;
            closeCode_ = text.size() < 2
                             ? 1005
                             : static_cast<unsigned char>(text[0]) << 8U | static_cast<unsigned char>(text[1]);
            closeReason_ = text.size() < 2 ? "" : text.substr(2);
            connection_.Send(MakeFrame(text.substr(0, 2), 0x88));
            return std::nullopt;
        }
    }
    /// Null at the end.
    Json Next() {
        const std::optional<std::string> text = NextText();
        return text ? Json::parse(*text, nullptr, false) : Json();
    }
    /// The next one of the type that has these members, objects at least these of theirs; what comes before is passed
    /// over, null where none comes in a minute.
    Json WaitFor(const std::string& type, const Json& members = Json::object()) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
        passedOver_.clear();
        for (Json message = Next(); !message.is_null(); message = Next()) {
            if (IsIt_(message, type, members)) return message;
            passedOver_.push_back(std::move(message));
            if (std::chrono::steady_clock::now() > end) break;
        }
        return {};
    }
    /// The same of what comes in no order with what was waited for last: it may have been passed over.
    Json WaitForBeside(const std::string& type, const Json& members = Json::object()) {
        for (const Json& message : passedOver_)
            if (IsIt_(message, type, members)) return message;
        return WaitFor(type, members);
    }
    /// Reads on until the server has closed.
    int WaitForClose() {
        while (NextText()) {
        }
        return closeCode_;
    }

private:
    static bool IsIt_(const Json& message, const std::string& type, const Json& members) {
        return message.value("type", "") == type && Has_(message, members);
    }
    static bool Has_(const Json& message, const Json& members) {
        for (const auto& [name, value] : members.items()) {
            if (!message.contains(name)) return false;
            if (value.is_object() ? !Has_(message[name], value) : message[name] != value) return false;
        }
        return true;
    }

    Connection connection_;
    Response response_;
    std::vector<Json> passedOver_;  // while the last one was waited for
    int closeCode_ = 0;
    std::string closeReason_;
};

using Socket = BasicSocket<RawConnection>;

}  // namespace test_support
