// The desk that every press passes: guard, order, refusals, log.

#include "stage/control/command_desk.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "stage/session/show_session.h"
#include "tests/player_core/support/test_interface.h"

namespace {

using namespace std::chrono_literals;
using stage::Command;
using stage::CommandRecord;
using stage::CommandSource;
using stage::Door;
using stage::Verb;

const CommandSource Key{Door::Terminal, ""};
const CommandSource Pedal{Door::MidiPort, "pedal"};

class CommandDeskTest : public testing::Test {
protected:
    CommandDeskTest() {
        files_.WriteWholeShow();
        stage::ShowSession::Options options;
        options.hasRunningFeed = false;
        session_ = std::make_unique<stage::ShowSession>(files_.Show(), files_.Settings(), options);
        session_->LoadSong("1");
    }

    CommandRecord Press(Verb verb, std::chrono::milliseconds at, const CommandSource& source = Key,
                        std::vector<stage::CommandArgument> arguments = {}) {
        return Desk().Execute({verb, std::move(arguments), source, 0, at});
    }
    stage::CommandDesk& Desk() { return session_->GetDesk(); }

    test_support::ShowFiles files_;
    std::unique_ptr<stage::ShowSession> session_;
};

TEST_F(CommandDeskTest, SamePressWithinTheGuard_IsRefusedAndSaysWhy) {
    EXPECT_TRUE(Press(Verb::Exit, 1000ms).IsTaken());
    const CommandRecord second = Press(Verb::Exit, 1249ms);
    EXPECT_EQ(CommandRecord::Outcome::Refused, second.outcome);
    EXPECT_EQ("\"exit\" is refused: it came 249 ms after \"exit\", and presses within 250 ms are one press",
              second.sentence);
    EXPECT_TRUE(Press(Verb::Exit, 1250ms).IsTaken());
}

TEST_F(CommandDeskTest, RefusedPressDoesNotProlongTheGuard) {
    EXPECT_TRUE(Press(Verb::Exit, 1000ms).IsTaken());
    EXPECT_FALSE(Press(Verb::Exit, 1200ms).IsTaken());
    EXPECT_TRUE(Press(Verb::Exit, 1260ms).IsTaken());
}

TEST_F(CommandDeskTest, GuardHoldsOverDoors) {
    EXPECT_TRUE(Press(Verb::Exit, 1000ms, Key).IsTaken());
    EXPECT_FALSE(Press(Verb::Exit, 1100ms, Pedal).IsTaken());
    EXPECT_FALSE(Press(Verb::Exit, 1100ms, {Door::Osc, "10.0.0.7"}).IsTaken());
    EXPECT_FALSE(Press(Verb::Exit, 1100ms, {Door::Page, "tablet"}).IsTaken());
}

TEST_F(CommandDeskTest, PressesWhoseClocksCrossed_AreGuardedAsWell) {
    EXPECT_TRUE(Press(Verb::Exit, 1000ms, Key).IsTaken());
    EXPECT_FALSE(Press(Verb::Exit, 990ms, Pedal).IsTaken());
}

TEST_F(CommandDeskTest, GoIsTheSamePressAsWhatItMayStandFor) {
    EXPECT_TRUE(Press(Verb::Go, 1000ms).IsTaken());
    EXPECT_FALSE(Press(Verb::Exit, 1100ms, Pedal).IsTaken());
    EXPECT_TRUE(Press(Verb::Next, 1100ms).IsTaken());
    EXPECT_TRUE(Press(Verb::Continue, 2000ms, Pedal).IsTaken());
    EXPECT_FALSE(Press(Verb::Go, 2100ms).IsTaken());
    EXPECT_TRUE(Press(Verb::Exit, 2100ms).IsTaken()) << "another verb than continue";
}

TEST_F(CommandDeskTest, StopsSeeksValuesAndBeats_AreNeverGuarded) {
    for (int i = 0; i < 3; ++i) {
        for (const Verb verb : {Verb::Stop, Verb::Panic, Verb::Pause, Verb::NextMarker, Verb::PreviousMarker,
                                Verb::NextMeasure, Verb::PreviousMeasure, Verb::ConductBeat, Verb::CancelFade})
            EXPECT_TRUE(Press(verb, 1000ms).IsTaken()) << stage::GetVerbRow(verb).name;
        EXPECT_TRUE(Press(Verb::Seek, 1000ms, Key, {1920U}).IsTaken());
        EXPECT_TRUE(Press(Verb::Tempo, 1000ms, Key, {0.9}).IsTaken());
    }
}

TEST_F(CommandDeskTest, WhatWasDecidedBefore_IsRepeatedUnguarded) {
    for (const Door door : {Door::Script, Door::Replay, Door::Automatic}) {
        EXPECT_TRUE(Press(Verb::Exit, 1000ms, {door, ""}).IsTaken());
        EXPECT_TRUE(Press(Verb::Exit, 1000ms, {door, ""}).IsTaken());
    }
    EXPECT_TRUE(Press(Verb::Exit, 1000ms, Key).IsTaken()) << "a script's press is no reason to refuse a person's";
}

TEST_F(CommandDeskTest, KeyThatRepeatsItself_IsOnePressUntilItIsReleased) {
    Desk().NoteRelease(Pedal, Verb::Exit);
    EXPECT_TRUE(Press(Verb::Exit, 1s, Pedal).IsTaken());
    const CommandRecord repeated = Press(Verb::Exit, 2s, Pedal);
    EXPECT_EQ("\"exit\" is refused: its key was not released yet", repeated.sentence);
    EXPECT_FALSE(Press(Verb::Exit, 3s, Pedal).IsTaken());
    EXPECT_TRUE(Press(Verb::Exit, 3s, Key).IsTaken()) << "another door has a key of its own";
    Desk().NoteRelease(Pedal, Verb::Exit);
    EXPECT_TRUE(Press(Verb::Exit, 4s, Pedal).IsTaken());
}

TEST_F(CommandDeskTest, DoorThatNeverReportsAReleaseIsNotHeldBack) {
    EXPECT_TRUE(Press(Verb::Exit, 1s, Pedal).IsTaken());
    EXPECT_TRUE(Press(Verb::Exit, 2s, Pedal).IsTaken());
}

TEST_F(CommandDeskTest, ReleaseThatWasLost_HoldsNoPressBackForLong) {
    Desk().NoteRelease(Pedal, Verb::Exit);
    EXPECT_TRUE(Press(Verb::Exit, 1s, Pedal).IsTaken());
    EXPECT_TRUE(Press(Verb::Exit, 1s + stage::CommandDesk::LongestKeyRepeat, Pedal).IsTaken());
}

TEST_F(CommandDeskTest, LogHasAllTakenOrNotInOrderWithTheirPlaces) {
    Press(Verb::Load, 500ms, Key, {std::string("2")});
    Press(Verb::Play, 1000ms);
    Press(Verb::Play, 1001ms);
    Press(Verb::Load, 1002ms, Key, {std::string("99")});
    const std::vector<CommandRecord> records = Desk().CopyRecords();
    ASSERT_EQ(4U, records.size());
    for (std::size_t i = 0; i < records.size(); ++i)
        EXPECT_EQ(i + 1, records[i].command.id);
    EXPECT_EQ("1", records[0].place.song);
    EXPECT_EQ("2", records[1].place.song);
    EXPECT_TRUE(records[1].IsTaken());
    EXPECT_EQ(CommandRecord::Outcome::Refused, records[2].outcome);
    EXPECT_NE(std::string::npos, records[3].sentence.find("99"));
}

TEST_F(CommandDeskTest, WhatCannotBeCarriedOut_IsToldInTheRecord) {
    const CommandRecord record = Press(Verb::Locate, 1s, {Door::MachineControl, ""}, {std::chrono::nanoseconds(20h)});
    EXPECT_EQ(CommandRecord::Outcome::Failed, record.outcome);
    EXPECT_EQ("no song's time code comes to 72000.000 s", record.sentence);
}

TEST_F(CommandDeskTest, PostedCommandsAreCarriedOutOnTheHostsThreadInOrder) {
    int woken = 0;
    Desk().SetWakeUp([&] { ++woken; });
    std::vector<std::string> told;
    std::thread page([&] {
        const auto tell = [&](const CommandRecord& record) { told.push_back(stage::AsText(record.command)); };
        Desk().Post({Verb::Load, {std::string("2")}, {Door::Page, ""}, 0, 1s}, tell);
        Desk().Post({Verb::Seek, {1920U}, {Door::Page, ""}, 0, 1s}, tell);
    });
    page.join();
    EXPECT_EQ(2, woken);
    EXPECT_TRUE(told.empty());
    EXPECT_EQ(2U, Desk().RunPosted());
    EXPECT_EQ((std::vector<std::string>{"load 2", "seek tick 1920"}), told);
    EXPECT_EQ("2", session_->GetCurrentSongNumber());
    EXPECT_EQ(0U, Desk().RunPosted());
}

TEST_F(CommandDeskTest, CommandGivenFromInsideOfAnother_IsCarriedOut) {
    bool isAnswered = false;
    Desk().SetRecordListener([&](const CommandRecord& record) {
        if (record.command.verb == Verb::Play && !std::exchange(isAnswered, true)) Press(Verb::Stop, 1s);
    });
    Press(Verb::Play, 1s);
    EXPECT_TRUE(isAnswered);
    EXPECT_TRUE(session_->GetIsStopped());
}

TEST_F(CommandDeskTest, LogForgetsTheOldest) {
    stage::CommandDesk::Options options;
    options.keptRecords = 3;
    struct Nothing final : stage::CommandPerformer {
        explicit Nothing(stage::ShowSession& show) : session(show) {}
        Interface& GetFacade() override { return session; }
        const tavo_midi::ShowData& GetMusic() override { return session.GetShow(); }
        stage::CommandPlace GetPlace() override { return {}; }
        void Panic() override {}
        void LocateTimeCode(std::chrono::nanoseconds) override {}
        void ConductBeat(std::chrono::nanoseconds) override {}
        void Restore(const std::string&) override {}
        void Edit(const std::string&) override {}
        void UndoEdit() override {}
        void RedoEdit() override {}
        void SetCountIn(unsigned int /*beats*/) override {}
        void SaveEdits() override {}
        void Quit() override {}
        stage::ShowSession& session;
    } performer(*session_);
    stage::CommandDesk desk(performer, options);
    for (int i = 0; i < 5; ++i)
        (void)desk.Execute({Verb::Quit, {}, Key, 0, 1s});
    const std::vector<CommandRecord> records = desk.CopyRecords();
    ASSERT_EQ(3U, records.size());
    EXPECT_EQ(3U, records.front().command.id);
}

TEST_F(CommandDeskTest, ManyDoorsAtOnce_OnePressIsTakenAndTheOrderIsOne) {
    std::atomic<int> taken{0};
    std::vector<std::thread> doors;
    for (const Door door : {Door::Terminal, Door::MidiPort, Door::Osc, Door::Page}) {
        doors.emplace_back([&, door] {
            for (int i = 0; i < 200; ++i)
                taken += Desk().Admit({Verb::Exit, {}, {door, ""}, 0, 5s}).IsTaken() ? 1 : 0;
        });
    }
    for (std::thread& door : doors)
        door.join();
    EXPECT_EQ(1, taken);
    const std::vector<CommandRecord> records = Desk().CopyRecords();
    ASSERT_EQ(800U, records.size());
    for (std::size_t i = 0; i < records.size(); ++i)
        ASSERT_EQ(i + 1, records[i].command.id);
}

TEST_F(CommandDeskTest, GuardIsTheOneOfTheSettings) {
    session_.reset();
    files_.WriteText("settings.json", "{\"pressGuardMs\": 40}");
    stage::ShowSession::Options options;
    options.hasRunningFeed = false;
    session_ = std::make_unique<stage::ShowSession>(files_.Show(), files_.Settings(), options);
    const CommandRecord early = Press(Verb::Exit, 0ms);
    EXPECT_EQ("\"exit\" is refused: no song is loaded", early.sentence);
    EXPECT_TRUE(Press(Verb::Load, 0ms, Key, {std::string("1")}).IsTaken());
    EXPECT_TRUE(Press(Verb::Exit, 1000ms).IsTaken());
    EXPECT_FALSE(Press(Verb::Exit, 1039ms).IsTaken());
    EXPECT_TRUE(Press(Verb::Exit, 1040ms).IsTaken());
}

}  // namespace
