#include "tavo_security/cipher_writer.h"

#include <algorithm>
#include <vector>

#include "cipher_key.h"

namespace tavo_sec {

namespace {

CipherHeader MakeNewHeader(const CipherOptions& options) {
    InitializeSodium();
    CipherHeader header;
    header.options = options;
    randombytes_buf(header.salt.data(), header.salt.size());
    return header;
}

}  // namespace

class CipherWriter::Chunks {
public:
    Chunks(const std::string& path, std::string_view passphrase, kit::ExistingFile existing,
           const CipherOptions& options)
        : header_(MakeNewHeader(options)), file_(path, existing) {
        static_cast<void>(MakeCipherHeader(header_, path));  // refuses options before a key is made from them
        key_ = std::make_unique<FileKey>(header_, passphrase, path);
        header_.keyCheck = key_->MakeKeyCheck();
        headerBytes_ = MakeCipherHeader(header_, path);
        file_.Write(headerBytes_);
        plain_.resize(options.chunkBytes);
        cipher_.resize(options.chunkBytes + ChunkExtraBytes);
    }
    ~Chunks() {
        sodium_memzero(&state_, sizeof state_);
        sodium_memzero(plain_.data(), plain_.size());
    }
    Chunks(const Chunks&) = delete;
    Chunks& operator=(const Chunks&) = delete;

    void Write(std::string_view plaintext) {
        while (!plaintext.empty()) {
            const std::size_t count = std::min(plaintext.size(), plain_.size() - filled_);
            std::copy_n(plaintext.begin(), count, plain_.begin() + static_cast<std::ptrdiff_t>(filled_));
            plaintext.remove_prefix(count);
            filled_ += count;
            if (filled_ == plain_.size()) PushChunk(GetTagOfChunk(chunk_, header_.options));
        }
    }

    void Commit() {
        std::size_t padded = 0;
        sodium_pad(&padded, AsBytes(plain_.data()), filled_, plain_.size(), plain_.size());
        PushChunk(crypto_secretstream_xchacha20poly1305_TAG_FINAL);
        file_.Commit();
    }

private:
    static unsigned char* AsBytes(char* text) { return reinterpret_cast<unsigned char*>(text); }

    void BeginSegment() {
        FileKey::SegmentKey key;
        key_->DeriveSegmentKey(chunk_ / header_.options.chunksPerSegment, key);
        std::string segmentHeader(SegmentHeaderBytes, '\0');
        crypto_secretstream_xchacha20poly1305_init_push(&state_, AsBytes(segmentHeader.data()), key.Get());
        file_.Write(segmentHeader);
    }

    void PushChunk(unsigned char tag) {
        if (chunk_ % header_.options.chunksPerSegment == 0) BeginSegment();
        crypto_secretstream_xchacha20poly1305_push(&state_, AsBytes(cipher_.data()), nullptr, AsBytes(plain_.data()),
                                                   plain_.size(), AsBytes(headerBytes_.data()), headerBytes_.size(),
                                                   tag);
        file_.Write(cipher_);
        ++chunk_;
        filled_ = 0;
    }

    CipherHeader header_;
    kit::DurableWriter file_;
    std::unique_ptr<FileKey> key_;
    std::string headerBytes_;
    crypto_secretstream_xchacha20poly1305_state state_{};
    std::uint64_t chunk_ = 0;
    std::size_t filled_ = 0;
    std::string plain_;
    std::string cipher_;
};

CipherWriter::CipherWriter(const std::string& path, std::string_view passphrase, kit::ExistingFile existing,
                           const CipherOptions& options)
    : chunks_(std::make_unique<Chunks>(path, passphrase, existing, options)) {}

CipherWriter::~CipherWriter() = default;

void CipherWriter::Write(std::string_view plaintext) {
    chunks_->Write(plaintext);
}

void CipherWriter::Commit() {
    chunks_->Commit();
}

}  // namespace tavo_sec
