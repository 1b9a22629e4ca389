// The server without a show, and clients that do what they should not.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <random>

#include "stage/web/embedded_files.h"
#include "stage/web/web_server.h"
#include "tests/support/run_program.h"
#include "tests/web/plain_site.h"
#include "tests/web/web_client.h"

namespace {

using namespace std::chrono_literals;
using stage::WebEntry;
using stage::WebServer;
using test_support::Get;
using test_support::Json;
using test_support::PlainSite;
using test_support::RawConnection;
using test_support::Request;
using test_support::Response;
using test_support::Socket;
using testing::HasSubstr;

class Server : public testing::Test {
protected:
    void Start(const WebServer::Limits& limits = {}) {
        WebServer::Options options;
        options.address.port = 0;
        options.limits = limits;
        server_ = std::make_unique<WebServer>(options, site_, access_, files_);
        site_.Serve(*server_);
    }
    [[nodiscard]] std::uint16_t Port() const { return server_->GetAddress().port; }
    [[nodiscard]] std::string Host() const { return "Host: 127.0.0.1:" + std::to_string(Port()) + "\r\n"; }
    /// What the server says to these bytes until it closes.
    [[nodiscard]] Response Say(const std::string& bytes) const {
        RawConnection connection(Port());
        connection.Send(bytes);
        return test_support::ParseResponse(connection.ReadToEnd());
    }
    /// A client that is well served whatever the others do.
    void ExpectServes() const {
        EXPECT_EQ(200, Get(Port(), "/").status);
        Socket client(Port());
        ASSERT_TRUE(client.IsOpen());
        EXPECT_EQ("hello", client.Next().value("type", ""));
        client.Send({{"type", "press"}, {"line", "go"}, {"id", 1}});
        EXPECT_EQ("go", client.WaitFor("record", {{"id", 1}})["press"]);
    }
    void PublishNotice(const std::string& text) {
        server_->Publish({WebEntry::Kind::Notice, 0, Json({{"type", "message"}, {"sentence", text}}).dump(), "", 200});
    }

    PlainSite site_;
    stage::WebAccess access_{{}, true};
    stage::PageFiles files_;
    std::unique_ptr<WebServer> server_;
};

TEST_F(Server, Files_AreThoseOfTheFolderWithTheirTypesAndTags) {
    Start();
    const std::filesystem::path folder = std::string(SOURCE_DIR) + "/stage/web/page";
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (!entry.is_regular_file()) continue;
        ++count;
        const std::string name = std::filesystem::relative(entry.path(), folder).string();
        const Response response = Get(Port(), "/" + name);
        EXPECT_EQ(200, response.status) << name;
        EXPECT_EQ(test_support::ReadAll(entry.path().string()), response.body) << name;
        EXPECT_NE("application/octet-stream", response.headers.at("content-type")) << name;
        const std::string etag = response.headers.at("etag");
        const Response again = Get(Port(), "/" + name, {{"If-None-Match", etag}});
        EXPECT_EQ(304, again.status);
        EXPECT_EQ("", again.body);
    }
    EXPECT_EQ(count, stage::GetEmbeddedFiles().size());
    EXPECT_EQ(Get(Port(), "/index.html").body, Get(Port(), "/").body);
}

TEST_F(Server, EveryAnswer_HasAStrictPolicyAndNoSniffing) {
    Start();
    for (const char* target : {"/", "/api/show", "/nowhere"}) {
        const Response response = Get(Port(), target);
        EXPECT_THAT(response.headers.at("content-security-policy"), HasSubstr("default-src 'self'"));
        EXPECT_THAT(response.headers.at("content-security-policy"), testing::Not(HasSubstr("'unsafe-inline'")));
        EXPECT_EQ("nosniff", response.headers.at("x-content-type-options"));
    }
}

