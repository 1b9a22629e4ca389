#include "tavo_security/cipher_stream.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <iterator>
#include <thread>
#include <vector>

#include "tests/tavo_security/cipher_samples.h"

namespace {

using tavo_sec::CipherHeaderBytes;
using test_support::CountingText;
using test_support::Decipher;
using test_support::Deciphered;
using test_support::Encipher;
using test_support::Open;

constexpr std::size_t PlainChunk = 16;
constexpr std::size_t CipherChunk = PlainChunk + 17;
constexpr std::size_t SegmentHeader = 24;
constexpr std::size_t Segment = SegmentHeader + 3 * CipherChunk;

std::size_t StartOfChunk(std::size_t chunk) {
    return CipherHeaderBytes + chunk / 3 * Segment + SegmentHeader + chunk % 3 * CipherChunk;
}

/// The chunk to which a byte behind the header belongs; a segment's own header counts to its first chunk.
std::size_t ChunkAt(std::size_t place) {
    const std::size_t segment = (place - CipherHeaderBytes) / Segment;
    const std::size_t rest = (place - CipherHeaderBytes) % Segment;
    return segment * 3 + (rest < SegmentHeader ? 0 : (rest - SegmentHeader) / CipherChunk);
}

TEST(CipherStream, TextsOfEveryLength_AreReadBack) {
    for (std::size_t length = 0; length <= 120; ++length) {
        const std::string text = CountingText(length);
        EXPECT_EQ((Deciphered{text, ""}), Decipher(Encipher(text))) << length;
    }
}

TEST(CipherStream, TheStandardOptions_AreReadBackToo) {
    const std::string text = CountingText(300'000);
    const std::string bytes = Encipher(text, {});
    EXPECT_EQ(text, Decipher(bytes).text);
    EXPECT_EQ(std::string::npos, bytes.find(text.substr(0, 8)));
}

TEST(CipherStream, TwoFilesOfOneText_ShareNothing) {
    const std::string first = Encipher(CountingText(100));
    const std::string second = Encipher(CountingText(100));
    EXPECT_NE(first.substr(CipherHeaderBytes, 64), second.substr(CipherHeaderBytes, 64));
    EXPECT_EQ("the file \"f\" is damaged in chunk 1",
              Decipher(first.substr(0, CipherHeaderBytes) + second.substr(CipherHeaderBytes)).problem);
}

TEST(CipherStream, EveryByteFlipped_IsMetInItsChunkAndNotBefore) {
    const std::string text = CountingText(100);
    const std::string bytes = Encipher(text);
    ASSERT_EQ(CipherHeaderBytes + 2 * Segment + SegmentHeader + CipherChunk, bytes.size());
    for (std::size_t place = CipherHeaderBytes; place < bytes.size(); ++place) {
        std::string flipped = bytes;
        flipped[place] = static_cast<char>(flipped[place] ^ 0x10);
        const std::size_t chunk = ChunkAt(place);
        const Deciphered expected{text.substr(0, chunk * PlainChunk),
                                  "the file \"f\" is damaged in chunk " + std::to_string(chunk + 1)};
        EXPECT_EQ(expected, Decipher(flipped)) << place;
    }
}

TEST(CipherStream, EveryByteOfTheHeaderFlipped_IsRefusedAtOnce) {
    const std::string bytes = Encipher("music");
    for (std::size_t place = 0; place < CipherHeaderBytes; ++place) {
        std::string flipped = bytes;
        flipped[place] = static_cast<char>(flipped[place] ^ 0x10);
        const Deciphered result = Decipher(flipped);
        EXPECT_EQ("", result.text) << place;
        if (place < 8) {
            EXPECT_EQ("the file \"f\" is not an enciphered file", result.problem);
        } else if (place < 10) {
            EXPECT_THAT(result.problem, testing::EndsWith(", but only format 1 can be read"));
        } else {
            EXPECT_EQ("the header of the file \"f\" is damaged", result.problem) << place;
        }
    }
}

TEST(CipherStream, CutOffAtEveryLength_GivesWhatIsWholeAndSaysWhereItEnds) {
    const std::string text = CountingText(100);
    const std::string bytes = Encipher(text);
    for (std::size_t length = CipherHeaderBytes; length < bytes.size(); ++length) {
        const std::size_t chunk = ChunkAt(length);
        const bool isBetweenChunks = length == StartOfChunk(chunk) || length + SegmentHeader == StartOfChunk(chunk);
        const bool isBehindSegmentHeader = length == StartOfChunk(chunk) && chunk % 3 == 0;
        const Deciphered expected{text.substr(0, chunk * PlainChunk),
                                  std::string("the file \"f\" is cut off ") +
                                      (isBetweenChunks && !isBehindSegmentHeader ? "before" : "in") + " chunk " +
                                      std::to_string(chunk + 1)};
        EXPECT_EQ(expected, Decipher(bytes.substr(0, length))) << length;
    }
    for (std::size_t length = 1; length < CipherHeaderBytes; ++length)
        EXPECT_EQ("the file \"f\" is cut off in its header", Decipher(bytes.substr(0, length)).problem) << length;
    EXPECT_EQ("the file \"f\" is not an enciphered file", Decipher("").problem);
}

TEST(CipherStream, ChunksSwapped_AreMetAtTheFirstOfThem) {
    const std::string text = CountingText(100);
    const std::string bytes = Encipher(text);
    for (std::size_t first = 0; first < 7; ++first) {
        for (std::size_t second = first + 1; second < 7; ++second) {
            std::string swapped = bytes;
            for (std::size_t i = 0; i < CipherChunk; ++i)
                std::swap(swapped[StartOfChunk(first) + i], swapped[StartOfChunk(second) + i]);
            const Deciphered expected{text.substr(0, first * PlainChunk),
                                      "the file \"f\" is damaged in chunk " + std::to_string(first + 1)};
            EXPECT_EQ(expected, Decipher(swapped)) << first << " and " << second;
        }
    }
}

TEST(CipherStream, SegmentsSwappedOrLeftOut_AreMetAtTheFirstOfThem) {
    const std::string text = CountingText(100);
    const std::string bytes = Encipher(text);
    const std::string header = bytes.substr(0, CipherHeaderBytes);
    const std::string one = bytes.substr(CipherHeaderBytes, Segment);
    const std::string two = bytes.substr(CipherHeaderBytes + Segment, Segment);
    const std::string rest = bytes.substr(CipherHeaderBytes + 2 * Segment);
    EXPECT_EQ((Deciphered{"", "the file \"f\" is damaged in chunk 1"}), Decipher(header + two + one + rest));
    EXPECT_EQ((Deciphered{text.substr(0, 48), "the file \"f\" is damaged in chunk 4"}), Decipher(header + one + rest));
    EXPECT_EQ((Deciphered{text.substr(0, 48), "the file \"f\" is damaged in chunk 4"}),
              Decipher(header + one + one + rest));
}

TEST(CipherStream, BytesBehindTheEnd_AreMetThere) {
    const std::string text = CountingText(100);
    const std::string bytes = Encipher(text);
    EXPECT_EQ((Deciphered{text, "the file \"f\" has bytes after its last chunk 7"}), Decipher(bytes + "x"));
    EXPECT_EQ((Deciphered{text, "the file \"f\" has bytes after its last chunk 7"}),
              Decipher(bytes + bytes.substr(StartOfChunk(6))));
}

TEST(CipherStream, AnotherPassphrase_IsToldApartFromDamage) {
    const std::string bytes = Encipher("music");
    EXPECT_EQ("the passphrase is not the one of the file \"f\"", Decipher(bytes, "open sesam").problem);
    EXPECT_THROW(Open(bytes, ""), tavo_sec::WrongPassphraseError);
}

TEST(CipherStream, WhatIsNoFile_IsRefusedWithoutWaiting) {
    const test_support::TemporaryDirectory directory;
    const auto refusal = [](const std::string& path) {
        try {
            const tavo_sec::CipherStream stream(path, "p");
        } catch (const tavo_sec::CipherError& error) {
            return std::string(error.what());
        }
        return std::string();
    };
    EXPECT_EQ("the file \"" + directory / "none" + "\" does not exist", refusal(directory / "none"));
    EXPECT_EQ("the file \"" + directory.Path() + "\" is not a regular file", refusal(directory.Path()));
    ASSERT_EQ(0, ::mkfifo((directory / "pipe").c_str(), 0600));
    EXPECT_EQ("the file \"" + directory / "pipe" + "\" is not a regular file", refusal(directory / "pipe"));
}

TEST(CipherStream, ReadAcrossABadChunk_CountsWhatWasSoundAndGoesBad) {
    const std::string text = CountingText(100);
    std::string bytes = Encipher(text);
    bytes[StartOfChunk(2)] = static_cast<char>(bytes[StartOfChunk(2)] ^ 1);
    const auto stream = Open(bytes);
    std::string read(80, '?');
    stream->read(read.data(), 80);
    EXPECT_TRUE(stream->bad());
    ASSERT_EQ(32, stream->gcount());
    EXPECT_EQ(text.substr(0, 32) + std::string(48, '?'), read);
    EXPECT_EQ("the file \"f\" is damaged in chunk 3", stream->GetProblem());
}

TEST(CipherStream, WithExceptions_ABadChunkThrowsLikeAnyStream) {
    const auto stream = Open(Encipher(CountingText(100)).substr(0, StartOfChunk(1)));
    stream->exceptions(std::ios::badbit);
    std::string read(80, '?');
    EXPECT_THROW(stream->read(read.data(), 80), std::ios_base::failure);
    EXPECT_EQ(16, stream->gcount());
    EXPECT_EQ("the file \"f\" is cut off before chunk 2", stream->GetProblem());
}

TEST(CipherStream, AfterABadChunk_OtherPlacesAreStillRead) {
    const std::string text = CountingText(100);
    std::string bytes = Encipher(text);
    bytes[StartOfChunk(1)] = static_cast<char>(bytes[StartOfChunk(1)] ^ 1);
    const auto stream = Open(bytes);
    stream->ignore(1000);
    ASSERT_TRUE(stream->bad());
    stream->clear();
    stream->seekg(50);
    EXPECT_EQ(text.substr(50), (std::string{std::istreambuf_iterator<char>(*stream), {}}));
    EXPECT_FALSE(stream->bad());
    stream->clear();
    stream->seekg(3);
    EXPECT_EQ(text[3], stream->get());
}

TEST(CipherStream, SeeksToEveryPlaceFromEveryPlace_ReadOnFromThere) {
    const std::string text = CountingText(100);
    const auto stream = Open(Encipher(text));
    for (std::size_t from = 0; from <= text.size(); from += 7) {
        for (std::size_t to = 0; to <= text.size(); ++to) {
            stream->clear();
            stream->seekg(static_cast<std::streamoff>(from));
            static_cast<void>(stream->get());
            stream->clear();
            stream->seekg(static_cast<std::streamoff>(to));
            ASSERT_EQ(static_cast<std::streamoff>(to), stream->tellg());
            const int expected = to < text.size() ? static_cast<unsigned char>(text[to]) : EOF;
            ASSERT_EQ(expected, stream->get()) << from << " to " << to;
        }
    }
    EXPECT_EQ("", stream->GetProblem());
}

TEST(CipherStream, SeeksFromTheEndAndFromHere_CountAsUsual) {
    const std::string text = CountingText(96);
    const auto stream = Open(Encipher(text));
    stream->seekg(0, std::ios::end);
    EXPECT_EQ(96, stream->tellg());
    stream->seekg(-1, std::ios::end);
    EXPECT_EQ(text[95], stream->get());
    stream->seekg(-50, std::ios::cur);
    EXPECT_EQ(text[46], stream->get());
    EXPECT_EQ(47, stream->tellg());
}

TEST(CipherStream, SeeksOutsideTheText_FailAndLeaveThePlace) {
    const std::string text = CountingText(100);
    const auto stream = Open(Encipher(text));
    stream->seekg(20);
    for (const std::streamoff outside :
         {std::streamoff{101}, std::streamoff{4000}, std::streamoff{-1}, std::numeric_limits<std::streamoff>::max()}) {
        stream->seekg(outside, std::ios::beg);
        EXPECT_TRUE(stream->fail()) << outside;
        EXPECT_FALSE(stream->bad()) << outside;
        stream->clear();
        EXPECT_EQ(20, stream->tellg()) << outside;
    }
    EXPECT_EQ(text[20], stream->get());
}

TEST(CipherStream, SeekToTheEndOfATextThatIsCutOff_GoesBad) {
    const auto stream = Open(Encipher(CountingText(100)).substr(0, StartOfChunk(5)));
    stream->seekg(0, std::ios::end);
    EXPECT_TRUE(stream->bad());
    EXPECT_EQ("the file \"f\" is cut off before chunk 6", stream->GetProblem());
}

long GetPeakMegabytes() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss / 1024;
}

TEST(CipherStream, AHundredMegabytes_TakeTheMemoryOfTwoChunks) {
    constexpr std::size_t Pieces = 1600;
    const test_support::TemporaryDirectory directory;
    const std::string piece = CountingText(65'536);
    const long before = GetPeakMegabytes();
    tavo_sec::CipherWriter writer(directory / "f", "p", kit::ExistingFile::Keep, {1, 8, 65'536, 16});
    for (std::size_t i = 0; i < Pieces; ++i)
        writer.Write(piece);
    writer.Commit();
    tavo_sec::CipherStream stream(directory / "f", "p");
    std::string read(piece.size(), '\0');
    for (std::size_t i = 0; i < Pieces; ++i) {
        stream.read(read.data(), static_cast<std::streamsize>(read.size()));
        ASSERT_EQ(piece, read) << i;
    }
    EXPECT_EQ(EOF, stream.get());
    EXPECT_FALSE(stream.bad());
    EXPECT_LT(GetPeakMegabytes() - before, 8);
}

TEST(CipherStream, OpenedByManyThreadsAtOnce_EachReadsItsOwn) {
    const std::string text = CountingText(500);
    const std::string bytes = Encipher(text);
    std::vector<std::string> results(4);
    std::vector<std::thread> threads;
    for (std::string& result : results)
        threads.emplace_back([&] { result = Decipher(bytes).text; });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_THAT(results, testing::Each(text));
}

}  // namespace
