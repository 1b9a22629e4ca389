// Opening a show while memory runs out.

#include <gtest/gtest.h>

#include <cstddef>
#include <new>

#include "tavo_core/active_change_log.h"
#include "tavo_core/callback_dispatcher.h"
#include "tests/memory/failing_allocation.h"
#include "tests/player_core/support/test_interface.h"

namespace {

using test_support::FailingAllocation;
using test_support::ShowFiles;
using test_support::TestInterface;

/// Allocations while a façade is made.
std::size_t CountAllocations(const ShowFiles& files) {
    constexpr std::size_t Many = 1000000;
    const FailingAllocation failing(Many);
    const TestInterface facade(files.Show(), files.Settings());
    return Many - FailingAllocation::CountLeft();
}

TEST(InterfaceMemory, RunsOutWhileCommandsAreRegistered_NoneReachesWhatWasNeverWhole) {
    // Each of the eight commands takes more than one; what comes before is not ours to make fail.
    constexpr std::size_t OfRegistering = 16;
    ShowFiles files;
    files.WriteWholeShow();
    // The first time some things are allocated that stay.
    CountAllocations(files);
    const std::size_t count = CountAllocations(files);
    ASSERT_GT(count, OfRegistering);
    // The place stays, so that a callback left behind calls into what is no façade any more, and is noticed.
    alignas(TestInterface) static std::byte place[sizeof(TestInterface)];
    for (std::size_t failing = count - OfRegistering; failing < count; ++failing) {
        bool hasFailed = false;
        try {
            const FailingAllocation failingOne(failing);
            new (place) TestInterface(files.Show(), files.Settings());
        } catch (const std::bad_alloc&) {
            hasFailed = true;
        }
        ASSERT_TRUE(hasFailed) << failing << " of " << count;
        notify::callbackDispatcher.Notify(notify::names::midiCommandPlay, nullptr);
        notify::callbackDispatcher.Notify(notify::names::midiCommandStop, nullptr);
    }
    SetActiveChangeLog(nullptr);
}

}  // namespace
