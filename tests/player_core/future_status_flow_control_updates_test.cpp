#include "player_core/future_status_flow_control_updates.h"

#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/notification_log.h"

namespace {

using Lines = test_support::NotificationLog::Lines;

Lines Status(const std::string& type, int count) {
    return {"StatusFlowControl '" + type + "' " + std::to_string(count)};
}

const Lines nothing;

class FutureStatuses : public ::testing::Test {
protected:
    void File(const std::string& type, int count, unsigned int tickIndex) {
        statuses_.AddFutureStatusFlowControl(type, count, tickIndex);
    }
    Lines SendUntil(unsigned int tickIndex) {
        statuses_.SendUntil(tickIndex);
        return log_.Take();
    }

    test_support::NotificationLog log_;
    gui::FutureStatusFlowControlUpdates statuses_;
};

TEST_F(FutureStatuses, AreSentOnceWhenThePlayheadReachesThem) {
    File("Vamp", 2, 1000);
    File("Repeat", 1, 2000);
    EXPECT_EQ(nothing, SendUntil(999));
    EXPECT_EQ(Status("Vamp", 2), SendUntil(1500));
    EXPECT_EQ(Status("Repeat", 1), SendUntil(2500));
    EXPECT_EQ(nothing, SendUntil(2500));
}

TEST_F(FutureStatuses, AtThePlayheadItself_AreSent) {
    File("Vamp", 2, 1000);
    EXPECT_EQ(Status("Vamp", 2), SendUntil(1000));
}

TEST_F(FutureStatuses, AreSentInOrderOfTheirTicks) {
    File("Skip", 0, 30);
    File("", 0, 10);
    File("AdvanceAttacca", 4, 20);
    EXPECT_EQ((Lines{"StatusFlowControl '' 0", "StatusFlowControl 'AdvanceAttacca' 4", "StatusFlowControl 'Skip' 0"}),
              SendUntil(30));
}

TEST_F(FutureStatuses, FiledAtOneTick_TheLastReplacesTheOthers) {
    File("Vamp", 1, 1000);
    File("Vamp", 2, 1000);
    EXPECT_EQ(Status("Vamp", 2), SendUntil(1000));
}

TEST_F(FutureStatuses, AtTickZero_WaitForNothingAndAreNeverSent) {
    // A playhead of 0 counts as sent from the beginning.
    File("Vamp", 1, 0);
    EXPECT_EQ(nothing, SendUntil(0));
    EXPECT_EQ(nothing, SendUntil(100));
    EXPECT_EQ(nothing, SendUntil(0));
}

TEST_F(FutureStatuses, AtTheLastTickOfAll_AreSent) {
    File("Vamp", 1, std::numeric_limits<unsigned int>::max());
    EXPECT_EQ(Status("Vamp", 1), SendUntil(std::numeric_limits<unsigned int>::max()));
}

TEST_F(FutureStatuses, FiledBehindThePlayhead_WaitUntilItGoesBack) {
    EXPECT_EQ(nothing, SendUntil(5000));
    File("Vamp", 1, 3000);
    EXPECT_EQ(nothing, SendUntil(6000));
    EXPECT_EQ(nothing, SendUntil(100));
    EXPECT_EQ(Status("Vamp", 1), SendUntil(3000));
}

TEST_F(FutureStatuses, GoingBackBeyondAStaleOne_SendsItAtOnce) {
    EXPECT_EQ(nothing, SendUntil(5000));
    File("Vamp", 1, 3000);
    EXPECT_EQ(Status("Vamp", 1), SendUntil(4000));
}

TEST_F(FutureStatuses, DisplacedCaesuraZero_IsSentForAsLongAsPlaybackStandsThere) {
    File("Caesura", 0, 4800);
    File("EndOfSong", 0, 4800);
    for (int pass = 0; pass < 3; ++pass)
        EXPECT_EQ(Status("Caesura", 0), SendUntil(4800));
    EXPECT_EQ(Status("EndOfSong", 0), SendUntil(4801));
    EXPECT_EQ(nothing, SendUntil(4801));
    // It stays pending until it is withdrawn.
    EXPECT_EQ(Status("Caesura", 0), SendUntil(4800));
}

TEST_F(FutureStatuses, WhileACaesuraZeroIsSent_NothingElseIsAndNothingCountsAsSent) {
    File("Vamp", 3, 4700);
    File("Caesura", 0, 4800);
    File("EndOfSong", 0, 4800);
    EXPECT_EQ(Status("Caesura", 0), SendUntil(4800));
    EXPECT_EQ((Lines{"StatusFlowControl 'Vamp' 3", "StatusFlowControl 'EndOfSong' 0"}), SendUntil(4801));
}

TEST_F(FutureStatuses, OnlyACaesurasZeroIsRememberedWhenDisplaced) {
    for (const auto& [type, count] : {std::pair<std::string, int>{"Caesura", 2}, {"Vamp", 0}, {"", 0}}) {
        gui::FutureStatusFlowControlUpdates statuses;
        statuses.AddFutureStatusFlowControl(type, count, 4800);
        statuses.AddFutureStatusFlowControl("EndOfSong", 0, 4800);
        statuses.SendUntil(4800);
        EXPECT_EQ(Status("EndOfSong", 0), log_.Take()) << type << count;
    }
}

TEST_F(FutureStatuses, CaesuraZeroDisplacedByItself_IsPendingToo) {
    File("Caesura", 0, 4800);
    File("Caesura", 0, 4800);
    EXPECT_EQ(Status("Caesura", 0), SendUntil(4800));
    EXPECT_EQ(Status("Caesura", 0), SendUntil(4800));
}

TEST_F(FutureStatuses, ClearCaesura_WithdrawsAZeroOnly) {
    File("Caesura", 0, 4800);
    statuses_.ClearCaesura(4800);
    EXPECT_EQ(nothing, SendUntil(4800));

    statuses_.ClearFutureUpdates();
    File("Caesura", 2, 4800);
    statuses_.ClearCaesura(4800);
    EXPECT_EQ(Status("Caesura", 2), SendUntil(4800));

    statuses_.ClearFutureUpdates();
    File("Vamp", 0, 4800);
    statuses_.ClearCaesura(4800);
    EXPECT_EQ(Status("Vamp", 0), SendUntil(4800));

    statuses_.ClearFutureUpdates();
    File("Caesura", 0, 4800);
    statuses_.ClearCaesura(4799);
    EXPECT_EQ(Status("Caesura", 0), SendUntil(4800));
}

TEST_F(FutureStatuses, ClearCaesura_DropsThePendingZeroWhateverItsTick) {
    File("Caesura", 0, 4800);
    File("EndOfSong", 0, 4800);
    statuses_.ClearCaesura(17);
    EXPECT_EQ(Status("EndOfSong", 0), SendUntil(4800));
}

TEST_F(FutureStatuses, ClearCaesuraAtZero_DropsThePendingZeroAndKeepsWhatIsFiled) {
    File("Caesura", 0, 4800);
    File("EndOfSong", 0, 4800);
    File("Caesura", 0, 9600);
    statuses_.ClearCaesura(0);
    EXPECT_EQ((Lines{"StatusFlowControl 'EndOfSong' 0", "StatusFlowControl 'Caesura' 0"}), SendUntil(9600));
}

TEST_F(FutureStatuses, ClearFutureUpdates_LeavesThePendingZero) {
    File("Caesura", 0, 4800);
    File("EndOfSong", 0, 4800);
    statuses_.ClearFutureUpdates();
    EXPECT_EQ(Status("Caesura", 0), SendUntil(4800));
    EXPECT_EQ(nothing, SendUntil(4801));
}

TEST_F(FutureStatuses, ClearFutureUpdates_ForgetsTheLastPlayhead) {
    EXPECT_EQ(nothing, SendUntil(5000));
    statuses_.ClearFutureUpdates();
    File("Vamp", 1, 3000);
    EXPECT_EQ(Status("Vamp", 1), SendUntil(6000));
}

TEST(StatusFlowControl, IsAPlainValue) {
    const gui::StatusFlowControl empty;
    EXPECT_EQ("", empty.GetType());
    EXPECT_EQ(0, empty.GetCount());
    gui::StatusFlowControl first("Vamp", 3);
    gui::StatusFlowControl second(first);
    const gui::StatusFlowControl third(std::move(first));
    EXPECT_EQ("Vamp", second.GetType());
    EXPECT_EQ(3, third.GetCount());
    second = empty;
    EXPECT_EQ("", second.GetType());
}

TEST(StatusFlowControl, Send_PostsWordAndCount) {
    test_support::NotificationLog log;
    gui::StatusFlowControl("Skip", -1).Send();
    EXPECT_EQ(Status("Skip", -1), log.Take());
}

/// The rules read plainly: every filed status is looked at in every pass.
class PlainStatusRules {
public:
    void File(const std::string& type, int count, unsigned int tickIndex) {
        const auto found = filed_.find(tickIndex);
        if (found != filed_.end() && found->second == std::pair<std::string, int>("Caesura", 0)) {
            pending_ = true;
            pendingTick_ = tickIndex;
        }
        filed_[tickIndex] = {type, count};
    }
    Lines SendUntil(unsigned int tickIndex) {
        if (tickIndex < sentUntil_) sentUntil_ = 0;
        if (pending_ && tickIndex == pendingTick_) return Status("Caesura", 0);
        Lines lines;
        std::set<unsigned int> sent;
        for (const auto& [tick, status] : filed_) {
            if (tick <= sentUntil_ || tick > tickIndex) continue;
            lines.push_back(Status(status.first, status.second).front());
            sent.insert(tick);
        }
        for (const unsigned int tick : sent)
            filed_.erase(tick);
        sentUntil_ = tickIndex;
        return lines;
    }

