#include "tavo_security/cipher_format.h"

#include <fmt/format.h>

#include <algorithm>

#include "cipher_key.h"

namespace tavo_sec {

namespace {

constexpr std::string_view Magic = "TAVOCIPH";
constexpr std::uint64_t Format = 1;
constexpr std::uint64_t Argon2id13 = 2;
constexpr std::uint64_t SecretstreamXChaCha20Poly1305 = 1;
constexpr std::size_t ChecksumAt = 60;
constexpr std::size_t ChecksumBytes = CipherHeaderBytes - ChecksumAt;

void AppendLittleEndian(std::string& bytes, std::uint64_t value, int count) {
    for (int i = 0; i < count; ++i)
        bytes.push_back(static_cast<char>(value >> (8 * i) & 0xFFU));
}

template <std::size_t count>
void AppendBytes(std::string& bytes, const std::array<std::uint8_t, count>& from) {
    bytes.append(from.begin(), from.end());
}

/// Takes values from the front of a header that is long enough.
class Fields {
public:
    explicit Fields(std::string_view bytes) : rest_(bytes) {}

    std::uint32_t TakeLittleEndian(std::size_t count) {
        std::uint32_t value = 0;
        for (std::size_t i = 0; i < count; ++i)
            value |= std::uint32_t{static_cast<std::uint8_t>(rest_[i])} << (8 * i);
        rest_.remove_prefix(count);
        return value;
    }
    template <std::size_t count>
    void TakeBytes(std::array<std::uint8_t, count>& to) {
        std::copy_n(rest_.begin(), count, to.begin());
        rest_.remove_prefix(count);
    }

private:
    std::string_view rest_;
};

std::string MakeChecksum(std::string_view fields) {
    std::array<std::uint8_t, ChecksumBytes> sum{};
    crypto_generichash(sum.data(), sum.size(), AsBytes(fields.data()), fields.size(), nullptr, 0);
    return {sum.begin(), sum.end()};
}

void CheckRange(std::uint32_t value, std::uint32_t lowest, std::uint32_t highest, const char* what,
                const std::string& name) {
    if (value >= lowest && value <= highest) return;
    throw CipherError(fmt::format("the header of the file \"{}\" asks for {} {}, which is not from {} to {}", name,
                                  value, what, lowest, highest));
}

void CheckOptions(const CipherOptions& options, const std::string& name) {
    CheckRange(options.passes, 1, MaxKeyPasses, "passes over the key's memory", name);
    CheckRange(options.memoryKib, MinKeyMemoryKib, MaxKeyMemoryKib, "KiB of memory for the key", name);
    CheckRange(options.chunkBytes, MinChunkBytes, MaxChunkBytes, "bytes in a chunk", name);
    CheckRange(options.chunksPerSegment, 1, MaxChunksPerSegment, "chunks in a segment", name);
}

}  // namespace

CipherHeader ParseCipherHeader(std::string_view bytes, const std::string& name) {
    InitializeSodium();
    if (bytes.empty() || !Magic.starts_with(bytes.substr(0, Magic.size())))
        throw CipherError(fmt::format("the file \"{}\" is not an enciphered file", name));
    if (bytes.size() < CipherHeaderBytes)
        throw CipherError(fmt::format("the file \"{}\" is cut off in its header", name));
    Fields fields(bytes.substr(Magic.size(), CipherHeaderBytes - Magic.size()));
    const std::uint32_t format = fields.TakeLittleEndian(2);
    if (format != Format)
        throw CipherError(
            fmt::format("the file \"{}\" is of format {}, but only format {} can be read", name, format, Format));
    if (MakeChecksum(bytes.substr(0, ChecksumAt)) != bytes.substr(ChecksumAt, ChecksumBytes))
        throw CipherError(fmt::format("the header of the file \"{}\" is damaged", name));
    const std::uint32_t keyMethod = fields.TakeLittleEndian(1);
    const std::uint32_t cipher = fields.TakeLittleEndian(1);
    if (keyMethod != Argon2id13 || cipher != SecretstreamXChaCha20Poly1305)
        throw CipherError(fmt::format("the file \"{}\" is enciphered in an unknown way", name));
    CipherHeader header;
    header.options.passes = fields.TakeLittleEndian(4);
    header.options.memoryKib = fields.TakeLittleEndian(4);
    header.options.chunkBytes = fields.TakeLittleEndian(4);
    header.options.chunksPerSegment = fields.TakeLittleEndian(4);
    fields.TakeBytes(header.salt);
    fields.TakeBytes(header.keyCheck);
    CheckOptions(header.options, name);
    return header;
}

std::string MakeCipherHeader(const CipherHeader& header, const std::string& name) {
    InitializeSodium();
    CheckOptions(header.options, name);
    std::string bytes(Magic);
    AppendLittleEndian(bytes, Format, 2);
    AppendLittleEndian(bytes, Argon2id13, 1);
    AppendLittleEndian(bytes, SecretstreamXChaCha20Poly1305, 1);
    AppendLittleEndian(bytes, header.options.passes, 4);
    AppendLittleEndian(bytes, header.options.memoryKib, 4);
    AppendLittleEndian(bytes, header.options.chunkBytes, 4);
    AppendLittleEndian(bytes, header.options.chunksPerSegment, 4);
    AppendBytes(bytes, header.salt);
    AppendBytes(bytes, header.keyCheck);
    return bytes + MakeChecksum(bytes);
}

void Wipe(std::string& secret) {
    sodium_memzero(secret.data(), secret.size());
    secret.clear();
}

}  // namespace tavo_sec
