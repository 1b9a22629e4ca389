// The operator's screen of `stage play` in a real terminal.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include "tests/live/live_program.h"
#include "tests/live/terminal.h"
#include "tests/stage/small_show.h"

namespace {

using test_support::LiveProgram;
using test_support::Terminal;
using testing::HasSubstr;

struct Size {
    int columns;
    int rows;
};

class Screen : public test_support::SmallShow {
protected:
    void SetUp() override {
        EXPECT_EQ(0, Edit("add vamp --song 1 --from 2 --to 2").exitCode);
        if (!terminal_.IsOpen()) GTEST_SKIP() << "tmux cannot be started here.";
    }
    void Start(const std::string& more = "--no-take", const std::string& shown = "Space go on") {
        terminal_.RunInShell("sh -c 'echo $$ >" + Pid() + "; exec " + std::string(STAGE_BINARY) + " play " + Show() +
                             " --output null --osc off " + more + "'; echo left=$?");
        terminal_.WaitFor(shown);
    }
    void Signal(int signal) { ::kill(std::stoi(test_support::ReadAll(Pid())), signal); }
    [[nodiscard]] std::string Pid() const { return directory_ / "pid"; }

    /// What was typed is seen, lines are read as lines, the cursor is there and the screen is the shell's.
    void ExpectUsable() {
        EXPECT_EQ("0", terminal_.Ask("alternate_on"));
        EXPECT_EQ("1", terminal_.Ask("cursor_flag"));
        terminal_.RunInShell("stty -a | tr ' ' '\\n' | grep -cE '^(icanon|echo|isig|icrnl|opost);?$'; echo us''able");
        terminal_.WaitFor("usable");
        EXPECT_THAT(terminal_.Capture(), HasSubstr("\n5\nusable\n"));
    }

