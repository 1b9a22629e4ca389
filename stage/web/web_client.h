#pragma once

// A part of the inside of WebServer, for web_server.cpp alone.

#include <fmt/format.h>

#include <array>
#include <chrono>
#include <deque>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "stage/web/web_server_impl.h"
#include "stage/web/web_stream.h"

namespace stage {

/// One client of the socket with what waits for it. Used by the server's thread.
class WebServer::Impl::Client : public std::enable_shared_from_this<Client> {
public:
    using Request = http::request<http::string_body>;

    Client(Impl& server, WebStream stream, std::uint64_t number, WebRole role, std::string address)
        : server_(server),
          number_(number),
          role_(role),
          address_(std::move(address)),
          socket_(std::move(stream)),
          deadline_(server.io_) {
        ++server_.socketCount_;
        ++server_.connectionCount_;
    }
    ~Client() {
        --server_.socketCount_;
        --server_.connectionCount_;
    }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    void Open(std::shared_ptr<Request> request) {
        socket_.set_option(websocket::stream_base::timeout{Bounds_().header, Bounds_().idle, true});
        socket_.set_option(websocket::stream_base::decorator(
            [](websocket::response_type& response) { response.set(http::field::server, "stage"); }));
        socket_.read_message_max(Bounds_().frameBytes);
        socket_.auto_fragment(false);
        const auto& asked = *request;
        socket_.async_accept(asked, [self = shared_from_this(), request](error_code error) {
            if (error) return self->Forget_();
            error_code ignored;
            beast::get_lowest_layer(self->socket_).socket().set_option(tcp::no_delay(true), ignored);
            self->server_.site_.OnJoin(self->number_, self->role_, self->address_);
            self->Read_();
        });
    }

    [[nodiscard]] bool HasJoined() const { return hasJoined_; }
    void Welcome(std::shared_ptr<const std::string> hello, std::shared_ptr<const std::string> state) {
        hasJoined_ = true;
        Send(std::move(hello), Number::Next);
        Send(std::move(state), Number::Next);
    }

    enum class Number { None, Next };

    void Send(std::shared_ptr<const std::string> text, Number number, std::string id = {}, bool isPlayhead = false) {
        if (isClosing_) return;
        if (isPlayhead) DropPlayhead_();
        waitingBytes_ += text->size();
        queue_.push_back({std::move(text), number, std::move(id), isPlayhead, std::chrono::steady_clock::now()});
        if (waitingBytes_ > Bounds_().waitingBytes) return CloseAsTooSlow_();
        Write_();
    }
    /// A press of it was answered.
    void NoteAnswered() {
        --waitingPresses_;
        if (!isReading_ && !isClosing_) Read_();
    }
    void Look(std::chrono::steady_clock::time_point now) {
        if (!isClosing_ && !queue_.empty() && now - queue_.front().since > Bounds_().waiting) CloseAsTooSlow_();
    }
    /// Lets go of it at once, without a word.
    void Drop() {
        if (!isClosing_) Forget_();
    }
    void Close(websocket::close_code code, const std::string& sentence) {
        if (isClosing_) return;
        isClosing_ = true;
        reason_ = {code, sentence.substr(0, LongestReason)};
        queue_.erase(queue_.begin() + (isWriting_ ? 1 : 0), queue_.end());
        // Whoever does not take what is sent does not take the good-bye either.
        deadline_.expires_after(Bounds_().leaving);
        deadline_.async_wait([self = shared_from_this()](error_code error) {
            if (!error) self->Forget_();
        });
        if (!isWriting_) SendClose_();
    }

private:
    static constexpr std::size_t LongestReason = 120;  // RFC 6455 leaves 123 bytes

    struct Item {
        std::shared_ptr<const std::string> text;
        Number number = Number::Next;
        std::string id;
        bool isPlayhead = false;
        std::chrono::steady_clock::time_point since;
    };

    [[nodiscard]] const Limits& Bounds_() const { return server_.options_.limits; }

    void Read_() {
        isReading_ = true;
        socket_.async_read(buffer_, [self = shared_from_this()](error_code error, std::size_t) {
            self->isReading_ = false;
            self->OnRead_(error);
        });
    }