TEST_F(Server, PathsThatLeadElsewhere_AreRefused) {
    Start();
    for (const char* target :
         {"/../etc/passwd", "/%2e%2e/%2e%2e/etc/passwd", "/..%2fetc/passwd", "/%2fetc/passwd", "//etc/passwd",
          "/./index.html", "/index.html/", "/api/song/..%5c..", "/index.html%00.js", "/%ff", "/%", "/%zz"}) {
        const Response response = Get(Port(), target);
        EXPECT_EQ(400, response.status) << target;
        EXPECT_NE("", response.Sentence()) << target;
    }
    for (const char* target : {"/stage/web/page/index.html", "/embedded_files.cpp", "/INDEX.HTML", "/etc/passwd"})
        EXPECT_EQ(404, Get(Port(), target).status) << target;
    ExpectServes();
}

TEST_F(Server, HostThatIsNotThisComputer_IsRefused) {
    Start();
    for (const char* host : {"evil.example", "localhost.evil.example:80", "127.0.0.1.evil.example", ""}) {
        const Response response = Say("GET / HTTP/1.1\r\nHost: " + std::string(host) + "\r\n\r\n");
        EXPECT_EQ(403, response.status) << host;
        EXPECT_NE("", response.Sentence());
    }
    EXPECT_EQ(403, Say("GET / HTTP/1.1\r\n" + Host() + Host() + "\r\n").status);
    EXPECT_EQ(200, Get(Port(), "/", {{"Host", "localhost:" + std::to_string(Port())}}).status);
}

TEST_F(Server, PageOfAnotherOrigin_CanNeitherOpenASocketNorPress) {
    Start();
    const std::string own = "http://127.0.0.1:" + std::to_string(Port());
    for (const char* origin : {"http://evil.example", "null", "http://127.0.0.1:1", "https://127.0.0.1"}) {
        EXPECT_EQ(403, Socket(Port(), {{"Origin", origin}}).GetResponse().status) << origin;
        EXPECT_EQ(403, Request(Port(), "POST", "/api/go", "{}", {{"Origin", origin}}).status) << origin;
    }
    EXPECT_TRUE(Socket(Port(), {{"Origin", own}}).IsOpen());
    EXPECT_EQ(200, Request(Port(), "POST", "/api/go", "{}", {{"Origin", own}}).status);
    // What a form can send without asking.
    for (const char* type : {"text/plain", "application/x-www-form-urlencoded", "multipart/form-data"})
        EXPECT_EQ(415, Request(Port(), "POST", "/api/go", "{}", {{"Content-Type", type}}).status) << type;
}

TEST_F(Server, WhatIsNotHttp_IsAnsweredWithASentenceAndClosed) {
    Start();
    for (const char* bytes :
         {"\x16\x03\x01\x02\r\n\r\n", "HELO me\r\n\r\n", "GET / HTTP/9.9\r\n\r\n", "GET /\r\n\r\n",
          "GET / HTTP/1.1\r\nbroken header\r\n\r\n", "POST /api/go HTTP/1.1\r\nContent-Length: x\r\n\r\n"}) {
        const Response response = Say(bytes);
        EXPECT_EQ(400, response.status) << bytes;
        EXPECT_THAT(response.Sentence(), HasSubstr("not HTTP")) << bytes;
    }
    const Response method = Say("DELETE / HTTP/1.1\r\n" + Host() + "Connection: close\r\n\r\n");
    EXPECT_EQ(405, method.status);
    ExpectServes();
}

TEST_F(Server, WhatIsTooLarge_IsAnsweredWithASentenceAndClosed) {
    Start();
    const Response header = Say("GET / HTTP/1.1\r\n" + Host() + "X: " + std::string(20000, 'x') + "\r\n\r\n");
    EXPECT_EQ(431, header.status);
    EXPECT_EQ("The header is longer than 16384 bytes.", header.Sentence());
    const Response body = Request(Port(), "POST", "/api/go", std::string(100000, ' '));
    EXPECT_EQ(413, body.status);
    EXPECT_EQ("The body is longer than 65536 bytes.", body.Sentence());
    const Response endless = Say("POST /api/go HTTP/1.1\r\n" + Host() + "Transfer-Encoding: chunked\r\n\r\n20000\r\n" +
                                 std::string(131072, 'x') + "\r\n0\r\n\r\n");
    EXPECT_EQ(413, endless.status);
    ExpectServes();
}

