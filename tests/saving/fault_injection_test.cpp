#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <set>
#include <string>

#include "tests/saving/evening.h"
#include "tests/saving/traced_child.h"
#include "tests/support/sanitizers.h"
#include "tests/support/temporary_directory.h"

using test_support::Fault;
using test_support::TemporaryDirectory;

namespace {

/// The edits that may be found when the evening ended after these words: those of the steps done, and those with the
/// step that was on its way.
std::set<std::string> AllowedAfter(const std::string& said) {
    std::set<std::string> allowed{test_support::EditsAfter(said)};
    if (said.size() < test_support::CountSteps()) allowed.insert(test_support::EditsAfter(said + 'a'));
    return allowed;
}

/// Runs an evening with the fault and reopens the show. False behind the last call that the fault could meet.
template <class Check>
bool TryFault(const Fault& fault, const Check& check) {
    const TemporaryDirectory directory;
    test_support::BeginShow(directory.Path());
    const auto result =
        test_support::RunTraced(fault, [&](const auto& say) { test_support::SpendEvening(directory.Path(), say); });
    if (!result.couldTrace) return false;
    try {
        check(result, test_support::Reopen(directory.Path()));
    } catch (const std::exception& error) {
        ADD_FAILURE() << "call " << fault.call << ", error " << fault.error << ", said " << result.said << ": "
                      << error.what();
    }
    return result.wasFaulted && !testing::Test::HasFailure();
}

bool CanTrace() {
    return test_support::RunTraced({}, [](const auto&) {}).couldTrace;
}

}  // namespace

class FaultInjection : public testing::Test {
protected:
    void TearDown() override {
        if (before_)
            ::setenv("TMPDIR", before_->c_str(), 1);
        else
            ::unsetenv("TMPDIR");
    }
    void SetUp() override {
        if (!CanTrace()) GTEST_SKIP() << "processes cannot be traced here";
        // Thousands of flushes: what reaches the disk is not the question here, only what the calls leave behind.
        if (const char* directory = std::getenv("TMPDIR")) before_ = directory;
        if (::access("/dev/shm", W_OK) == 0) ::setenv("TMPDIR", "/dev/shm", 1);
    }

private:
    std::optional<std::string> before_;
};

TEST_F(FaultInjection, WithoutAFault_EveryStepIsDoneAndFound) {
    const std::string all(test_support::CountSteps(), 'a');
    EXPECT_FALSE(TryFault({}, [&](const auto& result, const std::string& found) {
        EXPECT_TRUE(result.finished);
        EXPECT_EQ(all, result.said);
        EXPECT_EQ(test_support::EditsAfter(all), found);
    }));
}

TEST_F(FaultInjection, KilledBeforeEachSystemCall_ShowOpensWithAllThatWasAcknowledged) {
    Fault fault{Fault::Kind::Kill, 1, 0};
    std::set<std::size_t> killedIn;
    while (TryFault(fault, [&](const auto& result, const std::string& found) {
        killedIn.insert(result.said.size());
        EXPECT_THAT(AllowedAfter(result.said), testing::Contains(found))
            << "killed before call " << fault.call << " having said " << result.said;
    }))
        ++fault.call;
    EXPECT_EQ(test_support::CountSteps() + 1, killedIn.size()) << "each step was met, and the time after the last";
    RecordProperty("calls", static_cast<int>(fault.call - 1));
}

TEST_F(FaultInjection, InterruptedOnceAtEachCall_NothingIsRefused) {
    Fault fault{Fault::Kind::Error, 1, EINTR};
    const std::string all(test_support::CountSteps(), 'a');
    while (TryFault(fault, [&](const auto& result, const std::string& found) {
        EXPECT_EQ(all, result.said) << "interrupted at call " << fault.call;
        EXPECT_EQ(test_support::EditsAfter(all), found);
    }))
        ++fault.call;
    EXPECT_LT(50U, fault.call);
}

TEST_F(FaultInjection, ShortWriteAtEachCall_NothingIsRefused) {
    Fault fault{Fault::Kind::ShortWrite, 1, 0};
    const std::string all(test_support::CountSteps(), 'a');
    while (TryFault(fault, [&](const auto& result, const std::string& found) {
        EXPECT_EQ(all, result.said) << "short write at call " << fault.call;
        EXPECT_EQ(test_support::EditsAfter(all), found);
    }))
        ++fault.call;
    EXPECT_LT(50U, fault.call);
}

/// Its errors meet every call each. A process under the address sanitizer, which looks for leaks at each of its many
/// ends, takes long: there the three errors share the calls.
class FailingDisk : public FaultInjection, public testing::WithParamInterface<int> {
protected:
    static constexpr unsigned int Step = test_support::IsAddressSanitized ? 3 : 1;
    [[nodiscard]] static unsigned int FindFirst() {
        const unsigned int index = GetParam() == ENOSPC ? 0 : GetParam() == EIO ? 1 : 2;
        return 1 + index % Step;
    }
};

TEST_P(FailingDisk, OnceAtEachCall_WhatWasDoneIsFoundAndNothingElse) {
    Fault fault{Fault::Kind::Error, FindFirst(), GetParam()};
    bool wasAnythingRefused = false;
    while (TryFault(fault, [&](const auto& result, const std::string& found) {
        wasAnythingRefused |= result.said.find('r') != std::string::npos;
        EXPECT_EQ(test_support::EditsAfter(result.said), found)
            << std::strerror(fault.error) << " at call " << fault.call << ", said " << result.said;
    }))
        fault.call += Step;
    EXPECT_TRUE(wasAnythingRefused);
    EXPECT_LT(50U, fault.call);
}

TEST_P(FailingDisk, OnceAtEachCallAndNothingCanBeCutOff_WhatWasDoneIsFoundAndNothingElse) {
    Fault fault{Fault::Kind::ErrorNoCutBack, FindFirst(), GetParam()};
    while (TryFault(fault, [&](const auto& result, const std::string& found) {
        EXPECT_EQ(test_support::EditsAfter(result.said), found)
            << std::strerror(fault.error) << " at call " << fault.call << ", said " << result.said;
    }))
        fault.call += Step;
    EXPECT_LT(50U, fault.call);
}

TEST_P(FailingDisk, FromEachCallOn_WhatWasDoneIsFoundAndAtMostTheStepThatFailed) {
    Fault fault{Fault::Kind::ErrorsOn, FindFirst(), GetParam()};
    while (TryFault(fault, [&](const auto& result, const std::string& found) {
        std::string withTheFailed = result.said;
        const std::size_t failed = withTheFailed.find('r');
        if (failed != std::string::npos) withTheFailed[failed] = 'a';
        EXPECT_THAT(
            (std::set<std::string>{test_support::EditsAfter(result.said), test_support::EditsAfter(withTheFailed)}),
            testing::Contains(found))
            << std::strerror(fault.error) << " from call " << fault.call << " on, said " << result.said;
    }))
        fault.call += Step;
    EXPECT_LT(50U, fault.call);
}

INSTANTIATE_TEST_SUITE_P(Errors, FailingDisk, testing::Values(ENOSPC, EIO, EROFS),
                         [](const auto& error) { return std::string(::strerrorname_np(error.param)); });
