#include "kit/file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>

#include "kit/path.h"
#include "platform/kit/src/durable_rename.h"
#include "tests/support/temporary_directory.h"

namespace {

constexpr std::uintmax_t NoLimit = 1U << 30U;

std::string GetMessage(const std::function<void()>& call) {
    try {
        call();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "no error";
}

/// Lets files grow only to so many bytes: the write that crosses the limit is short and the next one fails.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) : previousHandler_(std::signal(SIGXFSZ, SIG_IGN)) {
        ::getrlimit(RLIMIT_FSIZE, &previous_);
        const rlimit limit{bytes, previous_.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        ::setrlimit(RLIMIT_FSIZE, &previous_);
        std::signal(SIGXFSZ, previousHandler_);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    void (*const previousHandler_)(int);
    rlimit previous_{};
};

/// Replaces the file by one text and the other for ever and says so after each time; never returns.
[[noreturn]] void ReplaceForEver(const std::string& path, const std::string (&texts)[2], int pipeEnd) {
    for (std::size_t round = 0;; ++round) {
        kit::ReplaceFileDurably(path, texts[round % 2]);
        if (::write(pipeEnd, "x", 1) != 1) ::_exit(1);
    }
}

/// Starts a process that replaces the file for ever, kills it after so many times, while it is at the next one.
void KillWriterAfter(int times, const std::string& path, const std::string (&texts)[2]) {
    int ends[2];
    ASSERT_EQ(0, ::pipe(ends));
    const pid_t writer = ::fork();
    if (writer == 0) ReplaceForEver(path, texts, ends[1]);
    ASSERT_GT(writer, 0);
    for (char said; times > 0; --times)
        ASSERT_EQ(1, ::read(ends[0], &said, 1));
    ASSERT_EQ(0, ::kill(writer, SIGKILL));
    ASSERT_EQ(writer, ::waitpid(writer, nullptr, 0));
    ::close(ends[0]);
    ::close(ends[1]);
}

class Files : public testing::Test {
protected:
    [[nodiscard]] std::vector<std::string> List() const { return kit::listdir(directory_.Path()); }

    const test_support::TemporaryDirectory directory_;
    const std::string path_ = directory_ / "show.json";
    const std::string name_ = "the file \"" + path_ + "\" ";
};

}  // namespace

TEST_F(Files, Written_IsReadBackByteForByte) {
    for (const std::size_t length : {0U, 1U, 4096U, 300'000U}) {
        std::string bytes(length, '\0');
        for (std::size_t i = 0; i < length; ++i)
            bytes[i] = static_cast<char>(i * 7);
        kit::ReplaceFileDurably(path_, bytes);
        EXPECT_EQ(bytes, kit::ReadFile(path_, length)) << length;
        EXPECT_THAT(List(), testing::ElementsAre("show.json"));
    }
}

TEST_F(Files, ReadLongerThanAllowed_IsRefused) {
    kit::WriteNewFileDurably(path_, "12345");
    EXPECT_EQ("12345", kit::ReadFile(path_, 5));
    EXPECT_EQ(name_ + "is larger than the 4 bytes allowed", GetMessage([&] { (void)kit::ReadFile(path_, 4); }));
    EXPECT_EQ(name_ + "is larger than the 0 bytes allowed", GetMessage([&] { (void)kit::ReadFile(path_, 0); }));
}

TEST_F(Files, ReadOfWhatIsNoFile_IsRefusedWithTheReason) {
    EXPECT_EQ(name_ + "does not exist", GetMessage([&] { (void)kit::ReadFile(path_, NoLimit); }));
    std::filesystem::create_directory(path_);
    EXPECT_EQ(name_ + "is a directory", GetMessage([&] { (void)kit::ReadFile(path_, NoLimit); }));
    const std::string below = path_ + "/../show.json/x/y";
    EXPECT_EQ("the file \"" + below + "\" does not exist", GetMessage([&] { (void)kit::ReadFile(below, NoLimit); }));
}

TEST_F(Files, ReadOfPipe_IsRefusedWithoutWaiting) {
    ASSERT_EQ(0, ::mkfifo(path_.c_str(), 0600));
    EXPECT_EQ(name_ + "is not a regular file", GetMessage([&] { (void)kit::ReadFile(path_, NoLimit); }));
}

TEST_F(Files, ReadOfFileThatAnnouncesNoSize_GivesItsBytes) {
    EXPECT_THAT(kit::ReadFile("/proc/self/status", NoLimit), testing::HasSubstr("Threads:"));
    EXPECT_EQ("the file \"/proc/self/status\" is larger than the 10 bytes allowed",
              GetMessage([] { (void)kit::ReadFile("/proc/self/status", 10); }));
}

TEST_F(Files, NewFileWhereOneExists_IsRefusedAndTheOldOneStays) {
    kit::WriteNewFileDurably(path_, "old");
    EXPECT_THROW(kit::WriteNewFileDurably(path_, "new"), kit::FileExistsError);
    EXPECT_EQ(name_ + "exists already and is not overwritten",
              GetMessage([&] { kit::WriteNewFileDurably(path_, "new"); }));
    EXPECT_EQ("old", kit::ReadFile(path_, NoLimit));
    EXPECT_THAT(List(), testing::ElementsAre("show.json"));
}

TEST_F(Files, Replaced_KeepsItsPermissions) {
    kit::WriteNewFileDurably(path_, "old");
    ASSERT_EQ(0, ::chmod(path_.c_str(), 0640));
    kit::ReplaceFileDurably(path_, "new");
    struct stat status {};
    ASSERT_EQ(0, ::stat(path_.c_str(), &status));
    EXPECT_EQ(0640U, status.st_mode & 07777U);
    EXPECT_EQ("new", kit::ReadFile(path_, NoLimit));
}

TEST_F(Files, WriteIntoMissingDirectory_NamesFileAndReason) {
    const std::string absent = directory_ / "absent/show.json";
    const std::string sentence = "the file \"" + absent + "\" cannot be written: No such file or directory";
    EXPECT_EQ(sentence, GetMessage([&] { kit::WriteNewFileDurably(absent, "x"); }));
    EXPECT_EQ(sentence, GetMessage([&] { kit::ReplaceFileDurably(absent, "x"); }));
}

TEST_F(Files, ReplacingADirectory_IsRefusedAndNothingIsLeftBehind) {
    std::filesystem::create_directory(path_);
    EXPECT_EQ(name_ + "cannot be written: Is a directory", GetMessage([&] { kit::ReplaceFileDurably(path_, "x"); }));
    EXPECT_THAT(List(), testing::ElementsAre("show.json"));
}

TEST_F(Files, DiskRefusesHalfWay_OldFileStaysAndNothingIsLeftBehind) {
    kit::WriteNewFileDurably(path_, "old");
    const std::string tooLong(5000, 'x');
    const std::string other = directory_ / "other";
    {
        const FileSizeLimit limit(1000);
        EXPECT_EQ(name_ + "cannot be written: File too large",
                  GetMessage([&] { kit::ReplaceFileDurably(path_, tooLong); }));
        EXPECT_EQ("the file \"" + other + "\" cannot be written: File too large",
                  GetMessage([&] { kit::WriteNewFileDurably(other, tooLong); }));
    }
    EXPECT_EQ("old", kit::ReadFile(path_, NoLimit));
    EXPECT_THAT(List(), testing::ElementsAre("show.json"));
}

TEST_F(Files, WriterKilledAtAnyMoment_LeavesOneWholeText) {
    const std::string texts[2] = {std::string(200'000, 'a'), std::string(100'000, 'b')};
    for (int times = 1; times <= 10; ++times) {
        KillWriterAfter(times, path_, texts);
        const std::string left = kit::ReadFile(path_, NoLimit);
        EXPECT_TRUE(left == texts[0] || left == texts[1]) << left.size() << " bytes left";
    }
}

TEST_F(Files, WrittenInPieces_AppearsOnlyAtTheCommit) {
    kit::DurableWriter writer(path_, kit::ExistingFile::Keep);
    writer.Write("first, ");
    writer.Write("");
    writer.Write("second");
    EXPECT_FALSE(std::filesystem::exists(path_));
    writer.Commit();
    EXPECT_EQ("first, second", kit::ReadFile(path_, NoLimit));
    EXPECT_THAT(List(), testing::ElementsAre("show.json"));
}

TEST_F(Files, WrittenInPiecesWithoutACommit_LeavesTheOldFileAndNothingElse) {
    kit::WriteNewFileDurably(path_, "old");
    {
        kit::DurableWriter writer(path_, kit::ExistingFile::Replace);
        writer.Write("new");
    }
    EXPECT_EQ("old", kit::ReadFile(path_, NoLimit));
    EXPECT_THAT(List(), testing::ElementsAre("show.json"));
}

TEST_F(Files, LinkAndUnlink_MovesOnceAndNeverReplaces) {
    const std::string temporary = directory_ / "temporary";
    kit::WriteNewFileDurably(temporary, "new");
    EXPECT_EQ(0, kit::LinkAndUnlink(temporary, path_));
    EXPECT_THAT(List(), testing::ElementsAre("show.json"));
    kit::WriteNewFileDurably(temporary, "newer");
    EXPECT_EQ(EEXIST, kit::LinkAndUnlink(temporary, path_));
    EXPECT_EQ("new", kit::ReadFile(path_, NoLimit));
    EXPECT_EQ("newer", kit::ReadFile(temporary, NoLimit));
}

TEST(RenameDirectoryDurably, Finished_AppearsWithAllItsFiles) {
    const test_support::TemporaryDirectory directory;
    for (const char* to : {"show", "other/"}) {
        std::filesystem::create_directory(directory / "half");
        kit::WriteNewFileDurably(directory / "half/a", "1");
        if (std::string(to) == "show") std::filesystem::create_directory(directory / to);
        kit::RenameDirectoryDurably(directory / "half", directory / to);
        EXPECT_FALSE(std::filesystem::exists(directory / "half"));
        EXPECT_EQ("1", kit::ReadFile(directory / (std::string(to) + "/a"), 10));
    }
}

TEST(RenameDirectoryDurably, ThatCannotBe_SaysWhyAndKeepsItsName) {
    const test_support::TemporaryDirectory directory;
    std::filesystem::create_directories(directory / "half");
    std::filesystem::create_directories(directory / "full/inside");
    for (const char* to : {"full", "missing/show"}) {
        try {
            kit::RenameDirectoryDurably(directory / "half", directory / to);
            FAIL() << to;
        } catch (const std::runtime_error& error) {
            EXPECT_EQ(0U, std::string(error.what()).find("the directory \"" + (directory / to) + "\" cannot be made: "))
                << error.what();
        }
        EXPECT_TRUE(std::filesystem::exists(directory / "half"));
    }
}