TEST_F(Server, FramesThatBreakTheRules_CloseTheirConnectionOnly) {
    Start();
    const auto closeOf = [this](const std::string& frame) {
        Socket client(Port());
        client.Next();
        client.Next();
        client.GetConnection().Send(frame);
        client.WaitForClose();
        return std::pair(client.GetCloseCode(), client.GetCloseReason());
    };
    EXPECT_EQ(1009, closeOf(Socket::MakeFrame(std::string(70000, 'x'))).first);
    EXPECT_EQ(std::pair(1003, std::string("Messages are text, not binary.")), closeOf(Socket::MakeFrame("{}", 0x82)));
    EXPECT_EQ(1002, closeOf(Socket::MakeFrame("{}", 0x81, false)).first);  // not masked
    EXPECT_EQ(1002, closeOf(Socket::MakeFrame("{}", 0x83)).first);         // a kind that there is not
    EXPECT_EQ(1002, closeOf(Socket::MakeFrame("{}", 0xF1)).first);         // reserved bits
    EXPECT_EQ(1002, closeOf(Socket::MakeFrame("{}", 0x80)).first);         // goes on with nothing
    EXPECT_EQ(1007, closeOf(Socket::MakeFrame("\xff\xfe")).first);         // not UTF-8
    EXPECT_EQ(std::pair(1008, std::string("The message is not JSON.")), closeOf(Socket::MakeFrame("{")));
    EXPECT_EQ(std::pair(1008, std::string("The type \"dance\" is not press, edit or time.")),
              closeOf(Socket::MakeFrame(R"({"type":"dance"})")));
    EXPECT_EQ(1008, closeOf(Socket::MakeFrame(std::string(60000, '['))).first);
    ExpectServes();
}

TEST_F(Server, ClientThatSaysNothingOrSpeaksSlowly_IsClosedInTime_OthersAreServed) {
    WebServer::Limits limits;
    limits.header = 200ms;
    limits.body = 200ms;
    limits.idle = 200ms;
    Start(limits);
    RawConnection silent(Port());
    RawConnection slow(Port());
    slow.Send("GET / HTTP/1.1\r\nHo");
    RawConnection body(Port());
    body.Send("POST /api/go HTTP/1.1\r\n" + Host() + "Content-Type: application/json\r\nContent-Length: 10\r\n\r\n{");
    RawConnection idle(Port());
    idle.Send("GET / HTTP/1.1\r\n" + Host() + "\r\n");
    ExpectServes();
    // A byte now and then does not help.
    const auto end = std::chrono::steady_clock::now() + test_support::ClientPatience;
    bool isClosed = false;
    while (!isClosed && std::chrono::steady_clock::now() < end) {
        slow.Send("s");
        isClosed = !slow.ReadMore(20ms) && slow.IsClosedByPeer();
    }
    EXPECT_TRUE(isClosed);
    for (RawConnection* connection : {&silent, &body, &idle})
        EXPECT_TRUE(connection->IsClosedByPeer());
    ExpectServes();
}

TEST_F(Server, AThousandConnections_ThoseThatSayNothingGiveWay_ClientsGoOn) {
    Start();
    Socket client(Port());
    client.Next();
    std::vector<RawConnection> connections;
    for (int i = 0; i < 1000; ++i) {
        connections.emplace_back(Port());
        if (i % 100 == 0) ExpectServes();
    }
    ExpectServes();
    EXPECT_LE(server_->GetCounts().connections, 256U + 1);
    client.Send({{"type", "press"}, {"line", "go"}, {"id", 1}});
    EXPECT_FALSE(client.WaitFor("record", {{"id", 1}}).is_null());
}

TEST_F(Server, MoreClientsThanItTakes_AreRefusedWithASentence) {
    WebServer::Limits limits;
    limits.connections = 4;
    Start(limits);
    std::vector<Socket> clients;
    for (int i = 0; i < 4; ++i) {
        clients.emplace_back(Port());
        ASSERT_TRUE(clients.back().IsOpen());
    }
    const Response response = Get(Port(), "/");
    EXPECT_EQ(503, response.status);
    EXPECT_EQ("Too many clients are connected: try again later.", response.Sentence());
    EXPECT_EQ(1U, server_->GetCounts().refused);
}

