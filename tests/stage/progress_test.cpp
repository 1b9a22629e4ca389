// What a person at a terminal sees of work that takes long.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "kit/utf8.h"
#include "tests/stage/small_show.h"

namespace {

using test_support::WriteAll;

constexpr unsigned short Columns = 32;

/// `stage` with its standard error on a terminal or a pipe.
class LongWork {
public:
    LongWork(std::vector<std::string> words, bool onTerminal) {
        words.insert(words.begin(), "stage");
        std::vector<char*> arguments;
        for (std::string& word : words)
            arguments.push_back(word.data());
        arguments.push_back(nullptr);
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
            ::dup2(::open("/dev/null", O_WRONLY), STDOUT_FILENO);
            ::execv(STAGE_BINARY, arguments.data());
            ::_exit(127);
        }
        ::close(ends[1]);
    }
    ~LongWork() {
        if (child_ > 0) {
            ::kill(child_, SIGKILL);
            ::waitpid(child_, nullptr, 0);
        }
        ::close(from_);
    }
    LongWork(const LongWork&) = delete;
    LongWork& operator=(const LongWork&) = delete;

    /// All that it says until its end, on a machine that is fifty times as slow until `isEnough` says so.
    template <class IsEnough>
    std::string ReadAllSlowlyAtFirst(IsEnough isEnough) {
        int status = 0;
        while (::waitpid(child_, &status, WNOHANG) == 0) {
            ::kill(child_, SIGCONT);
            if (isEnough(said_)) {
                ReadUntil([](const std::string&) { return false; });
                continue;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            ::kill(child_, SIGSTOP);
            ReadUntil([until = std::chrono::steady_clock::now() + std::chrono::milliseconds(100)](const std::string&) {
                return std::chrono::steady_clock::now() >= until;
            });
        }
        EXPECT_EQ(0, status);
        child_ = 0;
        return ReadUntil([](const std::string&) { return false; });
    }

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

/// Back to the line's beginning, and the line is cleared.
constexpr const char* Mark = "\r\x1B[K";

std::size_t CountLines(const std::string& said) {
    std::size_t count = 0;
    for (std::size_t at = said.find(Mark); at != std::string::npos; at = said.find(Mark, at + 1))
        ++count;
    return count;
}

bool HasThreeLines(const std::string& said) {
    return CountLines(said) >= 3;
}

class ProgressOfLongWork : public test_support::SmallShow {};

TEST_F(ProgressOfLongWork, IsOneLineCutToTheTerminal_AndSilentElsewhere) {
    ASSERT_EQ(0, Edit("add vamp --song 1 --from 2 --to 3").exitCode);
    const std::string script = directory_ / "script";
    WriteAll(script, "+0s play\n");
    const auto begin = std::chrono::steady_clock::now();
    // A vamp that nobody leaves goes on for as long as it is let.
    const std::vector<std::string> render{"render", Show(), "--song",       "1",       "--script",       script,
                                          "--out",  "none", "--max-passes", "1000000", "--max-overtime", "100000"};
    LongWork watched(render, true);
    LongWork unwatched(render, false);
    const std::string mark = Mark;
    const std::string said = watched.ReadUntil(HasThreeLines);
    EXPECT_LE(std::chrono::seconds(1), std::chrono::steady_clock::now() - begin) << "what is done sooner needs none";
    ASSERT_LE(3U, CountLines(said)) << said;
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

TEST_F(ProgressOfLongWork, OfAnImport_NamesTheSongsAndIsClearedAtTheEnd) {
    std::filesystem::create_directory(directory_ / "songs");
    for (int number = 101; number <= 500; ++number)
        std::filesystem::copy(std::filesystem::path(SOURCE_DIR) / "examples/first-score/01_Lantern_Waltz.musicxml",
                              directory_ / ("songs/" + std::to_string(number) + "_Waltz.musicxml"));
    LongWork import({"import", directory_ / "songs", "-o", directory_ / "imported"}, true);
    const std::string said = import.ReadAllSlowlyAtFirst(HasThreeLines);
    EXPECT_LE(3U, CountLines(said)) << said;
    EXPECT_NE(std::string::npos, said.find(" of 400 done, ")) << said;
    const std::size_t last = said.rfind(Mark);
    ASSERT_NE(std::string::npos, last);
    EXPECT_EQ(std::string::npos, said.find(" done, ", last)) << said;
}

TEST_F(ProgressOfLongWork, OfAScoreThatIsPackedAndChecked_NamesThePages) {
    WriteAll(directory_ / "secret", "harbour\n");
    std::vector<std::string> pack{"score", "pack", Show(), "--passphrase-file", directory_ / "secret"};
    for (char number = '1'; number <= '9'; ++number) {
        pack.push_back(directory_ / ("page-" + std::string(1, number) + ".svg"));
        WriteAll(pack.back(), "<svg xmlns=\"http://www.w3.org/2000/svg\"/>" + std::string(4'000'000, ' '));
    }
    LongWork packing(pack, true);
    const std::string packed = packing.ReadAllSlowlyAtFirst(HasThreeLines);
    EXPECT_NE(std::string::npos, packed.find(" of 18 done, ")) << packed;
    LongWork checking({"score", "check", Show(), "--passphrase-file", directory_ / "secret"}, true);
    const std::string checked = checking.ReadAllSlowlyAtFirst(HasThreeLines);
    EXPECT_LE(3U, CountLines(checked)) << checked;
    EXPECT_NE(std::string::npos, checked.find(" of 9 done, page ")) << checked;
}

}  // namespace
