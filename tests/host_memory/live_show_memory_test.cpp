// A performance while memory runs out on the host's thread.

#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <stdexcept>
#include <string>
#include <thread>

#include "stage/live/live_show.h"
#include "tests/memory/failing_allocation.h"
#include "tests/player_core/support/test_interface.h"

namespace {

using test_support::FailingAllocation;

constexpr const char* TooShort = "The memory is too short to show all that happens; the show goes on.";

/// Counts without allocating what it has announced itself.
class Counting final : public stage::LiveListener {
public:
    void OnLiveEvent(const stage::LiveEvent& /*event*/) override {}
    void OnRecord(const stage::CommandRecord& record) override {
        if (record.command.verb == stage::Verb::Volume) ++records;
        if (isThrowing) throw std::runtime_error("the printer is out of paper");
    }
    void OnNotification(const notify::GuiNotification& /*notification*/) override {}
    void OnMessage(const std::string& sentence) override {
        if (sentence == awaited) ++messages;
        if (sentence == TooShort) ++complaints;
        if (sentence.starts_with("Not all could be shown: ")) trouble = sentence;
    }

    std::string awaited;
    std::string trouble;
    int records = 0;
    int messages = 0;
    int complaints = 0;
    bool isThrowing = false;
};

class LiveShowMemory : public testing::Test {
protected:
    LiveShowMemory() {
        files_.WriteMusic("evening.showdata", {test_support::MakeShowSong("1", 16)});
        files_.WriteLog("evening-1.0.logdata", {1, 0}, [](CL::ChangeLog&) {});
        stage::LiveShow::Options options;
        options.output.kind = stage::OutputChoice::Kind::Null;
        options.settingsDirectory = files_.Settings();
        live_ = std::make_unique<stage::LiveShow>(files_.Show(), options);
    }

    /// Until the condition holds; false after a minute.
    template <class Condition>
    bool DeliverUntil(Counting& listener, Condition&& isMet) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
        while (!isMet() && std::chrono::steady_clock::now() < end) {
            live_->Deliver(listener);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return isMet();
    }
    /// Returns when the rendering thread has decided all presses.
    void Press(const std::string& line, std::size_t times) {
        const stage::CommandDesk& desk = live_->GetSession().GetDesk();
        const std::size_t decided = desk.CopyRecords().size() + times;
        for (std::size_t i = 0; i < times; ++i)
            live_->Press(live_->Read(line, {stage::Door::Terminal, "test"}));
        while (desk.CopyRecords().size() < decided)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }

    test_support::ShowFiles files_;
    std::unique_ptr<stage::LiveShow> live_;
};

TEST_F(LiveShowMemory, RunsOutWhileNewsIsDelivered_AllOfItIsDeliveredOnce_AndThatIsSaid) {
    Counting listener;
    listener.awaited = "A sentence that is too long to do without an allocation.";
    bool hasFailed = true;
    int failures = 0;
    for (std::size_t failing = 0; hasFailed; ++failing) {
        SCOPED_TRACE(failing);
        listener.records = 0;
        listener.messages = 0;
        Press("volume 90%", 2);
        live_->NoteMessage(listener.awaited);
        {
            const FailingAllocation failingOne(failing);
            EXPECT_TRUE(live_->Deliver(listener));
            hasFailed = FailingAllocation::CountLeft() == 0;
        }
        failures += hasFailed ? 1 : 0;
        ASSERT_TRUE(DeliverUntil(listener, [&] { return listener.records >= 2 && listener.messages >= 1; }));
        EXPECT_EQ(2, listener.records);
        EXPECT_EQ(1, listener.messages);
        ASSERT_LT(failing, 1000U);
    }
    EXPECT_GT(failures, 0);
    EXPECT_TRUE(DeliverUntil(listener, [&] { return listener.complaints > 0; }));
}

TEST_F(LiveShowMemory, ListenerThatThrows_MissesOnlyThat_AndOthersHearAll) {
    Counting throwing;
    throwing.isThrowing = true;
    Counting listener;
    live_->AddListener(throwing);
    Press("volume 80%", 3);
    ASSERT_TRUE(DeliverUntil(listener, [&] { return listener.records == 3 && !listener.trouble.empty(); }));
    EXPECT_EQ(3, throwing.records);
    EXPECT_EQ("Not all could be shown: the printer is out of paper. The show goes on.", listener.trouble);
    EXPECT_EQ(listener.trouble, throwing.trouble);
    live_->RemoveListener(throwing);
}

}  // namespace
