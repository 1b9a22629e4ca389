#include "tavo_security/cipher_format.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sodium.h>

#include "tests/tavo_security/cipher_samples.h"

namespace {

using tavo_sec::CipherHeader;
using tavo_sec::CipherHeaderBytes;
using tavo_sec::CipherOptions;

std::string GetRefusal(const std::string& bytes) {
    try {
        static_cast<void>(tavo_sec::ParseCipherHeader(bytes, "f"));
    } catch (const tavo_sec::CipherError& error) {
        return error.what();
    }
    return "";
}

/// A header with one field overwritten and the checksum put right, as somebody would forge it.
std::string Forge(std::size_t place, const std::string& field) {
    std::string bytes = tavo_sec::MakeCipherHeader({}, "f");
    bytes.replace(place, field.size(), field);
    const auto* const fields = reinterpret_cast<const unsigned char*>(bytes.data());
    unsigned char sum[16];
    crypto_generichash(sum, sizeof sum, fields, 60, nullptr, 0);
    return bytes.replace(60, 16, reinterpret_cast<const char*>(sum), 16);
}

TEST(CipherFormat, AHeader_IsReadBack) {
    CipherHeader header;
    header.options = {10, 131072, 1048576, 1024};
    header.salt.fill(7);
    header.keyCheck.fill(9);
    const std::string bytes = tavo_sec::MakeCipherHeader(header, "f");
    ASSERT_EQ(CipherHeaderBytes, bytes.size());
    const CipherHeader read = tavo_sec::ParseCipherHeader(bytes + "behind", "f");
    EXPECT_EQ(10U, read.options.passes);
    EXPECT_EQ(131072U, read.options.memoryKib);
    EXPECT_EQ(1048576U, read.options.chunkBytes);
    EXPECT_EQ(1024U, read.options.chunksPerSegment);
    EXPECT_EQ(header.salt, read.salt);
    EXPECT_EQ(header.keyCheck, read.keyCheck);
}

TEST(CipherFormat, TheBytesOfAHeader_AreTheDocumentedOnes) {
    const std::string bytes = tavo_sec::MakeCipherHeader({}, "f");
    EXPECT_EQ(std::string("TAVOCIPH\x01\0\x02\x01\x03\0\0\0\0\0\x01\0\0\0\x01\0\x10\0\0\0", 28), bytes.substr(0, 28));
}

TEST(CipherFormat, ForgedHeaders_AreRefusedBeforeTheyCostAnything) {
    struct Row {
        std::size_t place;
        std::string field;
        const char* problem;
    };
    const std::string asks = "the header of the file \"f\" asks for ";
    const std::string huge(4, '\xFF');
    const std::string none(4, '\0');
    for (const Row& row : {
             Row{8, std::string("\2\0", 2), "the file \"f\" is of format 2, but only format 1 can be read"},
             Row{10, "\1", "the file \"f\" is enciphered in an unknown way"},
             Row{11, "\2", "the file \"f\" is enciphered in an unknown way"},
             Row{12, huge, "4294967295 passes over the key's memory, which is not from 1 to 10"},
             Row{12, none, "0 passes over the key's memory, which is not from 1 to 10"},
             Row{16, huge, "4294967295 KiB of memory for the key, which is not from 8 to 131072"},
             Row{16, std::string("\1\0\2\0", 4), "131073 KiB of memory for the key, which is not from 8 to 131072"},
             Row{16, std::string("\7\0\0\0", 4), "7 KiB of memory for the key, which is not from 8 to 131072"},
             Row{20, huge, "4294967295 bytes in a chunk, which is not from 16 to 1048576"},
             Row{20, none, "0 bytes in a chunk, which is not from 16 to 1048576"},
             Row{24, none, "0 chunks in a segment, which is not from 1 to 1024"},
             Row{24, std::string("\1\4\0\0", 4), "1025 chunks in a segment, which is not from 1 to 1024"},
         }) {
        const bool isWhole = std::string(row.problem).starts_with("the file");
        EXPECT_EQ(isWhole ? row.problem : asks + row.problem, GetRefusal(Forge(row.place, row.field)));
    }
    EXPECT_EQ("", GetRefusal(Forge(28, "another salt")));
}

TEST(CipherFormat, AForgedSalt_LeadsToNoKey) {
    std::string bytes = test_support::Encipher("music");
    bytes.replace(0, CipherHeaderBytes, Forge(12, std::string("\1\0\0\0\x08\0\0\0\x10\0\0\0\3\0\0\0", 16)));
    EXPECT_EQ("the passphrase is not the one of the file \"f\"", test_support::Decipher(bytes).problem);
}

TEST(CipherFormat, Wipe_EmptiesTheText) {
    std::string secret = "open sesame, and more than a short string holds";
    const char* const place = secret.data();
    tavo_sec::Wipe(secret);
    EXPECT_TRUE(secret.empty());
    EXPECT_EQ(std::string(8, '\0'), std::string(place, 8));
}

}  // namespace
