#include "tavo_security/cipher_stream.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <limits>
#include <optional>
#include <streambuf>
#include <system_error>

#include "cipher_key.h"

namespace tavo_sec {

namespace {

std::unique_ptr<std::istream> OpenRegularFile(const std::string& path) {
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    if (!std::filesystem::exists(status)) throw CipherError(fmt::format("the file \"{}\" does not exist", path));
    // A pipe under this name would be waited for.
    if (!std::filesystem::is_regular_file(status))
        throw CipherError(fmt::format("the file \"{}\" is not a regular file", path));
    errno = 0;
    auto file = std::make_unique<std::ifstream>(path, std::ios::binary);
    if (!file->is_open())
        throw CipherError(
            fmt::format("the file \"{}\" cannot be read: {}", path, std::system_category().message(errno)));
    return file;
}

}  // namespace

/// Deciphers one chunk at a time. Chunks are all of one length, so that their places follow from their numbers.
class CipherStream::Buffer : public std::streambuf {
public:
    Buffer(std::istream& owner, std::unique_ptr<std::istream> source, std::string name, std::string_view passphrase)
        : owner_(owner), source_(std::move(source)), name_(std::move(name)) {
        source_->clear();
        source_->seekg(0, std::ios::end);
        const auto end = static_cast<std::streamoff>(source_->tellg());
        if (end < 0) throw CipherError(fmt::format("the file \"{}\" cannot be read", name_));
        fileBytes_ = static_cast<std::uint64_t>(end);
        headerBytes_.resize(static_cast<std::size_t>(std::min<std::uint64_t>(fileBytes_, CipherHeaderBytes)));
        if (!ReadSource(0, headerBytes_)) throw CipherError(fmt::format("the file \"{}\" cannot be read", name_));
        const CipherHeader header = ParseCipherHeader(headerBytes_, name_);
        options_ = header.options;
        key_ = std::make_unique<FileKey>(header, passphrase, name_);
        const auto check = key_->MakeKeyCheck();
        if (sodium_memcmp(check.data(), header.keyCheck.data(), check.size()) != 0)
            throw WrongPassphraseError(fmt::format("the passphrase is not the one of the file \"{}\"", name_));
        plain_.resize(options_.chunkBytes);
        cipher_.resize(options_.chunkBytes + ChunkExtraBytes);
    }
    ~Buffer() override {
        sodium_memzero(&state_, sizeof state_);
        sodium_memzero(plain_.data(), plain_.size());
    }

    [[nodiscard]] const std::string& GetProblem() const { return problem_; }

protected:
    int_type underflow() override {
        if (gptr() < egptr()) return traits_type::to_int_type(*gptr());
        if (isLoaded_ && isLast_) return FailIfBytesFollow();
        const std::uint64_t chunk = isLoaded_ ? chunk_ + 1 : chunk_;
        const std::size_t offset = isLoaded_ ? 0 : offset_;
        if (!LoadChunk(chunk)) {
            SetPlace(chunk, offset);
            return traits_type::eof();
        }
        // A last chunk may lie before the one that was asked for.
        ShowChunk(chunk_ == chunk ? offset : loadedBytes_);
        return gptr() < egptr() ? traits_type::to_int_type(*gptr()) : FailIfBytesFollow();
    }

    pos_type seekoff(off_type offset, std::ios_base::seekdir from, std::ios_base::openmode which) override {
        if ((which & std::ios_base::in) == 0) return pos_type(off_type(-1));
        const std::uint64_t here = GetPlace();
        if (offset == 0 && from == std::ios_base::cur) return static_cast<off_type>(here);
        std::uint64_t base = from == std::ios_base::cur ? here : 0;
        if (from == std::ios_base::end) {
            const std::optional<std::uint64_t> length = FindLength();
            SetPlace(here / options_.chunkBytes, here % options_.chunkBytes);
            if (!length) return pos_type(off_type(-1));
            base = *length;
        }
        off_type target = 0;
        if (__builtin_add_overflow(static_cast<off_type>(base), offset, &target) || target < 0)
            return pos_type(off_type(-1));
        return SeekTo(static_cast<std::uint64_t>(target));
    }

    pos_type seekpos(pos_type position, std::ios_base::openmode which) override {
        return seekoff(off_type(position), std::ios_base::beg, which);
    }

private:
    [[nodiscard]] std::uint64_t GetPlace() const {
        return chunk_ * options_.chunkBytes + (isLoaded_ ? static_cast<std::size_t>(gptr() - eback()) : offset_);
    }

