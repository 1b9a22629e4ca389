// Disks as they fail in earnest: full, read-only, gone, and shared with a second program.

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>

#include "kit/file.h"
#include "kit/path.h"
#include "tavo_core/active_change_log.h"
#include "tavo_core/edit_journal.h"
#include "tavo_core/editor.h"
#include "tests/saving/evening.h"
#include "tests/support/temporary_directory.h"

using test_support::Bar;
using test_support::TemporaryDirectory;

namespace {

constexpr int CannotMount = 77;

void Require(bool holds, const char* what) {
    if (!holds) throw std::logic_error(what);
}

/// Runs `body` in a process that has a small file system of its own at `directory`; returns its exit code, with what
/// it complained of in `complaint`.
int RunOnSmallDisk(const std::string& directory, const char* options, const std::function<void()>& body,
                   std::string& complaint) {
    int ends[2];
    if (::pipe(ends) != 0) throw std::runtime_error("cannot make a pipe");
    const pid_t child = ::fork();
    if (child == 0) {
        const bool isMounted = ::unshare(CLONE_NEWNS) == 0 &&
                               ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                               ::mount("tmpfs", directory.c_str(), "tmpfs", 0, options) == 0;
        if (!isMounted) ::_exit(CannotMount);
        try {
            body();
        } catch (const std::exception& error) {
            const std::string text = error.what();
            ::_exit(::write(ends[1], text.data(), text.size()) < 0 ? 2 : 1);
        }
        ::_exit(0);
    }
    ::close(ends[1]);
    char character = 0;
    while (::read(ends[0], &character, 1) == 1)
        complaint += character;
    ::close(ends[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

template <class Call>
bool IsRefused(Call call) {
    try {
        call();
    } catch (const std::runtime_error& error) {
        return std::string(error.what()).size() > 10;
    }
    return false;
}

std::string SaveNext() {
    const ActiveChangeLogExclusive active;
    ++active->GetVersion().minor_number;
    return active->Save("");
}

std::size_t CountMarkers() {
    const ActiveChangeLogShared active;
    return active->GetSongLog("1").GetMarkers().size();
}

/// Each at a place of its own: two at one would be joined.
void AddMarker(CL::Editor& editor, unsigned int number) {
    editor.Add("1", CL::Marker(Bar(1 + number % 20) + 1 + number / 20,
                               "marker " + std::to_string(number) + std::string(200, '.')));
}

/// What a host finds when it opens the log: its markers and those recovered.
std::size_t CountMarkersFound(const std::string& log) {
    CreateChangeLog(log);
    CL::Editor editor(test_support::EveningSongs());
    editor.ApplyRecovered(CL::EditJournal::Read(log).changes);
    return CountMarkers();
}

void FillDiskWithEdits(const std::string& directory) {
    const std::string log = test_support::BeginShow(directory);
    CreateChangeLog(log);
    std::size_t done = 0;
    {
        CL::Editor editor(test_support::EveningSongs());
        editor.KeepJournal(log);
        while (!IsRefused([&] { AddMarker(editor, static_cast<unsigned int>(done)); })) {
            ++done;
            Require(done < 10000, "the disk was never full");
        }
        Require(done > 20, "hardly an edit found room");
        Require(CountMarkers() == done + 1, "a refused edit changed the log");
        Require(IsRefused(SaveNext), "a log was saved on a full disk");
    }
    Require(kit::listdir(directory).size() == 2, "something was left behind beside the log and the journal");
    Require(CountMarkersFound(log) == done + 1, "an edit was lost");

    // Room is made, and the work goes on where it was.
    CL::Editor editor(test_support::EveningSongs());
    Require(IsRefused([&] { editor.KeepJournal(log); }), "a journal was kept that nobody recovered");
    CreateChangeLog(log);
    CL::Editor next(test_support::EveningSongs());
    next.ApplyRecovered(CL::EditJournal::Read(log).changes);
    Require(::mount("none", directory.c_str(), nullptr, MS_REMOUNT, "size=4m") == 0, "cannot make room");
    next.KeepJournal(log);
    AddMarker(next, 7777);
    const std::string saved = SaveNext();
    next.NoteSaved(saved);
    Require(CL::ChangeLog::Load(saved).GetSongLog("1").GetMarkers().size() == done + 2, "not all was saved");
    Require(!std::filesystem::exists(CL::EditJournal::PathFor(log)), "the old journal stayed");
}

void WorkOnReadOnlyDisk(const std::string& directory) {
    const std::string log = test_support::BeginShow(directory);
    CreateChangeLog(log);
    {
        CL::Editor editor(test_support::EveningSongs());
        editor.KeepJournal(log);
        AddMarker(editor, 1);
    }
    Require(::mount("none", directory.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) == 0,
            "cannot make it read-only");
    Require(IsRefused([] { SaveNext(); }), "a log was saved on a read-only disk");
    Require(CL::EditJournal::Read(log).changes.size() == 1, "the edit made before is gone");
    CreateChangeLog(log);
    CL::Editor second(test_support::EveningSongs());
    Require(IsRefused([&] { second.KeepJournal(log); }), "a journal was begun on a read-only disk");
    Require(CountMarkersFound(log) == 2, "the show does not open with its edits");
}

/// Does `work` in a directory that is a small disk, and fails the test for what it complains of.
void TestOnSmallDisk(const char* mountOptions, void (*work)(const std::string&)) {
    const TemporaryDirectory directory;
    std::string complaint;
    const int code = RunOnSmallDisk(
        directory.Path(), mountOptions, [&] { work(directory.Path()); }, complaint);
    if (code == CannotMount) GTEST_SKIP() << "no file system can be mounted here";
    EXPECT_EQ("", complaint);
    EXPECT_EQ(0, code);
}

}  // namespace

TEST(HardDisk, FullDisk_RefusesEditAndSaveAndLosesNothing) {
    TestOnSmallDisk("size=64k", FillDiskWithEdits);
}

TEST(HardDisk, ReadOnlyDisk_RefusesAndTheShowOpens) {
    TestOnSmallDisk("size=4m", WorkOnReadOnlyDisk);
}

TEST(HardDisk, DirectoryThatVanished_RefusesUntilItIsThereAgain) {
    const TemporaryDirectory directory;
    const std::string show = directory / "show";
    const std::string away = directory / "away";
    std::filesystem::create_directory(show);
    const std::string log = test_support::BeginShow(show);
    CreateChangeLog(log);
    CL::Editor editor(test_support::EveningSongs());
    editor.KeepJournal(log);
    AddMarker(editor, 1);

    std::filesystem::rename(show, away);
    EXPECT_TRUE(IsRefused([&] { AddMarker(editor, 2); }));
    EXPECT_TRUE(IsRefused([&] { AddMarker(editor, 2); })) << "nor the second time";
    EXPECT_TRUE(IsRefused([] { SaveNext(); }));
    EXPECT_EQ(2U, CountMarkers());

    std::filesystem::rename(away, show);
    AddMarker(editor, 3);
    EXPECT_EQ(2U, CL::EditJournal::Read(log).changes.size());
    EXPECT_EQ(3U, CountMarkersFound(log));
    SetActiveChangeLog(nullptr);
}

TEST(HardDisk, DirectoryThatWasDeleted_RefusesAndLeavesTheLogInMemory) {
    const TemporaryDirectory directory;
    const std::string show = directory / "show";
    std::filesystem::create_directory(show);
    const std::string log = test_support::BeginShow(show);
    CreateChangeLog(log);
    CL::Editor editor(test_support::EveningSongs());
    editor.KeepJournal(log);
    AddMarker(editor, 1);
    std::filesystem::remove_all(show);
    EXPECT_TRUE(IsRefused([&] { AddMarker(editor, 2); }));
    EXPECT_TRUE(IsRefused([] { SaveNext(); }));
    EXPECT_EQ(2U, CountMarkers());
    // Somebody makes the directory again: the journal takes all that is not saved.
    std::filesystem::create_directory(show);
    AddMarker(editor, 3);
    const std::string saved = SaveNext();
    editor.NoteSaved(saved);
    EXPECT_EQ(3U, CL::ChangeLog::Load(saved).GetSongLog("1").GetMarkers().size());
    SetActiveChangeLog(nullptr);
}

TEST(TwoPrograms, SavingOneVersionAtTheSameTime_OneWinsAndTheOthersAreTold) {
    for (int round = 0; round < 20; ++round) {
        const TemporaryDirectory directory;
        test_support::BeginShow(directory.Path());
        constexpr int Programs = 4;
        int start[2];
        ASSERT_EQ(0, ::pipe(start));
        std::vector<pid_t> programs;
        for (int number = 0; number < Programs; ++number) {
            const pid_t program = ::fork();
            if (program == 0) {
                CL::ChangeLog log = CL::ChangeLog::Load(directory / "evening-1.0.logdata");
                log.GetVersion() = {1, 1};
                log.GetSongLogs()["1"].GetMarkers().Add(CL::Marker(0, std::to_string(number)));
                ::close(start[1]);
                char byte = 0;
                static_cast<void>(!::read(start[0], &byte, 1));
                try {
                    log.Save("");
                } catch (const kit::FileExistsError& error) {
                    ::_exit(std::string(error.what()).find("exists already") == std::string::npos ? 9 : 1);
                } catch (const std::exception&) {
                    ::_exit(2);
                }
                ::_exit(0);
            }
            programs.push_back(program);
        }
        ::close(start[0]);
        ::close(start[1]);
        int saved = 0;
        for (const pid_t program : programs) {
            int status = 0;
            ::waitpid(program, &status, 0);
            ASSERT_TRUE(WIFEXITED(status));
            ASSERT_LE(WEXITSTATUS(status), 1) << "saved, or told that the name was taken";
            saved += WEXITSTATUS(status) == 0 ? 1 : 0;
        }
        EXPECT_LE(1, saved);
        // One log each that was saved, whole, beside the first: none was overwritten, nothing left behind.
        const auto names = kit::listdir(directory.Path());
        EXPECT_EQ(static_cast<std::size_t>(saved) + 1, names.size());
        for (const std::string& name : names)
            EXPECT_NO_THROW(static_cast<void>(CL::ChangeLog::Load(directory / name)));
    }
}

TEST(TwoPrograms, SecondOneOnAJournal_IsToldAndTheFirstGoesOn) {
    const TemporaryDirectory directory;
    const std::string log = test_support::BeginShow(directory.Path());
    CreateChangeLog(log);
    CL::Editor editor(test_support::EveningSongs());
    editor.KeepJournal(log);
    AddMarker(editor, 1);
    const pid_t second = ::fork();
    if (second == 0) {
        CL::Editor other(test_support::EveningSongs());
        try {
            other.KeepJournal(log);
        } catch (const std::runtime_error& error) {
            ::_exit(std::string(error.what()).find("another program") == std::string::npos ? 2 : 0);
        }
        ::_exit(1);
    }
    int status = 0;
    ::waitpid(second, &status, 0);
    EXPECT_EQ(0, WEXITSTATUS(status));
    AddMarker(editor, 2);
    EXPECT_EQ(2U, CL::EditJournal::Read(log).changes.size());
    SetActiveChangeLog(nullptr);
}