    Terminal terminal_{80, 24};
};

class ScreenSizes : public Screen, public testing::WithParamInterface<Size> {
protected:
    void SetUp() override {
        Screen::SetUp();
        if (IsSkipped()) return;
        terminal_.Tmux(
            {"resize-window", "-x", std::to_string(GetParam().columns), "-y", std::to_string(GetParam().rows)});
    }
};

TEST_P(ScreenSizes, Evening_IsPlayedByKeys) {
    Start();
    terminal_.WaitFor("1  First");
    EXPECT_THAT(terminal_.Capture(), HasSubstr("STOPPED"));
    EXPECT_EQ(static_cast<std::size_t>(GetParam().rows), terminal_.CaptureLines().size());
    EXPECT_THAT(terminal_.CaptureLines().back(), HasSubstr("Space go on"));

    terminal_.Press({"Space"});
    terminal_.WaitFor("vamp bar 2: pass 2");
    EXPECT_THAT(terminal_.Capture(), HasSubstr("PLAYING"));
    EXPECT_THAT(terminal_.Capture(), HasSubstr("LAMP ON"));
    // The second one comes at once: it is refused, and says so.
    terminal_.Press({"Space", "Space"});
    terminal_.WaitFor("REFUSED go: it came");
    EXPECT_THAT(terminal_.Capture(), HasSubstr("leaves at its end"));
    terminal_.WaitFor("lamp off");

    terminal_.Press({"+"});
    terminal_.WaitFor("at 101%");
    terminal_.Press({"["});
    terminal_.WaitFor("master 95%");
    terminal_.Press({"1", "0"});
    terminal_.WaitFor("Go to bar: 10_");
    terminal_.Press({"Enter"});
    terminal_.WaitFor("seek 10");
    terminal_.Press({"9", "9", "Enter"});
    terminal_.WaitFor("REFUSED seek 99");

    terminal_.Press({"q"});
    terminal_.WaitFor("Quit while the show is playing?");
    terminal_.Press({"n"});
    terminal_.Press({"Escape"});
    terminal_.WaitFor("STOPPED");
    terminal_.Press({"Escape"});
    terminal_.WaitFor("panic");
    terminal_.Press({"Down"});
    terminal_.WaitFor(">    2  Second");
    terminal_.Press({"Enter"});
    terminal_.WaitFor("load 2");
    terminal_.Press({"q"});
    terminal_.WaitFor("left=0");
    ExpectUsable();
}

INSTANTIATE_TEST_SUITE_P(UsualAndLarge, ScreenSizes, testing::Values(Size{80, 24}, Size{200, 60}),
                         [](const auto& tested) {
                             return std::to_string(tested.param.columns) + "x" + std::to_string(tested.param.rows);
                         });

TEST_F(Screen, TerminalThatIsResized_IsDrawnAnew) {
    Start();
    terminal_.Tmux({"resize-window", "-x", "120", "-y", "40"});
    terminal_.WaitUntil(
        [&] {
            const auto lines = terminal_.CaptureLines();
            return lines.size() == 40 && lines.back().find("Space go on") != std::string::npos;
        },
        "the keys in its last row");
    terminal_.Tmux({"resize-window", "-x", "70", "-y", "21"});
    terminal_.WaitUntil(
        [&] {
            const auto lines = terminal_.CaptureLines();
            return lines.size() == 21 && lines.back().find("Space go on") != std::string::npos;
        },
        "the keys in its last row");
}

TEST_F(Screen, KeyThatThisTerminalDoesNotKnow_PressesNothing) {
    Start();
    terminal_.Press({"Space"});
    terminal_.WaitFor("PLAYING");
    terminal_.Tmux({"send-keys", "-H", "1b", "5b", "31", "3b", "38", "43"});
    terminal_.WaitFor("This key has no meaning here");
    EXPECT_THAT(terminal_.Capture(), HasSubstr("PLAYING"));
    terminal_.Press({"C-c"});
    terminal_.WaitFor("Quit while the show is playing?");
}

TEST_F(Screen, TakeThatBrokeOff_IsOfferedAndGoneOnWith) {
    {
        LiveProgram play({Show(), "--output", "null"});
        play.WaitFor("ready");
        play.Press("seek 5");
        play.Press("play");
        play.WaitFor("bar", {{"bar", "6"}});
        play.Kill();
    }
    Start("", "Y yes   N no");
    EXPECT_THAT(terminal_.Capture(), HasSubstr("The last show broke off in song 1 at bar"));
    terminal_.Press({"y"});
    terminal_.WaitFor("restore");
    EXPECT_THAT(terminal_.Capture(), HasSubstr("STOPPED"));
}

TEST_F(Screen, LockedShow_TakesNoEditsAndAsksBeforeItQuits) {
    Start("--no-take --locked");
    terminal_.WaitFor("LOCKED");
    terminal_.Press({"u"});
    terminal_.WaitFor("FAILED undo: the show is locked");
    terminal_.Press({"q"});
    terminal_.WaitFor("The show is locked. Quit all the same?");
    terminal_.Press({"y"});
    terminal_.WaitFor("left=0");
}

TEST_F(Screen, SigtermWhilePlaying_EndsInOrder) {
    Start();
    terminal_.Press({"Space"});
    terminal_.WaitFor("PLAYING");
    Signal(SIGTERM);
    terminal_.WaitFor("left=0");
    ExpectUsable();
}

class ScreenEnds : public Screen, public testing::WithParamInterface<int> {};

TEST_P(ScreenEnds, SignalWhilePlaying_LeavesTheTerminalAsItWas) {
    if (test_support::IsSanitized && GetParam() != SIGHUP) GTEST_SKIP() << "The sanitizer answers this signal.";
    Start();
    terminal_.Press({"Space"});
    terminal_.WaitFor("PLAYING");
    Signal(GetParam());
    terminal_.WaitFor("left=" + std::to_string(128 + GetParam()));
    ExpectUsable();
}

INSTANTIATE_TEST_SUITE_P(Signals, ScreenEnds, testing::Values(SIGSEGV, SIGABRT, SIGHUP),
                         [](const auto& tested) { return std::string("Signal") + std::to_string(tested.param); });

/// Without a terminal.
class Account : public test_support::SmallShow {
protected:
    /// The next line that holds the text.
    static std::string WaitFor(test_support::Child& play, const std::string& text) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (std::chrono::steady_clock::now() < end) {
            const auto line = play.NextLine(std::chrono::seconds(30));
            if (line && line->find(text) != std::string::npos) return *line;
        }
        ADD_FAILURE() << "no line with \"" << text << "\" came";
        return "";
    }
};

TEST_F(Account, Evening_IsToldInALineForEachThing) {
    for (const char* edit : {"add vamp --song 1 --from 2 --to 2", "add fermata --song 1 --from 4:3 --to 4:4"})
        ASSERT_EQ(0, Edit(edit).exitCode);
    test_support::Child play({STAGE_BINARY, "play", Show(), "--output", "null", "--no-take"});
    play.CollectLines();
    EXPECT_EQ("Evening plays on null", WaitFor(play, "plays on"));
    EXPECT_EQ("song 1 First", WaitFor(play, "song 1"));
    play.Write("tempo 200%");
    play.Write("go");
    EXPECT_EQ("pressed: go", WaitFor(play, "pressed: go"));
    EXPECT_EQ("plays from bar 1", WaitFor(play, "plays from"));
    EXPECT_EQ("vamp bar 2, pass 2", WaitFor(play, "pass 2"));
    play.Write("exit");
    EXPECT_EQ("fermata holds at bar 4:4", WaitFor(play, "fermata holds"));
    play.Write("exit");
    EXPECT_THAT(WaitFor(play, "fermata released"), HasSubstr("bar 4:4"));
    EXPECT_EQ("bar 8", WaitFor(play, "bar 8"));
    play.Write("seek 400");
    EXPECT_THAT(WaitFor(play, "seek 400"), HasSubstr("in song 1"));
    play.Write("quit");
    EXPECT_EQ("The show has ended.", WaitFor(play, "ended"));
    EXPECT_EQ(0, play.End(0));
}

}  // namespace
