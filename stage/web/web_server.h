#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

#include "stage/web/page_files.h"
#include "stage/web/web_access.h"
#include "stage/web/web_address.h"
#include "stage/web/web_certificate.h"
#include "stage/web/web_messages.h"

namespace stage {

/// A request to the API that is not a press.
struct WebRequest {
    bool isPost = false;
    WebTarget target;
    std::string body;
    WebRole role = WebRole::None;
    std::string address;  ///< of the client, without its port
};

struct WebAnswer {
    unsigned int status = 200;
    std::string type = "application/json";
    std::string body;
};

/// What a client wants done. `tag` is what its answer is published under; never 0.
struct WebPress {
    std::uint64_t tag = 0;
    WebRole role = WebRole::None;
    std::string address;
    bool isEdit = false;
    std::string line;
    std::string song;                    ///< of an edit; empty for the one that is loaded
    std::chrono::nanoseconds moment{0};  ///< on the steady clock
};

/// One thing that the clients are told. `text` is a JSON object, which the server numbers.
struct WebEntry {
    enum class Kind : std::uint8_t {
        Welcome,   ///< for the client `to` alone: `text` and then `state`; it gets all entries from then on
        Playhead,  ///< for everybody; a client that has not been sent the one before gets only this
        Notice,    ///< for everybody
        Record,    ///< for everybody, and the answer to the press of tag `to`, if that is not 0
        Answer,    ///< only for whoever pressed `to`
    };

    Kind kind = Kind::Notice;
    std::uint64_t to = 0;
    std::string text;
    std::string state;
    unsigned int status = 200;  ///< where the press came as a request
};

/// What is served. `Answer` is called on a thread that may compute and wait; everything else on the server's own, and
/// returns at once.
class WebSite {
public:
    /// A socket is open: a Welcome to it is to be published.
    virtual void OnJoin(std::uint64_t client, WebRole role, const std::string& address) = 0;
    /// Its record or answer is to be published. Never called again before that for more than Limits::waitingPresses of
    /// one client.
    virtual void OnPress(const WebPress& press) = 0;
    /// Makes a press of a request to POST /api/WORD with the arguments. Throws std::out_of_range where there is no such
    /// word.
    [[nodiscard]] virtual WebPress ReadPress(const std::string& word, const std::vector<std::string>& arguments) = 0;
    [[nodiscard]] virtual WebAnswer Answer(const WebRequest& request) = 0;

protected:
    ~WebSite() = default;
};

/// The address is used by another program.
class WebAddressTaken : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Serves the page's files, the API and the socket (docs/web.md) on a thread of its own; a second one makes the answers
/// that take long. No client can delay another, nor whoever publishes: what a client does not take waits for it, and
/// one that lets too much wait is closed with a sentence. Clients may be hostile: everything of theirs is bounded in
/// size, number and time.
class WebServer {
public:
    struct Limits {
        std::size_t connections = 256;
        std::size_t headerBytes = 16U << 10U;
        std::size_t bodyBytes = 64U << 10U;
        std::size_t frameBytes = 64U << 10U;
        std::size_t waitingBytes = 1U << 20U;  ///< that a socket's client has not taken
        std::size_t waitingPresses = 32;
        std::chrono::milliseconds header{10000};   ///< from the connection to the end of a request's header
        std::chrono::milliseconds body{10000};     ///< for the rest of the request
        std::chrono::milliseconds idle{30000};     ///< between requests; a socket's client is asked for a sign in it
        std::chrono::milliseconds sending{60000};  ///< for an answer to be taken
        std::chrono::milliseconds waiting{10000};  ///< for a message to be taken
        std::chrono::milliseconds heartbeat{1000};
        std::chrono::milliseconds leaving{1000};  ///< at the end, for clients to say good-bye
    };
    struct Options {
        WebAddress address;
        WebCertificate certificate;  ///< with one, everything is enciphered (https, wss)
        Limits limits;
    };

    /// Listens. The references outlive the object. Throws WebAddressTaken, and std::runtime_error with one sentence for
    /// any other address that cannot be used, and for a certificate that cannot.
    WebServer(const Options& options, WebSite& site, WebAccess& access, const PageFiles& files);
    /// Says good-bye to the clients.
    ~WebServer();
    WebServer(const WebServer&) = delete;
    WebServer& operator=(const WebServer&) = delete;

    /// With the port that the system has chosen.
    [[nodiscard]] const WebAddress& GetAddress() const;
    /// What a browser is given: "https://192.168.1.20:7480".
    [[nodiscard]] std::string GetUrl() const;
    /// What browsers hold against the certificate, as a sentence without its point; mostly empty.
    [[nodiscard]] const std::string& GetWarning() const;
    /// Any thread, in the order of the calls; waits for no client.
    void Publish(WebEntry entry);

    struct Counts {
        std::size_t connections = 0;
        std::size_t sockets = 0;
        std::uint64_t refused = 0;  ///< connections beyond the limit
        std::uint64_t tooSlow = 0;  ///< sockets closed because too much waited for them
    };
    /// Any thread.
    [[nodiscard]] Counts GetCounts() const;

    /// The clock of the messages: milliseconds of the steady clock.
    [[nodiscard]] static double Now();
    [[nodiscard]] static double AsMilliseconds(std::chrono::nanoseconds moment);

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace stage
