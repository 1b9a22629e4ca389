// What a person at a terminal sees of work that takes long.

#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <csignal>

#include "kit/utf8.h"
#include "tests/stage/small_show.h"

namespace {

using test_support::WriteAll;

constexpr unsigned short Columns = 32;

/// `stage render` of a vamp that nobody leaves, which goes on for as long as it is let; its standard error is a
/// terminal or a pipe.
class LongRender {
public:
    LongRender(const std::string& show, const std::string& script, bool onTerminal) {
        std::array<int, 2> ends{};
        winsize size{24, Columns, 0, 0};
        if (onTerminal) {
            if (::openpty(&ends[0], &ends[1], nullptr, nullptr, &size) != 0) throw std::runtime_error("no terminal");
        } else if (::pipe(ends.data()) != 0) {
            throw std::runtime_error("no pipe");
        }
        from_ = ends[0];
        child_ = ::fork();
        if (child_ == 0) {
            ::dup2(ends[1], STDERR_FILENO);
            ::close(ends[0]);
            ::execl(STAGE_BINARY, "stage", "render", show.c_str(), "--song", "1", "--script", script.c_str(), "--out",
                    "none", "--max-passes", "1000000", "--max-overtime", "100000", nullptr);
            ::_exit(127);
        }
        ::close(ends[1]);
    }
    ~LongRender() {
        ::kill(child_, SIGKILL);
        ::waitpid(child_, nullptr, 0);
        ::close(from_);
    }
    LongRender(const LongRender&) = delete;
    LongRender& operator=(const LongRender&) = delete;

    /// What it has said when `isEnough` says so, or half a minute has passed.
    template <class IsEnough>
    std::string ReadUntil(IsEnough isEnough) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (!isEnough(said_) && std::chrono::steady_clock::now() < end) {
            pollfd ready{from_, POLLIN, 0};
            if (::poll(&ready, 1, 20) <= 0) continue;
            std::array<char, 4096> block{};
            const ssize_t got = ::read(from_, block.data(), block.size());
            if (got <= 0) break;
            said_.append(block.data(), static_cast<std::size_t>(got));
        }
        return said_;
    }

private:
    int from_ = -1;
    pid_t child_ = -1;
    std::string said_;
};

class ProgressOfLongWork : public test_support::SmallShow {};

TEST_F(ProgressOfLongWork, IsOneLineCutToTheTerminal_AndSilentElsewhere) {
    ASSERT_EQ(0, Edit("add vamp --song 1 --from 2 --to 3").exitCode);
    const std::string script = directory_ / "script";
    WriteAll(script, "+0s play\n");
    const auto begin = std::chrono::steady_clock::now();
    LongRender watched(Show(), script, true);
    LongRender unwatched(Show(), script, false);
    const std::string mark = "\r\x1B[K";
    const auto countLines = [&](const std::string& said) {
        std::size_t count = 0;
        for (std::size_t at = said.find(mark); at != std::string::npos; at = said.find(mark, at + 1))
            ++count;
        return count;
    };
    const std::string said = watched.ReadUntil([&](const std::string& text) { return countLines(text) >= 3; });
    EXPECT_LE(std::chrono::seconds(1), std::chrono::steady_clock::now() - begin) << "what is done sooner needs none";
    ASSERT_LE(3U, countLines(said)) << said;
    const std::size_t first = said.find(mark) + mark.size();
    const std::string line = said.substr(first, said.find(mark, first) - first);
    EXPECT_NE("", line);
    EXPECT_EQ(std::string::npos, line.find('\n'));
    EXPECT_GT(Columns, kit::CountColumns(line)) << line;
    // It has rendered for as long by now.
    const auto asLong = [&](const std::string&) {
        return std::chrono::steady_clock::now() - begin > std::chrono::milliseconds(1500);
    };
    const std::string silent = unwatched.ReadUntil(asLong);
    EXPECT_EQ(std::string::npos, silent.find('\r')) << silent;
    EXPECT_EQ(std::string::npos, silent.find('\x1B')) << silent;
}

}  // namespace
