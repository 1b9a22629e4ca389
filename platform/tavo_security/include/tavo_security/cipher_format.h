#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

/// What the reader and the writer of enciphered files share; docs/score-format.md lays the bytes out.
namespace tavo_sec {

/// An enciphered file cannot be opened or written; one sentence that names it.
class CipherError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The file is whole as far as can be seen, but the passphrase is not the one that it was enciphered with.
class WrongPassphraseError : public CipherError {
public:
    using CipherError::CipherError;
};

/// What deriving the key from the passphrase costs (argon2id 1.3, RFC 9106, one lane), and how the plaintext is cut.
struct CipherOptions {
    /// Over the memory, 1 to MaxKeyPasses.
    std::uint32_t passes = 3;
    /// Which reader and writer need while they derive the key, MinKeyMemoryKib to MaxKeyMemoryKib.
    std::uint32_t memoryKib = 64U << 10U;
    /// Plaintext bytes in a chunk, the least that is read and authenticated at once; MinChunkBytes to MaxChunkBytes.
    std::uint32_t chunkBytes = 64U << 10U;
    /// Each segment of so many chunks is a secretstream of its own: a seek deciphers at most one segment. 1 to
    /// MaxChunksPerSegment.
    std::uint32_t chunksPerSegment = 16;
};

/// What a header may ask of its reader: a hostile file costs at most 128 MiB and about a second.
inline constexpr std::uint32_t MaxKeyPasses = 10;
inline constexpr std::uint32_t MinKeyMemoryKib = 8;            ///< the least that argon2id takes with one lane
inline constexpr std::uint32_t MaxKeyMemoryKib = 128U << 10U;  ///< 128 MiB
inline constexpr std::uint32_t MinChunkBytes = 16;             ///< of plaintext
inline constexpr std::uint32_t MaxChunkBytes = 1U << 20U;      ///< of plaintext: a reader's memory is two of them
inline constexpr std::uint32_t MaxChunksPerSegment = 1024;     ///< at most so many are deciphered for a seek

/// Length of what MakeCipherHeader makes; the first chunk follows it.
inline constexpr std::size_t CipherHeaderBytes = 76;

/// What an enciphered file begins with, before its first chunk.
struct CipherHeader {
    /// As the file was written.
    CipherOptions options;
    /// For the derivation of the key: random, and another one for each file.
    std::array<std::uint8_t, 16> salt{};
    /// Tells a wrong passphrase from a damaged file.
    std::array<std::uint8_t, 16> keyCheck{};
};

/// Reads the first CipherHeaderBytes of `bytes`; fewer are a file that is cut off. `name` stands in the sentences.
/// Throws CipherError: no enciphered file, a format from the future, a damaged header, values beyond the limits above.
[[nodiscard]] CipherHeader ParseCipherHeader(std::string_view bytes, const std::string& name);
/// Throws CipherError for options beyond the limits.
[[nodiscard]] std::string MakeCipherHeader(const CipherHeader& header, const std::string& name);

/// Overwrites a passphrase that is no longer needed, in a way that the compiler does not leave out, and empties it.
void Wipe(std::string& secret);

}  // namespace tavo_sec