    void ClearCaesura(unsigned int tickIndex) {
        pending_ = false;
        const auto found = filed_.find(tickIndex);
        if (tickIndex != 0 && found != filed_.end() && found->second == std::pair<std::string, int>("Caesura", 0)) {
            filed_.erase(found);
        }
    }
    void ClearFutureUpdates() {
        filed_.clear();
        sentUntil_ = 0;
    }

private:
    std::map<unsigned int, std::pair<std::string, int>> filed_;
    bool pending_ = false;
    unsigned int pendingTick_ = 0;
    unsigned int sentUntil_ = 0;
};

TEST_F(FutureStatuses, AgreeWithThePlainWalkOverRandomShows) {
    const std::vector<std::string> words{"Caesura", "Vamp", "Repeat", "Skip", "EndOfSong", "AdvanceAttacca", ""};
    std::mt19937 random(20240607);
    const auto draw = [&random](unsigned int below) { return static_cast<unsigned int>(random() % below); };
    PlainStatusRules plain;
    for (int step = 0; step < 6000; ++step) {
        const unsigned int tickIndex = draw(40);
        switch (draw(12)) {
            case 0:
                statuses_.ClearCaesura(tickIndex);
                plain.ClearCaesura(tickIndex);
                break;
            case 1:
                if (tickIndex != 0) break;  // rarely, so that stale ones pile up
                statuses_.ClearFutureUpdates();
                plain.ClearFutureUpdates();
                break;
            case 2:
            case 3:
            case 4:
                ASSERT_EQ(plain.SendUntil(tickIndex), SendUntil(tickIndex)) << "step " << step;
                break;
            default: {
                const std::string& word = words[draw(static_cast<unsigned int>(words.size()))];
                const int count = static_cast<int>(draw(3));
                File(word, count, tickIndex);
                plain.File(word, count, tickIndex);
            }
        }
    }
}

}  // namespace
