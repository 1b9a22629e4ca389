#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "stage/live/screen_control.h"

namespace {

using stage::LiveStatus;
using stage::ScreenAction;
using stage::ScreenControl;
using stage::ScreenKey;
using stage::ScreenState;
using Kind = stage::ScreenKey::Kind;
using Mode = stage::ScreenState::Mode;
using std::chrono::milliseconds;

class ScreenControlTest : public testing::Test {
protected:
    ScreenControlTest() : control_({{"1", "First"}, {"2", "Second"}, {"3a", "Third"}}) {
        status_.song = "1";
        status_.motion = LiveStatus::Motion::Playing;
    }

    /// What is pressed in the language of scripts; empty for nothing.
    std::string Press(const ScreenKey& key) {
        const ScreenAction action = control_.Press(key, status_, now_);
        return action.kind == ScreenAction::Kind::Press ? action.line : "";
    }
    std::string Press(Kind kind) { return Press(ScreenKey{kind}); }
    /// What the last of the characters presses.
    std::string Type(const std::string& characters) {
        std::string line;
        for (const char character : characters)
            line = Press(ScreenKey{Kind::Character, static_cast<char32_t>(character)});
        return line;
    }
    [[nodiscard]] const ScreenState& State() const { return control_.GetState(); }

    LiveStatus status_;
    ScreenControl control_;
    ScreenControl::Moment now_{std::chrono::hours(1)};
};

TEST_F(ScreenControlTest, EachKey_PressesItsCommand) {
    EXPECT_EQ("go", Type(" "));
    EXPECT_EQ("play", Press(Kind::Enter));
    EXPECT_EQ("pause", Type("p"));
    EXPECT_EQ("pause", Type("P"));
    EXPECT_EQ("fade 3", Type("f"));
    EXPECT_EQ("cancel-fade", Type("c"));
    EXPECT_EQ("previous-marker", Press(Kind::Left));
    EXPECT_EQ("next-marker", Press(Kind::Right));
    EXPECT_EQ("undo", Type("u"));
    EXPECT_EQ("redo", Type("r"));
    EXPECT_EQ("save", Type("s"));
}

TEST_F(ScreenControlTest, KeyWithoutMeaning_IsSaidToHaveNone) {
    EXPECT_EQ("", Type("x"));
    EXPECT_TRUE(State().isRefusal);
    EXPECT_THAT(State().notice, testing::HasSubstr("? shows all keys"));
}

TEST_F(ScreenControlTest, EscapeTwiceWithinTwoSeconds_Panics) {
    EXPECT_EQ("stop", Press(Kind::Escape));
    now_ += milliseconds(2000);
    EXPECT_EQ("panic", Press(Kind::Escape));
}

TEST_F(ScreenControlTest, EscapeTwiceWithLongerBetween_StopsTwice) {
    EXPECT_EQ("stop", Press(Kind::Escape));
    now_ += milliseconds(2001);
    EXPECT_EQ("stop", Press(Kind::Escape));
}

TEST_F(ScreenControlTest, EscapeWhenStopped_PanicsAtOnce) {
    status_.motion = LiveStatus::Motion::Stopped;
    EXPECT_EQ("panic", Press(Kind::Escape));
}

TEST_F(ScreenControlTest, DigitsThenEnter_GoToTheBar) {
    EXPECT_EQ("", Type("12:3"));
    EXPECT_EQ(Mode::Place, State().mode);
    EXPECT_EQ("12:3", State().entry);
    EXPECT_EQ("seek 12:3", Press(Kind::Enter));
    EXPECT_EQ(Mode::Show, State().mode);
}

TEST_F(ScreenControlTest, EntryWithBackspaceAndEscape_IsChangedAndLeft) {
    Type("g17");
    Press(Kind::Backspace);
    EXPECT_EQ("1", State().entry);
    EXPECT_EQ("", Press(Kind::Escape));
    EXPECT_EQ(Mode::Show, State().mode);
    Type("g");
    EXPECT_EQ("", State().entry);
    EXPECT_EQ("", Press(Kind::Enter));
    EXPECT_EQ(Mode::Show, State().mode);
}

TEST_F(ScreenControlTest, SpaceWhileABarIsTyped_StillGoesOn) {
    EXPECT_EQ("go", Type("g12 "));
    EXPECT_EQ(Mode::Show, State().mode);
}

TEST_F(ScreenControlTest, UpAndDownWhilePlaying_StepThroughTheSongs) {
    EXPECT_EQ("next", Press(Kind::Down));
    EXPECT_EQ("previous", Press(Kind::Up));
}

TEST_F(ScreenControlTest, DownWhenStopped_OpensTheListFromWhichEnterLoads) {
    status_.motion = LiveStatus::Motion::Stopped;
    EXPECT_EQ("", Press(Kind::Down));
    EXPECT_EQ(Mode::Songs, State().mode);
    EXPECT_EQ(1U, State().chosen);
    Press(Kind::Down);
    Press(Kind::Down);
    EXPECT_EQ(2U, State().chosen);
    EXPECT_EQ("load 3a", Press(Kind::Enter));
    EXPECT_EQ(Mode::Show, State().mode);
}

TEST_F(ScreenControlTest, SpaceInTheList_StartsNothingAndSaysWhy) {
    status_.motion = LiveStatus::Motion::Stopped;
    Press(Kind::Up);
    EXPECT_EQ("", Type(" "));
    EXPECT_EQ(Mode::Songs, State().mode);
    EXPECT_TRUE(State().isRefusal);
    EXPECT_EQ("", Press(Kind::Escape));
    EXPECT_EQ(Mode::Show, State().mode);
}

TEST_F(ScreenControlTest, PlusPressedQuickly_CountsFromWhatWasAskedFor) {
    status_.tempoScale = 0.9;
    EXPECT_EQ("tempo 91%", Type("+"));
    EXPECT_EQ("tempo 92%", Type("="));
    now_ += std::chrono::seconds(1);
    EXPECT_EQ("tempo 89%", Type("-"));
}

TEST_F(ScreenControlTest, TempoAndVolumeAtTheirEnds_StayThere) {
    status_.tempoScale = 2;
    EXPECT_EQ("tempo 200%", Type("+"));
    EXPECT_EQ("volume 95%", Type("["));
    EXPECT_EQ("volume 100%", Type("]]"));
    EXPECT_EQ("volume 95% music", Type("{"));
}

TEST_F(ScreenControlTest, QuitWhilePlaying_AsksFirst) {
    EXPECT_EQ("", Type("q"));
    EXPECT_EQ(Mode::AskQuit, State().mode);
    EXPECT_EQ("", Type("q"));
    EXPECT_EQ("", Type("n"));
    EXPECT_EQ(Mode::Show, State().mode);
    EXPECT_EQ("quit", Type("qy"));
}

TEST_F(ScreenControlTest, QuitWhenStopped_AsksOnlyInALockedShow) {
    status_.motion = LiveStatus::Motion::Stopped;
    EXPECT_EQ("quit", Type("q"));
    status_.isLocked = true;
    EXPECT_EQ("", Type("q"));
    EXPECT_EQ(Mode::AskQuit, State().mode);
}

TEST_F(ScreenControlTest, SpaceAtTheQuestionWhetherToQuit_GoesOn) {
    EXPECT_EQ("go", Type("q "));
    EXPECT_EQ(Mode::Show, State().mode);
}

TEST_F(ScreenControlTest, QuestionWhetherToResume_IsAnsweredByYesOrNo) {
    status_.motion = LiveStatus::Motion::Stopped;
    control_.AskToResume("Go on?");
    EXPECT_EQ("", Type(" "));
    EXPECT_EQ(Mode::AskResume, State().mode);
    EXPECT_EQ(ScreenAction::Kind::Resume, control_.Press({Kind::Character, U'y'}, status_, now_).kind);
    control_.AskToResume("Go on?");
    EXPECT_EQ(ScreenAction::Kind::None, control_.Press({Kind::Character, U'n'}, status_, now_).kind);
    EXPECT_EQ(Mode::Show, State().mode);
}

TEST_F(ScreenControlTest, ShowStartedByAnotherDoor_AnswersTheQuestionWhetherToResume) {
    control_.AskToResume("Go on?");
    control_.Follow(status_, now_);
    EXPECT_EQ(Mode::Show, State().mode);
}

TEST_F(ScreenControlTest, RefusedPress_StaysInSightUntilTheNextOrForEightSeconds) {
    stage::CommandRecord record;
    record.command.verb = stage::Verb::Go;
    record.command.source.door = stage::Door::Terminal;
    record.outcome = stage::CommandRecord::Outcome::Refused;
    record.sentence = "\"go\" is refused: it came too soon.";
    control_.NoteRecord(record, "go", now_);
    EXPECT_EQ("REFUSED go: it came too soon.", State().notice);
    EXPECT_TRUE(State().isRefusal);
    ASSERT_EQ(1U, State().presses.size());
    EXPECT_FALSE(State().presses.front().isTaken);
    control_.Follow(status_, now_ + milliseconds(7999));
    EXPECT_FALSE(State().notice.empty());
    control_.Follow(status_, now_ + milliseconds(8000));
    EXPECT_TRUE(State().notice.empty());
    control_.NoteRecord(record, "go", now_);
    record.outcome = stage::CommandRecord::Outcome::Taken;
    control_.NoteRecord(record, "go", now_);
    EXPECT_TRUE(State().notice.empty());
    EXPECT_EQ("go", State().presses.front().text);
}

}  // namespace
