#include "cipher_key.h"

#include <fmt/format.h>

#include <stdexcept>

namespace tavo_sec {

namespace {

// Contexts of crypto_kdf, eight bytes each: keys of different purpose never meet.
constexpr const char* SegmentContext = "segment_";
constexpr const char* KeyCheckContext = "keycheck";

}  // namespace

void InitializeSodium() {
    static const bool isReady = sodium_init() >= 0;
    if (!isReady) throw std::runtime_error("the cryptographic library cannot be started");
}

FileKey::FileKey(const CipherHeader& header, std::string_view passphrase, const std::string& name) {
    InitializeSodium();
    static_assert(crypto_pwhash_SALTBYTES == sizeof header.salt);
    const std::size_t memory = std::size_t{header.options.memoryKib} << 10U;
    if (crypto_pwhash(key_.Get(), crypto_kdf_KEYBYTES, passphrase.data(), passphrase.size(), header.salt.data(),
                      header.options.passes, memory, crypto_pwhash_ALG_ARGON2ID13) != 0)
        throw CipherError(
            fmt::format("the file \"{}\" cannot be opened: deriving its key takes {} KiB of memory, which are not free",
                        name, header.options.memoryKib));
}

void FileKey::DeriveSegmentKey(std::uint64_t segment, SegmentKey& key) const {
    crypto_kdf_derive_from_key(key.Get(), crypto_secretstream_xchacha20poly1305_KEYBYTES, segment, SegmentContext,
                               key_.Get());
}

std::array<std::uint8_t, 16> FileKey::MakeKeyCheck() const {
    std::array<std::uint8_t, 16> check{};
    crypto_kdf_derive_from_key(check.data(), check.size(), 0, KeyCheckContext, key_.Get());
    return check;
}

}  // namespace tavo_sec
