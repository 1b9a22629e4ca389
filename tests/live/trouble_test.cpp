// What can go wrong with the machine under a performance.

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "stage/control/take.h"
#include "tests/live/live_program.h"
#include "tests/stage/small_show.h"

namespace {

using test_support::LiveProgram;

class Trouble : public test_support::SmallShow {};

// As a laptop does whose lid was closed: its steady clock may have gone on or not.
TEST_F(Trouble, ProgramThatStoodStill_GoesOnWhereItWas) {
    LiveProgram play({Show(), "--output", "null", "--no-take"});
    play.WaitFor("song", {{"song", "1"}});
    play.Press("play");
    play.WaitFor("bar", {{"bar", "2"}});
    play.Signal(SIGSTOP);
    std::this_thread::sleep_for(std::chrono::milliseconds(1200));
    play.Signal(SIGCONT);
    const auto begin = std::chrono::steady_clock::now();
    const nlohmann::json third = play.WaitFor("bar", {{"bar", "3"}});
    const nlohmann::json fourth = play.WaitFor("bar", {{"bar", "4"}});
    EXPECT_EQ(96000, fourth["frame"].get<int>() - third["frame"].get<int>());
    EXPECT_GT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(1900)) << "it made up for the pause";
    EXPECT_EQ(0, play.Status()["output"]["timesLost"]);
    play.Quit();
}

TEST_F(Trouble, DiskThatIsFull_ShowPlaysOnAndSaysThatTheTakeIsNot) {
    if (!test_support::EnterOwnSharedMemory()) GTEST_SKIP() << "A small disk cannot be mounted here.";
    const std::string disk = directory_ / "disk";
    std::filesystem::create_directory(disk);
    ASSERT_EQ(0, ::mount("tmpfs", disk.c_str(), "tmpfs", 0, "size=16384"));
    {
        LiveProgram play({Show(), "--output", "null", "--take", disk + "/evening.take"});
        play.WaitFor("song", {{"song", "1"}});
        while (test_support::ReadAll(disk + "/evening.take").find(" state ") == std::string::npos)
            static_cast<void>(play.Status());
        play.Press("play");
        nlohmann::json told;
        do {
            for (int i = 0; i < 40; ++i)
                play.Press("tempo " + std::to_string(90 + i) + "%");
            told = play.WaitFor("message");
            ASSERT_FALSE(told.is_null());
        } while (told["sentence"].get<std::string>().find("take") == std::string::npos);
        EXPECT_NE(std::string::npos, told["sentence"].get<std::string>().find("No space left on device")) << told;
        play.WaitFor("bar");
        EXPECT_EQ("playing", play.Status()["motion"]);
        play.Quit();
    }
    // What was written can be read.
    const stage::Take take = stage::ReadTake(disk + "/evening.take");
    EXPECT_FALSE(take.isFinished);
    EXPECT_TRUE(take.lastState.has_value());
    ::umount(disk.c_str());
}

TEST_F(Trouble, SoundFontThatCannotBeRead_IsNamedBeforeAnythingPlays) {
    test_support::WriteAll(directory_ / "broken.sf2", "RIFFnothing");
    for (const char* name : {"missing.sf2", "broken.sf2"}) {
        const auto result = test_support::RunStage(
            {"play", Show(), "--output", "null", "--headless", "--no-take", "--soundfont", directory_ / name});
        EXPECT_EQ(1, result.exitCode);
        EXPECT_NE(std::string::npos, result.err.find(name)) << result.err;
        EXPECT_EQ(1, std::count(result.err.begin(), result.err.end(), '\n')) << result.err;
    }
}

/// Bytes of address space that the process has.
rlim_t FindAddressSpace(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/statm");
    rlim_t pages = 0;
    file >> pages;
    return pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
}

void LimitAddressSpace(pid_t process, rlim_t bytes) {
    const rlimit limit{bytes, RLIM_INFINITY};
    ASSERT_EQ(0, prlimit(process, RLIMIT_AS, &limit, nullptr));
}

TEST_F(Trouble, MemoryTooShortToOpenTheShow_IsSaidInOneSentence) {
    if (test_support::IsSanitized) GTEST_SKIP() << "A sanitizer needs more address space than there is memory.";
    test_support::WriteAll(directory_ / "input", "quit\n");
    for (int megabytes = 80; megabytes <= 200; megabytes += 20) {
        const auto result = test_support::RunProgram(
            {"/bin/sh", "-c",
             // Where the library that reads SoundFonts gets no thread, it ends the program itself.
             "export OMP_NUM_THREADS=1; ulimit -v " + std::to_string(megabytes * 1024) +
                 "; exec '" STAGE_BINARY "' play '" + Show() +
                 "' --output null --headless --no-take --osc off --web off <'" + (directory_ / "input") + "'"});
        SCOPED_TRACE(std::to_string(megabytes) + " MB: " + result.err);
        if (result.exitCode == 0) {
            EXPECT_NE(std::string::npos, result.out.find("The show has ended."));
        } else {
            EXPECT_EQ(1, result.exitCode);
            EXPECT_EQ(0U, result.err.find("stage: the memory"));
            EXPECT_EQ(1, std::count(result.err.begin(), result.err.end(), '\n'));
        }
    }
}

TEST_F(Trouble, MemoryThatIsUsedUpWhilePlaying_MusicGoesOnAndNothingSavedIsLost) {
    if (test_support::IsSanitized) GTEST_SKIP() << "A sanitizer needs more address space than there is memory.";
    LiveProgram play({Show(), "--output", "null", "--take", directory_ / "evening.take"});
    play.WaitFor("song", {{"song", "1"}});
    play.Press("edit add marker --song 1 --at 2 --text Kept");
    play.Press("play");
    play.WaitFor("bar", {{"bar", "2"}});
    LimitAddressSpace(play.GetPid(), FindAddressSpace(play.GetPid()));
    for (int i = 0; i < 200; ++i)
        play.Press("edit add marker --song 2 --at " + std::to_string(1 + i % 8) + " --text Later");
    play.Press("seek 10");
    play.WaitFor("bar", {{"bar", "11"}});
    play.Press("load 2");
    play.Press("play");
    LimitAddressSpace(play.GetPid(), RLIM_INFINITY);
    EXPECT_FALSE(play.Status().is_null());
    play.Quit();
    EXPECT_TRUE(stage::ReadTake(directory_ / "evening.take").isFinished);
    const auto log = test_support::RunStage({"log", Show(), "recover"});
    EXPECT_EQ(0, log.exitCode) << log.err;
    const auto list = test_support::RunStage({"log", Show(), "show"});
    EXPECT_NE(std::string::npos, list.out.find("Kept")) << list.out << list.err;
}

}  // namespace
