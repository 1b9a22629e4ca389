// The one source that sees the network library.

#include "stage/web/web_server.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <exception>
#include <utility>

#include "kit/real_time.h"
#include "kit/thread_exception_log.h"
#include "kit/thread_names.h"
#include "stage/web/web_client.h"
#include "stage/web/web_connection.h"
#include "stage/web/web_server_impl.h"

namespace stage {

namespace {

constexpr std::size_t MostRefusals = 64;

}  // namespace

void WebServer::Impl::Connection::OnUpgrade_() {
    if (target_.path != "/ws") return Refuse(404, "The WebSocket is at /ws.");
    if (role_ == WebRole::None) return Refuse(401, "A passcode is needed first: POST it to /api/login.");
    Tcp_().expires_never();
    const std::uint64_t number = ++server_.lastClient_;
    auto client = std::make_shared<Client>(server_, std::move(stream_), number, role_, address_);
    server_.clients_[number] = client;
    client->Open(std::make_shared<Client::Request>(parser_->release()));
}

WebServer::Impl::Impl(const Options& options, WebSite& site, WebAccess& access, const PageFiles& files)
    : options_(options), site_(site), access_(access), files_(files), address_(options.address) {
    ReadCertificate_();
    Listen_();
    cookieName_ = fmt::format("stage_{}", address_.port);
    Accept_();
    Beat_();
    worker_ = std::thread([this] { Work_(); });
    thread_ = std::thread([this] {
        kit::threadNames.SetNameOfCurrentThread("page");
        // It may have inherited the host's precedence; clients are not to hold up what shares locks with rendering.
        kit::MakeThisThreadOrdinary();
        while (!kit::RunLogged([this] { io_.run(); })) {
        }
    });
}

WebServer::Impl::~Impl() {
    net::post(io_, [this] { Shut_(); });
    thread_.join();
    {
        const std::lock_guard lock(jobMutex_);
        isEnding_ = true;
        jobs_.clear();
    }
    jobAdded_.notify_all();
    worker_.join();
    clients_.clear();
}

void WebServer::Impl::ReadCertificate_() {
    const WebCertificate& certificate = options_.certificate;
    if (certificate.IsEmpty()) return;
    TlsContext context = MakeTlsContext(certificate);
    warning_ = FindProblemOfDates(context, certificate, std::chrono::system_clock::now());
    tls_.emplace(context.release());
}

void WebServer::Impl::Listen_() {
    try {
        const tcp::endpoint endpoint(net::ip::make_address(options_.address.host), options_.address.port);
        acceptor_.open(endpoint.protocol());
        acceptor_.set_option(net::socket_base::reuse_address(true));
        acceptor_.bind(endpoint);
        acceptor_.listen(net::socket_base::max_listen_connections);
        address_.port = acceptor_.local_endpoint().port();
    } catch (const boost::system::system_error& problem) {
        const std::string where = AsText(options_.address);
        if (problem.code() == net::error::address_in_use)
            throw WebAddressTaken(fmt::format("{} is used by another program: choose another with --web", where));
        throw std::runtime_error(fmt::format("nothing can be served at {}: {}", where, problem.code().message()));
    }
}

void WebServer::Impl::Accept_() {
    acceptor_.async_accept([this](error_code error, tcp::socket socket) {
        if (isShut_) return;
        if (error) {
            // No descriptor is left, say: what is there goes on.
            acceptAgain_.expires_after(std::chrono::milliseconds(100));
            acceptAgain_.async_wait([this](error_code failed) {
                if (!failed) Accept_();
            });
            return;
        }
        // Whatever becomes of this one, the next is taken in.
        kit::RunLogged([&] { TakeIn_(std::move(socket)); });
        Accept_();
    });
}

void WebServer::Impl::TakeIn_(tcp::socket socket) {
    if (connectionCount_ >= options_.limits.connections && !MakeRoom_()) return Refuse_(std::move(socket));
    std::make_shared<Connection>(*this, std::move(socket))->Begin();
}

// Those that were opened and say nothing go first, the oldest before the others.
bool WebServer::Impl::MakeRoom_() {
    const auto oldest = std::ranges::find_if(connections_, [](const Connection* each) { return each->IsFresh(); });
    if (oldest == connections_.end()) return false;
    (*oldest)->Close();
    return true;
}

void WebServer::Impl::Refuse_(tcp::socket socket) {
    ++refusedCount_;
    // To shake hands with it first would cost more than what it is refused for.
    if (IsEnciphered() || refusals_ >= MostRefusals) return;
    ++refusals_;
    static const std::string answer = [] {
        const std::string body = MakeSentenceBody("Too many clients are connected: try again later.");
        return fmt::format(
            "HTTP/1.1 503 Service Unavailable\r\nContent-Type: application/json\r\nContent-Length: {}\r\n"
            "Retry-After: 5\r\nConnection: close\r\n\r\n{}",
            body.size(), body);
    }();
    auto stream = std::make_shared<beast::tcp_stream>(std::move(socket));
    stream->expires_after(std::chrono::seconds(1));
    net::async_write(*stream, net::buffer(answer), [this, stream](error_code, std::size_t) {
        error_code ignored;
        stream->socket().shutdown(tcp::socket::shutdown_send, ignored);
        // What it has asked is read and dropped, or it would not see the answer.
        auto dropped = std::make_shared<std::array<char, 4096>>();
        stream->async_read_some(net::buffer(*dropped),
                                [this, stream, dropped](error_code, std::size_t) { --refusals_; });
    });
}

void WebServer::Impl::Beat_() {
    beat_.expires_after(options_.limits.heartbeat);
    beat_.async_wait([this](error_code error) {
        if (error || isShut_) return;
        kit::RunLogged([this] { SendHeartbeats_(); });
        Beat_();
    });
}

void WebServer::Impl::SendHeartbeats_() {
    const auto text = std::make_shared<std::string>(fmt::format(R"({{"type":"heartbeat","now":{:.3f}}})", Now()));
    const auto now = std::chrono::steady_clock::now();
    const auto clients = clients_;
    for (const auto& [number, client] : clients) {
        client->Look(now);
        if (client->HasJoined()) client->Send(text, Client::Number::None);
    }
}

void WebServer::Impl::Publish(WebEntry entry) {
    const std::lock_guard lock(inboxMutex_);
    inbox_.push_back(std::move(entry));
    if (isDrainPosted_) return;
    net::post(io_, [this] { Drain_(); });
    isDrainPosted_ = true;
}

void WebServer::Impl::Drain_() {
    std::vector<WebEntry> entries;
    {
        const std::lock_guard lock(inboxMutex_);
        entries = std::exchange(inbox_, {});
        isDrainPosted_ = false;
    }
    for (WebEntry& entry : entries)
        if (!kit::RunLogged([&] { Deliver_(entry); })) SendAway_();
}

// Somebody has missed what the others know: whoever comes back is told everything anew.
void WebServer::Impl::SendAway_() {
    for (auto next = clients_.begin(); next != clients_.end();) {
        const std::shared_ptr<Client> client = (next++)->second;
        client->Drop();
    }
}

void WebServer::Impl::Deliver_(WebEntry& entry) {
    const auto text = std::make_shared<const std::string>(std::move(entry.text));
    using Kind = WebEntry::Kind;
    if (entry.kind == Kind::Welcome) {
        const auto found = clients_.find(entry.to);
        if (found == clients_.end()) return;
        const std::shared_ptr<Client> client = found->second;
        return client->Welcome(text, std::make_shared<const std::string>(std::move(entry.state)));
    }
    std::shared_ptr<Client> presser;
    if (entry.to != 0 && (entry.kind == Kind::Record || entry.kind == Kind::Answer)) {
        const auto found = waiting_.find(entry.to);
        if (found != waiting_.end()) {
            const Waiting waiting = found->second;
            waiting_.erase(found);
            presser = waiting.client.lock();
            if (presser != nullptr) {
                const bool isRecord = entry.kind == Kind::Record;
                presser->Send(text, isRecord ? Client::Number::Next : Client::Number::None, waiting.id);
                presser->NoteAnswered();
            }
            if (const std::shared_ptr<Connection> connection = waiting.connection.lock(); connection != nullptr)
                connection->Answer({entry.status, "application/json", *text});
        }
    }
    if (entry.kind == Kind::Answer) return;
    const auto clients = clients_;
    for (const auto& [number, client] : clients)
        if (client->HasJoined() && client != presser)
            client->Send(text, Client::Number::Next, {}, entry.kind == Kind::Playhead);
}

WebServer::Counts WebServer::Impl::GetCounts() const {
    return {connectionCount_, socketCount_, refusedCount_, tooSlowCount_};
}

void WebServer::Impl::Shut_() {
    isShut_ = true;
    error_code ignored;
    acceptor_.close(ignored);
    beat_.cancel();
    acceptAgain_.cancel();
    for (Connection* connection : connections_)
        connection->Close();
    if (clients_.empty()) return io_.stop();
    leaving_.expires_after(options_.limits.leaving);
    leaving_.async_wait([this](error_code) { io_.stop(); });
    const auto clients = clients_;
    for (const auto& [number, client] : clients)
        client->Close(websocket::close_code::going_away, "The show has ended.");
}

// The worker.

void WebServer::Impl::Compute_(std::function<void()> job) {
    {
        const std::lock_guard lock(jobMutex_);
        jobs_.push_back(std::move(job));
    }
    jobAdded_.notify_one();
}

void WebServer::Impl::Work_() {
    kit::threadNames.SetNameOfCurrentThread("page answers");
    kit::MakeThisThreadOrdinary();
    for (;;) {
        std::function<void()> job;
        {
            std::unique_lock lock(jobMutex_);
            jobAdded_.wait(lock, [this] { return isEnding_ || !jobs_.empty(); });
            if (isEnding_) return;
            job = std::move(jobs_.front());
            jobs_.pop_front();
        }
        kit::RunLogged(job);
    }
}

WebServer::WebServer(const Options& options, WebSite& site, WebAccess& access, const PageFiles& files)
    : impl_(std::make_unique<Impl>(options, site, access, files)) {}

WebServer::~WebServer() = default;

const WebAddress& WebServer::GetAddress() const {
    return impl_->GetAddress();
}

std::string WebServer::GetUrl() const {
    return fmt::format("{}://{}", impl_->IsEnciphered() ? "https" : "http", AsText(impl_->GetAddress()));
}

const std::string& WebServer::GetWarning() const {
    return impl_->GetWarning();
}

void WebServer::Publish(WebEntry entry) {
    impl_->Publish(std::move(entry));
}

WebServer::Counts WebServer::GetCounts() const {
    return impl_->GetCounts();
}

double WebServer::Now() {
    return AsMilliseconds(std::chrono::steady_clock::now().time_since_epoch());
}

double WebServer::AsMilliseconds(std::chrono::nanoseconds moment) {
    return static_cast<double>(moment.count()) / 1e6;
}

}  // namespace stage