    void OnRead_(error_code error) {
        // Of a message that is too large the library has told the client, with code 1009.
        if (error) return Forget_();
        if (isClosing_) return;
        if (!socket_.got_text()) return Close(websocket::close_code::unknown_data, "Messages are text, not binary.");
        const std::string text = beast::buffers_to_string(buffer_.data());
        buffer_.clear();
        OnMessage_(text);
        if (!isReading_ && !isClosing_ && waitingPresses_ < Bounds_().waitingPresses) Read_();
    }

    void OnMessage_(const std::string& text) {
        ClientMessage message;
        try {
            message = ParseClientMessage(text);
        } catch (const std::invalid_argument& wrong) {
            return Close(websocket::close_code::policy_error, kit::AsSentence(wrong.what()));
        }
        if (message.kind == ClientMessage::Kind::Time) {
            const std::string t = message.t.empty() ? "null" : message.t;
            return Send(std::make_shared<std::string>(
                            fmt::format(R"({{"type":"time","t":{},"now":{:.3f}}})", t, WebServer::Now())),
                        Number::None);
        }
        const std::uint64_t tag = ++server_.lastTag_;
        ++waitingPresses_;
        server_.waiting_[tag] = {weak_from_this(), {}, message.id};
        server_.site_.OnPress({tag, role_, address_, message.kind == ClientMessage::Kind::Edit, message.line,
                               message.song, std::chrono::steady_clock::now().time_since_epoch()});
    }

    void DropPlayhead_() {
        const std::size_t first = isWriting_ ? 1 : 0;
        for (std::size_t i = queue_.size(); i > first; --i) {
            if (!queue_[i - 1].isPlayhead) continue;
            waitingBytes_ -= queue_[i - 1].text->size();
            queue_.erase(queue_.begin() + static_cast<std::ptrdiff_t>(i - 1));
            return;
        }
    }

    void Write_() {
        if (isWriting_ || queue_.empty()) return;
        isWriting_ = true;
        const Item& item = queue_.front();
        prefix_ = "{";
        if (item.number == Number::Next) prefix_ += fmt::format("\"seq\":{},", next_++);
        if (!item.id.empty()) prefix_ += fmt::format("\"id\":{},", item.id);
        socket_.text(true);
        const std::array<net::const_buffer, 2> buffers{net::buffer(prefix_),
                                                       net::buffer(item.text->data() + 1, item.text->size() - 1)};
        socket_.async_write(buffers,
                            [self = shared_from_this()](error_code error, std::size_t) { self->OnWritten_(error); });
    }

    void OnWritten_(error_code error) {
        isWriting_ = false;
        if (error) return Forget_();
        waitingBytes_ -= queue_.front().text->size();
        queue_.pop_front();
        if (isClosing_) return SendClose_();
        Write_();
    }

    void CloseAsTooSlow_() {
        if (!isClosing_) ++server_.tooSlowCount_;
        Close(websocket::close_code::try_again_later, "Too much waits for you: connect again for the state of now.");
    }

    void SendClose_() {
        socket_.async_close({reason_.first, reason_.second},
                            [self = shared_from_this()](error_code) { self->Forget_(); });
    }

    void Forget_() {
        isClosing_ = true;
        deadline_.cancel();
        beast::get_lowest_layer(socket_).close();
        const std::shared_ptr<Client> self = shared_from_this();
        server_.clients_.erase(number_);
        if (server_.isShut_ && server_.clients_.empty()) server_.io_.stop();
    }

    Impl& server_;
    const std::uint64_t number_;
    const WebRole role_;
    const std::string address_;
    websocket::stream<WebStream> socket_;
    net::steady_timer deadline_;
    beast::flat_buffer buffer_;
    std::deque<Item> queue_;  // the first one is being written while isWriting_
    std::string prefix_;
    std::size_t waitingBytes_ = 0;
    std::size_t waitingPresses_ = 0;
    std::uint64_t next_ = 0;
    std::pair<websocket::close_code, std::string> reason_;
    bool hasJoined_ = false;
    bool isReading_ = false;
    bool isWriting_ = false;
    bool isClosing_ = false;
};

}  // namespace stage
