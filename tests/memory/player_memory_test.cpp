// A player that is made while memory runs out.

#include <gtest/gtest.h>

#include <cstddef>
#include <new>
#include <optional>

#include "tavo_core/callback_dispatcher.h"
#include "tests/memory/failing_allocation.h"
#include "tests/player_core/support/test_player.h"

namespace {

using test_support::FailingAllocation;
using test_support::TestPlayer;

TEST(PlayerMemory, RunsOutWhilePlayerIsMade_NoCallbackReachesWhatWasNeverWhole) {
    const tavo_midi::ShowData showData;
    // The first time some things are allocated that stay.
    { const TestPlayer warmUp(showData); }
    // The place stays, so that a callback left behind calls into what is no player any more, and is noticed.
    alignas(TestPlayer) static std::byte place[sizeof(TestPlayer)];
    bool wasMade = false;
    std::size_t failures = 0;
    for (; !wasMade; ++failures) {
        const FailingAllocation failing(failures);
        try {
            new (place) TestPlayer(showData);
            wasMade = true;
        } catch (const std::bad_alloc&) {
            FailingAllocation::Stop();
            unsigned int cutEnd = 960;
            notify::callbackDispatcher.Notify(notify::names::internal_cut, &cutEnd);
            notify::callbackDispatcher.Notify(notify::names::stopped_at_end_of_song, nullptr);
        }
    }
    std::launder(reinterpret_cast<TestPlayer*>(place))->~TestPlayer();
    EXPECT_GT(failures, 4U) << "each of the two callbacks takes more than one allocation";
}

}  // namespace