    /// The next read begins there; nothing is deciphered yet.
    void SetPlace(std::uint64_t chunk, std::size_t offset) {
        isLoaded_ = false;
        chunk_ = chunk;
        offset_ = offset;
        setg(nullptr, nullptr, nullptr);
    }

    void ShowChunk(std::size_t offset) {
        setg(plain_.data(), plain_.data() + std::min(offset, loadedBytes_), plain_.data() + loadedBytes_);
    }

    pos_type SeekTo(std::uint64_t place) {
        const std::uint64_t chunk = place / options_.chunkBytes;
        const std::size_t offset = place % options_.chunkBytes;
        if (isLoaded_ && chunk == chunk_ && offset <= loadedBytes_) {
            ShowChunk(offset);
            return static_cast<off_type>(place);
        }
        if (chunk + 1 < CountChunks()) {
            SetPlace(chunk, offset);
            return static_cast<off_type>(place);
        }
        // Only the last chunk tells where the plaintext ends.
        const std::uint64_t here = GetPlace();
        const std::optional<std::uint64_t> length = FindLength();
        if (!length || place > *length) {
            SetPlace(here / options_.chunkBytes, here % options_.chunkBytes);
            return pos_type(off_type(-1));
        }
        ShowChunk(offset);
        return static_cast<off_type>(place);
    }

    /// Deciphers the last chunk. Nothing, and the stream is bad, if that is not the authenticated end.
    std::optional<std::uint64_t> FindLength() {
        const std::uint64_t count = CountChunks();
        if (!LoadChunk(count == 0 ? 0 : count - 1)) return std::nullopt;
        ShowChunk(loadedBytes_);
        if (isLast_) return chunk_ * options_.chunkBytes + loadedBytes_;
        static_cast<void>(LoadChunk(count));  // is not there and says so
        return std::nullopt;
    }

    [[nodiscard]] std::uint64_t GetSegmentBytes() const {
        return SegmentHeaderBytes + std::uint64_t{options_.chunksPerSegment} * cipher_.size();
    }
    [[nodiscard]] std::uint64_t GetSegmentStart(std::uint64_t segment) const {
        return CipherHeaderBytes + segment * GetSegmentBytes();
    }
    [[nodiscard]] std::uint64_t GetChunkStart(std::uint64_t chunk) const {
        return GetSegmentStart(chunk / options_.chunksPerSegment) + SegmentHeaderBytes +
               chunk % options_.chunksPerSegment * cipher_.size();
    }
    /// The whole chunks for which the file is long enough.
    [[nodiscard]] std::uint64_t CountChunks() const {
        const std::uint64_t bytes = fileBytes_ - CipherHeaderBytes;
        const std::uint64_t rest = bytes % GetSegmentBytes();
        const std::uint64_t restChunks = rest < SegmentHeaderBytes ? 0 : (rest - SegmentHeaderBytes) / cipher_.size();
        return bytes / GetSegmentBytes() * options_.chunksPerSegment + restChunks;
    }

    /// Chunks are counted from 1 in sentences. The stream's own functions turn the state into an exception where the
    /// host asked for one.
    bool Fail(const std::string& what, std::uint64_t chunk) {
        problem_ = fmt::format("the file \"{}\" {} chunk {}", name_, what, chunk + 1);
        nextChunk_.reset();
        try {
            owner_.setstate(std::ios_base::badbit);
        } catch (const std::ios_base::failure&) {
        }
        return false;
    }

    int_type FailIfBytesFollow() {
        const std::uint64_t end = GetChunkStart(chunk_) + cipher_.size();
        if (end < fileBytes_) Fail("has bytes after its last", chunk_);
        return traits_type::eof();
    }

    bool ReadSource(std::uint64_t from, std::string& to) {
        source_->clear();
        if (sourcePlace_ != from) source_->seekg(static_cast<std::streamoff>(from));
        source_->read(to.data(), static_cast<std::streamsize>(to.size()));
        const bool isWhole = static_cast<std::size_t>(source_->gcount()) == to.size();
        sourcePlace_ = isWhole ? from + to.size() : std::numeric_limits<std::uint64_t>::max();
        return isWhole;
    }

