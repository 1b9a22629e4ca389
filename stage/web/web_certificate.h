#pragma once

#include <chrono>
#include <memory>
#include <string>

struct ssl_ctx_st;

namespace stage {

/// How the server proves who it is: files in PEM form (RFC 7468), the certificate with those behind it that lead to its
/// authority, and its private key without a passphrase. Both are empty where nothing is enciphered.
struct WebCertificate {
    std::string path;
    std::string keyPath;

    [[nodiscard]] bool IsEmpty() const { return path.empty(); }
};

using TlsContext = std::unique_ptr<ssl_ctx_st, void (*)(ssl_ctx_st*)>;

/// A context of OpenSSL for a server that speaks TLS 1.2 (RFC 5246) or 1.3 (RFC 8446). Reads the files, so it blocks on
/// the disk. Throws std::runtime_error with one sentence that names the file.
[[nodiscard]] TlsContext MakeTlsContext(const WebCertificate& certificate);

/// What browsers hold against the certificate's dates at the moment `now`, as a sentence without its point; empty where
/// that is nothing.
[[nodiscard]] std::string FindProblemOfDates(const TlsContext& context, const WebCertificate& certificate,
                                             std::chrono::system_clock::time_point now);

}  // namespace stage
