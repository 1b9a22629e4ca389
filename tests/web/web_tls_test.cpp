// The server with a certificate: what is enciphered, who is sent there, and which certificates are refused.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/ssl.h>

#include <array>
#include <ctime>
#include <filesystem>
#include <memory>

#include "stage/web/web_certificate.h"
#include "stage/web/web_server.h"
#include "tests/support/run_program.h"
#include "tests/support/temporary_directory.h"
#include "tests/web/plain_site.h"
#include "tests/web/web_client.h"

namespace {

using namespace std::chrono_literals;
using stage::WebCertificate;
using stage::WebServer;
using test_support::Json;
using test_support::RawConnection;
using test_support::Response;
using testing::HasSubstr;
using testing::Not;

void RunOpenssl(std::vector<std::string> words) {
    words.insert(words.begin(), "/usr/bin/openssl");
    const test_support::ProgramResult result = test_support::RunProgram(words);
    if (result.exitCode != 0) throw std::runtime_error(result.err);
}

/// Made once, by the tool that a theatre would use.
class Certificates {
public:
    static const Certificates& Get() {
        static const Certificates all;
        return all;
    }
    [[nodiscard]] WebCertificate Own() const { return {Path("own.pem"), Path("own.key")}; }
    [[nodiscard]] std::string Path(const std::string& name) const { return directory_ / name; }

private:
    Certificates() {
        MakeAuthority_("own");
        MakeAuthority_("other");
        RunOpenssl({"pkey", "-in", Path("own.key"), "-aes128", "-passout", "pass:secret", "-out", Path("locked.key")});
        // One that the authority "other" has signed, with it behind.
        RunOpenssl({"req", "-new", "-key", Path("own.key"), "-subj", "/CN=pit", "-out", Path("pit.request")});
        RunOpenssl({"x509", "-req", "-in", Path("pit.request"), "-CA", Path("other.pem"), "-CAkey", Path("other.key"),
                    "-set_serial", "7", "-days", "30", "-out", Path("pit.pem")});
        test_support::WriteAll(Path("chain.pem"),
                               test_support::ReadAll(Path("pit.pem")) + test_support::ReadAll(Path("other.pem")));
    }
    void MakeAuthority_(const std::string& name) const {
        RunOpenssl({"req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-days",
                    "30", "-subj", "/CN=" + name, "-keyout", Path(name + ".key"), "-out", Path(name + ".pem")});
    }
    test_support::TemporaryDirectory directory_;
};

/// A client that believes only who is certified by `own` or `other`.
class SecureConnection : public RawConnection {
public:
    explicit SecureConnection(std::uint16_t port, int receiveBuffer = 0, int highestVersion = 0)
        : RawConnection(port, receiveBuffer), context_(SSL_CTX_new(TLS_client_method()), &SSL_CTX_free) {
        SSL_CTX_set_verify(context_.get(), SSL_VERIFY_PEER, nullptr);
        for (const char* name : {"own.pem", "other.pem"})
            SSL_CTX_load_verify_file(context_.get(), Certificates::Get().Path(name).c_str());
        SSL_CTX_set_security_level(context_.get(), highestVersion == 0 ? 1 : 0);
        ssl_.reset(SSL_new(context_.get()));
        if (highestVersion != 0) SSL_set_max_proto_version(ssl_.get(), highestVersion);
        SSL_set_fd(ssl_.get(), GetSocket());
        isTrusted_ = SSL_connect(ssl_.get()) == 1;
        ERR_clear_error();
    }
    SecureConnection(SecureConnection&&) = delete;

    [[nodiscard]] bool IsTrusted() const { return isTrusted_; }
    /// The other side has said that nothing more comes; otherwise something may have been cut off.
    [[nodiscard]] bool IsEndedProperly() const { return (SSL_get_shutdown(ssl_.get()) & SSL_RECEIVED_SHUTDOWN) != 0; }
    [[nodiscard]] int CountCertificates() const { return sk_X509_num(SSL_get_peer_cert_chain(ssl_.get())); }

protected:
    ssize_t SendSome(const char* bytes, std::size_t count) override {
        return SSL_write(ssl_.get(), bytes, static_cast<int>(count));
    }
    ssize_t ReceiveSome(char* bytes, std::size_t most) override {
        return SSL_read(ssl_.get(), bytes, static_cast<int>(most));
    }
    [[nodiscard]] bool HasReceived() const override { return SSL_has_pending(ssl_.get()) == 1; }

private:
    std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context_;
    std::unique_ptr<SSL, decltype(&SSL_free)> ssl_{nullptr, &SSL_free};
    bool isTrusted_ = false;
};

using SecureSocket = test_support::BasicSocket<SecureConnection>;

class SecureServer : public testing::Test {
protected:
    void Start(const WebCertificate& certificate = Certificates::Get().Own(), const WebServer::Limits& limits = {}) {
        WebServer::Options options;
        options.address.port = 0;
        options.certificate = certificate;
        options.limits = limits;
        server_ = std::make_unique<WebServer>(options, site_, access_, files_);
        site_.Serve(*server_);
    }
    [[nodiscard]] std::uint16_t Port() const { return server_->GetAddress().port; }
    [[nodiscard]] std::string Url() const { return "https://127.0.0.1:" + std::to_string(Port()); }
    [[nodiscard]] Response Ask(const std::string& method, const std::string& target, const std::string& body = "",
                               const test_support::Headers& headers = {}) const {
        return test_support::Request<SecureConnection>(Port(), method, target, body, headers);
    }
    void ExpectServes() const {
        EXPECT_EQ(200, Ask("GET", "/").status);
        SecureSocket client(Port());
        ASSERT_TRUE(client.IsOpen());
        client.Send({{"type", "press"}, {"line", "go"}, {"id", 1}});
        EXPECT_EQ("go", client.WaitFor("record", {{"id", 1}})["press"]);
    }

