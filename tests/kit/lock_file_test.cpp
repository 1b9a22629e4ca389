#include "kit/lock_file.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>

#include "kit/appended_file.h"
#include "tests/support/temporary_directory.h"

using std::chrono::milliseconds;
using test_support::TemporaryDirectory;

namespace {

TEST(LockFile, Held_RefusesAnotherAndTellsWhoHasIt_Released_LetsItIn) {
    const TemporaryDirectory directory;
    const std::string path = directory / "lock";
    EXPECT_EQ(std::nullopt, kit::LockFile::FindHolder(path)) << "there is no file";
    {
        const kit::LockFile held(path, "anna", milliseconds(0));
        EXPECT_EQ("anna", kit::LockFile::FindHolder(path));
        EXPECT_THROW(kit::LockFile(path, "ben", milliseconds(30)), kit::FileInUseError);
        EXPECT_EQ("anna", kit::LockFile::FindHolder(path)) << "the refused one wrote nothing";
    }
    EXPECT_EQ(std::nullopt, kit::LockFile::FindHolder(path));
    const kit::LockFile next(path, "ben", milliseconds(0));
    EXPECT_EQ("ben", kit::LockFile::FindHolder(path));
}

TEST(LockFile, ReleasedWhileAnotherWaits_LetsItIn) {
    const TemporaryDirectory directory;
    const std::string path = directory / "lock";
    auto held = std::make_unique<kit::LockFile>(path, "anna", milliseconds(0));
    std::thread waiting([&path] { EXPECT_NO_THROW(kit::LockFile(path, "ben", std::chrono::seconds(60))); });
    held.reset();
    waiting.join();
}

TEST(LockFile, HolderIsKilled_LetsTheNextIn) {
    const TemporaryDirectory directory;
    const std::string path = directory / "lock";
    int ends[2];
    ASSERT_EQ(0, ::pipe(ends));
    const pid_t child = ::fork();
    if (child == 0) {
        const kit::LockFile held(path, "a note that is longer than the next one", milliseconds(0));
        static_cast<void>(!::write(ends[1], "x", 1));
        ::pause();
        ::_exit(0);
    }
    char byte = 0;
    ASSERT_EQ(1, ::read(ends[0], &byte, 1));
    EXPECT_NE(std::nullopt, kit::LockFile::FindHolder(path));
    EXPECT_THROW(kit::LockFile(path, "", milliseconds(0)), kit::FileInUseError);
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    EXPECT_EQ(std::nullopt, kit::LockFile::FindHolder(path)) << "what it wrote of itself is not believed";
    const kit::LockFile next(path, "next", milliseconds(0));
    EXPECT_EQ("next", kit::LockFile::FindHolder(path));
    ::close(ends[0]);
    ::close(ends[1]);
}

TEST(LockFile, RemovedWhileHeld_IsNoticedByItsHolder) {
    const TemporaryDirectory directory;
    const std::string path = directory / "lock";
    const kit::LockFile held(path, "anna", milliseconds(0));
    EXPECT_NO_THROW(held.RequireStillThere());
    std::filesystem::remove(path);
    const kit::LockFile other(path, "ben", milliseconds(0));
    EXPECT_THROW(held.RequireStillThere(), std::runtime_error);
    EXPECT_NO_THROW(other.RequireStillThere());
}

TEST(LockFile, PathThatIsADirectoryOrNowhere_IsRefusedByName) {
    const TemporaryDirectory directory;
    for (const std::string& path : {directory.Path(), directory / "not there/lock"}) {
        try {
            const kit::LockFile held(path, "", milliseconds(0));
            ADD_FAILURE() << path;
        } catch (const std::runtime_error& error) {
            EXPECT_NE(std::string::npos, std::string(error.what()).find(path)) << error.what();
        }
    }
}

TEST(AppendedFile, IsHeld_FromOpeningToTheEnd) {
    const TemporaryDirectory directory;
    const std::string path = directory / "journal";
    EXPECT_FALSE(kit::AppendedFile::IsHeld(path));
    {
        const kit::AppendedFile held(path);
        EXPECT_TRUE(kit::AppendedFile::IsHeld(path));
        EXPECT_THROW(kit::AppendedFile{path}, kit::FileInUseError);
    }
    EXPECT_FALSE(kit::AppendedFile::IsHeld(path));
}

}  // namespace
