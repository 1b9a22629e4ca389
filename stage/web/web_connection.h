#pragma once

// A part of the inside of WebServer, for web_server.cpp alone.

#include <fmt/format.h>

#include <chrono>
#include <list>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "stage/web/web_server_impl.h"
#include "stage/web/web_stream.h"

namespace stage {

/// One connection with its requests, one after the other. Used by the server's thread; lives as long as something of it
/// is under way.
class WebServer::Impl::Connection : public std::enable_shared_from_this<Connection> {
public:
    Connection(Impl& server, tcp::socket socket)
        : server_(server), address_(FindAddress_(socket)), stream_(std::move(socket)) {
        place_ = server_.connections_.insert(server_.connections_.end(), this);
        ++server_.connectionCount_;
    }
    ~Connection() {
        server_.connections_.erase(place_);
        --server_.connectionCount_;
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    void Begin() {
        if (!server_.IsEnciphered()) return Read();
        Tcp_().expires_after(Bounds_().header);
        beast::async_detect_ssl(Tcp_(), buffer_, [self = shared_from_this()](error_code error, bool isTls) {
            if (error) return self->Close();
            // Whoever has typed http is told where the page is.
            if (!isTls) return self->Read();
            self->stream_.AsyncShakeHands(*self->server_.tls_, self->buffer_, [self](error_code failed) {
                if (failed) return self->Close();
                self->Read();
            });
        });
    }
    void Read() {
        parser_.emplace();
        parser_->header_limit(static_cast<std::uint32_t>(Bounds_().headerBytes));
        parser_->body_limit(Bounds_().bodyBytes);
        isFresh_ = !hadRequest_;
        Tcp_().expires_after(hadRequest_ ? Bounds_().idle : Bounds_().header);
        http::async_read_header(stream_, buffer_, *parser_,
                                [self = shared_from_this()](error_code error, std::size_t) { self->OnHeader_(error); });
    }
    /// It has been open without sending a request so far.
    [[nodiscard]] bool IsFresh() const { return isFresh_; }
    void Close() {
        isFresh_ = false;
        error_code ignored;
        Tcp_().socket().shutdown(tcp::socket::shutdown_both, ignored);
        Tcp_().close();
    }
    void Answer(WebAnswer answer, std::string cookie = {}) {
        auto response = Make_(answer.status, answer.type);
        if (answer.type == "image/svg+xml") {
            // Its styles are within it, and as a document of its own it needs nothing else.
            response->set("Content-Security-Policy", "default-src 'none'; style-src 'unsafe-inline'");
        }
        if (!cookie.empty()) response->set(http::field::set_cookie, cookie);
        response->body() = std::move(answer.body);
        Send_(std::move(response));
    }
    void Refuse(unsigned int status, const std::string& sentence) {
        Answer({status, "application/json", MakeSentenceBody(sentence)});
    }

private:
    using Response = http::response<http::string_body>;

    static constexpr std::size_t MostDroppedBytes = 1U << 20U;

    static std::string FindAddress_(const tcp::socket& socket) {
        error_code error;
        const tcp::endpoint peer = socket.remote_endpoint(error);
        return error ? std::string() : peer.address().to_string();
    }
    [[nodiscard]] std::string MakePolicy_(std::string_view host) const {
        // A browser of some age takes 'self' for the page's scheme alone, which the socket's is not.
        return fmt::format(
            "default-src 'self'; script-src 'self' 'wasm-unsafe-eval'; worker-src 'self'; connect-src 'self' {}://{}; "
            "img-src 'self' data: blob:; object-src 'none'; base-uri 'none'; form-action 'self'; frame-ancestors "
            "'none'",
            stream_.IsEnciphered() ? "wss" : "ws", host);
    }

    [[nodiscard]] const Limits& Bounds_() const { return server_.options_.limits; }
    [[nodiscard]] beast::tcp_stream& Tcp_() { return stream_.next_layer(); }

    void OnHeader_(error_code error) {
        isFresh_ = false;
        if (error) return OnUnread_(error);
        Tcp_().expires_after(Bounds_().body);
        http::async_read(stream_, buffer_, *parser_, [self = shared_from_this()](error_code failed, std::size_t) {
            if (failed) return self->OnUnread_(failed);
            self->hadRequest_ = true;
            self->OnRequest_();
        });
    }

    void OnUnread_(error_code error) {
        if (error == http::error::end_of_stream || error == net::error::operation_aborted) return Close();
        if (error == beast::error::timeout) return Close();
        const bool isHttp = error.category() == http::make_error_code(http::error::bad_method).category();
        if (!isHttp || error == http::error::partial_message) return Close();
        keepsAlive_ = false;
        if (error == http::error::header_limit)
            return Refuse(431, fmt::format("The header is longer than {} bytes.", Bounds_().headerBytes));
        if (error == http::error::body_limit)
            return Refuse(413, fmt::format("The body is longer than {} bytes.", Bounds_().bodyBytes));
        Refuse(400, fmt::format("This is not HTTP: {}.", error.message()));
    }

    void OnRequest_() {
        const auto& request = parser_->get();
        keepsAlive_ = request.keep_alive() && request.version() == 11;
        isHead_ = request.method() == http::verb::head;
        host_ = std::string(request[http::field::host]);
        if (request.count(http::field::host) != 1) host_.clear();
        const std::string problem = server_.access_.FindProblem(
            host_, std::string_view(request[http::field::origin].data(), request[http::field::origin].size()));
        if (!problem.empty()) {
            host_.clear();
            keepsAlive_ = false;
            return Refuse(403, problem);
        }
        try {
            target_ = ParseTarget({request.target().data(), request.target().size()});
        } catch (const std::invalid_argument& wrong) {
            keepsAlive_ = false;
            return Refuse(400, kit::AsSentence(wrong.what()));
        }
        if (server_.IsEnciphered() && !stream_.IsEnciphered()) return SendToHttps_();
        role_ = FindRole_();
        if (websocket::is_upgrade(request)) return OnUpgrade_();
        if (request.method() == http::verb::post) return OnPost_();
        if (request.method() != http::verb::get && !isHead_) return Refuse(405, "The method is neither GET nor POST.");
        if (target_.path == "/ws") return Refuse(426, "This is the address of the WebSocket.");
        if (target_.parts.empty() || target_.parts.front() != "api") return OnFile_();
        if (target_.parts.size() == 2 && target_.parts[1] == "session") {
            const nlohmann::json session{{"role", GetRoleName(role_)}, {"login", server_.access_.AsksForPasscode()}};
            return Answer({200, "application/json", session.dump()});
        }
        if (role_ == WebRole::None) return Refuse(401, "A passcode is needed first: POST it to /api/login.");
        AnswerLater_(false);
    }

    void SendToHttps_() {
        keepsAlive_ = false;
        const std::string url = fmt::format("https://{}", host_);
        auto response = Make_(parser_->get().method() == http::verb::get ? 308 : 426, "application/json");
        const auto target = parser_->get().target();
        response->set(http::field::location, url + std::string(target.data(), target.size()));
        response->body() = MakeSentenceBody(fmt::format("Everything here is enciphered: ask for {}.", url));
        Send_(std::move(response));
    }

    [[nodiscard]] WebRole FindRole_() const {
        const auto& request = parser_->get();
        const auto cookies = request[http::field::cookie];
        const auto authorization = request[http::field::authorization];
        std::string_view token = FindBearer({authorization.data(), authorization.size()});
        if (token.empty()) token = FindCookie({cookies.data(), cookies.size()}, server_.cookieName_);
        return server_.access_.FindRoleOfToken(token);
    }

    void OnFile_() {
        const PageFile* file = server_.files_.Find(target_.path);
        if (file == nullptr) return Refuse(404, "There is nothing at this address.");
        const auto known = parser_->get()[http::field::if_none_match];
        const bool isKnown = std::string_view(known.data(), known.size()) == file->etag;
        auto response = Make_(isKnown ? 304 : 200, file->type);
        response->set(http::field::etag, file->etag);
        response->set(http::field::cache_control, "no-cache");
        if (!isKnown) response->body() = file->bytes;
        Send_(std::move(response));
    }

    void OnPost_() {
        const auto& request = parser_->get();
        if (target_.parts.size() != 2 || target_.parts.front() != "api")
            return Refuse(404, "There is nothing at this address.");
        // A form of another page cannot send this type.
        const auto type = request[http::field::content_type];
        if (!std::string_view(type.data(), type.size()).starts_with("application/json"))
            return Refuse(415, "The body must be JSON: send Content-Type: application/json.");
        const std::string& word = target_.parts[1];
        if (word == "login") return OnLogin_();
        if (word == "logout") return Answer({200, "application/json", "{}"}, MakeCookie_("", 0));
        if (role_ == WebRole::None) return Refuse(401, "A passcode is needed first: POST it to /api/login.");
        try {
            WebPress press = server_.site_.ReadPress(word, ParseArguments(request.body()));
            press.tag = ++server_.lastTag_;
            press.role = role_;
            press.address = address_;
            press.moment = std::chrono::steady_clock::now().time_since_epoch();
            server_.waiting_[press.tag] = {{}, weak_from_this(), {}};
            isWaiting_ = true;
            // As long as it waits nothing is read from it: its end is seen when it is answered.
            Tcp_().expires_never();
            held_ = shared_from_this();
            server_.site_.OnPress(press);
        } catch (const std::out_of_range& unknown) {
            Refuse(404, kit::AsSentence(unknown.what()));
        } catch (const std::invalid_argument& wrong) {
            Refuse(400, kit::AsSentence(wrong.what()));
        }
    }

    void OnLogin_() {
        std::string passcode;
        try {
            passcode = ParsePasscode(parser_->get().body());
        } catch (const std::invalid_argument& wrong) {
            return Refuse(400, kit::AsSentence(wrong.what()));
        }
        server_.Compute_([self = shared_from_this(), passcode]() mutable {
            WebAccess::Login login = self->server_.access_.LogIn(passcode, self->address_);
            net::io_context& io = self->server_.io_;
            // The connection goes along: its last owner lets it go on the network's thread.
            net::post(io, [self = std::move(self), login = std::move(login)] { self->AnswerLogin_(login); });
        });
    }

    void AnswerLogin_(const WebAccess::Login& login) {
        if (!login.sentence.empty()) {
            auto response = Make_(login.wait.count() > 0 ? 429 : 403, "application/json");
            if (login.wait.count() > 0)
                response->set(http::field::retry_after, std::to_string(login.wait.count() / 1000 + 1));
            response->body() = MakeSentenceBody(login.sentence);
            return Send_(std::move(response));
        }
        const nlohmann::json body{{"role", GetRoleName(login.role)}, {"token", login.token}};
        const auto life = std::chrono::duration_cast<std::chrono::seconds>(WebAccess::TokenLife).count();
        Answer({200, "application/json", body.dump()},
               login.token.empty() ? std::string() : MakeCookie_(login.token, life));
    }

    [[nodiscard]] std::string MakeCookie_(const std::string& value, std::int64_t seconds) const {
        return fmt::format("{}={}; HttpOnly; SameSite=Strict; {}Path=/; Max-Age={}", server_.cookieName_, value,
                           stream_.IsEnciphered() ? "Secure; " : "", seconds);
    }

    void AnswerLater_(bool isPost) {
        WebRequest request{isPost, target_, parser_->get().body(), role_, address_};
        server_.Compute_([self = shared_from_this(), request = std::move(request)]() mutable {
            WebAnswer answer;
            try {
                answer = self->server_.site_.Answer(request);
            } catch (const std::exception& problem) {
                answer = {500, "application/json", MakeSentenceBody(kit::AsSentence(problem.what()))};
            }
            net::io_context& io = self->server_.io_;
            net::post(io, [self = std::move(self), answer = std::move(answer)]() mutable {
                self->Answer(std::move(answer));
            });
        });
    }

    void OnUpgrade_();

    [[nodiscard]] std::shared_ptr<Response> Make_(unsigned int status, const std::string& type) const {
        auto response = std::make_shared<Response>(static_cast<http::status>(status), 11);
        response->set(http::field::server, "stage");
        response->set(http::field::content_type, type);
        response->set(http::field::cache_control, "no-store");
        response->set("Content-Security-Policy", MakePolicy_(host_));
        response->set("X-Content-Type-Options", "nosniff");
        response->set("Referrer-Policy", "no-referrer");
        response->set("Cross-Origin-Resource-Policy", "same-origin");
        response->set("Cross-Origin-Opener-Policy", "same-origin");
        return response;
    }

    void Send_(std::shared_ptr<Response> response) {
        isWaiting_ = false;
        held_.reset();
        response->keep_alive(keepsAlive_ && !server_.isShut_);
        response->content_length(response->body().size());
        if (isHead_) response->body().clear();
        Tcp_().expires_after(Bounds_().sending);
        const auto& sent = *response;
        http::async_write(stream_, sent, [self = shared_from_this(), response](error_code error, std::size_t) {
            if (error) return self->Close();
            if (response->keep_alive()) return self->Read();
            self->SayGoodBye_();
        });
    }

    // A connection that is closed with something unread loses what was sent last.
    void SayGoodBye_() {
        Tcp_().expires_after(std::chrono::seconds(1));
        stream_.AsyncEnd([self = shared_from_this()](error_code) {
            error_code ignored;
            self->Tcp_().socket().shutdown(tcp::socket::shutdown_send, ignored);
            self->Drop_();
        });
    }
    void Drop_() {
        buffer_.clear();
        Tcp_().async_read_some(buffer_.prepare(4096), [self = shared_from_this()](error_code error, std::size_t count) {
            self->dropped_ += count;
            if (error || self->dropped_ > MostDroppedBytes) return self->Close();
            self->Drop_();
        });
    }

    Impl& server_;
    std::list<Connection*>::iterator place_;
    const std::string address_;
    WebStream stream_;
    beast::flat_buffer buffer_;
    std::optional<http::request_parser<http::string_body>> parser_;
    WebTarget target_;
    std::string host_;  // one that is right
    WebRole role_ = WebRole::None;
    std::shared_ptr<Connection> held_;  // while a press of it is being decided
    bool isFresh_ = true;
    bool hadRequest_ = false;
    bool keepsAlive_ = false;
    bool isHead_ = false;
    bool isWaiting_ = false;
    std::size_t dropped_ = 0;
};

}  // namespace stage
