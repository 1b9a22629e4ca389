#pragma once

#include <istream>
#include <memory>
#include <string>
#include <string_view>

#include "tavo_security/cipher_format.h"

namespace tavo_sec {

/// The plaintext of an enciphered file (XChaCha20-Poly1305 secretstreams, key from a passphrase by argon2id), with
/// `seekg` and `tellg`. Memory is two chunks, however long the file is; a seek deciphers at most one segment.
///
/// A chunk that is damaged, moved, missing or cut off makes the stream bad when it is reached, and GetProblem says what
/// is wrong and in which chunk. All bytes before it have been delivered by then, and none of its own ever is: a short
/// `read` counts in gcount what was sound. The end of file without badbit is the authenticated end. After `clear` other
/// places of the file can be read. With `exceptions(badbit)` the stream throws std::ios_base::failure as every stream
/// does. Not thread-safe; reading blocks on the disk.
class CipherStream final : public std::istream {
public:
    /// Opens a regular file and derives the key, which takes a good part of a second. Throws WrongPassphraseError,
    /// or CipherError where the file cannot be opened or its header is not usable.
    CipherStream(const std::string& path, std::string_view passphrase);
    /// The same from any stream that can seek; `name` stands for the file in the sentences.
    CipherStream(std::unique_ptr<std::istream> source, const std::string& name, std::string_view passphrase);
    ~CipherStream() override;
    CipherStream(const CipherStream&) = delete;
    CipherStream& operator=(const CipherStream&) = delete;

    /// One sentence that names the file and the chunk where the stream went bad last; empty as long as it did not.
    [[nodiscard]] const std::string& GetProblem() const;

private:
    class Buffer;
    std::unique_ptr<Buffer> buffer_;
};

}  // namespace tavo_sec