    test_support::PlainSite site_;
    stage::PageFiles files_;
    stage::WebAccess access_{{}, true, stage::WebAccess::Scheme::Https};
    std::unique_ptr<WebServer> server_;
};

TEST_F(SecureServer, ServesThePageAndTheSocketEnciphered) {
    Start();
    EXPECT_EQ(Url(), server_->GetUrl());
    EXPECT_EQ("", server_->GetWarning());
    const Response page = Ask("GET", "/");
    EXPECT_EQ(200, page.status);
    EXPECT_THAT(page.headers.at("content-security-policy"), HasSubstr(" wss://127.0.0.1:"));
    EXPECT_THAT(page.headers.at("content-security-policy"), Not(HasSubstr(" ws:")));
    ExpectServes();
}

TEST_F(SecureServer, LongMessagesBothWays_ArriveWhole) {
    Start();
    SecureSocket client(Port());
    const std::string line(60000, 'x');
    client.Send({{"type", "press"}, {"line", line}, {"id", 1}});
    EXPECT_EQ(line, client.WaitFor("record", {{"id", 1}})["press"].get<std::string>());
}

TEST_F(SecureServer, EndOfAnAnswer_IsSaidSoThatNothingSeemsCutOff) {
    Start();
    SecureConnection connection(Port());
    ASSERT_TRUE(connection.IsTrusted());
    connection.Send("GET / HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n");
    EXPECT_THAT(connection.ReadToEnd(), HasSubstr("</html>"));
    EXPECT_TRUE(connection.IsEndedProperly());
}

TEST_F(SecureServer, EndOfTheServer_ClosesSocketsWithASentence) {
    Start();
    SecureSocket client(Port());
    EXPECT_EQ("hello", client.Next().value("type", ""));
    server_.reset();
    EXPECT_EQ(1001, client.WaitForClose());
    EXPECT_EQ("The show has ended.", client.GetCloseReason());
}

TEST_F(SecureServer, WhoeverTypesHttp_IsSentToHttps) {
    Start();
    const Response answer = test_support::Get(Port(), "/?a=b");
    EXPECT_EQ(308, answer.status);
    EXPECT_EQ(Url() + "/?a=b", answer.headers.at("location"));
    EXPECT_EQ("Everything here is enciphered: ask for " + Url() + ".", answer.Sentence());
    EXPECT_EQ(0U, answer.headers.count("set-cookie"));
    // Nobody learns by it that a passcode was right.
    EXPECT_EQ(426, test_support::Post(Port(), "/api/login", {{"passcode", "whatever"}}).status);
    EXPECT_EQ(426, test_support::Post(Port(), "/api/go").status);
    EXPECT_EQ(308, test_support::Socket(Port()).GetResponse().status);
}

TEST_F(SecureServer, OnlyItsOwnPageMaySpeak) {
    Start();
    EXPECT_EQ(200, Ask("POST", "/api/go", "{}", {{"Origin", Url()}}).status);
    EXPECT_EQ(403, Ask("POST", "/api/go", "{}", {{"Origin", "http://127.0.0.1:" + std::to_string(Port())}}).status);
    EXPECT_EQ(403, Ask("POST", "/api/go", "{}", {{"Origin", "https://example.org"}}).status);
}

TEST_F(SecureServer, Passcode_MakesATokenThatIsSentEncipheredOnly) {
    stage::WebPasscodes passcodes;
    stage::SetPasscode(passcodes, stage::WebRole::Operate, "evening");
    stage::WebAccess access(passcodes, true, stage::WebAccess::Scheme::Https);
    WebServer::Options options;
    options.address.port = 0;
    options.certificate = Certificates::Get().Own();
    server_ = std::make_unique<WebServer>(options, site_, access, files_);
    site_.Serve(*server_);
    const Response answer = Ask("POST", "/api/login", R"({"passcode":"evening"})");
    EXPECT_EQ(200, answer.status);
    EXPECT_THAT(answer.headers.at("set-cookie"), HasSubstr("; Secure; "));
    EXPECT_THAT(Ask("POST", "/api/logout", "{}").headers.at("set-cookie"), HasSubstr("; Secure; "));
    server_.reset();
}

TEST_F(SecureServer, CertificateOfAnAuthority_IsSentWithWhatLeadsToIt) {
    Start({Certificates::Get().Path("chain.pem"), Certificates::Get().Path("own.key")});
    const SecureConnection connection(Port());
    EXPECT_TRUE(connection.IsTrusted());
    EXPECT_EQ(2, connection.CountCertificates());
}

TEST_F(SecureServer, OldVersionsOfTheProtocol_AreRefused) {
    Start();
    EXPECT_FALSE(SecureConnection(Port(), 0, TLS1_1_VERSION).IsTrusted());
    EXPECT_TRUE(SecureConnection(Port(), 0, TLS1_2_VERSION).IsTrusted());
    ExpectServes();
}

TEST_F(SecureServer, HandshakesThatAreBrokenOrNeverEnd_HoldNobodyUp) {
    WebServer::Limits limits;
    limits.header = 300ms;
    limits.leaving = 100ms;
    Start(Certificates::Get().Own(), limits);
    // A record that announces a greeting, and goes on as something else, or not at all.
    const std::string greeting("\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03", 11);
    for (const std::string& rest : {std::string(2000, '\xee'), std::string(), std::string(501, '\0')}) {
        RawConnection connection(Port());
        connection.Send(greeting + rest);
        EXPECT_TRUE(connection.IsClosedByPeer());
    }
    std::vector<RawConnection> silent;
    for (int i = 0; i < 50; ++i) {
        silent.emplace_back(Port());
        silent.back().Send(greeting.substr(0, static_cast<std::size_t>(i % 11)));
    }
    ExpectServes();
    for (RawConnection& each : silent)
        EXPECT_TRUE(each.IsClosedByPeer());
    // Those that are half-way when the server ends do not keep it.
    RawConnection last(Port());
    last.Send(greeting);
    server_.reset();
}

// Certificates that cannot be used.

std::string FindRefusal(const WebCertificate& certificate) {
    try {
        const stage::TlsContext context = stage::MakeTlsContext(certificate);
        return "";
    } catch (const std::runtime_error& refusal) {
        return refusal.what();
    }
}

TEST(WebCertificate, ThatCannotBeUsed_IsRefusedInASentenceThatNamesTheFile) {
    const Certificates& all = Certificates::Get();
    const std::string own = all.Path("own.pem");
    const std::string key = all.Path("own.key");
    EXPECT_EQ("", FindRefusal({own, key}));
    EXPECT_THAT(FindRefusal({all.Path("none.pem"), key}), HasSubstr("none.pem"));
    EXPECT_THAT(FindRefusal({own, all.Path("none.key")}), HasSubstr("none.key"));
    EXPECT_THAT(FindRefusal({key, key}), testing::EndsWith("own.key\" holds none in PEM form"));
    EXPECT_THAT(FindRefusal({own, own}), testing::EndsWith("own.pem\" holds none in PEM form"));
    EXPECT_THAT(FindRefusal({own, all.Path("other.key")}),
                testing::AllOf(HasSubstr("the private key"), HasSubstr("is not that of the certificate")));
    EXPECT_THAT(FindRefusal({own, all.Path("locked.key")}), HasSubstr("has a passphrase"));
    const std::string text = test_support::ReadAll(own);
    test_support::WriteAll(all.Path("damaged.pem"), text + text.substr(0, text.size() / 2));
    EXPECT_THAT(FindRefusal({all.Path("damaged.pem"), key}), testing::EndsWith("is followed by a damaged one"));
    test_support::WriteAll(all.Path("empty.pem"), "");
    EXPECT_THAT(FindRefusal({all.Path("empty.pem"), key}), testing::EndsWith("holds none in PEM form"));
}

TEST(WebCertificate, OutsideOfItsDates_IsUsedWithAWarning) {
    const WebCertificate own = Certificates::Get().Own();
    const stage::TlsContext context = stage::MakeTlsContext(own);
    const auto now = std::chrono::system_clock::now();
    EXPECT_EQ("", stage::FindProblemOfDates(context, own, now));
    EXPECT_EQ("", stage::FindProblemOfDates(context, own, now + 29 * 24h));
    EXPECT_THAT(stage::FindProblemOfDates(context, own, now + 31 * 24h), HasSubstr("own.pem\" ended on 2"));
    EXPECT_THAT(stage::FindProblemOfDates(context, own, now - 24h), HasSubstr("own.pem\" begins on 2"));
}

}  // namespace
