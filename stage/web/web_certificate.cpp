#include "stage/web/web_certificate.h"

#include <fmt/format.h>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>

#include <array>
#include <ctime>
#include <stdexcept>

#include "kit/file.h"
#include "kit/words.h"

namespace stage {

namespace {

constexpr std::size_t LargestPemFile = 1U << 20U;

using Bio = std::unique_ptr<BIO, decltype(&BIO_free_all)>;
using X509Pointer = std::unique_ptr<X509, decltype(&X509_free)>;
using KeyPointer = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;

/// `text` outlives it.
Bio MakeBio(const std::string& text) {
    return {BIO_new_mem_buf(text.data(), static_cast<int>(text.size())), &BIO_free_all};
}

/// The library would ask at the terminal.
int RefusePassphrase(char*, int, int, void*) {
    return -1;
}

[[noreturn]] void Fail(std::string_view what, const std::string& path, std::string_view problem) {
    ERR_clear_error();
    throw std::runtime_error(fmt::format("{} {} {}", what, kit::Quote(path), problem));
}

void UseCertificates(SSL_CTX& context, const std::string& path) {
    const std::string text = kit::ReadFile(path, LargestPemFile);
    const Bio pem = MakeBio(text);
    const X509Pointer own(PEM_read_bio_X509_AUX(pem.get(), nullptr, &RefusePassphrase, nullptr), &X509_free);
    if (own == nullptr) Fail("the certificate", path, "holds none in PEM form");
    if (SSL_CTX_use_certificate(&context, own.get()) != 1)
        Fail("the certificate", path, "cannot be used: its key is too short or of a kind that is not known");
    for (;;) {
        X509Pointer next(PEM_read_bio_X509(pem.get(), nullptr, &RefusePassphrase, nullptr), &X509_free);
        if (next == nullptr) break;
        if (SSL_CTX_add0_chain_cert(&context, next.get()) != 1)
            Fail("the certificate", path, "is followed by one that cannot be used");
        next.release();
    }
    if (ERR_GET_REASON(ERR_peek_last_error()) != PEM_R_NO_START_LINE)
        Fail("the certificate", path, "is followed by a damaged one");
    ERR_clear_error();
}

void UseKey(SSL_CTX& context, const WebCertificate& certificate) {
    const std::string text = kit::ReadFile(certificate.keyPath, LargestPemFile);
    const Bio pem = MakeBio(text);
    const KeyPointer key(PEM_read_bio_PrivateKey(pem.get(), nullptr, &RefusePassphrase, nullptr), &EVP_PKEY_free);
    if (key == nullptr && text.find("ENCRYPTED") != std::string::npos)
        Fail("the private key", certificate.keyPath,
             "has a passphrase: write it without one, as \"openssl pkey\" does");
    if (key == nullptr) Fail("the private key", certificate.keyPath, "holds none in PEM form");
    if (SSL_CTX_use_PrivateKey(&context, key.get()) != 1 || SSL_CTX_check_private_key(&context) != 1)
        Fail("the private key", certificate.keyPath,
             fmt::format("is not that of the certificate {}", kit::Quote(certificate.path)));
}

std::string AsDate(const ASN1_TIME* time) {
    std::tm parts{};
    if (ASN1_TIME_to_tm(time, &parts) != 1) return "a date that cannot be read";
    return fmt::format("{:04}-{:02}-{:02}", parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday);
}

}  // namespace

TlsContext MakeTlsContext(const WebCertificate& certificate) {
    TlsContext context(SSL_CTX_new(TLS_server_method()), &SSL_CTX_free);
    if (context == nullptr || SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION) != 1)
        throw std::runtime_error("the library for https cannot be used on this computer");
    SSL_CTX_set_options(context.get(),
                        SSL_OP_NO_COMPRESSION | SSL_OP_NO_RENEGOTIATION | SSL_OP_CIPHER_SERVER_PREFERENCE);
    SSL_CTX_set_mode(context.get(), SSL_MODE_RELEASE_BUFFERS);
    UseCertificates(*context, certificate.path);
    UseKey(*context, certificate);
    return context;
}

std::string FindProblemOfDates(const TlsContext& context, const WebCertificate& certificate,
                               std::chrono::system_clock::time_point now) {
    const X509* own = SSL_CTX_get0_certificate(context.get());
    std::time_t moment = std::chrono::system_clock::to_time_t(now);
    const std::string name = kit::Quote(certificate.path);
    if (X509_cmp_time(X509_get0_notAfter(own), &moment) < 0)
        return fmt::format("the certificate {} ended on {}: browsers refuse it or warn", name,
                           AsDate(X509_get0_notAfter(own)));
    if (X509_cmp_time(X509_get0_notBefore(own), &moment) > 0)
        return fmt::format("the certificate {} begins on {} only: browsers refuse it or warn", name,
                           AsDate(X509_get0_notBefore(own)));
    return "";
}

}  // namespace stage
