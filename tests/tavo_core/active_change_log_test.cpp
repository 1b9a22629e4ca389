#include "tavo_core/active_change_log.h"

#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <stdexcept>
#include <thread>
#include <vector>

#include "kit/file.h"
#include "tests/support/temporary_directory.h"

using test_support::TemporaryDirectory;

namespace {

std::shared_ptr<CL::ChangeLog> MakeLog(const std::string& show) {
    auto log = std::make_shared<CL::ChangeLog>();
    log->SetShowName(show);
    return log;
}

/// Leaves no active log behind for other tests.
struct ActiveChangeLog : testing::Test {
    ~ActiveChangeLog() override { SetActiveChangeLog(nullptr); }
};

}  // namespace

TEST_F(ActiveChangeLog, BeforeOneIsCreated_GuardsSayThatThereIsNone) {
    SetActiveChangeLog(nullptr);
    EXPECT_THROW(static_cast<void>(*ActiveChangeLogShared()), std::logic_error);
    EXPECT_THROW(static_cast<void>(*ActiveChangeLogExclusive()), std::logic_error);
    EXPECT_EQ(nullptr, ActiveChangeLogShared().Share());
}

TEST_F(ActiveChangeLog, Created_IsReadAndWrittenThroughItsGuards) {
    const TemporaryDirectory directory;
    const std::string path = MakeLog("Lantern")->Save(directory / "a-1.0.logdata");
    CreateChangeLog(path);
    EXPECT_EQ("Lantern", ActiveChangeLogShared()->GetShowName());
    EXPECT_EQ(directory.Path(), ActiveChangeLogShared()->GetDirectory());
    ActiveChangeLogExclusive()->GetSongLogs()["1"].SetAttacca(CL::AttaccaSkip);
    EXPECT_EQ(CL::AttaccaSkip, ActiveChangeLogShared()->GetSongLog("1").GetAttacca());
}

TEST_F(ActiveChangeLog, CreatingFromABadFile_LeavesTheOldOne) {
    const TemporaryDirectory directory;
    SetActiveChangeLog(MakeLog("Old"));
    kit::WriteNewFileDurably(directory / "bad-1.0.logdata", "{");
    EXPECT_THROW(CreateChangeLog(directory / "bad-1.0.logdata"), std::runtime_error);
    EXPECT_THROW(CreateChangeLog(directory / "missing.logdata"), std::runtime_error);
    EXPECT_EQ("Old", ActiveChangeLogShared()->GetShowName());
}

TEST_F(ActiveChangeLog, Shared_OutlivesItsReplacement) {
    SetActiveChangeLog(MakeLog("Old"));
    const auto kept = ActiveChangeLogShared().Share();
    SetActiveChangeLog(MakeLog("New"));
    EXPECT_EQ("Old", kept->GetShowName());
    EXPECT_EQ("New", ActiveChangeLogShared()->GetShowName());
}

TEST_F(ActiveChangeLog, SharedTwiceOnOneThread_DoesNotWaitBehindAWriter) {
    SetActiveChangeLog(MakeLog("Old"));
    std::optional<ActiveChangeLogShared> outer(std::in_place);
    std::thread writer([] { ActiveChangeLogExclusive()->SetShowName("New"); });
    for (int i = 0; i < 10000; ++i)
        ASSERT_EQ("Old", ActiveChangeLogShared()->GetShowName());
    outer.reset();
    writer.join();
    EXPECT_EQ("New", ActiveChangeLogShared()->GetShowName());
}

TEST_F(ActiveChangeLog, SharedLockTakenWithOthers_LetsTheLogBePeekedAt) {
    SetActiveChangeLog(MakeLog("Lantern"));
    auto lock = GetActiveChangeLogSharedLock();
    EXPECT_FALSE(lock.owns_lock());
    lock.lock();
    EXPECT_EQ("Lantern", PeekActiveChangeLog()->GetShowName());
}

TEST_F(ActiveChangeLog, ReadersWritersAndReplacers_NeverSeeAHalfChange) {
    SetActiveChangeLog(MakeLog("aa"));
    std::vector<std::thread> threads;
    std::atomic<int> torn{0};
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&torn] {
            for (int n = 0; n < 2000; ++n) {
                const ActiveChangeLogShared log;
                const std::string name = log->GetShowName();
                if (name[0] != name[1]) ++torn;
            }
        });
    }
    threads.emplace_back([] {
        for (int n = 0; n < 500; ++n) {
            const ActiveChangeLogExclusive log;
            log->SetShowName("b");
            log->SetShowName(log->GetShowName() + "b");
        }
    });
    threads.emplace_back([] {
        for (int n = 0; n < 500; ++n)
            SetActiveChangeLog(MakeLog("cc"));
    });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(0, torn);
}
