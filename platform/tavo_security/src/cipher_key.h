#pragma once

#include <sodium.h>

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "tavo_security/cipher_format.h"

namespace tavo_sec {

/// Makes libsodium ready; any thread, any number of times.
void InitializeSodium();

/// Bytes that are overwritten at the end of their scope.
template <std::size_t count>
class SecretBytes {
public:
    SecretBytes() = default;
    ~SecretBytes() { sodium_memzero(bytes_.data(), count); }
    SecretBytes(const SecretBytes&) = delete;
    SecretBytes& operator=(const SecretBytes&) = delete;

    [[nodiscard]] unsigned char* Get() { return bytes_.data(); }
    [[nodiscard]] const unsigned char* Get() const { return bytes_.data(); }

private:
    std::array<unsigned char, count> bytes_{};
};

/// The key of a file, and those of its segments.
class FileKey {
public:
    /// Throws CipherError where the memory that the header asks for is not to be had.
    FileKey(const CipherHeader& header, std::string_view passphrase, const std::string& name);

    using SegmentKey = SecretBytes<crypto_secretstream_xchacha20poly1305_KEYBYTES>;
    void DeriveSegmentKey(std::uint64_t segment, SegmentKey& key) const;
    [[nodiscard]] std::array<std::uint8_t, 16> MakeKeyCheck() const;

private:
    SecretBytes<crypto_kdf_KEYBYTES> key_;
};

inline constexpr std::size_t SegmentHeaderBytes = crypto_secretstream_xchacha20poly1305_HEADERBYTES;
/// What enciphering adds to a chunk.
inline constexpr std::size_t ChunkExtraBytes = crypto_secretstream_xchacha20poly1305_ABYTES;

/// The tag of a chunk that is not the file's last one.
[[nodiscard]] inline unsigned char GetTagOfChunk(std::uint64_t chunk, const CipherOptions& options) {
    return chunk % options.chunksPerSegment == options.chunksPerSegment - 1
               ? crypto_secretstream_xchacha20poly1305_TAG_PUSH
               : crypto_secretstream_xchacha20poly1305_TAG_MESSAGE;
}

[[nodiscard]] inline const unsigned char* AsBytes(const char* text) {
    return reinterpret_cast<const unsigned char*>(text);
}

}  // namespace tavo_sec
