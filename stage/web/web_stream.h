#pragma once

// A part of the inside of WebServer, for web_server.cpp alone.

#include <boost/asio/error.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/beast/core/detect_ssl.hpp>
#include <boost/beast/ssl.hpp>
#include <boost/beast/websocket.hpp>
#include <memory>
#include <utility>

#include "stage/web/web_server_impl.h"

namespace stage {

/// A connection whose bytes are as they are, or enciphered (TLS). What reads and writes HTTP and the socket need not
/// know which. Both outlive a move: they do not lie in the object itself.
class WebStream {
public:
    using next_layer_type = beast::tcp_stream;
    using executor_type = beast::tcp_stream::executor_type;

    explicit WebStream(tcp::socket socket) : plain_(std::make_unique<beast::tcp_stream>(std::move(socket))) {}

    [[nodiscard]] bool IsEnciphered() const { return enciphered_ != nullptr; }

    /// Enciphers from now on; `buffer` holds what has been read already. `handler(error)`.
    template <class Handler>
    void AsyncShakeHands(net::ssl::context& context, beast::flat_buffer& buffer, Handler handler) {
        enciphered_ = std::make_unique<Enciphered>(*plain_, context);
        enciphered_->async_handshake(
            net::ssl::stream_base::server, buffer.data(),
            [&buffer, handler = std::move(handler)](error_code error, std::size_t count) mutable {
                buffer.consume(count);
                handler(error);
            });
    }
    /// Nothing more is sent: the other side is told so, and may still be read until it says the same. `handler(error)`.
    template <class Handler>
    void AsyncEnd(Handler handler) {
        if (IsEnciphered()) return enciphered_->async_shutdown(std::move(handler));
        net::post(get_executor(), [handler = std::move(handler)]() mutable { handler(error_code()); });
    }

    // What the library asks of a stream (boost/beast/core/stream_traits.hpp).
    executor_type get_executor() noexcept { return plain_->get_executor(); }
    beast::tcp_stream& next_layer() noexcept { return *plain_; }
    [[nodiscard]] const beast::tcp_stream& next_layer() const noexcept { return *plain_; }

    template <class Buffers, class Handler>
    auto async_read_some(const Buffers& buffers, Handler&& handler) {
        if (IsEnciphered()) return enciphered_->async_read_some(buffers, std::forward<Handler>(handler));
        return plain_->async_read_some(buffers, std::forward<Handler>(handler));
    }
    template <class Buffers, class Handler>
    auto async_write_some(const Buffers& buffers, Handler&& handler) {
        if (IsEnciphered()) return enciphered_->async_write_some(buffers, std::forward<Handler>(handler));
        return plain_->async_write_some(buffers, std::forward<Handler>(handler));
    }

private:
    // It joins what is written together, so that a message is one record.
    using Enciphered = beast::ssl_stream<beast::tcp_stream&>;

    std::unique_ptr<beast::tcp_stream> plain_;
    std::unique_ptr<Enciphered> enciphered_;

    template <class Handler>
    friend void async_teardown(beast::role_type role, WebStream& stream, Handler&& handler) {
        if (stream.IsEnciphered()) return stream.enciphered_->async_shutdown(std::forward<Handler>(handler));
        using websocket::async_teardown;
        async_teardown(role, stream.plain_->socket(), std::forward<Handler>(handler));
    }
};

}  // namespace stage
