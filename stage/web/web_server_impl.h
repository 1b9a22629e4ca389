#pragma once

// The inside of WebServer, for web_server.cpp alone: no other source sees the network library.

#include <atomic>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>
#include <condition_variable>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "kit/words.h"
#include "stage/web/web_server.h"

namespace stage {

namespace beast = boost::beast;
namespace http = beast::http;
namespace net = boost::asio;
namespace websocket = beast::websocket;
using tcp = net::ip::tcp;
using beast::error_code;

inline std::string MakeSentenceBody(const std::string& sentence) {
    return nlohmann::json{{"sentence", sentence}}.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

class WebServer::Impl {
public:
    Impl(const Options& options, WebSite& site, WebAccess& access, const PageFiles& files);
    ~Impl();

    [[nodiscard]] const WebAddress& GetAddress() const { return address_; }
    [[nodiscard]] bool IsEnciphered() const { return tls_.has_value(); }
    [[nodiscard]] const std::string& GetWarning() const { return warning_; }
    void Publish(WebEntry entry);
    [[nodiscard]] Counts GetCounts() const;

private:
    class Connection;
    class Client;
    friend class Connection;
    friend class Client;

    /// Whoever waits for the answer to a press.
    struct Waiting {
        std::weak_ptr<Client> client;
        std::weak_ptr<Connection> connection;
        std::string id;
    };

    void ReadCertificate_();
    void Listen_();
    void Accept_();
    void TakeIn_(tcp::socket socket);
    void Refuse_(tcp::socket socket);
    [[nodiscard]] bool MakeRoom_();
    void Beat_();
    void SendHeartbeats_();
    void SendAway_();
    void Drain_();
    void Deliver_(WebEntry& entry);
    void Shut_();
    void Work_();
    void Compute_(std::function<void()> job);

    const Options options_;
    WebSite& site_;
    WebAccess& access_;
    const PageFiles& files_;
    WebAddress address_;
    std::string cookieName_;
    std::string warning_;
    std::optional<net::ssl::context> tls_;  // where everything is enciphered

    std::atomic<std::size_t> connectionCount_{0};
    std::atomic<std::size_t> socketCount_{0};
    std::atomic<std::uint64_t> refusedCount_{0};
    std::atomic<std::uint64_t> tooSlowCount_{0};

    std::mutex inboxMutex_;
    std::vector<WebEntry> inbox_;  // guarded by inboxMutex_
    bool isDrainPosted_ = false;   // guarded by inboxMutex_

    std::mutex jobMutex_;
    std::condition_variable jobAdded_;
    std::deque<std::function<void()>> jobs_;  // guarded by jobMutex_
    bool isEnding_ = false;                   // guarded by jobMutex_

    // Used by the server's thread. They outlive the io_context, whose end ends connections that are still open.
    std::list<Connection*> connections_;  // by age
    std::map<std::uint64_t, std::shared_ptr<Client>> clients_;
    std::unordered_map<std::uint64_t, Waiting> waiting_;
    std::uint64_t lastClient_ = 0;
    std::uint64_t lastTag_ = 0;
    std::size_t refusals_ = 0;
    bool isShut_ = false;

    net::io_context io_{1};
    tcp::acceptor acceptor_{io_};
    net::steady_timer beat_{io_};
    net::steady_timer acceptAgain_{io_};
    net::steady_timer leaving_{io_};

    std::thread worker_;
    std::thread thread_;
};

}  // namespace stage
