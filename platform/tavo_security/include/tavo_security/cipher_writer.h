#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "kit/file.h"
#include "tavo_security/cipher_format.h"

namespace tavo_sec {

/// Writes a file that CipherStream reads. The file appears whole at Commit or not at all (kit::DurableWriter). Memory
/// is two chunks. Not thread-safe; blocks on the disk.
class CipherWriter {
public:
    /// Derives the key, which takes a good part of a second. Throws CipherError for options beyond the limits, and what
    /// kit::DurableWriter throws.
    CipherWriter(const std::string& path, std::string_view passphrase, kit::ExistingFile existing,
                 const CipherOptions& options = {});
    ~CipherWriter();
    CipherWriter(const CipherWriter&) = delete;
    CipherWriter& operator=(const CipherWriter&) = delete;

    /// Throws what kit::DurableWriter throws; the object can only be destroyed then.
    void Write(std::string_view plaintext);
    /// Once, after the last Write.
    void Commit();

private:
    class Chunks;
    std::unique_ptr<Chunks> chunks_;
};

}  // namespace tavo_sec
