#include <gtest/gtest.h>

#include "kit/file.h"
#include "kit/thread_exception_log.h"
#include "tavo_core/directories.h"
#include "tavo_core/tavo_log_exception.h"
#include "tests/support/temporary_directory.h"

using test_support::TemporaryDirectory;

TEST(Directories, Set_AreKeptApart) {
    Directories::SetShowDirectory("shows/one");
    Directories::SetSettingsDirectory("settings");
    EXPECT_EQ("shows/one", Directories::GetShowDirectory());
    EXPECT_EQ("settings", Directories::GetSettingsDirectory());
    Directories::SetShowDirectory("");
    Directories::SetSettingsDirectory("");
    EXPECT_EQ("", Directories::GetShowDirectory());
}

TEST(TavoLogException, Logged_IsOneLineWithMessageFileAndLine) {
    const TemporaryDirectory directory;
    const std::string path = directory / "tavo.threaderr";
    kit::SetThreadExceptionLogPath(path);
    TavoLogException("The light went out.", "sources/lamp", 12);
    kit::SetThreadExceptionLogPath("");
    const std::string text = kit::ReadFile(path, 4096);
    EXPECT_NE(std::string::npos, text.find("The light went out. (sources/lamp, line 12)\n")) << text;
}
