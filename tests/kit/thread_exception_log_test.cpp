#include "kit/thread_exception_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <thread>
#include <vector>

#include "kit/file.h"
#include "kit/thread_names.h"
#include "tests/support/temporary_directory.h"

namespace {

class ThreadExceptionLog : public testing::Test {
protected:
    ~ThreadExceptionLog() override { kit::SetThreadExceptionLogPath(""); }

    [[nodiscard]] std::vector<std::string> ReadLines() const {
        std::istringstream text(kit::ReadFile(path_, 1'000'000));
        std::vector<std::string> lines;
        for (std::string line; std::getline(text, line);)
            lines.push_back(line);
        return lines;
    }

    const test_support::TemporaryDirectory directory_;
    const std::string path_ = directory_ / "tavo.threaderr";
};

constexpr const char* Time = "^[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}Z ";

}  // namespace

TEST_F(ThreadExceptionLog, Path_IsEmptyUntilSet) {
    EXPECT_EQ("", kit::GetThreadExceptionLogPath());
    kit::SetThreadExceptionLogPath(path_);
    EXPECT_EQ(path_, kit::GetThreadExceptionLogPath());
}

TEST_F(ThreadExceptionLog, Text_IsAppendedAsOneLineWithTimeAndThread) {
    kit::SetThreadExceptionLogPath(path_);
    std::jthread([] {
        kit::threadNames.SetNameOfCurrentThread("feed");
        kit::AppendToThreadExceptionLog("two\nlines");
    }).join();
    kit::AppendToThreadExceptionLog("second");
    EXPECT_THAT(ReadLines(), testing::ElementsAre(testing::ContainsRegex(std::string(Time) + "\\[feed\\] two lines$"),
                                                  testing::ContainsRegex(std::string(Time) + "\\[\\] second$")));
}

TEST_F(ThreadExceptionLog, WithoutPathOrWithUnwritableOne_LineGoesToStderr) {
    for (const std::string& path : {std::string(), directory_ / "absent/log", directory_.Path()}) {
        kit::SetThreadExceptionLogPath(path);
        testing::internal::CaptureStderr();
        kit::AppendToThreadExceptionLog("lost?");
        EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::EndsWith("[] lost?\n")) << path;
    }
}

TEST_F(ThreadExceptionLog, LinesOfSeveralThreads_AreAllThereAndWhole) {
    kit::SetThreadExceptionLogPath(path_);
    {
        std::vector<std::jthread> threads;
        for (int thread = 0; thread < 4; ++thread) {
            threads.emplace_back([] {
                for (int line = 0; line < 100; ++line)
                    kit::AppendToThreadExceptionLog("whole");
            });
        }
    }
    const std::vector<std::string> lines = ReadLines();
    EXPECT_EQ(400U, lines.size());
    EXPECT_THAT(lines, testing::Each(testing::ContainsRegex(std::string(Time) + "\\[\\] whole$")));
}