    /// Makes `chunk` the current one, or the last chunk if that comes before it. False after Fail.
    bool LoadChunk(std::uint64_t chunk) {
        isLoaded_ = false;
        const std::uint64_t segmentChunk = chunk - chunk % options_.chunksPerSegment;
        if (!nextChunk_ || *nextChunk_ > chunk || *nextChunk_ < segmentChunk + 1) {
            if (!BeginSegment(segmentChunk, chunk)) return false;
        }
        do {
            if (!PullChunk()) return false;
        } while (chunk_ < chunk && !isLast_);
        isLoaded_ = true;
        return true;
    }

    bool BeginSegment(std::uint64_t firstChunk, std::uint64_t wantedChunk) {
        if (wantedChunk >= CountChunks()) return FailAsCutOff(wantedChunk);
        std::string segmentHeader(SegmentHeaderBytes, '\0');
        const std::uint64_t segment = firstChunk / options_.chunksPerSegment;
        if (!ReadSource(GetSegmentStart(segment), segmentHeader)) return Fail("cannot be read at", firstChunk);
        FileKey::SegmentKey key;
        key_->DeriveSegmentKey(segment, key);
        crypto_secretstream_xchacha20poly1305_init_pull(&state_, AsBytes(segmentHeader.data()), key.Get());
        nextChunk_ = firstChunk;
        return true;
    }

    bool FailAsCutOff(std::uint64_t chunk) {
        const std::uint64_t start = chunk % options_.chunksPerSegment == 0
                                        ? GetSegmentStart(chunk / options_.chunksPerSegment)
                                        : GetChunkStart(chunk);
        return Fail(start < fileBytes_ ? "is cut off in" : "is cut off before", chunk);
    }

    /// Reads and authenticates the next chunk of the segment.
    bool PullChunk() {
        const std::uint64_t chunk = *nextChunk_;
        if (chunk >= CountChunks()) return FailAsCutOff(chunk);
        if (!ReadSource(GetChunkStart(chunk), cipher_)) return Fail("cannot be read at", chunk);
        unsigned char tag = 0;
        if (crypto_secretstream_xchacha20poly1305_pull(&state_, reinterpret_cast<unsigned char*>(plain_.data()),
                                                       nullptr, &tag, AsBytes(cipher_.data()), cipher_.size(),
                                                       AsBytes(headerBytes_.data()), headerBytes_.size()) != 0)
            return Fail("is damaged in", chunk);
        loadedBytes_ = plain_.size();
        isLast_ = tag == crypto_secretstream_xchacha20poly1305_TAG_FINAL;
        const bool isSound =
            isLast_ ? sodium_unpad(&loadedBytes_, AsBytes(plain_.data()), plain_.size(), plain_.size()) == 0
                    : tag == GetTagOfChunk(chunk, options_);
        if (!isSound) return Fail("is damaged in", chunk);
        chunk_ = chunk;
        nextChunk_ = chunk + 1;
        return true;
    }

    std::istream& owner_;
    std::unique_ptr<std::istream> source_;
    const std::string name_;
    std::uint64_t fileBytes_ = 0;
    std::uint64_t sourcePlace_ = std::numeric_limits<std::uint64_t>::max();
    std::string headerBytes_;
    CipherOptions options_;
    std::unique_ptr<FileKey> key_;
    std::string problem_;

    crypto_secretstream_xchacha20poly1305_state state_{};
    /// What `state_` deciphers next; none where a segment must be begun.
    std::optional<std::uint64_t> nextChunk_;
    std::string cipher_;
    std::string plain_;
    /// The chunk in `plain_`, or the one to be read, and the place in it.
    std::uint64_t chunk_ = 0;
    std::size_t offset_ = 0;
    bool isLoaded_ = false;
    bool isLast_ = false;
    std::size_t loadedBytes_ = 0;
};

CipherStream::CipherStream(const std::string& path, std::string_view passphrase)
    : CipherStream(OpenRegularFile(path), path, passphrase) {}

CipherStream::CipherStream(std::unique_ptr<std::istream> source, const std::string& name, std::string_view passphrase)
    : std::istream(nullptr), buffer_(std::make_unique<Buffer>(*this, std::move(source), name, passphrase)) {
    rdbuf(buffer_.get());
}

CipherStream::~CipherStream() = default;

const std::string& CipherStream::GetProblem() const {
    return buffer_->GetProblem();
}

}  // namespace tavo_sec
