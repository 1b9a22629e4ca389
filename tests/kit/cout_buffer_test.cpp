#include "kit/cout_buffer.h"

#include <gtest/gtest.h>

#include <iomanip>
#include <iostream>
#include <sstream>
#include <thread>
#include <vector>

namespace music {

struct Note {
    int key;
};

kit::CoutBuffer& operator<<(kit::CoutBuffer& buffer, const Note& note) {
    return buffer << "note " << note.key;
}

}  // namespace music

namespace {

/// Catches what is written to std::cout, piece by piece.
class CaughtCout : public std::streambuf {
public:
    CaughtCout() : previous_(std::cout.rdbuf(this)) {}
    ~CaughtCout() override { std::cout.rdbuf(previous_); }

    std::vector<std::string> pieces;

private:
    std::streamsize xsputn(const char* text, std::streamsize length) override {
        pieces.emplace_back(text, static_cast<std::size_t>(length));
        return length;
    }
    int overflow(int c) override {
        pieces.emplace_back(1, static_cast<char>(c));
        return c;
    }

    std::streambuf* const previous_;
};

using Pieces = std::vector<std::string>;

}  // namespace

TEST(CoutBuffer, BeforeEndl_NothingIsWritten) {
    CaughtCout caught;
    kit::CoutBuffer buffer;
    buffer << "bar " << 12 << std::endl << true;
    EXPECT_EQ(Pieces{}, caught.pieces);
    EXPECT_EQ("bar 12\n1", buffer.Text());
}

TEST(CoutBuffer, Endl_WritesEverythingInOnePiece) {
    CaughtCout caught;
    kit::CoutBuffer buffer;
    buffer << "bar " << 12 << "\nbeat " << 'c' << kit::endl;
    EXPECT_EQ(Pieces{"bar 12\nbeat c\n"}, caught.pieces);
    EXPECT_EQ("", buffer.Text());
}

TEST(CoutBuffer, Destructor_WritesTheRest) {
    CaughtCout caught;
    {
        kit::CoutBuffer buffer;
        buffer << "first" << kit::endl << "rest";
    }
    EXPECT_EQ((Pieces{"first\n", "rest"}), caught.pieces);
}

TEST(CoutBuffer, DestructorOfEmptyBuffer_WritesNothing) {
    CaughtCout caught;
    { const kit::CoutBuffer buffer; }
    EXPECT_EQ(Pieces{}, caught.pieces);
}

TEST(CoutBuffer, TypeWithItsOwnOperator_IsPrintedByIt) {
    CaughtCout caught;
    kit::CoutBuffer() << music::Note{60} << ", " << music::Note{64} << kit::endl;
    EXPECT_EQ(Pieces{"note 60, note 64\n"}, caught.pieces);
}

TEST(CoutBuffer, Manipulators_FormatWhatFollows) {
    const CaughtCout caught;
    kit::CoutBuffer buffer;
    buffer << std::hex << 255 << ' ' << std::setw(4) << std::setfill('0') << 1 << ' ' << std::boolalpha << false;
    EXPECT_EQ("ff 0001 false", buffer.Text());
}

TEST(CoutBuffer, LinesOfSeveralThreads_NeverMix) {
    constexpr int Threads = 4;
    constexpr int Lines = 500;
    CaughtCout caught;
    {
        std::vector<std::jthread> threads;
        for (int thread = 0; thread < Threads; ++thread) {
            threads.emplace_back([thread] {
                kit::CoutBuffer buffer;
                for (int line = 0; line < Lines; ++line)
                    buffer << thread << ':' << line << kit::endl;
            });
        }
    }
    ASSERT_EQ(std::size_t{Threads * Lines}, caught.pieces.size());
    std::vector<int> next(Threads, 0);
    for (const std::string& piece : caught.pieces) {
        const auto thread = static_cast<std::size_t>(piece.front() - '0');
        ASSERT_EQ(std::to_string(thread) + ':' + std::to_string(next.at(thread)++) + '\n', piece);
    }
}
