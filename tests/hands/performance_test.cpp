// Performances of a show that somebody else may be editing.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tavo_core/log_change_text.h"
#include "tests/hands/session_program.h"
#include "tests/hands/shared_show.h"
#include "tests/live/live_program.h"

using test_support::LiveProgram;
using test_support::SessionProgram;
using testing::HasSubstr;

namespace {

class Performance : public test_support::SharedShow {
protected:
    /// The press that adds a marker to what is in use.
    [[nodiscard]] std::string EditPress(const std::string& text) const {
        CL::ChangeLog after = LogInUse();
        const CL::ChangeLog before = after;
        after.GetSongLog("2").GetMarkers().Add(CL::Marker(0, text));
        return "edit " + CL::WriteLogChange(CL::Compare(before, after));
    }
    [[nodiscard]] std::vector<std::string> Words() const { return {Show(), "--output", "null", "--no-take"}; }
};

TEST_F(Performance, OfAShowThatIsHeld_PlaysAndRefusesEditsWithWhoHoldsIt) {
    SessionProgram session(Show());
    ASSERT_TRUE(session.Does("add mine"));
    LiveProgram play(Words());
    play.WaitFor("ready");
    EXPECT_THAT(play.WaitFor("message").value("sentence", ""),
                testing::MatchesRegex("The show is open for playing only: the show is held by .* for a session .*\\."));
    play.Press(EditPress("yours"));
    const nlohmann::json refused = play.WaitFor("press", {{"outcome", "failed"}});
    EXPECT_THAT(refused.value("sentence", ""), HasSubstr("the show is held by "));
    play.Press("play");
    play.WaitFor("press", {{"press", "play"}, {"outcome", "taken"}});
    play.Quit();
    EXPECT_EQ("ok 1.1", session.Ask("save"));
}

TEST_F(Performance, EditsSavedByALine_IsReportedAsAPress) {
    LiveProgram play(Words());
    play.WaitFor("ready");
    play.Press(EditPress("mine"));
    play.WaitFor("press", {{"source", "edit"}, {"outcome", "taken"}});
    play.Press("save");
    play.WaitFor("press", {{"press", "save"}, {"outcome", "taken"}});
    play.Quit();
    EXPECT_EQ("1.1", VersionInUse());
}

TEST_F(Performance, ThatIsLocked_LeavesTheShowToOthers) {
    std::vector<std::string> words = Words();
    words.emplace_back("--locked");
    LiveProgram play(words);
    play.WaitFor("ready");
    EXPECT_EQ(0, AddMarker("for tomorrow").exitCode);
    play.Press(EditPress("now"));
    EXPECT_THAT(play.WaitFor("press", {{"outcome", "failed"}}).value("sentence", ""), HasSubstr("the show is locked"));
    play.Quit();
    EXPECT_EQ("1.1", VersionInUse());
}

TEST_F(Performance, ThatWasKilled_EditsAreMadeAgainAlsoWhereItIsLocked) {
    {
        LiveProgram play(Words());
        play.WaitFor("ready");
        play.Press(EditPress("mine"));
        play.WaitFor("press", {{"source", "edit"}, {"outcome", "taken"}});
        play.Kill();
    }
    std::vector<std::string> words = Words();
    words.emplace_back("--locked");
    {
        LiveProgram play(words);
        // A busy machine may have something to say first.
        std::string told;
        while (told.find("were made again") == std::string::npos) {
            const nlohmann::json message = play.WaitFor("message");
            ASSERT_TRUE(message.is_object());
            told = message.value("sentence", "");
        }
        EXPECT_THAT(told, HasSubstr("were made again for this performance."));
        play.Quit();
    }
    EXPECT_THAT(Log({"recover"}).out, HasSubstr("song 2: marker 1, \"mine\" added\nsaved version 1.1"));
}

}  // namespace