TEST_F(Server, ClientThatDoesNotRead_IsClosed_TheOthersMissNothing) {
    WebServer::Limits limits;
    limits.waitingBytes = 64U << 10U;
    Start(limits);
    Socket sleeper(Port(), {}, 4096);
    Socket reader(Port());
    ASSERT_TRUE(sleeper.IsOpen());
    reader.WaitFor("state");
    // More than the system's buffers hold between the two.
    const std::string text(20000, 'x');
    int sent = 0;
    for (; sent < 2000 && server_->GetCounts().tooSlow == 0; ++sent) {
        PublishNotice(text);
        ASSERT_EQ(sent + 2, reader.WaitFor("message")["seq"]);
    }
    EXPECT_EQ(1U, server_->GetCounts().tooSlow);
    sleeper.WaitForClose();
    EXPECT_TRUE(sleeper.GetCloseCode() == 1013 || sleeper.GetCloseCode() == 0);
    ExpectServes();
}

TEST_F(Server, PlayheadsOfASlowClient_AreMerged_EverythingElseIsSentInOrderWithoutAGap) {
    Start();
    Socket client(Port(), {}, 4096);
    client.WaitFor("state");
    const std::string padding(30000, 'x');
    constexpr int Rounds = 200;
    for (int i = 0; i < Rounds; ++i) {
        server_->Publish({WebEntry::Kind::Playhead, 0,
                          Json({{"type", "playhead"}, {"tick", i}, {"padding", padding}}).dump(), "", 200});
        server_->Publish({WebEntry::Kind::Notice, 0, Json({{"type", "status"}, {"count", i}}).dump(), "", 200});
    }
    int seq = 1;
    int statuses = 0;
    int playheads = 0;
    int lastTick = -1;
    while (statuses < Rounds || lastTick < Rounds - 1) {
        const Json message = client.Next();
        ASSERT_FALSE(message.is_null());
        if (!message.contains("seq")) continue;
        ASSERT_EQ(++seq, message["seq"]);
        if (message["type"] == "status") {
            ASSERT_EQ(statuses++, message["count"]);
        } else {
            ASSERT_LT(lastTick, message["tick"]);
            lastTick = message["tick"];
            ++playheads;
        }
    }
    EXPECT_LT(playheads, Rounds);
}

TEST_F(Server, ClientThatPressesWithoutEnd_WaitsForItsAnswers) {
    Start();
    Socket client(Port());
    client.WaitFor("state");
    constexpr int Presses = 500;
    for (int i = 0; i < Presses; ++i)
        client.Send({{"type", "press"}, {"line", "go"}, {"id", i}});
    for (int i = 0; i < Presses; ++i)
        ASSERT_EQ(i, client.WaitFor("record")["id"]);
}

TEST_F(Server, RandomBytes_AreSurvived) {
    Start();
    std::mt19937 random(20261122);
    for (int round = 0; round < 200; ++round) {
        std::string bytes(random() % 300, 0);
        for (char& c : bytes)
            c = static_cast<char>(random());
        if (round % 2 == 0) {
            RawConnection connection(Port());
            connection.Send(round % 4 == 0 ? "GET / HTTP/1.1\r\n" + bytes : bytes);
        } else {
            Socket client(Port());
            client.GetConnection().Send(bytes);
        }
    }
    ExpectServes();
}

TEST_F(Server, AddressInUse_IsSaid) {
    Start();
    WebServer::Options options;
    options.address.port = Port();
    EXPECT_THROW(WebServer(options, site_, access_, files_), stage::WebAddressTaken);
    options.address.host = "192.0.2.1";
    try {
        const WebServer server(options, site_, access_, files_);
        FAIL();
    } catch (const std::runtime_error& problem) {
        EXPECT_THAT(problem.what(), HasSubstr("nothing can be served at 192.0.2.1"));
    }
}

}  // namespace
